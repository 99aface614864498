#!/usr/bin/env python3
"""What the core paths of the library and the storage providers cost, counted by callgrind.

Instructions.py show   COUNTS PROGRAM WORK [SERVICE...]   prints the counts
Instructions.py check  COUNTS PROGRAM WORK [SERVICE...]   fails where one has grown by more than 3 % against COUNTS
Instructions.py accept COUNTS PROGRAM WORK                makes them the counts that COUNTS keeps, and writes where
                                                          they go into the page of speed

PROGRAM is InstructionPaths; WORK is a folder for what callgrind writes; without a SERVICE all are meant.

Counted are
  own     the instructions in the project's own shared objects
  all     these and what the C and C++ libraries and zlib spend meanwhile
  calls   the calls that leave the project's own
  blocks  the blocks that they take from the heap
The C library chooses its copies of memcpy and strlen by the processor: it is told to see one without extensions. The
same build so gives the same counts on every machine.
"""

import collections
import concurrent.futures
import os
import pathlib
import re
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True

import Parts

SERVICES = ("events", "modules", "lookup", "variables", "sqlite", "file", "broker")
OWN_OBJECTS = re.compile(r"/lib(ZelApplicationFramework|ZelStorageSqlite|ZelStorageFile|ZelGCL|voxtrace)\.so[.0-9]*$")
STANDARD_LIBRARY = re.compile(r"/libstdc\+\+\.so[.0-9]*$")
# The checksums of stores.
ZLIB = re.compile(r"/libz\.so[.0-9]*$")
# Neither SQLite, which has its own releases, nor the program that calls.
C_LIBRARIES = re.compile(r"/(libc|libm|libgcc_s|ld-linux-x86-64)\.so[.0-9]*$")
PLAIN_PROCESSOR = "glibc.cpu.hwcaps=" + ",".join("-" + name for name in (
    "AVX512F", "AVX512VL", "AVX512BW", "AVX2", "AVX", "AVX_Fast_Unaligned_Load", "BMI1", "BMI2", "ERMS", "FMA", "FSRM",
    "LZCNT", "MOVBE", "POPCNT", "RTM", "SSE4_2", "SSE4_1", "SSSE3"))
ALLOCATIONS = {"malloc", "calloc", "realloc", "aligned_alloc", "posix_memalign", "memalign"}
TRIGGER = re.compile(r"desc: Trigger: Client Request: (?P<operations>\d+) (?P<path>.*)")
# What the user's database takes depends on the machine's users.
LEFT_OUT = {"getpwuid"}
COLUMNS = ("own", "all", "calls", "blocks")
TOLERATED_PERCENT = 3
PAGE = pathlib.Path(__file__).resolve().parents[2] / "Documentation" / "Speed.md"
COUNTED = re.compile(r"(?P<begin><!-- counted: parts -->\n).*?(?P<end><!-- end -->)", re.DOTALL)
HOW_TO_ACCEPT = "where the growth is wanted: ./run instructions --accept, and the commit says why"
HEADER = """\
# What an operation costs: instructions of the project's own libraries, the same with the C and C++ libraries' and
# zlib's, calls that leave the project's own, blocks of heap.
# Written by ./run instructions --accept, held by ./run test; CONTRIBUTING.md tells more.
"""


def fail(*words):
    sys.exit("Instructions.py: " + " ".join(words))


def is_beside(name):
    """Whether an object is one of the C and C++ libraries."""
    return bool(C_LIBRARIES.search(name) or STANDARD_LIBRARY.search(name))


def is_counted(name):
    """Whether what an object executes counts at all."""
    return bool(OWN_OBJECTS.search(name) or is_beside(name) or ZLIB.search(name))


