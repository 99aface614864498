# The verbs of ./run that try the tests, or run them for longer than ./run test does. Read by it.
# shellcheck shell=bash

# verb_kill [TRIES]: kills of the host in the middle of a store, for each provider.
verb_kill() {
    local tries=${1:-2000} tests=6
    need "${build_packages[@]}" "${test_packages[@]}"
    build release -DZELAF_BUILD_TESTS=ON -DZELAF_BUILD_EXAMPLES=ON
    say "killing the example host $tries times for each provider while it stores"
    ZELAF_KILL_TRIES=$(((tries + tests - 1) / tests)) build/release/tests/StorageKillTest | tee build/release-kill.log | grep -E 'kills|Failure|FAILED' || true
    awk '/ kills, / { tries += $4; old += $6; new += $8; mixed += $10; refused += $12 }
        END { printf "%d kills: %d old, %d new, %d mixed, %d refused\n", tries, old, new, mixed, refused; exit mixed + refused + (tries == 0) > 0 }' build/release-kill.log
    grep -q '\[  PASSED  \]' build/release-kill.log && ! grep -q 'FAILED' build/release-kill.log
}

# verb_failures [TRIES]: each allocation and each call of the system fails once. What happened is counted: failures that
# were met, and deviations from what is described. A run mends nothing, so each deviation that it finds is left; a test
# stops at its tenth.
verb_failures() {
    need "${build_packages[@]}" "${test_packages[@]}"
    build release -DZELAF_BUILD_TESTS=ON -DZELAF_BUILD_EXAMPLES=ON
    say "failing ${1:-every} of each kind, one at a time"
    local test log=build/release-failures.log
    : >"$log"
    for test in EveryAllocationTest EveryCallTest; do
        # 1 is the answer of a program whose tests failed; another one leaves no list of them.
        { ZELAF_EVERY_FAILURE=${1:-all} "build/release/tests/$test" 2>&1 || [ $? -eq 1 ] ||
            echo "[  FAILED  ] $test did not come to its end (0 ms)"; } | tee -a "$log" |
            grep --line-buffered -E 'FIGURES|Failure|answered|left|lost|met|made|changed|FAILED|hangs|ends at' || true
    done
    tell_failures "$log"
}

# tell_failures LOG: the last line of each test's figures: "... 272 tries, 271 refused, 4 deviations" of allocations,
# "... every call: 272 failures, 4 deviations" of calls.
tell_failures() {
    awk '/ FIGURES / && / (refused|every call)/ {
            for (i = 2; i <= NF; ++i) {
                if ($i == "refused,") refused += $(i - 1)
                if ($i == "failures,") failures += $(i - 1)
                if ($i ~ /^deviations,?$/) deviations += $(i - 1)
            }
        }
        /^\[  FAILED  \] .* \([0-9]+ ms\)$/ { ++tests }
        END {
            printf "%d allocations refused, %d calls failed: %d deviations, %d tests failed\n", refused, failures, deviations, tests
            exit refused == 0 || failures == 0 || deviations + tests > 0
        }' "$1"
}

# build_tests PRESET TARGET...
build_tests() {
    local preset=$1
    shift
    say "building $* for $preset"
    mkdir -p build
    cmake --preset "$preset" -DZELAF_BUILD_TESTS=ON -DZELAF_BUILD_EXAMPLES=ON >"build/$preset-configure.log" 2>&1 || {
        cat "build/$preset-configure.log"
        fail "configuring $preset failed"
    }
    cmake --build --preset "$preset" -j "$jobs" --target "$@"
}

# number NAME VALUE: fails unless the value is a whole number above 0.
number() {
    [[ $2 =~ ^[1-9][0-9]*$ ]] || fail "$1 is '$2'; give a whole number above 0"
}

# tell_faults LOG WHAT: the lines that the tests printed end in ": N faults"; the last line sums them up.
tell_faults() {
    local left
    left=$(grep -cE '^\[  FAILED  \] .* \([0-9]+ ms\)$' "$1" || true)
    awk -v what="$2" -v left="$left" '/ faults$/ { lines++; found += $(NF - 1); print "  " $0 }
        / bytes of heap left$/ { print "  " $0 }
        END { printf "%s: %d faults found, %d tests failed\n", what, found, left; exit found + left + (lines == 0) > 0 }' "$1"
}

