#!/usr/bin/env python3
"""Measures which lines and branches of the library and its storage providers the tests reach, and holds that against
what is known not to be reached."""

import argparse
import sys
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from Trial import WITHOUT_CODE, Build, CanNotTell, Counter as CountingWorker, add_up

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
MEASURED = ("Framework/ApplicationFramework/private/", "StorageProviders/")
# What a corpus reaches by chance is gone when it is next merged; it counts for nothing here.
REPLAYS = "Fuzz"
NO_REASON = "accepted without a reason"
SOMETIMES = "sometimes"

HEAD = """\
# What no test reaches, by source: a line as it reads, or `branch` and the line that one or more of its branches are not
# taken of, with how many. `./run coverage` fails for what is not listed here. Write a test for it; or, where none can,
# run `./run coverage --accept` and put the reason behind the `why:` that this adds. It also fails for what is listed and
# reached, and --accept takes that off. A reason that begins with "sometimes" is of what depends on how threads meet, and
# stays while it is reached.
"""


def measure(build, folder, jobs):
    """@return what all tests together reach: file, line, its count and its branches."""
    counter = CountingWorker(build, ROOT, folder / "counting")
    programs = [program for program in build.programs() if not program.name.startswith(REPLAYS)]
    missing = [program.name for program in programs if not (build.folder / program.link).exists()]
    if missing or not programs:
        raise CanNotTell(f"{build.folder} is not built: it lacks {', '.join(missing) or 'the test programs'}")
    print("  building the library and the providers with counts", flush=True)
    counter.build_all(jobs)
    total, done = {}, 0

    def one(program):
        counter.measure(program, 600)
        return program

    # The longest first, so that none is waited for alone at the end.
    size = {program.name: (build.folder / program.link).stat().st_size for program in programs}
    with ThreadPoolExecutor(jobs) as pool:
        for program in pool.map(one, sorted(programs, key=lambda program: -size[program.name])):
            add_up(total, program.counts)
            done += 1
            if done % 20 == 0:
                print(f"  {done} of {len(programs)} test programs run", flush=True)
    check_complete(build.compiled_sources(), total)
    return {file: lines for file, lines in total.items() if file.startswith(MEASURED)}


def check_complete(compiled, total):
    """Of a source without any count nothing would be missed either."""
    missing = [file for file in compiled
               if file.startswith(MEASURED) and Path(file).name not in WITHOUT_CODE and not total.get(file)]
    if missing:
        raise CanNotTell(f"no line is counted of {', '.join(missing)}. Each source has to be in a test program, and gcov "
                         "of the compiler's version (gcov --version, gcc --version).")


def unreached(total):
    """File to what is not reached there, as it reads, with how often; and the lines that this is about."""
    found, places = {}, {}
    for file, lines in sorted(total.items()):
        text = (ROOT / file).read_text().split("\n")
        entries = found.setdefault(file, Counter())
        for number, line in sorted(lines.items()):
            reads = " ".join(text[number - 1].split())
            if line["count"] == 0:
                entry, times = ("line", reads), 1
            elif 0 in line["branches"]:
                entry, times = ("branch", reads), line["branches"].count(0)
            else:
                continue
            entries[entry] += times
            places.setdefault((file, *entry), []).append(number)
    return found, places


def read_list(path):
    """@return what the list allows, and the reasons."""
    allowed, reasons, file, entry = {}, {}, None, None
    if not path.exists():
        return allowed, reasons
    for number, line in enumerate(path.read_text().split("\n"), 1):
        if not line.strip() or line.startswith("#"):
            continue
        if not line[0].isspace():
            file = line.strip()
            allowed[file] = Counter()
            continue
        kind, _, rest = line.strip().partition(" ")
        if kind == "why:" and entry:
            reasons[(file, *entry)] = rest
        elif kind in ("line", "branch") and file:
            times, _, reads = rest.partition(" ")
            if not times.isdigit():
                raise CanNotTell(f"{path.name}:{number}: '{times}' is not how many; '{kind} 1 {rest}' would be")
            entry = (kind, reads)
            allowed[file][entry] = int(times)
        else:
            raise CanNotTell(f"{path.name}:{number}: '{line.strip()}' is neither a file, a line, a branch nor a why")
    return allowed, reasons


def write_list(path, found, allowed, reasons):
    """Keeps the reasons of what is still not reached, and what is reached sometimes."""
    lines = [HEAD]
    for file in sorted(set(found) | set(allowed)):
        entries = Counter(found.get(file, {}))
        for entry, times in allowed.get(file, {}).items():
            if is_sometimes((file, *entry), reasons):
                entries[entry] = max(entries[entry], times)
        if not entries:
            continue
        lines.append(file)
        for (kind, reads), times in sorted(entries.items(), key=lambda item: item[0][::-1]):
            lines.append(f"    {kind} {times} {reads}")
            lines.append(f"        why: {reasons.get((file, kind, reads), NO_REASON)}")
        lines.append("")
    path.write_text("\n".join(lines))


