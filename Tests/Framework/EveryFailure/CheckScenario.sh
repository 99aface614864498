#!/usr/bin/env bash
# CheckScenario.sh EveryOperation PROGRAM LIST...: every flat operation and every class of the libraries with these
#   lists of exports is called by the program, and a step bears its name: what only the test itself calls is no step.
# CheckScenario.sh EveryCall PROGRAM LIBRARY...: whatever the libraries ask of the C library either fails in the test
#   or is known not to reach the system, not to fail, or to be asked by nobody.
set -euo pipefail
export LC_ALL=C

check=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

case $check in
EveryOperation)
    program=$1
    shift
    for list in "$@"; do
        sed -nE 's/^ +([A-Za-z_0-9]+);$/\1/p' "$list" >"$work/of"
        [ -s "$work/of" ] || { echo "$list names no flat operation: has its form changed?"; exit 1; }
        cat "$work/of" >>"$work/all"
    done
    sort -u "$work/all" >"$work/flat"
    # The steps' names are texts of these sources: one, or several behind each other.
    grep -hvE '^ *//' "$(dirname "$0")"/*Steps.cpp "$(dirname "$0")"/Scenario.cpp | grep -oE '"[^"]*"' |
        grep -oE '[A-Za-z_][A-Za-z_0-9]*(::[~A-Za-z_0-9=]+)?' | sort -u >"$work/steps"
    nm -D --undefined-only "$program" | awk '{ print $NF }' | sed 's/@.*//' | sort -u >"$work/used"
    if comm -23 "$work/flat" "$work/used" | grep .; then
        echo "are exported and missing in the scenario: add a step for each"
        exit 1
    fi
    if comm -23 "$work/flat" "$work/steps" | grep .; then
        echo "are called, and by no step of their name: add a step for each"
        exit 1
    fi
    # The 27 handlers that a module inherits do nothing but answer: one of them stands for all.
    sed -nE 's/^ +"(.*)";$/\1/p' "$@" |
        grep -vE '^(typeinfo|vtable)|^ModuleInterface::on(Phase[A-Z]|Module|Warm)|^[A-Za-z]+\[|^AfResult|^getE' |
        sed -E 's/\(.*//' | sort -u >"$work/classes"
    [ -s "$work/classes" ] || { echo "$* name no class: has its form changed?"; exit 1; }
    nm -DC --undefined-only "$program" | sed -E 's/^ *[Uvw] //; s/\(.*//; s/@.*//' | sort -u >"$work/members"
    if comm -23 "$work/classes" "$work/members" | grep -vxFf "$(dirname "$0")/NotInTheScenario.txt"; then
        echo "are exported and missing in the scenario: add a step for each"
        exit 1
    fi
    if sed -E 's/\[abi:.*//' "$work/classes" | sort -u | comm -23 - "$work/steps" |
        grep -vxFf "$(dirname "$0")/NotInTheScenario.txt"; then
        echo "are called, and by no step of their name: add a step for each"
        exit 1
    fi
    echo "$(wc -l <"$work/flat") flat operations, $(wc -l <"$work/classes") members of classes, all in the scenario"
    ;;
EveryCall)
    program=$1
    shift
    for library in "$@"; do
        # What comes from no other of the libraries, under its name alone.
        nm -D --undefined-only "$library" | awk '{ print $NF }' | grep -E '@GLIBC_' | sed 's/@.*//' |
            sed -E 's/^__(.*)_time64$/\1/; s/64$//; s/^__(.*)_chk$/\1/' || true
    done | sort -u >"$work/asked"
    [ -s "$work/asked" ] || { echo "no library asks for anything: are their symbols versioned otherwise?"; exit 1; }
    # The definitions that the test puts before the system's.
    nm -D --defined-only "$program" | awk '{ print $NF }' | sed 's/@.*//' |
        sed -E 's/^__(.*)_time64$/\1/; s/64$//' | sort -u >"$work/failing"
    grep -vE '^(#|$)' "$(dirname "$0")/HarmlessCalls.txt" | sed 's/ .*//' | sort -u >"$work/harmless"
    if comm -23 "$work/asked" <(sort -u "$work/failing" "$work/harmless") | grep .; then
        echo "are asked of the system, and nobody makes them fail: add them to FailingCalls.cpp, or to"
        echo "HarmlessCalls.txt with the reason"
        exit 1
    fi
    echo "$(wc -l <"$work/asked") names, $(comm -12 "$work/asked" "$work/failing" | wc -l) of them fail in the test"
    ;;
*)
    echo "there is no check '$check'; there are EveryOperation and EveryCall"
    exit 2
    ;;
esac
