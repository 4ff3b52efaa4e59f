"""Tests of scripts/mutate.py: the mutants of small functions, and whole runs over a project of one class."""

import dataclasses
import io
import os
import pathlib
import subprocess
import sys
import textwrap
import types

import pytest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "scripts"))

import mutate  # noqa: E402
from mutation import build, generate, report  # noqa: E402


def mutants(tmp_path, source):
    """The changes in the function f of a source."""
    file = tmp_path / "f.cpp"
    file.write_text(textwrap.dedent(source))
    unit = generate.Unit(str(file), ["-x", "c++", "-std=c++20"], {str(file)})
    assert not unit.errors
    pairs = generate.mutants_of("f.cpp", file.read_bytes(), unit.sites[str(file)].values(), 0)
    return sorted(f"{mutant.operator}: {mutant.change}" for _, mutant in pairs)


@pytest.mark.parametrize("function, expected", [
    ("bool f(int a, int b) { return a < b; }",
     ["comparison: a < b -> a <= b", "comparison: a < b -> a >= b"]),
    ("int f(int a, int b) { return a - b; }",
     ["arithmetic: a - b -> (a) + (b)", "result: a - b -> (a - b) + 1"]),
    ("void f(bool a, bool b) { if (a && b) g(); }",
     ["boolean: a && b -> (a) || (b)", "boolean: a && b -> static_cast<bool>(a)",
      "boolean: a && b -> static_cast<bool>(b)", "condition: a && b -> false", "condition: a && b -> true"]),
    ("void f(int& a) { a = 1; g(); }",
     ["assignment: a = 1 -> (dropped)", "call: g() -> (dropped)", "constant: 1 -> 1 + 1"]),
    ("int f(int a, int b) { return h(a, b); }",
     ["argument: h(a, b) -> h(b, a)", "result: h(a, b) -> (h(a, b)) + 1"]),
    ("int f(int a, int b) { return max(a, b); }", ["result: max(a, b) -> (max(a, b)) + 1"]),
    ("bool f(bool a) { return !a; }", ["boolean: !a -> !!(a)"]),
    ("const char* f() { return TEXT; }", ["result: TEXT -> nullptr"]),
    ("void f() { LOG(\"one\", 2); }",
     ["call: LOG(\"one\", 2) -> (dropped)", "constant: 2 -> 2 + 1", "text: \"one\" -> \"\""]),
    ("constexpr int f(int a) { return a + 1; }", []),
    ("int f(int a) { static_assert(1 < 2); switch (a) { case 1: return a; } return a; }",
     ["result: a -> (a) + 1", "result: a -> (a) + 1"]),
])
def test_operators(tmp_path, function, expected):
    declarations = """
        #define TEXT "text"
        #define LOG(text, line) log(line, text)
        void log(int line, const char* text);
        void g();
        int h(int, int);
        int max(int, int);
    """
    assert mutants(tmp_path, declarations + function) == expected


def test_key_survives_edits_of_other_functions(tmp_path):
    def keys(source):
        file = tmp_path / "f.cpp"
        file.write_text(source)
        unit = generate.Unit(str(file), ["-x", "c++", "-std=c++20"], {str(file)})
        return [mutant.key for _, mutant in
                generate.mutants_of("f.cpp", file.read_bytes(), unit.sites[str(file)].values(), 0)]

    before = keys("struct S { int f() { return 1 + 2; } };")
    after = keys("bool g(int a) {\n  return a == 3;\n}\nstruct S { int f() { return 1 + 2; } };")
    assert [key for key in after if "S::f" in key] == before