# verb_soak-events [DELIVERIES]
verb_soak-events() {
    local deliveries=${1:-20000000} preset log=build/soak-events.log
    number DELIVERIES "$deliveries"
    need "${build_packages[@]}" "${test_packages[@]}"
    : >"$log.new"
    for preset in release tsan; do
        build_tests "$preset" ThreadStressTest InitializeRepeatedlyTest
        say "$deliveries deliveries and 10000 lives, $preset"
        local options=halt_on_error=1:second_deadlock_stack=1
        TSAN_OPTIONS=$options ZELAF_SOAK_DELIVERIES=$deliveries "build/$preset/tests/ThreadStressTest" 2>&1 | tee -a "$log.new" || true
        TSAN_OPTIONS=$options ZELAF_LIVES=10000 "build/$preset/tests/InitializeRepeatedlyTest" 2>&1 | tee -a "$log.new" || true
        # A sanitizer that ends the program leaves no count.
        [ "$(grep -c '\[  PASSED  \]' "$log.new")" -eq "$([ "$preset" = release ] && echo 2 || echo 4)" ] ||
            echo "[  FAILED  ] $preset: one of its programs did not come to its end (0 ms)" >>"$log.new"
    done
    mv "$log.new" "$log"
    say "result; $log has all of it"
    tell_faults "$log" "$deliveries deliveries and 10000 lives, and as many under ThreadSanitizer"
}

# verb_kill-host [TRIES]: a part to each of the five tests that kill.
verb_kill-host() {
    local tries=${1:-1000} tests=5 test log=build/kill-host.log
    number TRIES "$tries"
    need "${build_packages[@]}" "${test_packages[@]}"
    build_tests release HostKillTest ForeignProcessTest ControllerKillTest
    say "$tries kills"
    : >"$log"
    for test in HostKillTest ForeignProcessTest ControllerKillTest; do
        ZELAF_KILL_TRIES=$(((tries + tests - 1) / tests)) "build/release/tests/$test" >>"$log" 2>&1 ||
            grep -E 'Failure|^\[  FAILED' "$log" || echo "[  FAILED  ] $test ended by itself (0 ms)" >>"$log"
        echo "  $test is through"
    done
    say "result; $log has all of it"
    # Who had ended by himself before he could be killed was not.
    tell_faults "$log" "$(awk '/ kills .* faults$| kills, .* faults$/ {
        for (i = 2; i <= NF; ++i) if ($i ~ /^kills,?$/) kills += $(i - 1) }
        END { print kills + 0 }' "$log") kills of $tries asked for"
}

verb_fuzz() {
    local what=run
    if [ "${1:-}" = --pack ]; then
        what=pack
        shift
    fi
    need "${build_packages[@]}" "${test_packages[@]}" xz-utils
    build fuzz
    say "fuzzing"
    Tests/Fuzzing/Fuzz.sh "$what" build/fuzz "$@"
}

# build_trials: the programs whose tests the trials run; the library and the providers these build themselves.
build_trials() {
    need "${build_packages[@]}" "${test_packages[@]}"
    build release -DZELAF_BUILD_TESTS=ON -DZELAF_BUILD_EXAMPLES=ON
}

check_coverage() {
    say "lines and branches that the tests reach"
    python3 Tests/Trials/coverage.py --jobs "$jobs" "$@"
}

verb_coverage() {
    build_trials
    check_coverage "$@"
}

verb_mutate() {
    local arguments=("$@")
    build_trials
    if [[ " $* " = *" --races "* ]]; then
        build tsan -DZELAF_BUILD_TESTS=ON -DZELAF_BUILD_EXAMPLES=ON
    fi
    say "mistakes, one at a time"
    python3 Tests/Trials/mutate.py --jobs "$jobs" "${arguments[@]}"
}
