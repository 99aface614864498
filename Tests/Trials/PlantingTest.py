#!/usr/bin/env python3
"""The planter and the judge of ./run mutate, on sources small enough to see what they do."""

import sys
import unittest
from contextlib import redirect_stdout
from io import StringIO
from pathlib import Path
from tempfile import TemporaryDirectory

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))

import mutate  # noqa: E402
from Planting import Planter, tokens_of  # noqa: E402
from Trial import CanNotTell, Outcome, Program, run_program  # noqa: E402

CODES = ["eAF_S_OK", "eAF_W_WARNING", "eAF_E_FAILED", "eAF_E_UNKNOWN"]


def planted(source, kind):
    """The source with each mistake of a kind."""
    return [mistake.plant(source) for mistake in Planter(source, CODES).find() if mistake.kind == kind]


class EachKind(unittest.TestCase):
    def holds(self, kind, source, *expected):
        self.assertEqual(sorted(expected), sorted(planted(source, kind)))

    def test_code_isSwappedForItsNeighbour(self):
        self.holds("code", "x = eAF_W_WARNING;", "x = eAF_E_FAILED;")
        self.holds("code", "x = eAF_E_UNKNOWN;", "x = eAF_E_FAILED;")
        self.holds("code", "x = eAF_E_OF_ANOTHER_TABLE;")

    def test_comparison_isTurned(self):
        self.holds("comparison", "b = i < n;", "b = i >= n;")
        self.holds("comparison", "b = i == n;", "b = i != n;")
        self.holds("comparison", "std::vector<int> a; template <class T> void f();")

    def test_comparison_isMadeOffByOne(self):
        self.holds("off-by-one", "b = i < n;", "b = i <= n;")
        self.holds("off-by-one", "b = i >= n;", "b = i > n;")

    def test_constantAndIndex_areMadeOffByOne(self):
        self.holds("off-by-one", "x = 0x10u;", "x = (0x10u + 1);")
        self.holds("off-by-one", "x = list[i];", "x = list[i + 1];")
        self.holds("off-by-one", "auto f = [i] { };")

    def test_call_isDropped(self):
        self.holds("call", "{ close(queue); }", "{ ; }")
        self.holds("call", "{ list.first().close(a, b); }", "{ ; }")
        self.holds("call", "{ return close(queue); }")
        self.holds("call", "{ Type name(queue); }")
        self.holds("call", "{ close(\n  queue); }", "{ ;\n }")

    def test_assignment_isDropped(self):
        self.holds("assignment", "{ a.b = c; }", "{ ; }")
        self.holds("assignment", "{ *out = c; }", "{ ; }")
        self.holds("assignment", "{ int b = c; const T *d = e; }")

    def test_lock_isDropped(self):
        self.holds("lock", "{ const std::lock_guard<std::mutex> lock(all); }", "{ ; }")
        self.holds("lock", "{ lock.unlock(); }", "{ ; }")
        self.holds("lock", "{ std::unique_lock<std::mutex> lock(all); }",
                   "{ std::unique_lock<std::mutex> lock(all, std::defer_lock); }")

    def test_step_isDropped(self):
        self.holds("step", "{ ++count; }", "{ ; }")
        self.holds("step", "for (int i = 0; i < n; ++i) {}", "for (int i = 0; i < n; ) {}")

    def test_traceText_isChangedInOneCharacter(self):
        self.holds("trace-text", 'AF_TRACE(eAF_E_FAILED, "It %s\\n", name);', 'AF_TRACE(eAF_E_FAILED, "Ix %s\\n", name);')
        self.holds("trace-text", 'call("text");')
        self.holds("text", 'call("text");', 'call("teyt");')

    def test_traceArgument_isChanged(self):
        self.holds("trace-argument", 'AF_TRACE(code, "%s %d", name, id);', 'AF_TRACE(code, "%s %d", "?", id);',
                   'AF_TRACE(code, "%s %d", name, (id) + 1);')

    def test_traceLevel_isChanged(self):
        self.holds("trace-level", 'AF_TRACE(eAF_E_FAILED, "No");', 'AF_TRACE(eAF_W_WARNING, "No");')
        self.holds("trace-level", 'AF_TRACE_AS(label, eAF_W_WARNING, "No");', 'AF_TRACE_AS(label, eAF_I_INFO, "No");')

    def test_checks_areExchangedAndKeepTheirLines(self):
        source = "{\nif (a) {\nf();\n}\nif (b) {\ng();\n}\nh();\n}"
        [changed] = planted(source, "exchanged-checks")
        self.assertLess(changed.index("g();"), changed.index("f();"))
        self.assertIn("#line 5\nif (b)", changed)
        self.assertIn("#line 2\nif (a)", changed)
        self.assertTrue(changed.endswith("#line 7\n\nh();\n}"), changed)
        self.holds("exchanged-checks", "{ if (a) { f(); } else { g(); } if (b) { h(); } }")

    def test_condition_isNegated(self):
        self.holds("condition", "if (a == b) { }", "if (!(a == b)) { }")
        self.holds("condition", "while (!a) { }", "while (!(!a)) { }", "while (a) { }")
        self.holds("condition", "x = a ? b : c;", "x = a ? c : b;")

    def test_logic_isExchanged(self):
        self.holds("logic", "x = a && b;", "x = a || b;")
        self.holds("logic", "T &&forwarded;")

    def test_arithmetic_isExchanged(self):
        self.holds("arithmetic", "x = a + b;", "x = a - b;")
        self.holds("arithmetic", "x = -b; y = *c;")

    def test_failure_isReturnedAsSuccess(self):
        self.holds("return", "return eAF_E_FAILED;", "return eAF_S_OK;")
        self.holds("return", "return true;", "return false;")
        self.holds("return", "return eAF_S_OK;")

    def test_arguments_areExchanged(self):
        self.holds("exchanged-arguments", "x = f(a, b);", "x = f(b, a);")
        self.holds("exchanged-arguments", "void f(int a, int b);")
        self.holds("exchanged-arguments", "x = f(g(a, b), c);", "x = f(g(b, a), c);", "x = f(c, g(a, b));")

    def test_initialiser_isChanged(self):
        self.holds("initialiser", "bool a = true;", "bool a = false;")

    def test_nothing_isChangedWhereTheCompilerReadsNothing(self):
        source = '// if (a == 1) { f(); }\n/* a && b */\n#define X if (a == 1)\\\n { f(); }\n#include "x.h"\n'
        self.assertEqual([], Planter(source, CODES).find())

    def test_nothing_isChangedInWhatTheCompilerHoldsItself(self):
        self.assertEqual([], Planter('static_assert(a == 1 && b < c, "text");', CODES).find())