PROJECT = {
    "CMakeLists.txt": """
        cmake_minimum_required(VERSION 3.25)
        project(counter LANGUAGES CXX)
        set(CMAKE_CXX_STANDARD 20)
        set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
        find_package(GTest REQUIRED)
        add_executable(tests tests.cpp src/Counter.cpp)
        target_link_libraries(tests PRIVATE GTest::gtest_main)
    """,
    "src/Counter.h": """
        #pragma once
        class Counter {
         public:
          void Add(int amount);
          int Get() const { return m_count; }

         private:
          int m_count = 0;
          bool m_isUsed = false;
        };
    """,
    "src/Counter.cpp": """
        #include "Counter.h"
        void Counter::Add(int amount) {
          while (amount > 0) {
            ++m_count;
            --amount;
          }
          m_isUsed = true;
        }
    """,
    "tests.cpp": """
        #include <gtest/gtest.h>
        #include "src/Counter.h"
        TEST(Counter, StartsAtZero) { EXPECT_EQ(Counter().Get(), 0); }
        TEST(Counter, CountsWhatIsAdded) {
          Counter counter;
          counter.Add(2);
          EXPECT_EQ(counter.Get(), 2);
        }
    """,
    "survivors.txt": """
        src/Counter.cpp Counter::Add assignment 3: m_isUsed = true -> (dropped)
        src/Counter.cpp Counter::Add constant 2: true -> false
        src/Counter.h Counter constant 2: false -> true
          Nothing reads the member.
    """,
}


@pytest.fixture
def project(tmp_path):
    root = tmp_path / "counter"
    for name, text in PROJECT.items():
        path = root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(textwrap.dedent(text).lstrip())
    return mutate.Project(root, ["src"], ["tests"], root / "survivors.txt", [])


def run(project, *words):
    """Returns the exit code, the output and the outcomes by mutant."""
    out = io.StringIO()
    folder = project.root.parent / "build"
    result = mutate.main(["--build", str(folder), *words], project, out)
    file = folder / "outcomes.txt"
    outcomes = {}
    for line in file.read_text().splitlines() if file.exists() else []:
        verdict, key, change = line.split(": ", 2)
        outcomes[key] = (verdict, change)
    return result, out.getvalue(), outcomes


def edit(project, name, old, new):
    file = project.root / name
    assert old in file.read_text()
    file.write_text(file.read_text().replace(old, new))


def test_run_separates_killed_mutants_from_listed_ones(project):
    result, output, outcomes = run(project)
    assert result == 0, output
    assert outcomes["src/Counter.cpp Counter::Add assignment 3"][0] == "equivalent"
    verdict, change = outcomes["src/Counter.h Counter constant 1"]
    assert (verdict, "<- Counter.StartsAtZero" in change) == ("killed", True)
    # --amount becomes ++amount: the loop does not end soon.
    assert any("(hangs)" in change for _, change in outcomes.values()), outcomes


@pytest.mark.parametrize("killed, is_good", [(97, True), (96, False)])
def test_run_of_all_mutants_requires_a_score(project, killed, is_good):
    outcomes = [report.Outcome(types.SimpleNamespace(source="src/Counter.cpp"), "Counter.Test" if i < killed else None)
                for i in range(100)]
    assert mutate.has_good_scores(dataclasses.replace(project, min_scores={"src": 97}), outcomes) == is_good


def test_run_reports_a_survivor_that_is_not_listed(project):
    edit(project, "tests.cpp", "EXPECT_EQ(counter.Get(), 2);", "EXPECT_GT(counter.Get(), 0);")
    result, output, outcomes = run(project, "--only", "comparison")
    assert result == 1
    assert outcomes["src/Counter.cpp Counter::Add comparison 1"][0] == "killed"
    survived = {key for key, (verdict, _) in outcomes.items() if verdict == "SURVIVED"}
    assert survived and all(f"SURVIVED: {key}" in output for key in survived)


def test_run_reports_a_mutant_that_no_test_reaches(project):
    edit(project, "src/Counter.cpp", "  m_isUsed = true;",
         "  if (amount == -7) {\n    m_count = 0;\n  }\n  m_isUsed = true;")
    edit(project, "survivors.txt", "assignment 3", "assignment 4")
    _, output, _ = run(project, "--only", "assignment")
    assert "m_count = 0 -> (dropped) (reached by no test)" in output