def compare(found, places, allowed):
    """@return the complaints: what is not reached and not allowed."""
    complaints = []
    for file, entries in sorted(found.items()):
        for (kind, reads), times in sorted(entries.items()):
            known = allowed.get(file, {}).get((kind, reads), 0)
            if times <= known:
                continue
            where = ", ".join(str(number) for number in places[(file, kind, reads)])
            what = "is not reached" if kind == "line" else f"has {times} branches that are not taken, {known} are known"
            complaints.append(f"{file}:{where}: {reads}\n    {what}")
    return complaints


def better(found, allowed, reasons):
    """@return the complaints: what the list allows and is reached, so that nobody would tell when it is lost again."""
    complaints = []
    for file, entries in sorted(allowed.items()):
        for (kind, reads), times in sorted(entries.items()):
            now = found.get(file, {}).get((kind, reads), 0)
            # The branches of a line that is newly not reached went with it, and that is told already.
            is_lost = found.get(file, {}).get(("line", reads), 0) > entries.get(("line", reads), 0)
            if now < times and not is_lost and not is_sometimes((file, kind, reads), reasons):
                complaints.append(f"{file}: {kind} '{reads}'\n    {times} listed as not reached, {now} are not")
    return complaints


def is_sometimes(entry, reasons):
    """Whether it need not be reached; not for ever, when its line is gone."""
    if not reasons.get(entry, "").startswith(SOMETIMES):
        return False
    source = ROOT / entry[0]
    return source.exists() and entry[2] in (" ".join(line.split()) for line in source.read_text().split("\n"))


def table(total):
    rows, sums = [], [0, 0, 0, 0]
    for file, lines in sorted(total.items()):
        branches = [branch for line in lines.values() for branch in line["branches"]]
        row = [len(lines), sum(line["count"] > 0 for line in lines.values()), len(branches), sum(map(bool, branches))]
        sums = [a + b for a, b in zip(sums, row)]
        rows.append((file, row))
    rows.append(("all", sums))
    width = max(len(file) for file, _ in rows)
    text = [f"{'':{width}} {'lines':>6} {'reached':>8} {'':>7} {'branches':>9} {'taken':>6}"]
    for file, (lines, reached, branches, taken) in rows:
        text.append(f"{file:{width}} {lines:6} {reached:8} {share(reached, lines):>7} {branches:9} {taken:6} "
                    f"{share(taken, branches):>7}")
    return "\n".join(text)


def share(part, whole):
    return f"{100 * part / whole:.1f}%" if whole else "-"


def tell(lost, gained, sources, known, gains_pass=False):
    """@return the exit code."""
    for complaint in lost + gained:
        print(complaint)
    print(f"\n{sources} sources: {known} lines and branches not reached, {len(lost)} of them not known; "
          f"{len(gained)} entries are listed and reached")
    if lost:
        print("Write a test that reaches what is not known; or ./run coverage --accept, and say why in Unreached.txt.")
    if gained:
        print("./run coverage --accept takes off the list what is reached now. Where only some runs reach it, let its "
              f"reason begin with '{SOMETIMES}' instead, and say on what it depends.")
    return 1 if lost or (gained and not gains_pass) else 0


def main(given):
    parser = argparse.ArgumentParser(prog="./run coverage", description=__doc__)
    parser.add_argument("--accept", action="store_true", help="list what is not reached now as known")
    parser.add_argument("--gains-pass", action="store_true",
                        help="only tell what is listed and reached: another machine's timing may reach it once")
    parser.add_argument("--jobs", type=int, default=2, help=argparse.SUPPRESS)
    parser.add_argument("--build", default=str(ROOT / "build/release"), help=argparse.SUPPRESS)
    options = parser.parse_args(given)
    path = HERE / "Unreached.txt"
    allowed, reasons = read_list(path)
    total = measure(Build(Path(options.build).resolve()), ROOT / "build/coverage", options.jobs)
    found, places = unreached(total)
    print(table(total))
    if options.accept:
        write_list(path, found, allowed, reasons)
        print(f"\n{path.relative_to(ROOT)} lists {sum(sum(entries.values()) for entries in found.values())}; say why "
              f"where it says '{NO_REASON}'")
        return 0
    known = sum(sum(entries.values()) for entries in found.values())
    return tell(compare(found, places, allowed), better(found, allowed, reasons), len(total), known,
                options.gains_pass)


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except CanNotTell as failure:
        print(f"coverage: {failure}", file=sys.stderr)
        sys.exit(2)
