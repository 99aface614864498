"""Builds a tree with one mistake in it, as little of it as the mistake touches, and runs the tests that meet it."""

import ctypes
import json
import os
import re
import resource
import shlex
import shutil
import signal
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

PRODUCT = ("Framework", "StorageProviders")
# What holds nothing but assertions for the compiler.
WITHOUT_CODE = ("RecordLayouts.cpp",)
# Those that start other programs: what these run is not what was built for the trial.
LEFT_OUT = ("ControllerKillTest", "StorageKillTest", "RadioUnitControllerTest", "LoadedAtRunTime", "StoreToolMemoryTest",
            "StoreToolTest", "ValueJsonTest")
COUNTING = ("--coverage", "-fprofile-update=atomic")

CLONE_NEWUSER, CLONE_NEWIPC = 0x10000000, 0x08000000
LIBC = ctypes.CDLL(None, use_errno=True)


class CanNotTell(Exception):
    """What goes wrong here says nothing about a mistake."""


def own_message_queues():
    """The queues of a program that is killed go with it."""
    if LIBC.unshare(CLONE_NEWIPC) == 0:
        return
    user, group = os.getuid(), os.getgid()
    if LIBC.unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0:
        os.write(2, b"no message queues of its own for a test program: unshare failed; run as root, or allow user namespaces\n")
        os._exit(126)
    Path("/proc/self/setgroups").write_text("deny")
    Path("/proc/self/uid_map").write_text(f"{user} {user} 1")
    Path("/proc/self/gid_map").write_text(f"{group} {group} 1")


def prepare_child(processor_seconds, has_own_queues):
    if has_own_queues:
        own_message_queues()
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_FSIZE, (8 << 30, 8 << 30))
    resource.setrlimit(resource.RLIMIT_CPU, (processor_seconds, processor_seconds + 1))


class Program:
    """One test program. It passes, fails, or does not come to an end."""

    def __init__(self, name, link, is_gtest, arguments=()):
        self.name = name
        self.link = link
        self.is_gtest = is_gtest
        self.arguments = list(arguments)
        self.one_by_one = False
        self.seconds = 0.0
        self.lines = {}

    def commands(self, binary, surroundings):
        if not self.is_gtest:
            return [[str(binary), *self.arguments]]
        flags = ["--gtest_brief=1", "--gtest_fail_fast"]
        if not self.one_by_one:
            return [[str(binary), *flags]]
        return [[str(binary), *flags, f"--gtest_filter={test}"] for test in self.tests(binary, surroundings)]

    @staticmethod
    def tests(binary, surroundings):
        listed = subprocess.run([str(binary), "--gtest_list_tests"], env=surroundings, stdout=subprocess.PIPE, check=True,
                                text=True).stdout
        names, suite = [], ""
        for line in listed.splitlines():
            if line and not line[0].isspace():
                suite = line.split()[0] if line.split()[0].endswith(".") else suite
            elif line.strip():
                names.append(suite + line.split()[0])
        return names


class Outcome:
    def __init__(self, how, detail=""):
        self.how = how
        self.detail = detail

    @property
    def passed(self):
        return self.how == "passed"

    @property
    def is_waiting(self):
        """Hung, and not because it works for ever."""
        return self.how == "hung" and not self.detail


