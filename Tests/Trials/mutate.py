#!/usr/bin/env python3
"""Plants single mistakes in the library's sources, one at a time, and tells which of them no test notices."""

import argparse
import difflib
import hashlib
import json
import random
import re
import sys
import threading
import time
from collections import Counter
from pathlib import Path
from queue import Queue

from Planting import Planter
from Trial import WITHOUT_CODE, Build, CanNotTell, Counter as CountingWorker, Worker

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
LIBRARY = ("Framework/ApplicationFramework/private",)
PROVIDERS = ("StorageProviders",)
# Of each source at least so many, however short it is beside the others.
LEAST = 4
# A test program may take so many times as long as without a mistake, and some seconds for a machine that does more.
PATIENCE, GRACE = 8, 10
# Of a hundred mistakes that change the code, so many are to be caught.
AIM = 97
# What names a mistake, in this order.
KEY = ("file", "in", "was", "now", "nth")


def result_codes():
    return re.findall(r"^ *ROW\((eAF_\w+),", (ROOT / "Framework/ApplicationFramework/EAFResult.h").read_text(), re.M)


def sources(folders, pattern):
    found = []
    for folder in folders:
        found += sorted(path for path in (ROOT / folder).rglob("*") if path.suffix in (".cpp", ".h") and path.name not in WITHOUT_CODE)
    names = [str(path.relative_to(ROOT)) for path in found]
    return [name for name in names if re.search(pattern, name)]


def function_at(source, begin):
    """The line that begins the function or record around a place."""
    lines = source[:begin].split("\n")
    for line in reversed(lines[:-1]):
        if re.match(r"[A-Za-z_].*[({,]$", line) or re.match(r"[A-Za-z_].*\) (const )?(noexcept )?\{$", line):
            found = re.search(r"([\w:~]+)\(", line)
            return found.group(1) if found else " ".join(line.rstrip("{ ").split())
    return ""


class Planted:
    """A mistake in a file: where it is, how it reads, what became of it."""

    def __init__(self, file, source, mistake):
        self.file, self.mistake = file, mistake
        self.kind = mistake.kind
        self.line = source.count("\n", 0, mistake.begin) + 1
        self.last_line = source.count("\n", 0, mistake.end) + 1
        self.place = function_at(source, mistake.begin)
        begin = source.rfind("\n", 0, mistake.begin) + 1
        end = source.find("\n", mistake.end)
        self.was = source[begin : end if end >= 0 else len(source)]
        self.now = source[begin : mistake.begin] + mistake.text + source[mistake.end : end if end >= 0 else len(source)]
        self.verdict, self.by, self.how = "", "", ""
        self.nth = 1

    @property
    def text_key(self):
        now = re.sub(r"^#line \d+$", "", self.now, flags=re.M)
        return (self.file, self.place, " ".join(self.was.split()), " ".join(now.split()))

    @property
    def key(self):
        """Stays the same while other lines come and go. Those of a function that read alike are counted."""
        return self.text_key + (self.nth,)

    def difference(self):
        lines = difflib.ndiff(self.was.split("\n"), [line for line in self.now.split("\n") if line.strip() and not line.startswith("#line")])
        return "\n".join("    " + line for line in lines if line[0] in "+-")

    def record(self):
        return {"file": self.file, "line": self.line, "in": self.place, "kind": self.kind, "was": self.key[2],
                "now": self.key[3], "nth": self.nth, "verdict": self.verdict, "by": self.by, "how": self.how}


def order_of(file, source, seed):
    """All mistakes of a file: of each kind in turn, chance says which."""
    chance = random.Random(f"{seed} {file}")
    kinds = {}
    for mistake in Planter(source, result_codes()).find():
        kinds.setdefault(mistake.kind, []).append(mistake)
    for mistakes in kinds.values():
        chance.shuffle(mistakes)
    turns = sorted(kinds)
    chance.shuffle(turns)
    ordered = []
    while any(kinds.values()):
        ordered += [kinds[kind].pop() for kind in turns if kinds[kind]]
    planted = [Planted(file, source, mistake) for mistake in ordered]
    alike = Counter()
    for each in sorted(planted, key=lambda each: (each.mistake.begin, each.mistake.end)):
        alike[each.text_key] += 1
        each.nth = alike[each.text_key]
    return planted


