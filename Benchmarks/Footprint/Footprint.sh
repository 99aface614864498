#!/usr/bin/env bash
# Footprint.sh print|check|write TARGET PAGE TOOL-PREFIX LIBRARY... -- HOST-COMMAND...
# What the libraries weigh on a target and what the start of a host takes from the heap there, as a chapter of
# Documentation/Footprint.md. check holds it against the chapter that stands in PAGE, write puts it there.
# Footprint.sh aims TARGET PAGE TOOL-PREFIX LIBRARY: what the framework's library may weigh at most.
set -euo pipefail
export LC_ALL=C

here=$(dirname "${BASH_SOURCE[0]}")

# The tables' figures may differ by this much from those of a build: compilers of one release differ a little.
tolerated_percent=2
tolerated_beside=16

# The board's share of flash for the library, and the source files that the interface wants initialised at load: the
# registry of modules, and the trace objects of two domains in three files.
board=armhf
most_text_and_data=$((96 * 1024))
described_initialisers="CModuleManager_c.cpp, CStorageManager.cpp, CStorageObject.cpp, ModuleInterface.cpp"

fail() {
    printf 'Footprint.sh: %s\n' "$*" >&2
    exit 1
}

[ $# -ge 5 ] || fail "takes: print|check|write|aims TARGET PAGE TOOL-PREFIX LIBRARY... [-- HOST-COMMAND...]"
verb=$1
target=$2
page=$3
prefix=$4
shift 4
libraries=()
while [ $# -gt 0 ] && [ "$1" != -- ]; do
    libraries+=("$1")
    shift
done
[ $# -eq 0 ] || shift
host=("$@")

# heap: the host's own report as a table, with each service's sum behind its parts.
heap() {
    local report
    report=$(VOXTRACE_LEVEL=${VOXTRACE_LEVEL:-off} "${host[@]}")
    echo "| Service | what for | blocks | bytes |"
    echo "|---|---|---|---|"
    sort -s -t "$(printf '\t')" -k1,1 <<<"$report" | awk -F '\t' '
        function sum() { if (service != "") printf "| **%s** | | **%d** | **%d** |\n", service, blocks, bytes }
        $1 != service { sum(); service = $1; blocks = bytes = 0 }
        { printf "| | %s | %d | %d |\n", $2, $3, $4; blocks += $3; bytes += $4; allBlocks += $3; allBytes += $4 }
        END { sum(); printf "| **all** | | **%d** | **%d** |\n", allBlocks, allBytes }'
}

chapter() {
    "$here/LibrarySize.sh" "$prefix" "${libraries[@]}"
    echo
    heap
}

# chapter_of_page: what stands in the page between the target's heading and the next.
chapter_of_page() { awk -v heading="## $target" '/^## / { inside = $0 == heading; next } inside' "$page"; }

# same FILE FILE: whether the two differ by tolerated figures at most.
same() {
    diff <(sed -E 's/\b[0-9]+\b/N/g' "$1") <(sed -E 's/\b[0-9]+\b/N/g' "$2") || return 1
    paste <(grep -oE '\b[0-9]+\b' "$1") <(grep -oE '\b[0-9]+\b' "$2") |
        awk -v percent=$tolerated_percent -v beside=$tolerated_beside '
            { difference = $1 > $2 ? $1 - $2 : $2 - $1 }
            difference > $1 * percent / 100 + beside { print "the page says " $1 ", the build has " $2; failed = 1 }
            END { exit failed }'
}

case $verb in
print)
    chapter
    ;;
check)
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    chapter >"$work/build"
    chapter_of_page | sed '/^$/d' >"$work/page"
    sed -i '/^$/d' "$work/build"
    [ -s "$work/page" ] || fail "$page has no chapter '## $target'; ./run size --write --target $target writes it"
    same "$work/page" "$work/build" || fail "$page is not of this build (< page, > build); after a look at the" \
        "difference: ./run size --write --target $target"
    echo "the chapter of $target is of this build"
    ;;
write)
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    chapter >"$work/build"
    grep -qx "## $target" "$page" || fail "$page has no heading '## $target' to write below"
    awk -v heading="## $target" -v chapter="$work/build" '
        /^## / { inside = $0 == heading }
        !inside { print }
        $0 == heading { print; print ""; while ((getline line < chapter) > 0) print line; print "" }' "$page" |
        sed -e :a -e '/^\n*$/{$d;N;ba' -e '}' >"$work/page"
    cp "$work/page" "$page"
    echo "$page: the chapter of $target is of this build now"
    ;;
aims)
    tables=$("$here/LibrarySize.sh" "$prefix" "${libraries[0]}")
    initialisers=$(tail -n 1 <<<"$tables" | awk -F ' \\| ' '{ sub(/ \|$/, "", $3); print $3 }')
    # On arm64 the compiler's own library asks the processor for its atomic instructions, in whatever uses them.
    [ "${initialisers%, lse-init.o}" = "$described_initialisers" ] ||
        fail "${libraries[0]} initialises at load: $initialisers. Described are: $described_initialisers." \
            "A static object elsewhere needs a constexpr constructor, or to be made on first use."
    weight=$(sed -n 3p <<<"$tables" | awk -F ' \\| ' '{ print $9 }')
    [ "$weight" -gt 0 ]
    [ "$target" != $board ] || [ "$weight" -le $most_text_and_data ] ||
        fail "${libraries[0]} has $weight bytes of text and data; the board has $most_text_and_data for it"
    echo "$weight bytes of text and data; initialised at load: $initialisers"
    ;;
*)
    fail "there is no verb '$verb'"
    ;;
esac
