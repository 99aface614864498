#!/usr/bin/env python3
"""What ./run coverage makes of counts."""

import sys
import unittest
from collections import Counter
from pathlib import Path
from tempfile import TemporaryDirectory

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))

import coverage  # noqa: E402
from Trial import CanNotTell, add_counts, add_up  # noqa: E402

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

    def test_whatIsKnown_passes(self):
        self.assertEqual([], self.complaints(allowed={SOURCE: Counter({LINE: 1, BRANCH: 1})}))

    def test_oneMoreThanIsKnown_doesNot(self):
        known = {SOURCE: Counter({LINE: 1, BRANCH: 1})}
        self.assertEqual(1, len(self.complaints(*self.found(taken=(0, 0)), allowed=known)))

    def test_raisingIsFree_andTold(self):
        known = {SOURCE: Counter({LINE: 1, BRANCH: 1})}
        found, places = self.found(inside=1, taken=(1, 1))
        self.assertEqual([], coverage.compare(found, places, known))
        self.assertEqual(2, len(coverage.better(found, known, {})))

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


if __name__ == "__main__":
    unittest.main()
