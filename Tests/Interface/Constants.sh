#!/usr/bin/env bash
# Constants.sh check|accept BASELINE C-COMPILER HEADER-FOLDER...
# The constants that the exported headers define for the preprocessor, and the enumerators as C sees them: both are
# compiled into the hosts, and neither is in a library's debug information. BASELINE has a line for each: name, value.
# Beside it lie the libraries' own baselines, by architecture.
set -euo pipefail
export LC_ALL=C

fail() {
    printf 'Constants.sh: %s\n' "$*" >&2
    exit 1
}

[ $# -ge 4 ] || fail "takes: check|accept BASELINE C-COMPILER HEADER-FOLDER..."
verb=$1
baseline=$2
compiler=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

includes=()
headers=()
for folder in "$@"; do
    includes+=(-I "$folder")
    # Those that declare plain records and functions; the others are C++ alone.
    while IFS= read -r header; do headers+=("$(basename "$header")"); done < <(
        grep -LE '^(class|struct) [A-Z]+_API |^namespace ' "$folder"/*.h | sort)
done
printf '#include "%s"\n' "${headers[@]}" >"$work/all.c"
flags=(-std=c11 -D_POSIX_C_SOURCE=200809L "${includes[@]}")

# of_ours: the lines of preprocessed text that come from these folders.
of_ours() {
    awk -v folders="$*" '
        BEGIN { count = split(folders, folder, " ") }
        /^# [0-9]+ "/ { ours = 0; for (i = 1; i <= count; ++i) if (index($3, "\"" folder[i] "/") == 1) ours = 1; next }
        ours'
}

# The candidates: object-like macros whose text could be a number, and every enumerator's name.
"$compiler" "${flags[@]}" -E -dD "$work/all.c" | of_ours "$@" >"$work/preprocessed"
sed -nE 's/^#define ([A-Za-z_0-9]+) +[-(0-9].*/\1/p' "$work/preprocessed" >"$work/names"
grep -v '^#' "$work/preprocessed" | tr '\n' ' ' | grep -oE '\benum \{[^}]*\}' | grep -oE '[A-Za-z_][A-Za-z_0-9]* *=' |
    tr -d ' =' >>"$work/names"
sort -u -o "$work/names" "$work/names"

# Their values, from the compiler itself: it is made to write each into the assembly.
{
    cat "$work/all.c"
    echo 'void constants(void);'
    echo 'void constants(void) {'
    sed 's/.*/__asm__ volatile("\\n->& %0" : : "i"((long long)(&)));/' "$work/names"
    echo '}'
} >"$work/values.c"
"$compiler" "${flags[@]}" -w -S -o "$work/values.s" "$work/values.c"
sed -nE 's/^->([A-Za-z_0-9]+) [$#]?(-?[0-9]+).*/\1 \2/p' "$work/values.s" | sort >"$work/constants"
[ "$(wc -l <"$work/constants")" -eq "$(wc -l <"$work/names")" ] && [ -s "$work/constants" ] ||
    fail "the compiler gave $(wc -l <"$work/constants") values for $(wc -l <"$work/names") names"

# C and C++ have enumerations of their own over the same tables: what a C++ library was built with, C has to see.
while IFS= read -r enumerator; do
    grep -qFx -- "$enumerator" "$work/constants" ||
        fail "the library's enumerator '$enumerator' has another value in C, or none:" \
            "$(grep -F -- "${enumerator% *} " "$work/constants" || echo 'no such constant')"
done < <(sed -nE 's/.*<enumerator name="([A-Za-z_0-9]+)" value="([0-9]+)".*/\1 \2/p' "$(dirname "$baseline")"/*/*.abi | sort -u)

if [ "$verb" = check ]; then
    diff "$baseline" "$work/constants" || fail "the headers' constants (>) are not those of $baseline (<)." \
        "A new one is kept with ./run abi --accept; one that is changed or gone breaks whoever was built with it."
    echo "$(wc -l <"$work/constants") constants, as in $baseline"
    exit 0
fi
if [ -f "$baseline" ] && comm -23 "$baseline" "$work/constants" | grep .; then
    fail "the constants above are changed or gone, and hosts have them built in. Take that back, or give the" \
        "libraries a new soname and delete $baseline first"
fi
cp "$work/constants" "$baseline"
echo "$(wc -l <"$baseline") constants kept in $baseline"
