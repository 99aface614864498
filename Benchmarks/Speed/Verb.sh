# ./run bench, read by ./run.
# shellcheck shell=bash

bench_packages=(libbenchmark-dev libzmq3-dev libglib2.0-dev libdbus-1-dev libboost-dev libabsl-dev liblmdb-dev
    libleveldb-dev gnuplot-nox python3)

# verb_bench [--write] [--quick] [FILTER...]
verb_bench() {
    local write=no options=() folder=build/bench
    while [[ "${1:-}" == --* ]]; do
        case $1 in
        --write) write=yes ;;
        --quick) options+=(--smoke) ;;
        *) fail "bench has no option '$1'; it takes --write, --quick, and parts of the names of rows" ;;
        esac
        shift
    done
    [ "$write" = no ] || [ $((${#options[@]} + $#)) -eq 0 ] ||
        fail "--write takes the figures of a whole run: neither --quick nor a part of the rows"
    need "${build_packages[@]}" "${bench_packages[@]}"
    build bench
    # A second process on these processors is in every figure.
    awk -v cores="$jobs" '$1 > 0.3 * cores { print "the load is " $1 ": whatever else runs here is measured too" }' /proc/loadavg
    say "measuring; it takes some minutes"
    "$folder/bin/SpeedBenchmark" "${options[@]}" --json "$folder/speed.json" "$@"
    say "what it came to; the figures are in $folder/speed.json"
    Benchmarks/Speed/SpeedPage.py tables "$folder/speed.json"
    if [ "$write" = yes ]; then
        Benchmarks/Speed/SpeedPage.py write "$folder/speed.json" Documentation/Speed.md Documentation/Speed
    else
        Benchmarks/Speed/SpeedPage.py plots "$folder/speed.json" "$folder/plots"
    fi
}
