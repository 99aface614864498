#!/usr/bin/env bash
# CheckInstalled.sh CHECK TARGET-FILE
# What is installed, against what the pages say of it. TARGET-FILE names the folders, compilers and emulator.
set -euo pipefail
export LC_ALL=C

check=$1
source_folder='' build_folder='' installed='' cmake='' c_compiler='' cxx_compiler='' generator='' c_flags='' cxx_flags='' link_flags=''
toolchain_file='' emulator='' system_libraries='' board=''
# shellcheck source=/dev/null
. "$2"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "$*"
    exit 1
}

# run PROGRAM [ARGUMENT...]: on this machine or in the target's emulator.
run() {
    # shellcheck disable=SC2086  # the emulator is a command with its arguments
    LD_LIBRARY_PATH=$installed/lib${board:+:$board/lib}${system_libraries:+:$system_libraries} $emulator "$@"
}

# A toolchain may link the way to its system root into every program, for trial runs on this machine.
linked_run_path() { sed -nE 's/.*-rpath,([^ ]*).*/\1/p' <<<"$link_flags"; }

# play_session FOLDER: what the page's session says, with the programs of the folder.
play_session() {
    local line
    cd "$1"
    while IFS= read -r line; do
        [[ $line == '$ '* ]] || continue
        echo "$line"
        # shellcheck disable=SC2086  # a command line of the page
        run ${line#'$ '}
    done <session >played
    diff session played || fail "the programs did not do what the page's session shows (< page, > done)"
    echo "$(wc -l <session) lines as on the page"
}

page_files() { "$source_folder/Packaging/page-files" "$source_folder/Documentation/Installing.md" "$1"; }

# configure_against SOURCE BUILD [OPTION...]: a project that looks for the installed package.
configure_against() {
    local source=$1 build=$2
    shift 2
    # A cross build looks below its root alone, so there the package's folder is named.
    local where=(-DCMAKE_PREFIX_PATH="$installed")
    if [ -n "$toolchain_file" ]; then
        where=(-DCMAKE_TOOLCHAIN_FILE="$toolchain_file" -DZelApplicationFramework_DIR="$installed/lib/cmake/ZelApplicationFramework")
    fi
    "$cmake" -G "$generator" -S "$source" -B "$build" -DCMAKE_C_COMPILER="$c_compiler" -DCMAKE_CXX_COMPILER="$cxx_compiler" \
        "${where[@]}" ${board:+-DZELAF_BOARD_PLATFORM="$board"} "$@"
}

installed_files() { find "$installed" -not -type d -printf '%P\n' | sort; }

elf_files() {
    local file
    while IFS= read -r file; do
        if [ "$(head -c 4 "$file" | tr -d '\0')" = $'\x7fELF' ]; then echo "$file"; fi
    done < <(find "$installed" -type f)
}

case $check in
Install)
    rm -rf "$installed" "$installed.before"
    "$cmake" --install "$build_folder" --prefix "$installed.before" >"$work/log" || {
        cat "$work/log"
        exit 1
    }
    # Everything is tried in another folder than it was installed to.
    mv "$installed.before" "$installed"
    echo "$(installed_files | wc -l) files"
    ;;
EveryPartIsInOneComponent)
    components=(ZelApplicationFramework ZelStorageSqlite ZelStorageFile Tools Example)
    [ -n "$board" ] || components+=(voxtrace ZelGCL)
    for component in "${components[@]}"; do
        parts=("$component")
        case $component in Tools | Example) ;; *) parts+=("$component-dev") ;; esac
        for part in "${parts[@]}"; do
            "$cmake" --install "$build_folder" --prefix "$work/part" --component "$part" >/dev/null
            find "$work/part" -not -type d -printf '%P\n' | sort >"$work/files"
            [ -s "$work/files" ] || fail "component $part is empty"
            cat "$work/files" >>"$work/all"
            if [ "$part" = "$component" ] && grep -vE '^(lib/lib[A-Za-z]+\.so\.[0-9.]+|bin/.*|share/man/.*)$' "$work/files"; then
                fail "the files above are not needed to run, but are in component $part"
            fi
            rm -rf "$work/part"
        done
    done
    diff <(sort "$work/all") <(installed_files) || fail "the components (<) are not what is installed without one (>)"
    echo "$(wc -l <"$work/all") files"
    ;;