class OfAWholeSource(unittest.TestCase):
    source = (mutate.ROOT / "Framework/ApplicationFramework/private/CEventHandler.cpp").read_text()

    def test_noTokenIsLost(self):
        tokens = "".join(token.text for token in tokens_of(self.source))
        self.assertEqual(tokens, "".join("".join(self.source[token.begin : token.end] for token in tokens_of(self.source))))

    def test_eachMistakeIsOneChange(self):
        found = Planter(self.source, mutate.result_codes()).find()
        self.assertGreater(len(found), 200)
        changed = [mistake.plant(self.source) for mistake in found]
        self.assertEqual(len(set(changed)), len(changed))
        self.assertNotIn(self.source, changed)
        for mistake, text in zip(found, changed):
            self.assertEqual(self.source[: mistake.begin], text[: mistake.begin])
            self.assertTrue(text.endswith(self.source[mistake.end :]))
            if "#line" not in mistake.text:
                self.assertEqual(self.source.count("\n"), text.count("\n"), mistake)

    def test_thoseThatReadAlike_areToldApart(self):
        source = "int f(int a) {\n    if (a > 0) {\n        return eAF_E_FAILED;\n    }\n    g();\n    return eAF_E_FAILED;\n}\n"
        alike = [entry for entry in mutate.order_of("f.cpp", source, 1) if entry.kind == "return"]
        self.assertEqual([(3, 1), (6, 2)], sorted((entry.line, entry.nth) for entry in alike))
        self.assertEqual(2, len({entry.key for entry in alike}))
        every = [entry.key for entry in mutate.choose(mutate.sources(mutate.LIBRARY + mutate.PROVIDERS, "."), 1)]
        self.assertEqual(len(every), len(set(every)))

    def test_theSameSeedChoosesTheSame(self):
        files = ["Framework/ApplicationFramework/private/CEventHandler.cpp"]
        keys = [[entry.key for entry in mutate.choose(files, seed)][:40] for seed in (1, 1, 2)]
        self.assertEqual(keys[0], keys[1])
        self.assertNotEqual(keys[0], keys[2])

    def test_everyFileHasItsShareOfABeginning(self):
        files = mutate.sources(mutate.LIBRARY, ".")
        with_room = {file for file in files if mutate.order_of(file, (mutate.ROOT / file).read_text(), 1)}
        self.assertEqual(with_room, {entry.file for entry in mutate.choose(files, 1)[:300]})

    def test_aKeyStaysWhenLinesMove(self):
        moved = self.source.replace("namespace {", "// another line\nnamespace {", 1)
        keys = [{mutate.Planted("file", source, mistake).key for mistake in Planter(source, CODES).find()}
                for source in (self.source, moved)]
        self.assertEqual(keys[0], keys[1])