def choose(files, seed):
    """All mistakes of all files, so that of any beginning each file has its share."""
    ranked = []
    for file in files:
        mistakes = order_of(file, (ROOT / file).read_text(), seed)
        for i, planted in enumerate(mistakes):
            ranked.append(((0, i) if i < LEAST else (1, i / len(mistakes)), file, i, planted))
    ranked.sort(key=lambda entry: entry[:3])
    return [entry[3] for entry in ranked]


def explained(path=HERE / "Explained.txt"):
    """Key to reason; the file's own head says how it is written."""
    found = {}
    if not path.exists():
        return found
    for block in re.split(r"\n\s*\n", path.read_text()):
        fields = {}
        for line in block.split("\n"):
            if line.startswith("#") or not line.strip():
                continue
            name, _, value = line.partition(":")
            fields[name.strip()] = " ".join(value.split())
        if fields:
            missing = {"file", "in", "was", "now", "why"} - set(fields)
            if missing:
                raise CanNotTell(f"{path.name}: an entry of {fields.get('file', '?')} has no {', '.join(sorted(missing))}")
            found[tuple(fields[name] for name in ("file", "in", "was", "now")) + (int(fields.get("nth", 1)),)] = fields["why"]
    return found


def judge(planted, worker, programs, race_finder=None):
    """Sets the verdict of one mistake."""
    place = worker.sources / planted.file
    original = place.read_text()
    targets = worker.build.dependants.get(planted.file, [])
    text = planted.mistake.plant(original)
    place.write_text(text)
    try:
        made, said = worker.compile(targets)
        if made is not None:
            ok, said = worker.link_libraries(made)
            made = made if ok else None
    finally:
        place.write_text(original)
    if made is None:
        planted.verdict, planted.how = "uncompiled", said.strip().split("\n")[0][-200:]
        return
    for program in reaching(programs, planted):
        outcome = catches(worker, program, made)
        if outcome is not None:
            planted.verdict, planted.by, planted.how = "caught", program.name, f"{outcome.how} {outcome.detail}".strip()
            return
    if worker.same_code(planted.file, text, targets):
        planted.verdict = "equivalent"
        return
    if race_finder is not None and planted.kind == "lock" and race_finder(planted, text):
        return
    planted.verdict = "survived"


def run_patiently(worker, program, made, environment=None, factor=1):
    limit = patience(program, factor)
    outcome = worker.run(program, made, limit, environment)
    if outcome.is_waiting:
        # Maybe for a machine that does much else.
        outcome = worker.run(program, made, 2 * limit, environment)
    return outcome


def patience(program, factor=1):
    return (GRACE + PATIENCE * program.seconds) * factor


def catches(worker, program, made, environment=None, factor=1):
    """@return how a program fails because of the mistake, or None: one failure alone may be the machine's."""
    outcome = run_patiently(worker, program, made, environment, factor)
    if outcome.passed:
        return None
    if not outcome.is_waiting:  # which happened twice by now
        if not run_patiently(worker, program, made, environment, factor).passed:
            return outcome
        if run_patiently(worker, program, made, environment, factor).passed:
            return None
    # It waited, or failed two times of three: that is the mistake's where it does neither without one.
    return outcome if worker.run_as_built(program, patience(program, factor), environment).passed else None


def reaching(programs, planted):
    """The programs that run a mistake's lines, the fastest first. Where these hold no code, as a constant's, first those
    that run some of its file, then all others: what is made at load concerns each of them."""
    by_time = sorted(programs, key=lambda program: program.seconds)
    counts = [program.lines.get(planted.file, {}) for program in by_time]
    lines = range(planted.line, planted.last_line + 1)
    if not any(counts):
        return by_time
    if any(line in count for count in counts for line in lines):
        return [program for program, count in zip(by_time, counts) if any(count.get(line) for line in lines)]
    near = [program for program, count in zip(by_time, counts) if any(count.values())]
    return near + [program for program in by_time if program not in near]