NoFileNamesTheFoldersItWasBuiltIn)
    # Debug information does; packages keep it apart.
    # The way to a toolchain's system root may lead through the source folder.
    toolchains=$(linked_run_path)
    for folder in "$source_folder" "$build_folder" "$installed.before"; do
        grep -rlF "$folder" "$installed" >"$work/holders" || true
        while IFS= read -r file; do
            if sed "s|${toolchains%/usr/lib/*}/|/|g" "$file" | grep -qF "$folder"; then
                fail "$file holds the folder $folder"
            fi
        done <"$work/holders"
    done
    echo "$(installed_files | wc -l) files"
    ;;
NothingHasARunPath)
    elf_files >"$work/files"
    [ "$(wc -l <"$work/files")" -ge 6 ] || fail "found only these programs and libraries: $(cat "$work/files")"
    toolchains=$(linked_run_path)
    while IFS= read -r file; do
        readelf -d "$file" >"$work/dynamic"
        if grep -E '\((RPATH|RUNPATH)\)' "$work/dynamic" | grep -vF "path: [${toolchains:-not this}]"; then
            fail "$file looks for libraries there"
        fi
    done <"$work/files"
    echo "$(wc -l <"$work/files") programs and libraries"
    ;;
ThePagesProgramsBuildWithCMake)
    page_files "$work/page"
    configure_against "$work/page" "$work/build"
    "$cmake" --build "$work/build" --verbose
    cp "$work/page/session" "$work/build"
    play_session "$work/build"
    ;;
ThePagesProgramsBuildWithPkgConfig)
    page_files "$work/page"
    # The page's lines call the machine's own compilers.
    mkdir "$work/bin"
    board_flags=${board:+-I$board/include -Wl,-rpath-link,$board/lib}
    printf '#!/bin/sh\nexec %s %s "$@" %s\n' "$c_compiler" "$c_flags $board_flags" "$link_flags" >"$work/bin/gcc"
    printf '#!/bin/sh\nexec %s %s "$@" %s\n' "$cxx_compiler" "$cxx_flags $board_flags" "$link_flags" >"$work/bin/g++"
    chmod +x "$work/bin/gcc" "$work/bin/g++"
    (cd "$work/page" && PATH=$work/bin:$PATH PKG_CONFIG_PATH=$installed/lib/pkgconfig bash -eux pkg-config.sh)
    play_session "$work/page"
    ;;
ACMakeComponentThatIsNotThereIsNamed)
    mkdir "$work/project"
    cat >"$work/project/CMakeLists.txt" <<'TEXT'
cmake_minimum_required(VERSION 3.25)
project(Wanting LANGUAGES C CXX)
find_package(ZelApplicationFramework 1 REQUIRED COMPONENTS ZelStorageTape)
TEXT
    if configure_against "$work/project" "$work/build" >"$work/log" 2>&1; then
        fail "a package without the component was taken"
    fi
    grep -q 'ZelStorageTape is not installed' "$work/log" || fail "the message does not name it: $(cat "$work/log")"
    # A later interface is not this one either.
    sed -i 's/ 1 REQUIRED.*/ 2 REQUIRED)/' "$work/project/CMakeLists.txt"
    if configure_against "$work/project" "$work/build" >"$work/log" 2>&1; then
        fail "version 1 was taken for version 2"
    fi
    ;;
ManualPagesNameEveryOption)
    commands=(list get set dump load diff verify convert)
    # CLI11 writes options one a line, indented by two.
    options() { grep -oE '^  (-h,)?--[a-z-]+' | sed 's/.*--/--/' | sort -u; }
    for program in zaf-store RadioUnitController PostEvent; do
        page=$installed/share/man/man1/$program.1
        {
            run "$installed/bin/$program" --help
            if [ $program = zaf-store ]; then
                for command in "${commands[@]}"; do run "$installed/bin/zaf-store" "$command" --help; done
            fi
        } | options >"$work/help"
        sed 's/\\-/-/g' "$page" | grep -oE -- '--[a-z][a-z-]+' | sort -u >"$work/page"
        [ -s "$work/help" ] || fail "$program --help shows no options"
        diff "$work/help" "$work/page" || fail "$page differs from $program --help (< help, > page)"
        echo "$program: $(wc -l <"$work/help") options"
    done
    ;;
*)
    echo "no such check: '$check'"
    exit 2
    ;;
esac
