#!/usr/bin/env bash
# CheckExports.sh CHECK LIBRARY LIST HEADER-FOLDER C-PROGRAM FRAMEWORK-LIST TRACING-LIBRARY
# What a library exports and asks for, against its list, its headers and the interface that it stands on.
set -euo pipefail
export LC_ALL=C

check=$1
library=$2
list=$3
headers=$4
program=$5
framework_list=$6
tracing=$7

flat_list() { sed -nE 's/^  ([A-Za-z_]+);$/\1/p' "${1:-$list}" | sort; }
class_list() { sed -nE 's/^    "(.*)";$/\1/p' "$list" | sort; }
exported() { nm -DC --defined-only "$library" | cut -d ' ' -f 3- | sort -u; }

# same WHAT A B: compares two lists and shows each difference.
same() {
    if ! diff "$2" "$3" >/tmp/exports-difference.$$; then
        echo "$1 differ (< only the first, > only the second):"
        cat /tmp/exports-difference.$$
        rm -f /tmp/exports-difference.$$
        exit 1
    fi
    rm -f /tmp/exports-difference.$$
    echo "$1 agree: $(wc -l <"$2") entries"
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

case $check in
ListEqualsSymbols)
    { flat_list; class_list; } | sort >"$work/listed"
    exported >"$work/exported"
    [ -s "$work/exported" ]
    same "the list and the library's symbols" "$work/listed" "$work/exported"
    ;;
ListEqualsHeaders)
    flat_list >"$work/listed"
    # The name before the first parenthesis of each exported C declaration.
    cat "$headers"/*.h | tr '\n' ' ' | grep -oE 'AF_API [A-Za-z_0-9]+( \*?[A-Za-z_0-9]+)+\(' |
        sed -E 's/.* \*?([A-Za-z_0-9]+)\($/\1/' | grep -vE '^(getECallbackPriorityName|__attribute__)$' | sort >"$work/declared"
    [ -s "$work/declared" ]
    same "the list's flat operations and the headers" "$work/listed" "$work/declared"
    ;;
CProgramUsesEveryFlatFunction)
    flat_list >"$work/listed"
    nm -D --undefined-only "$program" | awk '{ print $NF }' | sed 's/@.*//' | grep -Fxf "$work/listed" | sort >"$work/used"
    same "the list's flat operations and those the C program calls" "$work/listed" "$work/used"
    ;;
PlatformCallsAreTheDescribedOnes)
    sort >"$work/described" <<'TEXT'
AF_trace
CKivTraceHandler_DmLevel2VtLevel
CHashTable_Construct
CHashTable_Count
CHashTable_Destruct
CHashTable_Get
CHashTable_Set
CList_Construct
CList_CurrentSize
CList_Destruct
CList_Find
CList_FindAndRetrieve
CList_GetNext
CList_IsEmpty
CList_PopHead
CList_PushHead
CList_PushTail
CList_StartIterationFromHead
VT_beginImpl
VT_endImpl
VT_rawprintf
VoxTrace::VoxTrace(char const*, int, int)
VoxTrace::isEnabled(int) const
VoxTrace::logMsg(int, VoxTraceHeader const&, char const*)
VoxTrace::~VoxTrace()
TEXT
    nm -DC --undefined-only "$library" | sed -E 's/^ *U //' | grep -E '^(AF_|VT_|CKiv|CList|CHash|Vox|.*for VoxTrace)' | sort >"$work/asked"
    # Members that the platform made virtual are called without their names.
    if nm -DC --defined-only "$tracing" | grep -q 'vtable for VoxTrace$'; then
        sed -i -E '/^VoxTrace::(isEnabled|logMsg)/d' "$work/described" "$work/asked"
    fi
    same "the platform's described calls and those the library asks for" "$work/described" "$work/asked"
    ;;
StandsOnTheExportedInterface)
    # Its own and the framework's names begin with a class; so does whatever it must not reach for.
    { flat_list "$framework_list"; printf 'VoxTrace::%s\n' 'VoxTrace(char const*, int, int)' 'isEnabled(int) const' \
        'logMsg(int, VoxTraceHeader const&, char const*)' '~VoxTrace()'; } | sort >"$work/exported"
    nm -DC --undefined-only "$library" | sed -E 's/^ *[Uvw] //' | grep -E '^(C|S|E|I|AF_|Af|CKiv|VT_|Vox)[A-Za-z]*[a-z]' | sort >"$work/asked"
    [ -s "$work/asked" ]
    if grep -vFxf "$work/exported" "$work/asked"; then
        echo "are asked for by $(basename "$library"), and exported by nobody"
        exit 1
    fi
    echo "$(wc -l <"$work/asked") names, all exported"
    ;;
SonameAndVersion)
    name=$(basename "$library" | sed 's/\.so.*//')
    soname=$(readelf -d "$library" | sed -nE 's/.*SONAME.*\[(.*)\]/\1/p')
    [ "$soname" = "$name.so.1" ] || { echo "the soname is '$soname'"; exit 1; }
    version=$(basename "$(readlink -f "$library")")
    [[ $version =~ ^$name\.so\.1\.[0-9]+\.[0-9]+$ ]] || { echo "the file is '$version'"; exit 1; }
    echo "$soname in $version"
    ;;
*)
    echo "no such check: '$check'"
    exit 2
    ;;
esac