class Profile:
    """What each function cost itself in a path's batches, and which calls it made."""

    def __init__(self):
        self.operations = 0
        self.of_function = collections.Counter()  # (object, function): instructions
        self.of_caller = collections.Counter()  # "object:function", with what the C and C++ libraries do for it
        self.calls = collections.Counter()  # (object, called object, called function): number
        self.left_out = 0

    def add(self, operations, lines):
        """Adds a dump of callgrind's."""
        self.operations += operations
        names = {}

        def name_of(kind, text):
            # A name is written out once, and is its number from then on.
            number, _, name = text.partition(" ")
            return names.setdefault((kind, number), name)

        own = function = callee = called_object = called = ""
        is_cost_of_call = False
        for line in lines:
            key, _, value = line.partition("=")
            if line and line[0] in "+-*0123456789":
                # A cost of nothing is left out.
                cost = int((line.split() + ["0"])[1])
                if not is_beside(own) and (not is_cost_of_call or is_beside(callee)):
                    self.of_caller[f"{own.rpartition('/')[2]}:{function}"] += cost
                if not is_cost_of_call:
                    self.of_function[own, function] += cost
                elif called.partition("@")[0] in LEFT_OUT and OWN_OBJECTS.search(own):
                    self.left_out += cost
                is_cost_of_call = False
            elif key == "ob":
                own = name_of("object", value)
            elif key == "fn":
                function = name_of("function", value)
            elif key == "cob":
                called_object = name_of("object", value)
            elif key == "cfn":
                called = name_of("function", value)
            elif key == "calls":
                callee = called_object or own
                self.calls[own, callee, called] += int(value.split()[0])
                called_object = ""
                is_cost_of_call = True

    def counts(self):
        instructions = sum(cost for (own, _), cost in self.of_function.items() if OWN_OBJECTS.search(own))
        counted = sum(cost for (own, _), cost in self.of_function.items() if is_counted(own)) - self.left_out
        calls = sum(count for (own, called, _), count in self.calls.items()
                    if OWN_OBJECTS.search(own) and not OWN_OBJECTS.search(called))
        blocks = sum(count for (own, _, function), count in self.calls.items()
                     if function in ALLOCATIONS and (OWN_OBJECTS.search(own) or STANDARD_LIBRARY.search(own)))
        return tuple(round(count / self.operations, 2) for count in (instructions, counted, calls, blocks))

    def costliest(self, most):
        costs = [(cost / self.operations, function) for (own, function), cost in self.of_function.items()
                 if is_counted(own)]
        return sorted(costs, reverse=True)[:most]


def run(program, work, service):
    """Runs a service's paths. Nothing of the caller's environment reaches the program."""
    folder = pathlib.Path(work).resolve() / service
    program = pathlib.Path(program).resolve()
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    valgrind = shutil.which("valgrind")
    if valgrind is None:
        fail("needs valgrind: install Debian's package of that name (./run test does)")
    command = [valgrind, "--tool=callgrind", "--instr-atstart=no", "--separate-threads=yes", "--dump-line=no",
               f"--callgrind-out-file={folder}/profile", f"--log-file={folder}/valgrind.log", f"./{program.name}", service]
    environment = {"PATH": "/usr/bin:/bin", "LC_ALL": "C", "VOXTRACE_LEVEL": "off", "LD_BIND_NOW": "1",
                   "GLIBC_TUNABLES": PLAIN_PROCESSOR}
    # Called by the same name wherever it is: what lies where on the stack decides how long a strcmp takes.
    done = subprocess.run(command, cwd=program.parent, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False)
    if done.returncode != 0:
        fail(f"the paths of {service} did not come to their end, see {folder}/valgrind.log:", done.stdout[-2000:])
    profiles = {path: Profile() for path in done.stdout.splitlines()}
    # The main thread's. The event task's sleeps, but nobody knows since when.
    for dump in folder.glob("profile.*-01"):
        lines = dump.read_text(encoding="utf-8", errors="replace").split("\n")
        triggers = [TRIGGER.match(line) for line in lines]
        for trigger in filter(None, triggers):
            profiles[trigger["path"]].add(int(trigger["operations"]), lines)
    for path, profile in profiles.items():
        if not profile.of_function:
            fail(f"callgrind wrote nothing of '{path}' into {folder}")
    return profiles


def run_all(program, work, services):
    """The profiles of each service, by its name, as each comes to its end."""
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        running = {service: pool.submit(run, program, work, service) for service in services}
        for service, profiles in running.items():
            yield service, profiles.result()


def number(value):
    return f"{value:.2f}".rstrip("0").rstrip(".")


