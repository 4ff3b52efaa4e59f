#!/usr/bin/env python3
"""Summarizes the test results in build folders: the reports of ctest (JUnit) and of GoogleTest.

  scripts/test_report.py [--steps PASSED FAILED] [--unsuccessful PRESET... --] FOLDER...

Prints a summary for each folder, the failed tests with their messages and the reasons for skipped ones. The last line
is "N passed, M failed", with the number of skipped tests if there are any. The exit code is 0 if no test failed.
"""
import argparse
import collections
import datetime
import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree

JUNIT = "Testing/junit.xml"  # as in CMakePresets.json
GTEST = "gtest-reports"  # as in tests/GoogleTests.cmake
# GoogleTest programs, as opposed to other tests, have such names.
GTEST_SUITE = re.compile(r"\w+_tests\.")
NO_REASON = "no reason given"
# What pytest prints of failures, and the output of a failed test in it.
PYTEST_FAILURES = re.compile(r"^=+ FAILURES =+\n(.*?)^=+ ", re.DOTALL | re.MULTILINE)
PYTEST_OUTPUT = re.compile(r"^-+ Captured .*?(?=^_+ |^-+ Captured |\Z)", re.DOTALL | re.MULTILINE)
MESSAGE_LINES = 30


def skip_reason(text):
    reason = re.search(r"DID NOT RUN: (.*)", text)
    return reason[1] if reason else NO_REASON


def failure_message(output):
    """Returns the part of a test's output that explains its failure."""
    found = PYTEST_FAILURES.search(output)
    return PYTEST_OUTPUT.sub("", found[1]) if found else output


class Results:
    def __init__(self):
        self.counts = collections.Counter()
        self.fault_injection_runs = 0
        self.failed = []  # (test, message)
        self.skipped = collections.defaultdict(list)  # reason -> tests

    def fail(self, name, message=""):
        self.counts["failed"] += 1
        self.failed.append((name, message))

    def skip(self, name, reason):
        self.counts["skipped"] += 1
        self.skipped[reason].append(name)

    def add_program(self, report):
        """Adds the tests of one run of a GoogleTest program."""
        for case in report.iter("testcase"):
            name = f"{case.get('classname')}.{case.get('name')}"
            skipped = case.find("skipped")
            if case.find("failure") is not None:
                self.fail(name, "\n".join(failure.get("message", "") for failure in case.iter("failure")))
            elif skipped is not None:
                self.skip(name, skip_reason(skipped.get("message", "")))
            elif case.get("status") == "run":
                self.counts["passed"] += 1
            else:
                self.skip(name, "disabled")
            self.fault_injection_runs += sum(int(entry.get("value")) for entry in case.iter("property")
                                             if entry.get("name").startswith("fault_injection_runs"))

    def add_test(self, case, gtest_reports):
        """Adds a test of ctest."""
        name = case.get("name")
        output = case.findtext("system-out") or ""
        skipped = case.find("skipped")
        if skipped is not None:
            # ctest also marks tests as skipped that it could not start.
            if skipped.get("message", "").startswith("SKIP_"):
                self.skip(name, skip_reason(output))
            else:
                self.fail(f"{name} ({skipped.get('message') or 'not run'})")
            return
        is_failed = case.get("status") != "run"
        if not GTEST_SUITE.match(name):
            if is_failed:
                self.fail(name, failure_message(output))
            else:
                self.counts["passed"] += 1
            return
        before = self.counts.copy()
        report = gtest_reports.get(f"{name.replace('/', '-')}.xml")
        if report is not None:
            self.add_program(report)
        if is_failed and self.counts["failed"] == before["failed"]:
            self.fail(f"{name} (crashed or timed out)", output)
        elif self.counts == before:
            self.fail(f"{name} (no report)", output)


def read_gtest_reports(folder, begin):
    """Returns the reports by file name, without those of earlier runs."""
    reports = {}
    for path in folder.glob("*.xml"):
        if path.stat().st_mtime >= begin:
            try:
                reports[path.name] = ElementTree.parse(path)
            except ElementTree.ParseError:
                pass  # written by a program that crashed
    return reports


def read(folder):
    results = Results()
    try:
        junit = ElementTree.parse(folder / JUNIT).getroot()
    except (OSError, ElementTree.ParseError):
        junit = ElementTree.Element("testsuite")
    # In seconds without a fraction.
    begin = datetime.datetime.fromisoformat(junit.get("timestamp", "1970-01-01T00:00:00")).timestamp()
    gtest_reports = read_gtest_reports(folder / GTEST, begin)
    for case in junit.iter("testcase"):
        results.add_test(case, gtest_reports)
    if not results.counts:
        results.fail("(no tests ran)")
    return results


def totals(counts):
    skipped = f", {counts['skipped']} skipped" if counts["skipped"] else ""
    return f"{counts['passed']} passed, {counts['failed']} failed{skipped}"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folders", type=pathlib.Path, nargs="+", metavar="FOLDER")
    parser.add_argument("--steps", type=int, nargs=2, default=[0, 0], metavar=("PASSED", "FAILED"))
    parser.add_argument("--unsuccessful", nargs="*", default=[], metavar="PRESET",
                        help="presets of which the workflow failed, for whatever reason")
    options = parser.parse_args()
    total = collections.Counter(passed=options.steps[0], failed=options.steps[1])
    for folder in options.folders:
        results = read(folder)
        if folder.name in options.unsuccessful and not results.counts["failed"]:
            results.fail("(the workflow failed)")
        total += results.counts
        runs = f"; {results.fault_injection_runs} fault injection runs" if results.fault_injection_runs else ""
        print(f"{folder.name}: {totals(results.counts)}{runs}")
        for name, message in results.failed:
            print(f"  FAILED: {name}")
            for line in message.strip().splitlines()[-MESSAGE_LINES:]:
                print(f"    {line}")
        for reason, names in results.skipped.items():
            print(f"\n!!! {len(names)} tests of {folder.name} did not run on this machine: {' '.join(names)}. "
                  f"{reason}\n")
    print(totals(total))
    return 0 if total["failed"] == 0 and total["passed"] > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
