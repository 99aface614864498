#!/usr/bin/env python3
"""What ./run coverage makes of counts."""

import shutil
import subprocess
import sys
import unittest
from collections import Counter
from contextlib import redirect_stdout
from io import StringIO
from pathlib import Path
from tempfile import TemporaryDirectory

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))

import coverage  # noqa: E402
from Trial import CanNotTell, add_counts, add_up, told_by_gcov  # noqa: E402

SOURCE = "StorageProviders/f.cpp"
LINE, BRANCH = ("line", "return 1;"), ("branch", "if (a) {")


class TheGate(unittest.TestCase):
    def setUp(self):
        folder = TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.list = self.folder / "Unreached.txt"
        root = coverage.ROOT
        self.addCleanup(setattr, coverage, "ROOT", root)
        coverage.ROOT = self.folder
        (self.folder / "StorageProviders").mkdir()
        (self.folder / SOURCE).write_text("int f(bool a) {\n    if (a) {\n        return 1;\n    }\n    return 2;\n}\n")

    def found(self, inside=0, taken=(0, 4)):
        total = {SOURCE: {2: {"count": 4, "branches": list(taken)}, 3: {"count": inside, "branches": []},
                          5: {"count": 4, "branches": []}}}
        return coverage.unreached(total)

    def complaints(self, *found, allowed=None):
        return coverage.compare(*(found or self.found()), allowed or {})

    def test_linesAndBranches_areFoundAsTheyRead(self):
        found, places = self.found()
        self.assertEqual({SOURCE: Counter({LINE: 1, BRANCH: 1})}, found)
        self.assertEqual([3], places[(SOURCE, *LINE)])

    def test_whatIsNotReachedAndNotKnown_isToldWithItsLine(self):
        told = "\n".join(self.complaints())
        self.assertIn(f"{SOURCE}:3: return 1;\n    is not reached", told)
        self.assertIn(f"{SOURCE}:2: if (a) {{\n    has 1 branches that are not taken, 0 are known", told)

    def test_theListThatIsKept_beginsAsOneThatIsWritten(self):
        self.assertTrue((coverage.HERE / "Unreached.txt").read_text().startswith(coverage.HEAD))

    def test_whatIsKnown_passes(self):
        self.assertEqual([], self.complaints(allowed={SOURCE: Counter({LINE: 1, BRANCH: 1})}))

    def test_oneMoreThanIsKnown_doesNot(self):
        known = {SOURCE: Counter({LINE: 1, BRANCH: 1})}
        self.assertEqual(1, len(self.complaints(*self.found(taken=(0, 0)), allowed=known)))

    def exit_code(self, found, places, known, reasons=None):
        with redirect_stdout(StringIO()) as said:
            code = coverage.tell(coverage.compare(found, places, known), coverage.better(found, known, reasons or {}), 1, 2)
        return code, said.getvalue()

    def test_whatIsListedAndReached_fails_orItCouldBeLostUnnoticed(self):
        known = {SOURCE: Counter({LINE: 1, BRANCH: 2})}
        code, said = self.exit_code(*self.found(inside=1, taken=(0, 1)), known)
        self.assertEqual(1, code)
        self.assertIn(f"{SOURCE}: line 'return 1;'\n    1 listed as not reached, 0 are not", said)
        self.assertIn(f"{SOURCE}: branch 'if (a) {{'\n    2 listed as not reached, 1 are not", said)
        self.assertIn("./run coverage --accept", said)
        self.assertEqual(1, self.exit_code({}, {}, known)[0])

    def test_whatIsReachedSometimes_passesEitherWay(self):
        known = {SOURCE: Counter({LINE: 1})}
        reasons = {(SOURCE, *LINE): "sometimes: two threads meet"}
        for inside in (0, 1):
            self.assertEqual(0, self.exit_code(*self.found(inside=inside, taken=(1, 1)), known, reasons)[0])

    def test_whatWasReachedSometimes_leavesWithItsLine(self):
        gone = ("line", "return 3;")
        known, reasons = {SOURCE: Counter({gone: 1})}, {(SOURCE, *gone): "sometimes: two threads meet"}
        code, said = self.exit_code(*self.found(inside=1, taken=(1, 1)), known, reasons)
        self.assertEqual(1, code)
        self.assertIn("return 3;", said)
        coverage.write_list(self.list, {}, known, reasons)
        self.assertEqual({}, coverage.read_list(self.list)[0])

    def test_aBranchWhoseLineIsLost_isNotToldAsReached(self):
        total = {SOURCE: {2: {"count": 0, "branches": [0, 0]}}}
        code, said = self.exit_code(*coverage.unreached(total), {SOURCE: Counter({BRANCH: 1})})
        self.assertEqual(1, code)
        self.assertIn("is not reached", said)
        self.assertNotIn("listed as not reached", said)

    def test_whatIsLost_fails(self):
        self.assertEqual(1, self.exit_code(*self.found(taken=(1, 1)), {})[0])

    def test_anAcceptedList_isReadBackWithItsReasons(self):
        found, _ = self.found()
        coverage.write_list(self.list, found, {}, {(SOURCE, *LINE): "nobody can"})
        allowed, reasons = coverage.read_list(self.list)
        self.assertEqual(found, allowed)
        self.assertEqual("nobody can", reasons[(SOURCE, *LINE)])
        self.assertEqual(coverage.NO_REASON, reasons[(SOURCE, *BRANCH)])

    def test_whatIsReachedSometimes_staysOnTheList(self):
        found, _ = self.found(inside=1, taken=(1, 1))
        known = {SOURCE: Counter({LINE: 1, BRANCH: 1})}
        coverage.write_list(self.list, found, known, {(SOURCE, *LINE): "sometimes: two threads meet", (SOURCE, *BRANCH): "no"})
        self.assertEqual({SOURCE: Counter({LINE: 1})}, coverage.read_list(self.list)[0])

    def test_aListThatIsNoList_isRefused(self):
        for text in (f"{SOURCE}\n    line return 1;\n", "    line 1 return 1;\n", f"{SOURCE}\n    lines 1 x\n"):
            self.list.write_text(text)
            with self.assertRaises(CanNotTell):
                coverage.read_list(self.list)


