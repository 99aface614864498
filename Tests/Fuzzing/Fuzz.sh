#!/usr/bin/env bash
# Runs the fuzzers of a build, or packs what they have gathered.
#   Fuzz.sh run BUILD [SECONDS] [HARNESS...]   each for so long (60), as many at once as there are processors
#   Fuzz.sh pack BUILD [HARNESS...]            minimises the working corpora into Corpora/
# BUILD/corpora/ keeps what was gathered, BUILD/findings/ what failed, BUILD/logs/ what each fuzzer said.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
longest_input=4096

fail() {
    printf 'Fuzz.sh: %s\n' "$*" >&2
    exit 1
}

[ $# -ge 2 ] || fail "takes run or pack, and a build folder; it was given '$*'"
verb=$1
build=$(cd "$2" && pwd) || fail "there is no build folder $2: cmake --preset fuzz makes it"
shift 2
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:allocator_may_return_null=1:quarantine_size_mb=64}

# harnesses [NAME...]: those named, with or without "Fuzz" before it, or all.
harnesses() {
    local name
    if [ $# -eq 0 ]; then
        find "$build/tests" -maxdepth 1 -type f -name 'Fuzz*' -printf '%f\n' | sort
        return
    fi
    for name in "$@"; do
        name=Fuzz${name#Fuzz}
        [ -x "$build/tests/$name" ] || fail "there is no harness '$name'; there are: $(harnesses | tr '\n' ' ')"
        echo "$name"
    done
}

# prepare HARNESS: its working corpus begins with what the repository keeps.
prepare() {
    mkdir -p "$build/corpora/$1" "$build/findings/$1" "$build/logs"
    if [ -f "$here/Corpora/$1.tar.xz" ]; then
        tar -xJf "$here/Corpora/$1.tar.xz" -C "$build/corpora/$1"
    fi
}

# seeds HARNESS: what its bytes may begin with, beside the corpus.
seeds() {
    local regressions=$here/Regressions/$1
    [ ! -d "$regressions" ] || echo "$regressions"
    case $1 in
    FuzzDocument) echo "$build/seeds/documents" ;;
    FuzzSqliteStore) echo "$build/seeds/databases" ;;
    FuzzFileFormat) echo "$build/seeds/stores" ;;
    FuzzArrayText | FuzzFileStore | FuzzVariableText) ;;
    *) echo "$build/seeds/walks" ;;
    esac
}

prepare_seeds() {
    mkdir -p "$build/seeds/"{documents,databases,stores,walks}
    cp "$here/../Tools/Stores/"*.json "$build/seeds/documents/"
    cp "$here/../Tools/Stores/"*.db "$build/seeds/databases/"
    # Any bytes are a long walk; a fuzzer that begins with nothing takes its time to get there.
    local store number
    for number in $(seq 24); do
        head -c $((number * 40)) /dev/urandom >"$build/seeds/walks/$number"
    done
    for store in "$here/../Tools/Stores/"*.store; do
        # A first byte of 7: its checksums are made right again.
        { printf '\007' && cat "$store"; } >"$build/seeds/stores/$(basename "$store")"
    done
}

longest() { if [ "$1" = FuzzSqliteStore ]; then echo 16384; else echo "$longest_input"; fi; }