def run_program(program, binary, folder, libraries, limit, environment=None, has_own_queues=True):
    """Runs it to its first failure. The folder is its own and is emptied.

    The limit is of seconds that pass, and of those that a processor works for it."""
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    where = ":".join(str(path) for path in libraries)
    surroundings = dict(os.environ, TMPDIR=str(folder), LD_LIBRARY_PATH=where, ZELAF_SANITIZE="none",
                        GCOV_PREFIX=str(folder / "counts"), CCACHE_DISABLE="1")
    surroundings.update(environment or {})
    if not program.is_gtest:
        surroundings["VOXTRACE_LEVEL"] = "off"
    end = time.monotonic() + limit
    for command in program.commands(binary, surroundings):
        with open(folder / "output", "wb") as output:
            child = subprocess.Popen(command, cwd=folder, env=surroundings, stdin=subprocess.DEVNULL, stdout=output,
                                     stderr=subprocess.STDOUT, start_new_session=True,
                                     preexec_fn=lambda: prepare_child(int(limit) + 1, has_own_queues))
            try:
                code = child.wait(max(0.1, end - time.monotonic()))
            except subprocess.TimeoutExpired:
                code = None
            finally:
                try:
                    os.killpg(child.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
                child.wait()
        if code is None:
            return Outcome("hung")
        text = (folder / "output").read_text(errors="replace")
        if code == 126:
            raise CanNotTell(f"{program.name} could not be started: {text.strip()}")
        if code == -signal.SIGXCPU:
            return Outcome("hung", "busy")
        if code < 0:
            return Outcome("crashed", signal.Signals(-code).name)
        if code > 0:
            failed = re.search(r"\[  FAILED  \] ([^\s,(]+)", text)
            return Outcome("failed", failed.group(1) if failed else text.strip()[-200:])
    return Outcome("passed")


class Build:
    """A finished build of the project with CMake and Ninja, and what each of its parts is made of."""

    def __init__(self, folder):
        self.folder = folder
        cache = (folder / "CMakeCache.txt").read_text()
        self.root = Path(re.search(r"^CMAKE_HOME_DIRECTORY:INTERNAL=(.*)$", cache, re.M).group(1))
        self.compiles, self.links, self.archives = {}, {}, {}
        for line in self._ninja("commands").splitlines():
            for part in line.split(" && "):
                self._learn(part)
        self.dependants = self._dependants()

    def _ninja(self, tool):
        return subprocess.run(["ninja", "-C", str(self.folder), "-t", tool], stdout=subprocess.PIPE, check=True,
                              text=True).stdout

    def _learn(self, command):
        # Not all of them are a compiler's; those that are hold no quotes that do not match.
        try:
            words = shlex.split(command)
        except ValueError:
            return
        if words[:1] == ["ccache"]:
            words = words[1:]
        if len(words) > 2 and words[0].endswith("/ar"):
            self.archives[words[2]] = [word for word in words[3:] if word.endswith(".o")]
        elif "-c" in words and "-o" in words:
            self.compiles[words[words.index("-o") + 1]] = words
        elif "-o" in words and "/usr/bin/" in words[0]:
            self.links[words[words.index("-o") + 1]] = words

    def _dependants(self):
        """Of each file of the product the objects that are compiled from it; of the tests' own those that look behind
        the interface."""
        found, current = {}, None
        for line in self._ninja("deps").splitlines():
            if line and not line[0].isspace():
                current = line.split(":")[0]
            elif line.strip() and current.startswith((*PRODUCT, "Tests/")) and current in self.compiles:
                path = Path(self.folder, line.strip()).resolve()
                if not path.is_relative_to(self.root) or path.relative_to(self.root).parts[0] not in PRODUCT:
                    continue
                if current.startswith(PRODUCT) or "private" in path.parts:
                    found.setdefault(str(path.relative_to(self.root)), []).append(current)
        for target in self.compiles:
            if target.startswith(PRODUCT):
                source = Path(self.compiles[target][self.compiles[target].index("-c") + 1])
                objects = found.setdefault(str(source.relative_to(self.root)), [])
                if target not in objects:
                    objects.append(target)
        return found

    def objects_of(self, link):
        """Everything that a linked file contains: its own objects and those of its archives."""
        contents = set()
        for word in link:
            if word.endswith(".o"):
                contents.add(word)
            contents.update(self.archives.get(word, ()))
        return contents

    def programs(self):
        """The test programs, started as CTest starts them; what only another program starts is none."""
        started = {}
        shown = subprocess.run(["ctest", "--test-dir", str(self.folder), "--show-only=json-v1"], stdout=subprocess.PIPE,
                               check=True, text=True).stdout
        for test in json.loads(shown)["tests"]:
            if "command" in test:
                started.setdefault(Path(test["command"][0]).name, test["command"][1:])
        found = []
        for output, link in sorted(self.links.items()):
            name = Path(output).name
            if not output.startswith("tests/") or name in LEFT_OUT or name not in started:
                continue
            if self._holds_product(link):
                is_gtest = any(word.startswith("--gtest_filter") for word in started[name])
                found.append(Program(name, output, is_gtest, started[name]))
        return found

    def _holds_product(self, link):
        contents = self.objects_of(link)
        for word in link:
            contents |= self.objects_of(self.links.get(word, ()))
        return any(part.startswith(PRODUCT) for part in contents)

    def libraries(self):
        return [output for output in self.links if output.startswith("lib/")]

    def compiled_sources(self):
        """The product's, as the project names them."""
        return sorted({str(Path(words[words.index("-c") + 1]).relative_to(self.root))
                       for target, words in self.compiles.items() if target.startswith(PRODUCT)})


class Worker:
    """A copy of the product's sources, in which one mistake at a time may stand, and what is built of it."""

    has_own_queues = True

    def __init__(self, build, root, folder, flags=()):
        self.build, self.folder, self.flags = build, folder, list(flags)
        self.sources = folder / "source"
        shutil.rmtree(folder, ignore_errors=True)
        for part in PRODUCT:
            shutil.copytree(root / part, self.sources / part)
        self.libraries = folder / "lib"

    def _compile_command(self, target, output):
        command, skip = [], False
        for word in self.build.compiles[target]:
            if skip:
                skip = False
                continue
            if word in ("-MT", "-MF", "-o"):
                skip = True
                continue
            if word in ("-MD", "-g", "-Werror"):
                continue
            for part in PRODUCT:
                word = word.replace(f"{self.build.root}/{part}", f"{self.sources}/{part}")
            command.append(word)
        return command + ["-w", "-O0", f"-ffile-prefix-map={self.sources}/=", "-o", str(output), *self.flags]

    def _call(self, command):
        done = subprocess.run(command, cwd=self.build.folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, errors="replace", env=dict(os.environ, CCACHE_DISABLE="1"))
        return done.returncode == 0, done.stdout

    def compile(self, targets, flags=(), suffix=".o"):
        """@return the objects by what they stand in for, or None and what the compiler says."""
        made = {}
        for target in targets:
            output = self.folder / "objects" / (target + suffix)
            output.parent.mkdir(parents=True, exist_ok=True)
            ok, text = self._call(self._compile_command(target, output) + list(flags))
            if not ok:
                return None, text
            made[target] = output
        return made, ""

    def link(self, target, made, output):
        """Links a program or library with some of its objects replaced."""
        words = self.build.links[target]
        command, in_archives = [], []
        for word in words:
            if word in made:
                command.append(str(made[word]))
            elif word == target:
                command.append(str(output))
            else:
                in_archives += [str(made[part]) for part in self.build.archives.get(word, ()) if part in made]
                command.append(word)
        # In front of the archives, so that nothing asks these for it.
        first = next((i for i, word in enumerate(command) if word.endswith(".a")), len(command))
        command[first:first] = in_archives
        command += self.flags
        output.parent.mkdir(parents=True, exist_ok=True)
        ok, text = self._call(command)
        return ok, text

    def link_libraries(self, made):
        shutil.rmtree(self.libraries, ignore_errors=True)
        self.libraries.mkdir(parents=True)
        for target in self.build.libraries():
            if not self.build.objects_of(self.build.links[target]) & set(made):
                continue
            output = self.libraries / Path(target).name
            ok, text = self.link(target, made, output)
            if not ok:
                return False, text
            short = re.sub(r"(\.so\.\d+).*", r"\1", output.name)
            if short != output.name:
                (self.libraries / short).symlink_to(output.name)
        return True, ""

    def build_all(self, jobs):
        """The whole product, as the copy of its sources is."""
        targets = sorted({target for targets in self.build.dependants.values() for target in targets})
        made = {}
        with ThreadPoolExecutor(jobs) as pool:
            for more, said in pool.map(lambda target: self.compile([target]), targets):
                if more is None:
                    raise CanNotTell(f"the sources do not compile: {said[-500:]}")
                made.update(more)
        ok, said = self.link_libraries(made)
        if not ok:
            raise CanNotTell(f"the libraries do not link: {said[-500:]}")
        return made

    def program(self, program, made):
        """The program as it is with these objects: linked anew where it contains one of them."""
        if not self.build.objects_of(self.build.links[program.link]) & set(made):
            return self.build.folder / program.link
        output = self.folder / "tests" / program.name
        ok, text = self.link(program.link, made, output)
        if not ok:
            raise CanNotTell(f"{program.name} could not be linked: {text[-500:]}")
        return output

    def run(self, program, made, limit, environment=None):
        return run_program(program, self.program(program, made), self.run_folder(program),
                           (self.libraries, self.build.folder / "lib"), limit, environment, self.has_own_queues)

    def run_as_built(self, program, limit, environment=None):
        """The program without any mistake, on the machine as busy as it is now."""
        return run_program(program, self.build.folder / program.link, self.run_folder(program),
                           (self.build.folder / "lib",), limit, environment, self.has_own_queues)

    def run_folder(self, _program):
        return self.folder / "run"

    def same_code(self, file, text, targets):
        """Whether the optimising compiler makes the same of the text as of what the file holds."""
        flags = ["-O2", "-DNDEBUG"]
        place = self.sources / file
        original = place.read_text()
        contents = []
        for version, suffix in ((original, ".as-is.o"), (text, ".as-mistaken.o")):
            place.write_text(version)
            try:
                made, _ = self.compile(targets, flags, suffix)
            finally:
                place.write_text(original)
            if made is None:
                return False
            contents.append([path.read_bytes() for path in made.values()])
        return contents[0] == contents[1]


class Counter(Worker):
    """Builds the product as it is, with its lines and branches counted."""

    has_own_queues = False  # without a mistake a program removes its queues, and not every machine gives it a namespace

    def __init__(self, build, root, folder):
        super().__init__(build, root, folder, COUNTING)
        self.made = {}

    def run_folder(self, program):
        """Each its own, so that some may run at a time."""
        return self.folder / "run" / program.name

    def build_all(self, jobs=1):
        self.made = super().build_all(jobs)

    def measure(self, program, limit):
        """Runs a program and learns its time and what it reaches."""
        begin = time.monotonic()
        outcome = self.run(program, self.made, limit)
        if not outcome.passed and program.is_gtest and not program.one_by_one:
            # It was written for a process of each test's own.
            program.one_by_one = True
            return self.measure(program, limit)
        program.seconds = time.monotonic() - begin
        if not outcome.passed:
            raise CanNotTell(f"{program.name} does not pass as the sources are: it {outcome.how} {outcome.detail}")
        program.counts = self.counts(self.run_folder(program) / "counts")
        program.lines = {file: {number: line["count"] for number, line in lines.items()}
                         for file, lines in program.counts.items()}

    def counts(self, counts):
        """Of each file of the product, by line: how often it was run, and each of its branches."""
        data = sorted(counts.rglob("*.gcda"))
        for file in data:
            notes = Path("/") / file.relative_to(counts).with_suffix(".gcno")
            if not file.with_suffix(".gcno").exists():
                file.with_suffix(".gcno").symlink_to(notes)
        found = {}
        for document in told_by_gcov(data, counts):
            for file in document["files"]:
                add_counts(found, file, self.sources)
        return found


def told_by_gcov(data, folder, program="gcov"):
    """What gcov makes of the counts. It also ends well where it could read some of them or none, and says so beside."""
    if not data:
        return []
    told = subprocess.run([program, "--branch-probabilities", "--json-format", "--stdout", *map(str, data)], cwd=folder,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace")
    said = told.stderr.strip()
    if told.returncode != 0 or said:
        raise CanNotTell(f"gcov ended with {told.returncode} and said: {said[-500:] or 'nothing'}\n"
                         "It has to be of the compiler's version (gcov --version, gcc --version), and no other run may "
                         "work in the same folder.")
    try:
        return [json.loads(line) for line in told.stdout.splitlines()]
    except ValueError as failure:
        raise CanNotTell(f"gcov's counts are no JSON, as those of GCC 9 and later are: {failure}") from failure


def add_counts(found, file, sources):
    """One file of what gcov tells; a line may be told many times, once for each instance of a template."""
    path = Path(sources, file["file"])
    if not path.is_relative_to(sources):
        return
    name = str(path.relative_to(sources))
    if name.split("/")[0] not in PRODUCT:
        return
    lines = found.setdefault(name, {})
    for told in file["lines"]:
        line = lines.setdefault(told["line_number"], {"count": 0, "branches": []})
        line["count"] += told["count"]
        # Whatever may throw has a branch for that, which is none of the source's.
        branches = [branch["count"] for branch in told["branches"] if not branch["throw"]]
        merge_branches(line["branches"], branches)


def add_up(total, counts):
    """Adds what one program reached to what the others did."""
    for file, lines in counts.items():
        for number, line in lines.items():
            sum_of = total.setdefault(file, {}).setdefault(number, {"count": 0, "branches": []})
            sum_of["count"] += line["count"]
            merge_branches(sum_of["branches"], line["branches"])


def merge_branches(known, more):
    for i, count in enumerate(more):
        if i < len(known):
            known[i] += count
        else:
            known.append(count)
