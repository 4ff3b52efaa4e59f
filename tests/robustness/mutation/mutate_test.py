"""Tests of scripts/mutate.py: of its lists, and of whole runs over a program of one function."""

import contextlib
import io
import os
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

sys.path.insert(0, str(Path(__file__).resolve().parents[3] / "scripts"))

import mutate  # noqa: E402

# Tells in the words of the test library what it does.
PROGRAM = """
#include <cstdio>
#include "Sum.h"

int main() {
  std::puts("[ RUN      ] Sum.IsTheSum");
  std::fflush(stdout);
  const bool good = Sum(2, 3) == 5;
  std::puts(good ? "[       OK ] Sum.IsTheSum (0 ms)" : "[  FAILED  ] Sum.IsTheSum (0 ms)");
  return good ? 0 : 1;
}
"""
PROJECT = """
cmake_minimum_required(VERSION 3.25)
project(sum LANGUAGES CXX)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
add_executable(unit_tests src/main.cpp)
add_executable(defaults_tests src/main.cpp)
add_custom_target(nuveqcamerahandler_scripted)
"""
SUM = """
inline int Sum(int a, int b) {
  int sum = a;
  sum += b;
  sum += 0;
  return sum;
}
"""
NOTICED = """
[constant] the sum is one too great
-  int sum = a;
+  int sum = a + 1;
"""
UNNOTICED = """
[call dropped] nothing is not added
-  sum += 0;
"""
WITH_A_REASON = UNNOTICED + "survives: it is\nnothing.\n"


