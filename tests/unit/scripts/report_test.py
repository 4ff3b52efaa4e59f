"""Tests of scripts/test_report.py, with reports as ctest and GoogleTest write them."""

import pathlib
import subprocess

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[3] / "scripts/test_report.py"


@pytest.fixture
def build(tmp_path):
    """A build folder. Its functions add a test of ctest, or the report of a GoogleTest program."""
    class Build:
        folder = tmp_path / "native"
        tests = []

        def add_test(self, name, status="run", output="", skipped=False):
            element = "<skipped/>" if skipped else "<failure/>" if status == "fail" else ""
            self.tests.append(f'<testcase name="{name}" status="{status}">{element}'
                              f"<system-out>{output}</system-out></testcase>")

        def add_report(self, name, text):
            (self.folder / "gtest-reports").mkdir(parents=True, exist_ok=True)
            (self.folder / f"gtest-reports/{name}.xml").write_text(text)

        def report(self, *words):
            (self.folder / "Testing").mkdir(parents=True, exist_ok=True)
            (self.folder / "Testing/junit.xml").write_text(f"<testsuite>{''.join(self.tests)}</testsuite>")
            done = subprocess.run([SCRIPT, *words, self.folder], capture_output=True, text=True, check=False)
            return done.returncode, done.stdout

    Build.tests = []
    return Build()


def suite(*cases):
    return f'<testsuites><testsuite name="Queue">{"".join(cases)}</testsuite></testsuites>'


def case(name, inner="", status="run"):
    return f'<testcase name="{name}" classname="Queue" status="{status}">{inner}</testcase>'


def test_tests_within_a_suite_are_counted(build):
    build.add_test("Exports.LibraryExportsOneFunction")
    build.add_test("unit_tests.Each/Queue")
    build.add_report("unit_tests.Each-Queue", suite(case("Stops"), case("Starts"), case("Later", status="notrun")))
    assert build.report() == (0, "native: 3 passed, 0 failed\n3 passed, 0 failed\n")


def test_failed_tests_are_named(build):
    build.add_test("unit_tests.Queue", "fail")
    build.add_report("unit_tests.Queue", suite(case("Stops"), case("Starts", '<failure message="no"/>')))
    build.add_test("package.archive", "fail")
    code, output = build.report()
    assert code == 1
    assert output.splitlines() == ["native: 1 passed, 2 failed", "  FAILED: Queue.Starts", "  FAILED: package.archive",
                                   "1 passed, 2 failed"]


@pytest.mark.parametrize("report", [None, "", suite(case("Stops"))])
def test_crash_is_a_failure_whatever_the_report_says(build, report):
    build.add_test("unit_tests.Queue", "fail")
    if report is not None:
        build.add_report("unit_tests.Queue", report)
    code, output = build.report()
    assert (code, "FAILED: unit_tests.Queue" in output) == (1, True)


def test_skipped_tests_are_reported_with_the_reason(build):
    build.add_test("Kernel.own_port", "notrun", "DID NOT RUN: no QEMU", skipped=True)
    build.add_test("Exports.LibraryExportsOneFunction")
    code, output = build.report()
    assert code == 0
    assert "Kernel.own_port. no QEMU" in output
    assert output.endswith("1 passed, 0 failed, 1 skipped\n")


def test_injected_failures_are_summed(build):
    build.add_test("fault_tests.Queue")
    runs = '<properties><property name="injected_failures, E_FAIL" value="{}"/></properties>'
    build.add_report("fault_tests.Queue", suite(case("Query", runs.format(52)), case("Open", runs.format(43))))
    assert "native: 2 passed, 0 failed; 95 runs with an injected failure" in build.report()[1]


def test_steps_are_added_to_the_totals(build):
    build.add_test("Exports.LibraryExportsOneFunction")
    assert build.report("--steps", "2", "1") == (1, "native: 1 passed, 0 failed\n3 passed, 1 failed\n")


def test_folder_without_results_is_a_failure(tmp_path):
    done = subprocess.run([SCRIPT, tmp_path], capture_output=True, text=True, check=False)
    assert done.returncode == 1
    assert "(no tests ran)" in done.stdout
