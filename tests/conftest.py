"""Fixtures of all Python tests, and reports of skipped tests to ctest."""

import tempfile
from pathlib import Path

import pytest

DID_NOT_RUN = 77  # SKIP_RETURN_CODE in PythonTests.cmake


@pytest.fixture
def scratch():
    """A new folder."""
    with tempfile.TemporaryDirectory(prefix="nuveq-test-", ignore_cleanup_errors=True) as folder:
        yield Path(folder)


def pytest_terminal_summary(terminalreporter):
    for report in terminalreporter.getreports("skipped"):
        terminalreporter.line("DID NOT RUN: " + report.longrepr[2].removeprefix("Skipped: "))


def pytest_sessionfinish(session, exitstatus):
    if exitstatus == 0 and session.config.pluginmanager.get_plugin("terminalreporter").stats.get("skipped"):
        session.exitstatus = DID_NOT_RUN
