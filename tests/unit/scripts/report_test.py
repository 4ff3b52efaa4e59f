"""Tests of scripts/test_report.py, with reports as ctest and GoogleTest write them."""

import pathlib
import subprocess
import time

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[3] / "scripts/test_report.py"


@pytest.fixture
def build(tmp_path):
    """A build folder. Its functions add a test of ctest, or the report of a GoogleTest program."""
    class Build:
        folder = tmp_path / "native"

        def __init__(self):
            self.tests = []

        def add_test(self, name, status="run", output="", skipped=None):
            element = f'<skipped message="{skipped}"/>' if skipped else "<failure/>" if status == "fail" else ""
            self.tests.append(f'<testcase name="{name}" status="{status}">{element}'
                              f"<system-out>{output}</system-out></testcase>")

        def add_report(self, name, text):
            (self.folder / "gtest-reports").mkdir(parents=True, exist_ok=True)
            (self.folder / f"gtest-reports/{name}.xml").write_text(text)

        def report(self, *words, timestamp=0):
            (self.folder / "Testing").mkdir(parents=True, exist_ok=True)
            begin = time.strftime("%Y-%m-%dT%H:%M:%S", time.localtime(timestamp))
            (self.folder / "Testing/junit.xml").write_text(
                f'<testsuite timestamp="{begin}">{"".join(self.tests)}</testsuite>')
            done = subprocess.run([SCRIPT, *words, self.folder], capture_output=True, text=True, check=False)
            return done.returncode, done.stdout

    return Build()


def suite(*cases):
    return f'<testsuites><testsuite name="Queue">{"".join(cases)}</testsuite></testsuites>'


def case(name, inner="", status="run"):
    return f'<testcase name="{name}" classname="Queue" status="{status}">{inner}</testcase>'


def test_tests_within_a_suite_are_counted(build):
    build.add_test("Exports.LibraryExportsOneFunction")
    build.add_test("unit_tests.Each/Queue")
    build.add_report("unit_tests.Each-Queue", suite(case("Stops"), case("Starts")))
    assert build.report() == (0, "native: 3 passed, 0 failed\n3 passed, 0 failed\n")


def test_failed_tests_are_reported_with_their_messages(build):
    build.add_test("unit_tests.Queue", "fail", "[ RUN      ] Queue.Starts")
    build.add_report("unit_tests.Queue", suite(case("Stops"), case(
        "Starts", '<failure message="QueueTest.cpp:1&#x0A;not started"/><failure message="QueueTest.cpp:2"/>')))
    build.add_test("package.archive", "fail", "\n".join(f"line {number}" for number in range(100)))
    build.add_test("Kernel.own_port", "fail", """
=========================== FAILURES ===========================
________________________ test_own_port _________________________
cameras, rate: 24.1
--------------------- Captured stdout call ---------------------
booted
--------------------- Captured stderr call ---------------------
a warning
________________________ test_undeclared _______________________
the kernel does not boot
=================== short test summary info ====================
FAILED topology_test.py::test_own_port
""")
    code, output = build.report()
    assert code == 1
    assert output.splitlines() == [
        "native: 1 passed, 3 failed",
        "  FAILED: Queue.Starts", "    QueueTest.cpp:1", "    not started", "    QueueTest.cpp:2",
        "  FAILED: package.archive", *(f"    line {number}" for number in range(70, 100)),
        "  FAILED: Kernel.own_port", "    ________________________ test_own_port _________________________",
        "    cameras, rate: 24.1", "    ________________________ test_undeclared _______________________",
        "    the kernel does not boot", "1 passed, 3 failed"]


@pytest.mark.parametrize("report", [None, "", suite(case("Stops"))])
def test_crash_is_a_failure_whatever_the_report_says(build, report):
    build.add_test("unit_tests.Queue", "fail")
    if report is not None:
        build.add_report("unit_tests.Queue", report)
    code, output = build.report()
    assert (code, "FAILED: unit_tests.Queue (crashed or timed out)" in output) == (1, True)


@pytest.mark.parametrize("report", [None, "", suite()])
def test_program_that_ends_before_its_tests_is_a_failure(build, report):
    build.add_test("unit_tests.Queue")
    if report is not None:
        build.add_report("unit_tests.Queue", report)
    assert "FAILED: unit_tests.Queue (no report)" in build.report()[1]


def test_report_of_an_earlier_run_is_ignored(build):
    build.add_test("unit_tests.Queue")
    build.add_report("unit_tests.Queue", suite(case("Stops")))
    code, output = build.report(timestamp=time.time() + 60)
    assert (code, "FAILED: unit_tests.Queue (no report)" in output) == (1, True)


def test_skipped_tests_are_reported_with_the_reason(build):
    build.add_test("Kernel.own_port", "notrun", "DID NOT RUN: no QEMU", skipped="SKIP_RETURN_CODE=77")
    build.add_test("unit_tests.Queue")
    build.add_report("unit_tests.Queue", suite(case("Stops"), case("Later", status="notrun"), case(
        "Starts", '<skipped message="QueueTest.cpp:1&#x0A;DID NOT RUN: one core"/>', status="run")))
    code, output = build.report()
    assert code == 0
    assert "Kernel.own_port. no QEMU" in output
    assert "Queue.Starts. one core" in output
    assert "Queue.Later. disabled" in output
    assert output.endswith("1 passed, 0 failed, 3 skipped\n")


@pytest.mark.parametrize("message", ["Unable to find executable: unit_tests", "Fixture dependency failed", ""])
def test_tests_that_could_not_be_started_are_failures(build, message):
    build.tests.append(f'<testcase name="package.archive" status="notrun"><skipped message="{message}"/></testcase>')
    code, output = build.report()
    assert (code, "FAILED: package.archive" in output) == (1, True)


def test_fault_injection_runs_are_summed(build):
    build.add_test("fault_tests.Queue")
    runs = '<properties><property name="fault_injection_runs, E_FAIL" value="{}"/></properties>'
    build.add_report("fault_tests.Queue", suite(case("Query", runs.format(52)), case("Open", runs.format(43))))
    assert "native: 2 passed, 0 failed; 95 fault injection runs" in build.report()[1]


def test_workflow_that_failed_otherwise_is_a_failure(build):
    build.add_test("Exports.LibraryExportsOneFunction")
    code, output = build.report("--unsuccessful", "native", "--")
    assert (code, "FAILED: (the workflow failed)" in output) == (1, True)
    assert build.report("--unsuccessful", "windows", "--")[0] == 0


def test_steps_are_added_to_the_totals(build):
    build.add_test("Exports.LibraryExportsOneFunction")
    assert build.report("--steps", "2", "1") == (1, "native: 1 passed, 0 failed\n3 passed, 1 failed\n")


@pytest.mark.parametrize("junit", [None, "<testsuite", "<testsuite/>"])
def test_folder_without_results_is_a_failure(tmp_path, junit):
    if junit is not None:
        (tmp_path / "Testing").mkdir()
        (tmp_path / "Testing/junit.xml").write_text(junit)
    done = subprocess.run([SCRIPT, tmp_path], capture_output=True, text=True, check=False)
    assert done.returncode == 1
    assert "(no tests ran)" in done.stdout
