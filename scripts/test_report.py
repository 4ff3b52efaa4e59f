#!/usr/bin/env python3
"""Sums up the test results in build folders: ctest's JUnit files and the reports of GoogleTest.

  scripts/test_report.py [--steps PASSED FAILED] FOLDER...

--steps adds to the totals the numbers of other steps that passed and failed. Prints a summary for each folder, the names of failed tests and the reasons of skipped ones. The last
line is "N passed, M failed", with the number of skipped tests if there are any. The exit code is 0 if no test failed.
"""
import argparse
import collections
import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree

JUNIT = "Testing/junit.xml"  # as in CMakePresets.json
GTEST = "gtest-reports"  # as in tests/GoogleTests.cmake


class Results:
    def __init__(self):
        self.counts = collections.Counter()
        self.injected_failures = 0
        self.failed = []
        self.skipped = collections.defaultdict(list)  # reason -> tests

    def add_program(self, report):
        """Adds the tests of one run of a GoogleTest program."""
        for case in report.iter("testcase"):
            name = f"{case.get('classname')}.{case.get('name')}"
            if case.find("failure") is not None:
                self.counts["failed"] += 1
                self.failed.append(name)
            elif case.find("skipped") is not None:
                self.skip(name, case.find("skipped").get("message", ""))
            elif case.get("status") == "run":
                self.counts["passed"] += 1
            self.injected_failures += sum(int(entry.get("value")) for entry in case.iter("property")
                                          if entry.get("name").startswith("injected_failures"))

    def skip(self, name, reason):
        self.counts["skipped"] += 1
        self.skipped[reason].append(name)

    def add_test(self, case, gtest_reports):
        """Adds a test of ctest."""
        name = case.get("name")
        output = case.findtext("system-out") or ""
        if case.find("skipped") is not None:
            reason = re.search(r"DID NOT RUN: (.*)", output)
            self.skip(name, reason[1] if reason else "no reason given")
            return
        is_failed = case.get("status") != "run"
        try:
            report = ElementTree.parse(gtest_reports / f"{name.replace('/', '-')}.xml")
        except (OSError, ElementTree.ParseError):
            report = None
        failed_before = self.counts["failed"]
        if report is not None:
            self.add_program(report)
        elif not is_failed:
            self.counts["passed"] += 1
        # A program that crashes or hangs leaves no report, or one without a failure.
        if is_failed and self.counts["failed"] == failed_before:
            self.counts["failed"] += 1
            self.failed.append(name)


def read(folder):
    results = Results()
    try:
        for case in ElementTree.parse(folder / JUNIT).iter("testcase"):
            results.add_test(case, folder / GTEST)
    except OSError:
        results.counts["failed"] += 1
        results.failed.append("(no tests ran)")
    return results


def totals(counts):
    skipped = f", {counts['skipped']} skipped" if counts["skipped"] else ""
    return f"{counts['passed']} passed, {counts['failed']} failed{skipped}"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folders", type=pathlib.Path, nargs="+", metavar="FOLDER")
    parser.add_argument("--steps", type=int, nargs=2, default=[0, 0], metavar=("PASSED", "FAILED"))
    options = parser.parse_args()
    total = collections.Counter(passed=options.steps[0], failed=options.steps[1])
    for folder in options.folders:
        results = read(folder)
        total += results.counts
        injected = f"; {results.injected_failures} runs with an injected failure" if results.injected_failures else ""
        print(f"{folder.name}: {totals(results.counts)}{injected}")
        for name in results.failed:
            print(f"  FAILED: {name}")
        for reason, names in results.skipped.items():
            print(f"\n!!! {len(names)} tests of {folder.name} did not run on this machine: {' '.join(names)}. {reason}\n")
    print(totals(total))
    return 0 if total["failed"] == 0 and total["passed"] > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
