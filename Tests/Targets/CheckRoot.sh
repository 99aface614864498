#!/usr/bin/env bash
# CheckRoot.sh CHECK BUILD-FOLDER PROJECT-FOLDER ROOT COMPILER-HEADERS [COMPILER OPTION...]
# That nothing of this machine, and nothing of the cross compiler's own C library, is in what runs on the target.
set -euo pipefail

check=$1
build=$2
project=$3
root=$4
compiler_headers=$5
shift 5

# only_from WHAT ALLOWED-PREFIX...: standard input are paths; those from elsewhere are shown.
only_from() {
    local what=$1 paths strangers
    shift
    paths=$(sort -u)
    [ -n "$paths" ] || { echo "there are no $what to look at"; exit 1; }
    strangers=$(grep -vE "^($(IFS='|' && echo "$*"))/" <<<"$paths" || true)
    if [ -n "$strangers" ]; then
        echo "$what that are not of the target's root:"
        echo "$strangers"
        exit 1
    fi
    echo "$(wc -l <<<"$paths") $what"
}

case $check in
EveryHeaderIsTheRoots)
    # What the compiler said it read, for each object.
    ninja -C "$build" -t deps | sed -nE 's/^ +(\/.*)$/\1/p' | sort -u | xargs realpath -sm |
        only_from headers "$root" "$project" "$compiler_headers"
    ;;
EveryLibraryIsTheRoots)
    # What the linker opens for a program linked as all are.
    program=$(mktemp -d)
    trap 'rm -rf "$program"' EXIT
    echo 'int main() {}' >"$program/main.cpp"
    "$@" "$program/main.cpp" -o "$program/main" -pthread -lrt -ldl -lm -Wl,--no-as-needed,--trace |
        grep '^/' | grep -v "^$program" | grep -v '/cc[A-Za-z0-9]*\.o$' | xargs realpath -sm |
        only_from "start files and libraries" "$root"
    ;;
*)
    echo "no such check: '$check'"
    exit 2
    ;;
esac