class Races:
    """Locks are also judged under ThreadSanitizer: what one thread does is the same without them."""

    def __init__(self, build, folder, programs):
        self.build, self.folder = build, folder
        self.worker = Worker(build, ROOT, folder)
        self.programs = {program.name: program for program in build.programs()}
        self.known = {program.name: program for program in programs}
        self.taking_turns = threading.Lock()
        self.environment = {"TSAN_OPTIONS": "halt_on_error=1:second_deadlock_stack=1:allocator_may_return_null=1"}

    def __call__(self, planted, text):
        with self.taking_turns:
            place = self.worker.sources / planted.file
            original = place.read_text()
            place.write_text(text)
            try:
                made, _ = self.worker.compile(self.build.dependants.get(planted.file, []))
                ok = made is not None and self.worker.link_libraries(made)[0]
            finally:
                place.write_text(original)
            if not ok:
                return False
            for known in reaching(list(self.known.values()), planted):
                program = self.programs.get(known.name)
                if program is None or not (self.build.folder / program.link).exists():
                    continue
                program.one_by_one = known.one_by_one
                program.seconds = known.seconds
                outcome = catches(self.worker, program, made, self.environment, factor=10)
                if outcome is not None:
                    planted.verdict, planted.by = "caught", f"{program.name} under ThreadSanitizer"
                    planted.how = f"{outcome.how} {outcome.detail}".strip()
                    return True
        return False


class Session:
    def __init__(self, options):
        self.options = options
        self.folder = ROOT / "build/mutate"
        self.build = Build(Path(options.build).resolve())
        self.programs = self.measured()
        self.workers = [Worker(self.build, ROOT, self.folder / f"worker-{i}") for i in range(options.jobs)]
        self.races = None
        if options.races:
            self.races = Races(Build(Path(options.races_build).resolve()), self.folder / "races", self.programs)

    def measured(self):
        """What each program reaches, measured anew only where it or the product is another."""
        kept_in = self.folder / "reached.json"
        kept = json.loads(kept_in.read_text()) if kept_in.exists() else {}
        programs = [program for program in self.build.programs() if re.search(self.options.tests, program.name)]
        missing = [program.name for program in programs if not (self.build.folder / program.link).exists()]
        if missing or not programs:
            raise CanNotTell(f"{self.build.folder} is not built: it lacks {', '.join(missing) or 'the test programs'}")
        product = hashlib.sha256()
        for file in sources(LIBRARY + PROVIDERS, "."):
            product.update((ROOT / file).read_bytes())
        counter = None
        for i, program in enumerate(programs):
            binary = hashlib.sha256((self.build.folder / program.link).read_bytes())
            state = binary.hexdigest() + product.hexdigest()
            known = kept.get(program.name)
            if known and known["state"] == state:
                program.seconds, program.one_by_one = known["seconds"], known["one_by_one"]
                program.lines = {file: {int(line): count for line, count in lines.items()}
                                 for file, lines in known["lines"].items()}
                continue
            if counter is None:
                counter = CountingWorker(self.build, ROOT, self.folder / "counting")
                counter.build_all(self.options.jobs)
            counter.measure(program, 600)
            kept[program.name] = {"state": state, "seconds": program.seconds, "one_by_one": program.one_by_one,
                                  "lines": program.lines}
            print(f"  {i + 1} of {len(programs)}: {program.name} passes in {program.seconds:.1f} s, "
                  f"runs lines of {sum(any(lines.values()) for lines in program.lines.values())} sources", flush=True)
            kept_in.write_text(json.dumps(kept))
        return [program for program in programs if program.lines]

    def unmistaken(self, file):
        """Without a mistake everything passes, built and run in the very way in which the mistakes are: of one source at
        a time."""
        worker = self.workers[0]
        made, said = worker.compile(self.build.dependants[file])
        if made is None:
            raise CanNotTell(f"without a mistake {file} does not compile: {said[-500:]}")
        ok, said = worker.link_libraries(made)
        if not ok:
            raise CanNotTell(f"without a mistake the libraries do not link: {said[-500:]}")
        for program in self.programs:
            outcome = run_patiently(worker, program, made)
            if not outcome.passed:
                raise CanNotTell(f"without a mistake {program.name} {outcome.how} {outcome.detail}")

    def judge_all(self, mistakes, write):
        waiting, failures = Queue(), []
        for planted in mistakes:
            waiting.put(planted)
        lock, begin, done = threading.Lock(), time.monotonic(), [0]

        def work(worker):
            while not waiting.empty() and not failures:
                try:
                    planted = waiting.get_nowait()
                except Exception:  # another worker was faster
                    return
                try:
                    judge(planted, worker, self.programs, self.races)
                except Exception as failure:
                    failures.append(failure)
                    return
                with lock:
                    done[0] += 1
                    if done[0] % 5 == 0:
                        write()
                    if planted.verdict == "survived":
                        print(f"{planted.file}:{planted.line}: {planted.kind} survived\n{planted.difference()}", flush=True)
                    if done[0] % 25 == 0:
                        print(f"  {done[0]} of {len(mistakes)} after {time.monotonic() - begin:.0f} s", flush=True)

        threads = [threading.Thread(target=work, args=(worker,)) for worker in self.workers]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        if failures:
            raise failures[0]


