#!/usr/bin/env python3
"""What ./run lint makes of findings."""

import subprocess
import sys
import unittest
from pathlib import Path
from tempfile import TemporaryDirectory

PROGRAM = Path(__file__).resolve().parent / "CheckFindings.py"
SOURCE = """\
void f(int a) {
    g([&] {
        h(a);
    });
    i(a);
}

void k(int a,
       int b) {
    i(a);
}
"""


class TheCheck(unittest.TestCase):
    def setUp(self):
        folder = TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        (self.folder / "f.cpp").write_text(SOURCE)

    def checked(self, findings, *explained, said="warning: no [CWE-1] [-Wanalyzer-x]"):
        """@param findings  lines of f.cpp, of each of which the same is said. @return the exit code and what comes out."""
        (self.folder / "Explained.txt").write_text("# head\n" + "".join(f"{line}\n" for line in explained))
        text = "".join(f"{self.folder}/f.cpp:{line}:1: {said}\n" for line in findings)
        done = subprocess.run([sys.executable, str(PROGRAM), "analyzer", str(self.folder / "Explained.txt"), str(self.folder)],
                              input=text, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        return done.returncode, done.stdout

    def test_whatIsExplained_passes(self):
        self.assertEqual(0, self.checked([3], "analyzer | analyzer-x | f.cpp | h(a); | why")[0])
        self.assertEqual(0, self.checked([3, 3], "analyzer | analyzer-x | f.cpp | h(a); | why")[0])
        self.assertEqual(0, self.checked([])[0])

    def test_whatIsNotExplained_failsWithItsPlace(self):
        for explained in ((), ("other | analyzer-x | f.cpp | h(a); | why",), ("analyzer | analyzer-y | f.cpp | h(a); | why",)):
            code, said = self.checked([3], *explained)
            self.assertEqual(1, code)
            self.assertIn("f.cpp:3: no [CWE-1] [analyzer-x]\n    at: h(a);", said)

    def test_anExplanationWithoutAFinding_fails(self):
        code, said = self.checked([], "analyzer | analyzer-x | f.cpp | h(a); | why")
        self.assertEqual(1, code)
        self.assertIn("at 0 places, not 1, at: h(a);", said)

    def test_aLineThatOnlyCloses_goesByWhatItCloses(self):
        explained = ["analyzer | analyzer-x | f.cpp | }); of g([&] { | why", "analyzer | analyzer-x | f.cpp | } of void f(int a) { | why"]
        self.assertEqual(0, self.checked([4, 6], *explained)[0])
        code, said = self.checked([4, 6, 11], *explained)
        self.assertEqual(1, code)
        self.assertIn("f.cpp:11: no [CWE-1] [analyzer-x]\n    at: } of void k(int a,", said)

    def test_anotherLineThatReadsAlike_isNotExplainedWithIt(self):
        one = "analyzer | analyzer-x | f.cpp | i(a); | why"
        self.assertEqual(0, self.checked([5], one)[0])
        code, said = self.checked([5, 10], one)
        self.assertEqual(1, code)
        self.assertIn("(1 of 2 explained)", said)
        both = "analyzer | analyzer-x x2 | f.cpp | i(a); | why"
        self.assertEqual(0, self.checked([5, 10], both)[0])
        code, said = self.checked([5], both)
        self.assertEqual(1, code)
        self.assertIn("at 1 places, not 2, at: i(a);", said)

    def test_aCheckOfAnyName_isAFinding(self):
        for name in ("invalidPrintfArgType_sint", "iterators1", "va_end_missing", "c++17", "-Wstringop-overflow=", "-Wformat=2"):
            code, said = self.checked([3], said=f"warning: no [{name}]")
            self.assertEqual(1, code, name)
            self.assertIn(f"f.cpp:3: no [{name.removeprefix('-W')}]\n", said)

    def test_aRemarkThatIsNoFinding_fails(self):
        for remark in ("warning: no", "fatal error: no", "information: no [x]", "warning: no [a b]"):
            code, said = self.checked([3], said=remark)
            self.assertEqual(1, code, remark)
            self.assertIn(f"not understood: {self.folder}/f.cpp:3:1: {remark}\n", said)
        self.assertEqual(0, self.checked([3], said="note: no")[0])

    def test_aListThatIsNoList_isRefused(self):
        code, said = self.checked([], "analyzer | analyzer-x | f.cpp | why")
        self.assertEqual(1, code)
        self.assertIn("Explained.txt:2: a line has", said)


if __name__ == "__main__":
    unittest.main()