def read_counts(path):
    counts = {}
    with open(path, encoding="utf-8") as lines:
        for place, line in enumerate(lines, 1):
            if line.startswith("#") or not line.strip():
                continue
            fields = line.split(None, len(COLUMNS))
            try:
                counts[fields[len(COLUMNS)].strip()] = tuple(float(field) for field in fields[:len(COLUMNS)])
            except (IndexError, ValueError):
                fail(f"{path}:{place}: a line has {', '.join(COLUMNS)} and a path; it is: {line.strip()}")
    return counts


def check_path(path, kept, profile, profile_folder):
    """Says what has changed. @return whether nothing has grown."""
    grown = shrunk = False
    for column, before, now in zip(COLUMNS, kept, profile.counts()):
        if now > before * (1 + TOLERATED_PERCENT / 100):
            print(f"GROWN   {path}: {column} from {number(before)} to {number(now)} an operation")
            grown = True
        elif now < before * (1 - TOLERATED_PERCENT / 100):
            print(f"shrunk  {path}: {column} from {number(before)} to {number(now)} an operation")
            shrunk = True
    if grown:
        for cost, function in profile.costliest(5):
            print(f"          {cost:12.2f}  {function}")
        print(f"          callgrind's own dumps are in {profile_folder}")
    if shrunk and not grown:
        print("          ./run instructions --accept keeps it that way")
    return not grown


def check(counts, program, work, services):
    kept = read_counts(counts)
    holds = True
    for service, profiles in run_all(program, work, services):
        measured = {f"{service}: {name}": profile for name, profile in profiles.items()}
        for path, profile in measured.items():
            if path in kept:
                holds = check_path(path, kept[path], profile, f"{work}/{service}") and holds
            else:
                print(f"NEW     {path}: {counts} does not know it")
                holds = False
        for path in kept:
            if path.startswith(service + ": ") and path not in measured:
                print(f"GONE    {path}: {counts} has it, the program does not")
                holds = False
        print(f"{service}: {len(measured)} paths")
    sys.stdout.flush()
    if not holds:
        fail(HOW_TO_ACCEPT)


def profiles_of(program, work, services):
    """Each path's full name and profile, as its service comes to its end."""
    for service, profiles in run_all(program, work, services):
        for name, profile in profiles.items():
            yield f"{service}: {name}", profile


TABLE_HEAD = "#" + "".join(f"{column:>13}" for column in COLUMNS)[1:] + "  path"


def table_line(path, profile):
    return "".join(f"{number(count):>13}" for count in profile.counts()) + f"  {path}"


def show(_, program, work, services):
    print(TABLE_HEAD)
    for path, profile in profiles_of(program, work, services):
        print(table_line(path, profile), flush=True)


def accept(counts, program, work, services):
    if services != SERVICES:
        fail("accept takes no service: the counts are kept as those of one build")
    profiles = dict(profiles_of(program, work, services))
    lines = [TABLE_HEAD] + [table_line(path, profile) for path, profile in profiles.items()]
    replace(pathlib.Path(counts), HEADER + "\n".join(lines) + "\n")
    page = PAGE.read_text(encoding="utf-8")
    if not COUNTED.search(page):
        fail(f"{PAGE} has no place for the parts: a line <!-- counted: parts --> and a line <!-- end --> behind it")
    replace(PAGE, COUNTED.sub(lambda place: f"{place['begin']}\n{Parts.table(profiles)}\n{place['end']}", page))


def replace(path, text):
    before = path.read_text(encoding="utf-8") if path.exists() else ""
    path.parent.mkdir(exist_ok=True)
    path.write_text(text, encoding="utf-8")
    changed = sum(line not in before.splitlines() for line in text.splitlines())
    print(f"{path}: {changed} lines changed")


def main():
    verbs = {"show": show, "check": check, "accept": accept}
    if len(sys.argv) < 5 or sys.argv[1] not in verbs:
        fail("takes: show|check|accept COUNTS PROGRAM WORK [SERVICE...]")
    verb, counts, program, work, *services = sys.argv[1:]
    unknown = [service for service in services if service not in SERVICES]
    if unknown:
        fail(f"there is no service '{unknown[0]}'; there are {', '.join(SERVICES)}")
    verbs[verb](counts, program, work, tuple(services) or SERVICES)


if __name__ == "__main__":
    main()
