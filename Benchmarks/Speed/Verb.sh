# ./run bench, read by ./run.
# shellcheck shell=bash

bench_packages=(libbenchmark-dev libzmq3-dev libglib2.0-dev libdbus-1-dev libboost-dev libabsl-dev liblmdb-dev
    libleveldb-dev gnuplot-nox python3 strace)

quiet_load=0.6
is_quiet() { awk -v most="$quiet_load" '{ exit !($1 <= most) }' /proc/loadavg; }

# wait_for_quiet: until the load is gone that was there; fails when it stays for three minutes.
wait_for_quiet() {
    local waited
    for ((waited = 0; waited < 180; waited += 5)); do
        is_quiet && return 0
        [ $((waited % 30)) -ne 0 ] || echo "waiting for the load to go, it is $(cut -d ' ' -f 1 /proc/loadavg)"
        sleep 5
    done
    is_quiet
}

# verb_bench [--write] [--quick] [--flushes] [FILTER...]
verb_bench() {
    local write=no flushes=no options=() folder=build/bench
    while [[ "${1:-}" == --* ]]; do
        case $1 in
        --write) write=yes ;;
        --quick) options+=(--smoke) ;;
        --flushes) flushes=yes ;;
        *) fail "bench has no option '$1'; it takes --write, --quick, --flushes, and parts of the names of rows" ;;
        esac
        shift
    done
    [ "$write" = no ] || [ $((${#options[@]} + $#)) -eq 0 ] ||
        fail "--write takes the figures of a whole run: neither --quick nor a part of the rows"
    need "${build_packages[@]}" "${bench_packages[@]}"
    [ "$flushes" = no ] || [ "$write$((${#options[@]} + $#))" = no0 ] ||
        fail "--flushes measures no time: it goes with nothing else"
    build bench
    if [ "$flushes" = yes ]; then
        say "flushes of a store: what strace sees, and what the benchmark counts"
        Benchmarks/Speed/Flushes.py "$folder/bin/SpeedBenchmark" "$folder/strace"
        return
    fi
    # A second process on these processors is in every figure; what the build has left of the load goes by itself.
    if [ "$write" = yes ]; then
        wait_for_quiet || fail "the load stays above $quiet_load; the page takes no figures of a machine that does other work: end that, or leave out --write"
    else
        is_quiet || echo "the load is $(cut -d ' ' -f 1 /proc/loadavg): whatever else runs here is measured too"
    fi
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