def test_run_reports_a_listed_mutant_that_is_killed_or_gone(project):
    edit(project, "survivors.txt", "constant 2: false", "constant 1: 0")
    edit(project, "survivors.txt", "0 -> true", "0 -> 0 + 1")
    _, output, _ = run(project, "--only", "Counter constant 1")
    assert "KILLED, BUT LISTED" not in output
    result, output, _ = run(project, "--only", "Counter constant 1", "--recheck")
    assert result == 1
    assert "KILLED, BUT LISTED: src/Counter.h Counter constant 1" in output
    edit(project, "survivors.txt", "constant 1: 0", "constant 9: 0")
    result, output, _ = run(project, "--only", "assignment")
    assert (result, "no such mutant: src/Counter.h Counter constant 9" in output) == (1, True)


def test_sample_prefers_the_latest_changes(project):
    def git(*words):
        subprocess.run(["git", "-C", project.root, "-c", "user.name=test", "-c", "user.email=test", *words], check=True,
                       capture_output=True, env={**os.environ, "GIT_CONFIG_GLOBAL": os.devnull})

    git("init")
    git("add", ".")
    git("commit", "-m", "first")
    edit(project, "src/Counter.cpp", "++m_count;", "++m_count; ++m_count;")
    git("commit", "-a", "-m", "second")
    edit(project, "src/Counter.h", "return m_count;", "return m_count + 0;")
    _, all_mutants, _ = run(project, "--list")
    latest = {line for line in all_mutants.splitlines() if "Counter::Get" in line}
    earlier = {line for line in all_mutants.splitlines() if "Counter.cpp" in line and "++m_count" in line}
    _, output, _ = run(project, "--list", "--sample", str(len(latest) + 1))
    sample = {line for line in output.splitlines() if line.startswith("src/")}
    assert latest < sample and sample - latest < earlier


def test_sample_is_from_changed_files_and_others_of_one_folder_that_each_commit_chooses(tmp_path, monkeypatch):
    files = [f"{folder}/{i}.cpp" for folder in "ab" for i in range(9)]
    for file in files:
        path = tmp_path / file
        path.parent.mkdir(exist_ok=True)
        path.write_text("\n" * mutate.LINES_PER_MUTANT)
    project = mutate.Project(tmp_path, ["a", "b"], [], tmp_path / "survivors.txt", [])
    monkeypatch.setattr(mutate, "changed_lines", lambda *_: {("a/0.cpp", 1)})
    choices = set()
    for commit in range(9):
        monkeypatch.setattr(mutate, "commit_number", lambda _, commit=commit: commit)
        chosen = set(mutate.sampled_files(project, files, 4))
        assert "a/0.cpp" in chosen
        others = chosen - {"a/0.cpp"}
        assert len(others) == 4 and len({file[0] for file in others}) == 1
        choices.add(frozenset(others))
    assert len(choices) > 1


def test_sources_that_include_a_changed_header_are_parsed(project, tmp_path):
    instrumented = build.InstrumentedBuild(project.root, tmp_path / "build", ["src"])
    instrumented.lock()
    instrumented.configure()
    assert instrumented.including(["src/Counter.h"]) == {"src/Counter.cpp"}


def test_failing_tests_end_the_run(project, capsys):
    edit(project, "tests.cpp", "Get(), 0", "Get(), 1")
    assert run(project)[0] == 2
    assert "Counter.StartsAtZero fails without a mutant" in capsys.readouterr().err


def test_compiler_errors_without_a_mutant_end_the_run(project, capsys):
    edit(project, "src/Counter.cpp", "++m_count;", "++m_cuont;")
    assert run(project)[0] == 2
    assert "Counter.cpp" in capsys.readouterr().err
