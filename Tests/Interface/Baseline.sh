#!/usr/bin/env bash
# Baseline.sh check|accept LIBRARY BASELINE-FOLDER HEADER-FOLDER...
# Holds a built library's exported interface against the one that stands in the repository for its target:
# BASELINE-FOLDER/<Debian architecture>/<library>.abi, as abidw reads it out of the debug information, restricted to
# what the headers of those folders declare. accept writes it, if users of the soname can live with the difference.
set -euo pipefail
export LC_ALL=C

here=$(dirname "${BASH_SOURCE[0]}")

fail() {
    printf 'Baseline.sh: %s\n' "$*" >&2
    exit 1
}

[ $# -ge 4 ] || fail "takes: check|accept LIBRARY BASELINE-FOLDER HEADER-FOLDER..."
verb=$1
library=$2
baselines=$3
shift 3
for tool in abidw abidiff python3 readelf; do
    command -v "$tool" >/dev/null || fail "needs $tool; ./run test and ./run abi install it"
done

architecture() {
    local class machine
    class=$(readelf -h "$1" | sed -nE 's/^ *Class: *//p')
    machine=$(readelf -h "$1" | sed -nE 's/^ *Machine: *//p')
    case $class/$machine in
    'ELF64/Advanced Micro Devices X86-64') echo amd64 ;;
    ELF64/AArch64) echo arm64 ;;
    ELF32/ARM) echo armhf ;;
    'ELF32/Intel 80386') echo i386 ;;
    *) fail "$1 is for $class $machine, for which no interface is kept" ;;
    esac
}

name=$(basename "$library" | sed 's/\.so.*//')
target=$(architecture "$library")
baseline=$baselines/$target/$name.abi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

read_interface() {
    # abidw looks into folders below as well; these would be the private ones.
    mkdir "$work/headers"
    local folder
    for folder in "$@"; do cp "$folder"/*.h "$work/headers"; done
    abidw --headers-dir "$work/headers" --drop-private-types --exported-interfaces-only --no-show-locs \
        --no-parameter-names --no-corpus-path --no-comp-dir-path --no-elf-needed --type-id-style hash \
        --out-file "$work/all.abi" "$library"
    python3 "$here/PublicInterface.py" "$work/all.abi" >"$work/interface.abi"
}

soname() { sed -nE "s/^<abi-corpus .*soname=\"([^\"]*)\".*/\1/p" "$1"; }

# compatible: whether everything in the difference is an addition. abidiff says that of fewer things than its exit code
# can tell, so its words are read: a new operation, a new enumerator, a new member that takes no place in the object.
compatible() {
    # A virtual one moves those that derived classes have added.
    ! grep -q "'method virtual" "$1" || return 1
    ! grep -vE '^ *$|^Leaf changes summary: |^Changed leaf types summary: |(Removed|Changed|Added) .*summary:|summary: 0 Removed, 0 Changed, ' "$1" |
        grep -vE "^ *(\[A\] |[0-9]+ (Added|enumerator insertion|member function insertion)|type size hasn't changed|'(enum|class|struct) [^']*'( at [^ ]*)? changed:|'[A-Za-z_0-9:]+::[A-Za-z_0-9]+' value '[0-9]+'|'method )" |
        grep -q .
}

read_interface "$@"
if [ ! -f "$baseline" ]; then
    [ "$verb" = accept ] || fail "there is no $baseline; ./run abi --accept keeps the interface as it is now"
    mkdir -p "$(dirname "$baseline")"
    cp "$work/interface.abi" "$baseline"
    echo "$name for $target: kept as it is now"
    exit 0
fi

# The changes themselves, without the list of operations that each of them reaches.
if abidiff --harmless --no-show-locs --leaf-changes-only "$baseline" "$work/interface.abi" >"$work/difference"; then
    echo "$name for $target: as in $baseline"
    exit 0
elif [ $? -lt 4 ]; then
    cat "$work/difference"
    fail "abidiff could not compare $baseline with $library"
fi

before=$(soname "$baseline")
now=$(soname "$work/interface.abi")
if compatible "$work/difference"; then
    verdict="compatible: whoever was built against $before finds everything where it was"
    may_be_kept=1
elif [ "$before" != "$now" ]; then
    verdict="incompatible, under the new soname $now: whoever was built against $before keeps using that"
    may_be_kept=1
else
    verdict="incompatible: whoever was built against $now would break"
    may_be_kept=0
fi

cat "$work/difference"
echo "The interface of $name for $target is not that of $baseline. The difference, above, is $verdict."
if [ $may_be_kept -eq 0 ]; then
    echo "Take the change back, or give the library a new soname (the first number of the project's VERSION in"
    echo "CMakeLists.txt, with a line in CHANGELOG.md) and then keep the new interface: ./run abi --accept"
    exit 1
fi
if [ "$verb" = accept ]; then
    cp "$work/interface.abi" "$baseline"
    echo "kept: $baseline"
    exit 0
fi
echo "Keep it with a line in CHANGELOG.md and: ./run abi --accept (with --target $target, and the other targets' too)"
exit 1
