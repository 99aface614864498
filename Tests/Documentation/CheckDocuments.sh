#!/usr/bin/env bash
# CheckDocuments.sh CHECK PROJECT-FOLDER
set -euo pipefail
export LC_ALL=C
cd "$2"

operations() {
    awk -f Tests/Documentation/Operations.awk Framework/ApplicationFramework/*.h StorageProviders/*/C*Storage.h
}

# exported: the operations of the export lists, without how objects come and go.
exported() {
    sed -nE 's/^  ([A-Za-z_]+);$/\1/p; s/^    "([A-Za-z_:~]*)[[(].*";$/\1/p' \
        Framework/ApplicationFramework/private/*.map StorageProviders/*/private/*.map |
        awk -F '::' 'NF < 2 || ($1 != $2 && $2 !~ /^(~|operator)/)' | sort -u
}

interface_page() {
    cat <<'TEXT'
# Every exported operation

By header. Each has its arguments, codes and traces in its docstring there; of what is said together about several,
each has the first sentence here. `./run reference` writes this page.

| Operation | Header | |
|---|---|---|
TEXT
    operations | awk -F '\t' '{ printf "| `%s` | `%s` | %s |\n", $2, $1, $3 }'
}

case $1 in
WriteInterfacePage)
    interface_page >Documentation/Operations.md
    ;;
InterfacePageIsOfTheHeaders)
    diff Documentation/Operations.md <(interface_page) || {
        echo "Documentation/Operations.md is not of the headers (< page, > headers): ./run reference writes it"
        exit 1
    }
    echo "$(operations | wc -l) operations"
    ;;
HeadersDeclareWhatIsExported)
    [ "$(exported | wc -l)" -gt 100 ]
    diff <(operations | cut -f 2 | sort -u) <(exported) || {
        echo "the headers declare (<) other operations than the export lists name (>)"
        exit 1
    }
    echo "$(exported | wc -l) operations, each declared and exported"
    ;;
EveryOperationIsDescribed)
    operations | awk -F '\t' '
        $3 == "" { print $1 " says nothing about " $2 ": its docstring begins with what it does, or with @return"; bare = 1 }
        END { print NR " operations looked at"; exit bare || NR < 100 }'
    ;;
NamesInBackquotesExist)
    # Names as CONTRIBUTING.md has them: of operations, records, codes, options and the platform's calls.
    known=$(find Framework Platform StorageProviders Tools Examples Benchmarks Tests/Support CMake CMakeLists.txt \
        CMakePresets.json Tests/CMakeLists.txt run -type f ! -name '*.md' -exec grep -ohE '[A-Za-z_][A-Za-z_0-9]*' {} + | sort -u)
    missing=0
    checked=0
    while IFS=: read -r page name; do
        checked=$((checked + 1))
        for word in ${name//::/ }; do
            if ! grep -qFx -- "${word%%(*}" <<<"$known"; then
                echo "$page names $name, and nothing is called that"
                missing=$((missing + 1))
            fi
        done
    done < <(find . -path ./build -prune -o -name '*.md' -print | sed 's|^\./||' |
        xargs grep -oE '`([CISE][A-Z][a-z]\w*|[A-Z]\w*::\w+|(eAF|ePO|TYPE|MODULE_STATE|AF|VT|GCL|ZELAF|VOXTRACE)_\w+)(::\w+)?(\(\))?`' |
        tr -d '`' | sort -u)
    echo "$checked names looked up, $missing missing"
    [ "$checked" -gt 100 ] && [ "$missing" -eq 0 ]
    ;;
ResultCodesEqualTheHeader)
    header=$(sed -nE 's/^ *ROW\((eAF_[A-Z_0-9]+), 0x([0-9A-F]{4}), +"(.*)"\).*$/| 0x\2 | `\1` | \3 |/p' \
        Framework/ApplicationFramework/EAFResult.h)
    page=$(grep -E '^\| 0x' Documentation/ResultCodes.md)
    [ -n "$header" ]
    diff <(echo "$header") <(echo "$page") || {
        echo "Documentation/ResultCodes.md differs from EAFResult.h (< header, > page)"
        exit 1
    }
    echo "$(echo "$header" | wc -l) codes agree"
    ;;
FilesNamedExist)
    # Every path in backquotes that has a folder or an ending of ours.
    files=$(find . -path ./build -prune -o -type f -print)
    missing=0
    checked=0
    while IFS=: read -r page name; do
        checked=$((checked + 1))
        if ! grep -qE "(^|/)${name//./\\.}\$" <<<"$files" && ! grep -qE "/$(basename "${name//./\\.}")\$" <<<"$files"; then
            echo "$page names $name, which is not there"
            missing=$((missing + 1))
        fi
    done < <(find . -path ./build -prune -o -name '*.md' -print | sed 's|^\./||' |
        xargs grep -oE '`[A-Za-z_.][A-Za-z_./]*\.(md|h|cpp|c|map|sh|txt)`' | tr -d '`' | sort -u)
    echo "$checked names looked up, $missing missing"
    [ "$checked" -gt 0 ] && [ "$missing" -eq 0 ]
    ;;
*)
    echo "no such check: '$1'"
    exit 2
    ;;
esac