def counted(results):
    return Counter(planted.verdict for planted in results)


def table(results):
    """By kind: planted, caught, survived, the same code, not compiled."""
    lines = [f"{'kind':20} {'planted':>8} {'caught':>8} {'survived':>9} {'same code':>10} {'did not compile':>16}"]
    for kind in sorted({planted.kind for planted in results}):
        count = counted([planted for planted in results if planted.kind == kind])
        lines.append(f"{kind:20} {sum(count.values()) - count['uncompiled']:8} {count['caught']:8} {count['survived']:9} "
                     f"{count['equivalent']:10} {count['uncompiled']:16}")
    return "\n".join(lines)


def stale(reasons, possible, results):
    """@return what the list explains and does not survive any more, with what became of it.

    @param possible  all mistakes of the files that this run is about, tried or not."""
    files = {planted.file for planted in possible}
    known = {planted.key for planted in possible}
    verdicts = {planted.key: planted for planted in results}
    found = []
    for key in reasons:
        if key[0] in files and key not in known:
            found.append((key, "can not be planted: nothing reads so any more"))
        elif key in verdicts and verdicts[key].verdict != "survived":
            planted = verdicts[key]
            found.append((key, f"is {planted.verdict}" + (f" by {planted.by}" if planted.by else "")))
    return found


def report(results, reasons, possible=()):
    """@return whether every survivor is explained, and everything explained survives."""
    unexplained = [planted for planted in results if planted.verdict == "survived" and planted.key not in reasons]
    print("\n" + table(results))
    for planted in results:
        if planted.verdict == "survived" and planted.key in reasons:
            print(f"\n{planted.file}:{planted.line}: {planted.kind}, explained: {reasons[planted.key]}\n{planted.difference()}")
    for planted in unexplained:
        print(f"\n{planted.file}:{planted.line}: {planted.kind} survived")
        print("\n".join(f"    {name}: {value}" for name, value in zip(KEY, planted.key)))
    count = counted(results)
    of = sum(count.values()) - count["uncompiled"]
    print(f"\n{of} mistakes: caught {count['caught']}, survived {count['survived']} "
          f"({count['survived'] - len(unexplained)} explained), the same code {count['equivalent']}, "
          f"did not compile {count['uncompiled']}")
    print(share_caught(count))
    out_of_date = stale(reasons, possible, results)
    for key, became in out_of_date:
        print(f"\nExplained.txt explains a mistake that {became}")
        print("\n".join(f"    {name}: {value}" for name, value in zip(KEY, key)))
    return not unexplained and not out_of_date


def share_caught(count):
    """Of those that compiled and changed the code."""
    of = count["caught"] + count["survived"]
    if of == 0:
        return "none compiled and changed the code"
    percent = 1000 * count["caught"] // of / 10  # never rounded up to the aim
    return (f"caught {percent:.1f}% of the {of} that compiled and changed the code; at least {AIM}% is the aim: "
            f"{'met' if percent >= AIM else 'missed'}")


