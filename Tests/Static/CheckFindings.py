#!/usr/bin/env python3
"""Holds what a static checker found against what is explained.

CheckFindings.py TOOL EXPLAINED [ROOT] < findings

A finding is a line "FILE:LINE:COLUMN: SEVERITY: MESSAGE [ID]", the last bracket being the check's name. A line of EXPLAINED is
"TOOL | ID | FILE | SOURCE LINE | WHY"; it goes by the source line's text, so that it stays when lines move. A source
line that only closes something is "} of" the line that began it. An entry is of one place: an ID "NAME x2" is of two
that read alike. A finding that no line explains fails, and so does a line that explains nothing any more, and what is
said of a place and does not read like a finding.
"""

import os
import re
import sys

FINDING = re.compile(r"^(?P<file>[^:\n]+):(?P<line>\d+):(?:\d+:)? (?:warning|error|style|performance|portability): "
                     r"(?P<message>.*) \[(?:-W)?(?P<id>[\w=+-]+)\]$")
# Whatever a tool says of a place, but for what it adds to a finding: to be a finding, or nothing is told of it.
REMARK = re.compile(r"^[^:\n]+:\d+:(?:\d+:)? (?!note: )\w[\w ]*: ")


def source_line(lines, number):
    """@return how a line reads; behind one that only closes something, the line that began it."""
    if not 0 < number <= len(lines):
        return ""
    line = lines[number - 1]
    if re.search(r"\w", line):
        return line.strip()
    for above in reversed(lines[: number - 1]):
        # A label stands further out than what it belongs to.
        if re.search(r"\w", above) and indentation(above) <= indentation(line) and not above.rstrip().endswith(":"):
            return f"{line.strip()} of {above.strip()}"
    return line.strip()


def indentation(line):
    return len(line) - len(line.lstrip())


def lines_of(root, file):
    try:
        with open(f"{root}/{file}", encoding="utf-8") as source:
            return source.read().splitlines()
    except OSError:
        return []


def read_findings(text, root):
    """@return what was found, by check, file and how the line reads: of each line of the file what is said of it; and
    the lines that say something else of a place."""
    findings, sources, unread = {}, {}, []
    for line in text.splitlines():
        match = FINDING.match(line)
        if match is None:
            unread += [line] if REMARK.match(line) else []
            continue
        file, number = os.path.relpath(match["file"], root), int(match["line"])
        lines = sources.setdefault(file, lines_of(root, file))
        key = (match["id"], file, source_line(lines, number))
        findings.setdefault(key, {}).setdefault(
            number, f"{file}:{number}: {match['message'][:300]} [{match['id']}]")
    return findings, unread


def read_explained(path, tool):
    """@return at how many places each is explained."""
    explained = {}
    with open(path, encoding="utf-8") as lines:
        for number, line in enumerate(lines, 1):
            if line.startswith("#") or not line.strip():
                continue
            fields = [field.strip() for field in line.split(" | ")]
            if len(fields) != 5 or not all(fields):
                sys.exit(f"{path}:{number}: a line has TOOL | ID | FILE | SOURCE LINE | WHY; it is: {line.strip()}")
            check, _, times = fields[1].partition(" x")
            if fields[0] == tool:
                explained[(check, *fields[2:4])] = int(times or 1)
    return explained


def main():
    tool, path = sys.argv[1:3]
    root = sys.argv[3] if len(sys.argv) > 3 else "."
    findings, unread = read_findings(sys.stdin.read(), root)
    explained = read_explained(path, tool)
    complaints = [f"not understood: {line}" for line in unread]
    for key, places in sorted(findings.items()):
        known = explained.get(key, 0)
        if len(places) > known:
            complaints += [text for _, text in sorted(places.items())]
            complaints.append(f"    at: {key[2]}" + (f"    ({known} of {len(places)} explained)" if known else ""))
    unexplained = sum(len(places) > explained.get(key, 0) for key, places in findings.items())
    stale = {key: times for key, times in explained.items() if len(findings.get(key, ())) < times}
    for text in complaints:
        print(text)
    for (check, file, line), times in sorted(stale.items()):
        print(f"{path}: {tool} reports {check} in {file} at {len(findings.get((check, file, line), ()))} places, "
              f"not {times}, at: {line}")
    print(f"{tool}: {len(findings)} findings, {len(findings) - unexplained} explained in {path}, "
          f"{unexplained} not, {len(stale)} explanations without a finding")
    if complaints:
        print(f"mend what stands above, or say in {path} why it is none")
    return 1 if complaints or stale else 0


if __name__ == "__main__":
    sys.exit(main())
