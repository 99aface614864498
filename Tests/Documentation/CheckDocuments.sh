#!/usr/bin/env bash
# CheckDocuments.sh CHECK PROJECT-FOLDER
set -euo pipefail
cd "$2"

case $1 in
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