class Counts(unittest.TestCase):
    def test_instancesAndPrograms_areAddedUp(self):
        def told(count, *branches):
            return {"file": str(Path("/copy") / SOURCE), "lines": [{"line_number": 2, "count": count, "branches": [
                {"count": times, "throw": throw} for times, throw in branches]}]}

        found = {}
        add_counts(found, told(1, (1, False), (0, False), (0, True)), Path("/copy"))
        add_counts(found, told(0, (0, False), (0, False)), Path("/copy"))
        add_counts(found, {"file": "/usr/include/vector", "lines": []}, Path("/copy"))
        total = {}
        add_up(total, found)
        add_up(total, {SOURCE: {2: {"count": 2, "branches": [0, 2]}}})
        self.assertEqual({SOURCE: {2: {"count": 3, "branches": [1, 2]}}}, total)


    def test_aSourceWithoutAnyCount_isTold(self):
        compiled = [SOURCE, "StorageProviders/g.cpp", "StorageProviders/RecordLayouts.cpp", "Framework/elsewhere.cpp"]
        line = {1: {"count": 0, "branches": []}}
        for total, missing in (({}, f"{SOURCE}, StorageProviders/g.cpp"),
                               ({SOURCE: line, "StorageProviders/g.cpp": {}}, "StorageProviders/g.cpp")):
            with self.assertRaisesRegex(CanNotTell, f"^no line is counted of {missing}. "):
                coverage.check_complete(compiled, total)
        coverage.check_complete(compiled, {SOURCE: line, "StorageProviders/g.cpp": line})


class Gcov(unittest.TestCase):
    """A compiler's program, that does as it is told."""

    def told(self, script):
        with TemporaryDirectory() as folder:
            program = Path(folder) / "gcov"
            program.write_text("#!/bin/sh\n" + script)
            program.chmod(0o755)
            return told_by_gcov([Path("f.gcda")], Path(folder), str(program))

    def test_whatItTells_isRead(self):
        self.assertEqual([{"files": []}, {"files": [1]}], self.told("""echo '{"files": []}'; echo '{"files": [1]}'"""))

    def test_whatGoesWrong_isNotTakenForNothing(self):
        for script, reason in (("exit 3", "ended with 3"), ("""echo '{"files": []}'; exit 3""", "ended with 3"),
                               ("echo 'f.gcda:stamp mismatch with notes file' >&2", "stamp mismatch"),
                               ("echo 'File f.cpp'", "are no JSON")):
            with self.assertRaisesRegex(CanNotTell, reason):
                self.told(script)

    def test_countsThatTheNotesDoNotFit_areTold(self):
        if shutil.which("gcc") is None or shutil.which("gcov") is None:
            self.skipTest("this machine has no compiler that counts")
        with TemporaryDirectory() as folder:
            def made(text):
                (Path(folder) / "f.c").write_text(text)
                for flags in (["--coverage", "-c", "f.c", "-o", "f.o"], ["--coverage", "f.o", "-o", "f"]):
                    subprocess.run(["gcc", *flags], cwd=folder, check=True)

            def told():
                return told_by_gcov([Path("f.gcda")], Path(folder))

            made("int main(void) { return 0; }\n")
            subprocess.run(["./f"], cwd=folder, check=True)
            self.assertEqual([1], [file["lines"][0]["count"] for document in told() for file in document["files"]])
            made("int f(int a) { return a; }\nint main(void) { return f(0); }\n")
            with self.assertRaisesRegex(CanNotTell, "stamp mismatch"):
                told()


if __name__ == "__main__":
    unittest.main()