class FakeWorker:
    """A compiler, linker and machine that do as they are told. A program comes to its outcomes in turn, the last of which
    stays; those that do not pass as built fail without a mistake too."""

    def __init__(self, folder, compiles=True, outcomes=None, same=False, fail_as_built=()):
        self.sources, self.compiles, self.same, self.fail_as_built = folder, compiles, same, fail_as_built
        self.outcomes = {name: list(outcome) for name, outcome in (outcomes or {}).items()}
        self.build = type("Build", (), {"dependants": {}})
        self.ran = []

    def compile(self, _targets):
        return ({} if self.compiles else None), "error: no"

    def link_libraries(self, _made):
        return True, ""

    def run(self, program, _made, _limit, _environment=None):
        self.ran.append(program.name)
        outcomes = self.outcomes.get(program.name, ["passed"])
        return Outcome(outcomes.pop(0) if len(outcomes) > 1 else outcomes[0])

    def run_as_built(self, program, _limit, _environment=None):
        self.ran.append(f"{program.name} as built")
        return Outcome("failed" if program.name in self.fail_as_built else "passed")

    def same_code(self, *_arguments):
        return self.same


class TheVerdict(unittest.TestCase):
    source = "int f() {\n    return 1;\n}\n"

    def judged(self, race_finder=None, **told):
        programs = []
        for name, seconds in (("Slow", 2.0), ("Fast", 1.0), ("Elsewhere", 0.5)):
            program = Program(name, name, True)
            program.seconds = seconds
            program.lines = {"f.cpp": {2: 0 if name == "Elsewhere" else 1}}
            programs.append(program)
        with TemporaryDirectory() as folder:
            (Path(folder) / "f.cpp").write_text(self.source)
            worker = FakeWorker(Path(folder), **told)
            [mistake] = Planter(self.source, CODES).find()
            entry = mutate.Planted("f.cpp", self.source, mistake)
            mutate.judge(entry, worker, programs, race_finder)
            self.assertEqual(self.source, (Path(folder) / "f.cpp").read_text())
        return entry, worker

    def test_aProgramThatFailsTwice_catches(self):
        for how in ("failed", "crashed"):
            entry, worker = self.judged(outcomes={"Fast": [how]})
            self.assertEqual(("caught", "Fast"), (entry.verdict, entry.by))
            self.assertEqual(["Fast", "Fast"], worker.ran)

    def test_aProgramThatWaitsTwice_catches_whereItDoesNotWithoutTheMistake(self):
        entry, worker = self.judged(outcomes={"Fast": ["hung"]})
        self.assertEqual(("caught", "Fast"), (entry.verdict, entry.by))
        self.assertEqual(["Fast", "Fast", "Fast as built"], worker.ran)
        entry, worker = self.judged(outcomes={"Fast": ["hung"]}, fail_as_built=["Fast"])
        self.assertEqual("survived", entry.verdict)
        self.assertEqual("Slow", worker.ran[-1])

    def test_aProgramThatFailsOnce_catchesNothing_andTheNextIsAsked(self):
        entry, worker = self.judged(outcomes={"Fast": ["failed", "passed"]})
        self.assertEqual("survived", entry.verdict)
        self.assertEqual(["Fast", "Fast", "Fast", "Slow"], worker.ran)
        entry, _ = self.judged(outcomes={"Fast": ["failed", "passed"], "Slow": ["failed"]})
        self.assertEqual(("caught", "Slow"), (entry.verdict, entry.by))

    def test_aProgramThatFailsTwoTimesOfThree_catches_whereItPassesWithoutTheMistake(self):
        for failing, verdict in (([], "caught"), (["Fast"], "survived")):
            entry, worker = self.judged(outcomes={"Fast": ["failed", "passed", "failed"]}, fail_as_built=failing)
            self.assertEqual(verdict, entry.verdict)
            self.assertEqual(["Fast", "Fast", "Fast", "Fast as built"], worker.ran[:4])

    def test_onlyProgramsThatReachIt_areAsked_theFastestFirst(self):
        entry, worker = self.judged()
        self.assertEqual("survived", entry.verdict)
        self.assertEqual(["Fast", "Slow"], worker.ran)

    def test_whatDoesNotCompile_isNeitherCaughtNorSurvived(self):
        entry, worker = self.judged(compiles=False, outcomes={"Fast": ["failed"]})
        self.assertEqual("uncompiled", entry.verdict)
        self.assertEqual([], worker.ran)

    def test_theSameCode_isToldApart(self):
        self.assertEqual("equivalent", self.judged(same=True)[0].verdict)

    def reported(self, entries, reasons, possible=()):
        with redirect_stdout(StringIO()) as said:
            passed = mutate.report(entries, reasons, possible)
        return passed, said.getvalue()

    def test_aReport_failsForASurvivorWithoutAReason(self):
        entry, _ = self.judged()
        self.assertFalse(self.reported([entry], {})[0])
        self.assertTrue(self.reported([entry], {entry.key: "it may"}, [entry])[0])
        self.assertTrue(self.reported([self.judged(same=True)[0]], {})[0])

    def test_aReport_failsForAReasonThatIsNotNeededAnyMore(self):
        caught, _ = self.judged(outcomes={"Fast": ["failed"]})
        passed, said = self.reported([caught], {caught.key: "it may"}, [caught])
        self.assertFalse(passed)
        self.assertIn("explains a mistake that is caught by Fast\n    file: f.cpp", said)
        passed, said = self.reported([caught], {("f.cpp", "f", "return 3;", "return 4;", 1): "it may"}, [caught])
        self.assertFalse(passed)
        self.assertIn("explains a mistake that can not be planted", said)

    def test_aReport_leavesReasonsOfWhatWasNotTried(self):
        entry, _ = self.judged(outcomes={"Fast": ["failed"]})
        elsewhere = ("g.cpp", "g", "return 3;", "return 4;", 1)
        self.assertTrue(self.reported([], {entry.key: "it may", elsewhere: "it may"}, [entry])[0])

    def test_aReport_tellsTheShareOfWhatChangedTheCode(self):
        caught, _ = self.judged(outcomes={"Fast": ["failed"]})
        same, uncompiled = self.judged(same=True)[0], self.judged(compiles=False)[0]
        survivor, _ = self.judged()
        said = self.reported([caught] * 97 + [survivor] * 3 + [same, uncompiled], {})[1]
        self.assertIn("caught 97.0% of the 100 that compiled and changed the code; at least 97% is the aim: met", said)
        said = self.reported([caught] * 96 + [survivor] * 3 + [same] * 9, {})[1]
        self.assertIn("caught 96.9% of the 99 that compiled and changed the code; at least 97% is the aim: missed", said)
        self.assertIn("none compiled and changed the code", self.reported([same], {})[1])

    def test_eachReasonOfThisProject_isOfAMistakeThatCanBePlanted(self):
        files = mutate.sources(mutate.LIBRARY + mutate.PROVIDERS, ".")
        reasons = mutate.explained()
        self.assertEqual([], mutate.stale(reasons, mutate.choose(files, 1), []))
        self.assertEqual(set(), {key[0] for key in reasons} - set(files))


class AProgram(unittest.TestCase):
    """Run as test programs are."""

    def outcome(self, script, limit=20.0):
        with TemporaryDirectory() as folder:
            binary = Path(folder) / "program"
            binary.write_text("#!/bin/sh\n" + script)
            binary.chmod(0o755)
            try:
                return run_program(Program("program", "program", False), binary, Path(folder) / "run", [Path(folder)], limit).how
            except CanNotTell:
                self.skipTest("this machine lets nobody have message queues of his own")

    def test_passesFailsCrashesOrHangs(self):
        self.assertEqual("passed", self.outcome("exit 0"))
        self.assertEqual("failed", self.outcome("exit 1"))
        self.assertEqual("crashed", self.outcome("kill -SEGV $$"))
        self.assertEqual("hung", self.outcome("sleep 60 & wait", limit=0.3))


if __name__ == "__main__":
    unittest.main()