# A process's queues carry its number as their server port; one that a finding ended has left them.
remove_queues() { rm -f /dev/mqueue/*_"$1"_*; }

# fuzz HARNESS SECONDS: in a log of its own; fails when there is a finding.
fuzz() {
    local name=$1 seconds=$2 log=$build/logs/$1.log options=() extra pid result=0
    prepare "$name"
    [ ! -f "$here/Dictionaries/$name.dict" ] || options+=("-dict=$here/Dictionaries/$name.dict")
    mapfile -t extra < <(seeds "$name")
    "$build/tests/$name" -max_total_time="$seconds" -max_len="$(longest "$name")" -len_control=20 -timeout=60 -report_slow_units=60 \
        -rss_limit_mb=2048 \
        -print_final_stats=1 -reload=0 -artifact_prefix="$build/findings/$name/" "${options[@]}" \
        "$build/corpora/$name" "${extra[@]}" >"$log" 2>&1 &
    pid=$!
    wait "$pid" || result=$?
    remove_queues "$pid"
    times >"$build/logs/$name.times"
    return "$result"
}

last_of() { sed -nE "s/.*$2.*/\\1/p" "$build/logs/$1.log" 2>/dev/null | tail -n 1; }

show_progress() {
    local name
    for name in "$@"; do
        printf '  %-22s %s executions, coverage %s\n' "$name" "$(last_of "$name" '^#([0-9]+)')" \
            "$(last_of "$name" 'cov: ([0-9]+)')"
    done
}

verb_run() {
    local seconds=60 names name running=() pids=() i found=0 executions=0 total=0 files
    if [[ ${1:-} =~ ^[0-9]+$ ]]; then
        seconds=$1
        shift
    fi
    names=$(harnesses "$@")
    prepare_seeds
    local jobs waited
    jobs=$(nproc)
    for name in $names; do
        echo "$name, $seconds seconds"
        fuzz "$name" "$seconds" &
        pids+=("$!")
        running+=("$name")
        # One for each processor; a line of each meanwhile.
        waited=0
        while [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; do
            sleep 1
            waited=$((waited + 1))
            [ $((waited % 30)) -ne 0 ] || show_progress "${running[@]: -$jobs}"
        done
    done
    for i in "${!pids[@]}"; do
        wait "${pids[$i]}" || true
    done
    printf '\n%-22s %12s %8s %9s %8s %9s\n' harness executions 'per s' coverage inputs findings
    for name in "${running[@]}"; do
        files=$(find "$build/findings/$name" -type f | wc -l)
        executions=$(last_of "$name" 'number_of_executed_units: ([0-9]+)')
        executions=${executions:-$(last_of "$name" '^#([0-9]+)')}
        printf '%-22s %12s %8s %9s %8s %9s\n' "$name" "${executions:-0}" \
            "$(last_of "$name" 'average_exec_per_sec: *([0-9]+)')" "$(last_of "$name" 'cov: ([0-9]+)')" \
            "$(find "$build/corpora/$name" -type f | wc -l)" "$files"
        total=$((total + ${executions:-0}))
        if ! grep -q '^Done [0-9]* runs' "$build/logs/$name.log" && [ "$files" -eq 0 ]; then
            echo "$name did not come to an end; $build/logs/$name.log tells why"
            found=$((found + 1))
        fi
        found=$((found + files))
    done
    find "$build/findings" -type f | sort | while read -r file; do
        name=$(basename "$(dirname "$file")")
        echo "finding: $build/tests/$name $file"
        echo "  repeats it; mended, keep it as Tests/Fuzzing/Regressions/$name/<what it shows>"
    done
    echo "$total executions of ${#running[@]} harnesses, $found findings"
    [ "$found" -eq 0 ]
}

verb_pack() {
    local name minimal
    for name in $(harnesses "$@"); do
        [ -d "$build/corpora/$name" ] || fail "$name has gathered nothing yet: run it first"
        minimal=$build/minimal/$name
        rm -rf "$minimal"
        mkdir -p "$minimal" "$here/Corpora"
        "$build/tests/$name" -merge=1 -max_len="$(longest "$name")" "$minimal" "$build/corpora/$name" \
            >"$build/logs/$name-merge.log" 2>&1 || fail "$name can not be minimised; $build/logs/$name-merge.log tells why"
        # The same bytes whoever packs.
        find "$minimal" -type f -printf '%f\0' | sort -z |
            tar -C "$minimal" --null -T - --owner=0 --group=0 --numeric-owner --mtime=@0 --mode=0644 -cf - |
            xz -9e >"$here/Corpora/$name.tar.xz"
        echo "$name: $(find "$minimal" -type f | wc -l) inputs, $(stat -c %s "$here/Corpora/$name.tar.xz") bytes"
    done
}

case $verb in
run | pack) "verb_$verb" "$@" ;;
*) fail "there is no '$verb'; there are run and pack" ;;
esac
