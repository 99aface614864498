#!/usr/bin/env bash
# LibrarySize.sh TOOL-PREFIX LIBRARY...
# What each library weighs on the target: stripped, by kind of section, with its relocations by kind and its static
# initialisers by source file. Tables as they stand in Documentation/Footprint.md.
set -euo pipefail
export LC_ALL=C

fail() {
    printf 'LibrarySize.sh: %s\n' "$*" >&2
    exit 1
}

[ $# -ge 2 ] || fail "takes a tool prefix, such as arm-linux-gnueabihf- or '', and libraries"
prefix=$1
shift
for tool in strip readelf addr2line; do
    command -v "$prefix$tool" >/dev/null || fail "needs $prefix$tool: install the target's binutils (./run size does)"
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# sections LIBRARY: name, type, address, offset, size (decimal) and flags of each section.
sections() {
    "${prefix}readelf" -SW "$1" | sed -nE 's/^ *\[ *[0-9]+\] ([^ ]+) +([A-Z_0-9]+) +([0-9a-f]+) ([0-9a-f]+) ([0-9a-f]+) [0-9a-f]+ +([A-Zl]*) .*/\1 \2 \3 \4 \5 \6/p' |
        while read -r name type address offset size flags; do
            echo "$name $type $((16#$address)) $((16#$offset)) $((16#$size)) ${flags:--}"
        done
}

# sizes STRIPPED-LIBRARY: a cell for each kind of section. What is loaded falls in one of them: a section of a name
# that nobody thought of counts by what the loader does with it.
sizes() {
    sections "$1" | awk -v file="$(stat -c %s "$1")" '
        $6 !~ /A/ { next }
        $2 == "NOBITS" && $6 ~ /T/ { next }
        { kind = $6 ~ /W/ ? ($2 == "NOBITS" ? "bss" : "data") : $6 ~ /X/ ? "code" : "constants" }
        $1 ~ /^\.(eh_frame|eh_frame_hdr|gcc_except_table|ARM\.extab|ARM\.exidx)$/ { kind = "unwinding" }
        $1 ~ /^\.(dynsym|dynstr|gnu\.hash|gnu\.version|gnu\.version_r|note.*|rela?\.dyn|rela?\.plt)$/ { kind = "linking" }
        $1 ~ /^\.(data\.rel\.ro|init_array|fini_array|dynamic|got)$/ { kind = "relocated" }
        { size[kind] += $5 }
        END {
            text = size["code"] + size["constants"] + size["unwinding"] + size["linking"]
            data = size["relocated"] + size["data"]
            printf "%d | %d | %d | %d | %d | %d | %d | %d | %d\n", size["code"], size["constants"], size["unwinding"],
                size["linking"], size["relocated"], size["data"], size["bss"], text + data, file
        }'
}

# relocations LIBRARY: the number of each kind.
relocations() {
    "${prefix}readelf" -rW "$1" | grep -oE '\bR_[A-Z0-9_]+' | sort | uniq -c | sort -k1,1nr -k2 |
        awk '{ printf "%s%s %d", n++ ? ", " : "", $2, $1 } END { print n ? "" : "none" }'
}

# initialisers LIBRARY: the functions that run when it is loaded, each by the source file it was made for.
initialisers() {
    local entries address offset size
    read -r address offset size < <(sections "$1" | awk '$1 == ".init_array" { print $3, $4, $5 }') || { echo none; return; }
    # Where relocations carry the addresses themselves the section holds nothing; elsewhere they lie in it.
    entries=$("${prefix}readelf" -rW "$1" | awk '/R_[A-Z0-9_]+_RELATIVE/ && NF == 4 { print $1, $4 }' |
        while read -r place value; do
            place=$((16#$place))
            if [ $place -ge "$address" ] && [ $place -lt $((address + size)) ]; then echo "$value"; fi
        done)
    [ -n "$entries" ] || entries=$(od -An -v -t x4 -w4 -j "$offset" -N "$size" "$1")
    # shellcheck disable=SC2086 # the addresses are words
    "${prefix}addr2line" -e "$1" -f $entries | paste - - |
        awk -F '\t' '$1 == "frame_dummy" { next }
            { sub(/:[0-9?].*/, "", $2); sub(/.*\//, "", $2); print $2 == "??" ? $1 : $2 }' | sort |
        awk '{ printf "%s%s", n++ ? ", " : "", $0 } END { print n ? "" : "none" }'
}

echo "| Library | code | constants | unwinding | linking | relocated | data | bss | text and data | file |"
echo "|---|---|---|---|---|---|---|---|---|---|"
for library in "$@"; do
    "${prefix}strip" -o "$work/stripped" "$library"
    echo "| $(basename "$library" | sed 's/\.so.*/.so/') | $(sizes "$work/stripped") |"
done
echo
echo "| Library | relocations | static initialisers |"
echo "|---|---|---|"
for library in "$@"; do
    echo "| $(basename "$library" | sed 's/\.so.*/.so/') | $(relocations "$library") | $(initialisers "$library") |"
done