class Project(unittest.TestCase):
    """A folder with a source and a list of mistakes."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="mutate test ")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.write("CMakeLists.txt", PROJECT)
        self.write("src/main.cpp", PROGRAM)
        self.write("src/Sum.h", SUM)
        self.write("tests/robustness/mutation/copy.cmake", "")

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def lists(self, text, source="Sum.h"):
        self.write(f"tests/robustness/mutation/{source}.mutants", text)
        return mutate.read_lists(self.root)

    def run_script(self, text, *arguments):
        """(exit code, output) of a run over the list."""
        self.write("tests/robustness/mutation/Sum.h.mutants", text)
        output = io.StringIO()
        command = ["mutate.py", "--jobs", "1", "--build", str(self.root / "build"), *arguments]
        with mock.patch.object(mutate, "ROOT", self.root), mock.patch.object(mutate, "PATIENCE_S", 5), \
                mock.patch.object(sys, "argv", command), contextlib.redirect_stdout(output):
            code = mutate.main()
        return code, output.getvalue()


class ListTest(Project):
    def refuse(self, text, message):
        with self.assertRaises(mutate.Trouble) as caught:
            self.lists(text)
        self.assertIn(message, str(caught.exception))

    def test_entry_is_a_small_patch(self):
        entry, = self.lists("# Of the sum\n[constant] wrong\n   sum += b;\n-  sum += 0;\n+  sum += 1;\n")
        self.assertEqual(str(entry), "Sum.h: [constant] wrong")
        self.assertEqual(entry.apply(SUM), SUM.replace("+= 0", "+= 1"))
        self.assertEqual(entry.reason, "")

    def test_lines_behind_a_deletion_keep_their_numbers(self):
        entry, = self.lists(UNNOTICED)
        self.assertEqual(entry.apply(SUM), SUM.replace("  sum += 0;", ""))

    def test_reason_goes_on_to_the_end_of_its_entry(self):
        entries = self.lists(WITH_A_REASON + NOTICED)
        self.assertEqual([entry.reason for entry in entries], ["it is nothing.", ""])

    def test_text_that_is_gone_is_an_error_with_its_place(self):
        self.refuse(NOTICED + "\n[constant] gone\n-  int sum = c;\n+  int sum = 0;\n",
                    "Sum.h.mutants:6: not in Sum.h: int sum = c;")

    def test_text_that_is_there_twice_is_an_error(self):
        self.write("src/Sum.h", SUM + SUM)
        self.refuse(NOTICED, "Sum.h.mutants:2: 2 times in Sum.h: int sum = a;")

    def test_every_error_of_a_list_is_told(self):
        gone = "[constant] gone\n-  gone;\n+  here;\n"
        self.refuse(gone + "\n" + gone.replace("gone;", "lost;"), "lost;")
        self.refuse(gone + "\n" + gone.replace("gone;", "lost;"), "gone;")

    def test_entries_have_a_known_kind_and_a_title(self):
        self.refuse(NOTICED.replace("constant", "mistake"), "Sum.h.mutants:2: does not begin with the kind")
        self.refuse(NOTICED.replace(" the sum is one too great", ""), "Sum.h.mutants:2: does not begin with the kind")

    def test_entries_change_something_and_add_no_lines(self):
        self.refuse("[constant] same\n-  sum += 0;\n+  sum += 0;\n", "changes nothing")
        self.refuse("[constant] more\n-  sum += 0;\n+  sum += 0;\n+  sum += 0;\n", "more lines")

    def test_the_same_mistake_twice_is_an_error(self):
        self.refuse(NOTICED + NOTICED.replace("great", "high"), "the same as Sum.h.mutants:2")
        self.refuse(NOTICED + NOTICED.replace("a + 1", "a + 2"), "the same as Sum.h.mutants:2")

    def test_list_without_a_source_is_an_error(self):
        with self.assertRaises(mutate.Trouble) as caught:
            self.lists(NOTICED, source="Product.h")
        self.assertIn("there is no Product.h in src", str(caught.exception))

    def test_sample_is_the_same_each_time_and_from_different_sources(self):
        self.write("src/Other.h", SUM)
        self.lists(NOTICED + UNNOTICED)
        mutants = self.lists(NOTICED + UNNOTICED, source="Other.h")
        chosen = mutate.sample(mutants, 2)
        self.assertEqual({mutant.source for mutant in chosen}, {"Sum.h", "Other.h"})
        self.assertEqual(mutate.sample(list(reversed(mutants)), 2), chosen)
        self.assertEqual(len(mutate.sample(mutants, 9)), 4)


class RunTest(Project):
    def test_run_tells_the_noticed_from_the_survivors(self):
        hangs = "\n[condition] it does not end\n-  sum += b;\n+  for (;;) { sum += b; }\n"
        crashes = "\n[constant] it crashes\n-  return sum;\n+  __builtin_trap();\n"
        code, output = self.run_script(NOTICED + UNNOTICED + hangs + crashes)
        self.assertEqual(code, 1, output)
        self.assertIn("] noticed: Sum.h: [constant] the sum is one too great <- Sum.IsTheSum\n", output)
        self.assertIn("] noticed: Sum.h: [condition] it does not end <- Sum.IsTheSum (hangs)\n", output)
        self.assertIn("] noticed: Sum.h: [constant] it crashes <- Sum.IsTheSum (crashes)\n", output)
        self.assertIn("\nSURVIVED: Sum.h: [call dropped] nothing is not added (Sum.h.mutants:6)", output)
        self.assertIn("score: 3 of 4 noticed (75.0 %); 0 more", output)
        self.assertIn("all                      4        3       0         1      0\n", output)
        self.assertEqual((self.root / "src/Sum.h").read_text(), SUM, "only the copy is changed")
        self.assertEqual((self.root / "build/1/tree/src/Sum.h").read_text(), SUM, "and put right again")

    def test_survivors_with_a_reason_are_good(self):
        code, output = self.run_script(NOTICED + WITH_A_REASON)
        self.assertEqual(code, 0, output)
        self.assertIn("score: 1 of 1 noticed (100.0 %); 1 more survive", output)

    def test_reason_that_is_none_is_told(self):
        code, output = self.run_script(NOTICED + "survives: nobody looks.\n")
        self.assertEqual(code, 1, output)
        self.assertIn("NOTICED AFTER ALL: Sum.h: [constant] the sum is one too great", output)

    def test_either_is_good_where_it_is_a_matter_of_luck(self):
        code, output = self.run_script(NOTICED + "may survive: it depends.\n" + UNNOTICED + "may survive: it depends.\n")
        self.assertEqual(code, 0, output)
        self.assertIn("score: 1 of 1 noticed (100.0 %); 1 more survive", output)

    def test_mistake_that_does_not_compile_is_told(self):
        code, output = self.run_script(NOTICED.replace("a + 1", "c") + UNNOTICED + "survives: it is nothing.\n")
        self.assertEqual(code, 1, output)
        self.assertIn("ERROR: Sum.h: [constant] the sum is one too great", output)
        self.assertIn("does not compile", output)
        self.assertIn("survived, as it says: Sum.h: [call dropped]", output)

    def test_tests_that_fail_without_a_mistake_find_nothing_out(self):
        self.write("src/Sum.h", SUM.replace("sum += 0", "sum += 1"))
        with self.assertRaises(mutate.Trouble) as caught:
            self.run_script(NOTICED)
        self.assertIn("[  FAILED  ] Sum.IsTheSum", str(caught.exception))

    def test_checking_the_list_builds_nothing(self):
        code, output = self.run_script(NOTICED + UNNOTICED, "--check-list")
        self.assertEqual((code, output), (0, "2 fit the sources\n"))
        self.assertFalse((self.root / "build").exists())


if __name__ == "__main__":
    os.environ.setdefault("CMAKE_BUILD_PARALLEL_LEVEL", "1")
    unittest.main()