def arguments(given):
    parser = argparse.ArgumentParser(prog="./run mutate", description=__doc__)
    parser.add_argument("count", nargs="?", type=int, default=400, help="how many that compile (%(default)s)")
    parser.add_argument("--seed", type=int, default=1, help="chooses which; the same one the same (%(default)s)")
    parser.add_argument("--file", default=".", metavar="PATTERN", help="only in sources whose path matches")
    parser.add_argument("--kind", default=".", metavar="PATTERN", help="only of matching kinds")
    parser.add_argument("--tests", default=".", metavar="PATTERN", help="judged by matching test programs alone")
    parser.add_argument("--providers", action="store_true", help="in the storage providers too")
    parser.add_argument("--again", metavar="LIST", help="those that survived in an earlier run's list")
    parser.add_argument("--resume", action="store_true", help="go on where a run was interrupted; nothing may have changed")
    parser.add_argument("--list", action="store_true", help="only say which")
    parser.add_argument("--jobs", type=int, default=2, help=argparse.SUPPRESS)
    parser.add_argument("--build", default=str(ROOT / "build/release"), help=argparse.SUPPRESS)
    parser.add_argument("--races", action="store_true",
                        help="drop locks too: the tests then also run under ThreadSanitizer (builds that preset)")
    parser.add_argument("--races-build", default=str(ROOT / "build/tsan"), help=argparse.SUPPRESS)
    parser.add_argument("--write", default=str(ROOT / "build/mutate/mistakes.json"), help=argparse.SUPPRESS)
    return parser.parse_args(given)


def write_list(path, results):
    Path(path).write_text(json.dumps([planted.record() for planted in results if planted.verdict], indent=1))


def judged_before(path):
    """Of a run that was interrupted."""
    entries = json.loads(Path(path).read_text()) if Path(path).exists() else []
    return {tuple(entry[name] for name in KEY): (entry["verdict"], entry["by"], entry["how"])
            for entry in entries}


def main(given):
    options = arguments(given)
    files = sources(LIBRARY + (PROVIDERS if options.providers else ()), options.file)
    if not files:
        raise CanNotTell(f"no source's path matches '{options.file}'")
    possible = choose(files, options.seed)
    mistakes = [planted for planted in possible if re.search(options.kind, planted.kind) and (options.races or planted.kind != "lock")]
    if options.again:
        survivors = {tuple(entry[name] for name in KEY)
                     for entry in json.loads(Path(options.again).read_text()) if entry["verdict"] == "survived"}
        mistakes = [planted for planted in mistakes if planted.key in survivors]
    if options.list:
        for planted in mistakes[: options.count]:
            print(f"{planted.file}:{planted.line}: {planted.kind}\n{planted.difference()}")
        return 0
    reasons = explained()
    (ROOT / "build/mutate").mkdir(parents=True, exist_ok=True)
    session = Session(options)
    canary = next(file for file in files if file.endswith(".cpp"))
    session.unmistaken(canary)
    print(f"  {len(mistakes)} mistakes to choose from, in {len(files)} files", flush=True)
    results, known = [], judged_before(options.write) if options.resume else {}
    # One that does not compile gives its place to the next.
    while mistakes and sum(planted.verdict != "uncompiled" for planted in results) < options.count:
        missing = options.count - sum(planted.verdict != "uncompiled" for planted in results)
        turn, mistakes = mistakes[:missing], mistakes[missing:]
        results += turn
        for planted in turn:
            planted.verdict, planted.by, planted.how = known.get(planted.key, ("", "", ""))
        session.judge_all([planted for planted in turn if not planted.verdict], lambda: write_list(options.write, results))
        write_list(options.write, results)
    # What was caught was caught by the mistake and by nothing that came over the machine meanwhile.
    session.unmistaken(canary)
    return 0 if report(results, reasons, possible) else 1


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except CanNotTell as failure:
        print(f"mutate: {failure}", file=sys.stderr)
        sys.exit(2)
