#!/usr/bin/env python3
"""Holds what a static checker found against what is explained.

CheckFindings.py TOOL EXPLAINED [ROOT] < findings

A finding is a line "FILE:LINE:COLUMN: SEVERITY: MESSAGE [ID]", the last bracket being the check's name. A line of EXPLAINED is
"TOOL | ID | FILE | SOURCE LINE | WHY"; it goes by the source line's text, so that it stays when lines move. A finding
that no line explains fails, and so does a line that explains nothing any more.
"""

import os
import re
import sys

FINDING = re.compile(r"^(?P<file>[^:\n]+):(?P<line>\d+):(?:\d+:)? (?:warning|error|style|performance|portability): "
                     r"(?P<message>.*) \[(?:-W)?(?P<id>[A-Za-z-]+)\]$")


def source_line(root, file, number):
    try:
        with open(f"{root}/{file}", encoding="utf-8") as source:
            lines = source.read().splitlines()
    except OSError:
        return ""
    return lines[number - 1].strip() if 0 < number <= len(lines) else ""


def read_findings(text, root):
    findings = {}
    for line in text.splitlines():
        match = FINDING.match(line)
        if match is None:
            continue
        file = os.path.relpath(match["file"], root)
        key = (match["id"], file, source_line(root, file, int(match["line"])))
        findings.setdefault(key, f"{file}:{match['line']}: {match['message'][:300]} [{match['id']}]")
    return findings


def read_explained(path, tool):
    explained = set()
    with open(path, encoding="utf-8") as lines:
        for number, line in enumerate(lines, 1):
            if line.startswith("#") or not line.strip():
                continue
            fields = [field.strip() for field in line.split(" | ")]
            if len(fields) != 5 or not all(fields):
                sys.exit(f"{path}:{number}: a line has TOOL | ID | FILE | SOURCE LINE | WHY; it is: {line.strip()}")
            if fields[0] == tool:
                explained.add(tuple(fields[1:4]))
    return explained


def main():
    tool, path = sys.argv[1:3]
    root = sys.argv[3] if len(sys.argv) > 3 else "."
    findings = read_findings(sys.stdin.read(), root)
    explained = read_explained(path, tool)
    unexplained = [text for key, text in sorted(findings.items()) if key not in explained]
    stale = sorted(key for key in explained if key not in findings)
    for text in unexplained:
        print(text)
    for check, file, line in stale:
        print(f"{path}: {tool} does not report {check} in {file} any more, at: {line}")
    print(f"{tool}: {len(findings)} findings, {len(findings) - len(unexplained)} explained in {path}, "
          f"{len(unexplained)} not, {len(stale)} explanations without a finding")
    if unexplained:
        print(f"mend what stands above, or say in {path} why it is none")
    return 1 if unexplained or stale else 0


if __name__ == "__main__":
    sys.exit(main())
