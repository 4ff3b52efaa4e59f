#!/usr/bin/python3
"""Mutation testing: changes the product in many small ways, one at a time, and reports those that survive the tests.

The mutants are generated from the syntax tree of src/, encoder/, platform/com/ and platform/linux/: comparisons are
moved, calls dropped, results replaced, and so on (--operators lists them). One build contains all that run, each behind
a switch. A first run of every test finds out which mutants it reaches; then the tests that reach a mutant run with it,
the quickest first, until one fails, crashes or hangs. The work tree is not modified.

  scripts/mutate.py                      run all mutants (about 20 minutes)
  scripts/mutate.py --only CBufferQueue  run those with this text in the source, function or operator
  scripts/mutate.py --sample 100         run some, those of the most recently changed lines first, and others that
                                         each commit chooses anew
  scripts/mutate.py --list               list the mutants

Mutants that no test can notice belong, with the reason, in tests/robustness/mutation/survivors.txt, and are not run.
All outcomes are written to outcomes.txt in the build folder.

Exit codes: 0 if the tests kill every mutant that is not listed, or, in folders other than src/, at least 90 % of them;
1 if not, if a listed mutant is killed (--recheck) or no longer exists, or if a run of all mutants kills less than 97 %
in src/ or less than 90 % in another folder; 2 on other errors.
"""
import argparse
import concurrent.futures
import dataclasses
import fnmatch
import os
import pathlib
import random
import re
import signal
import subprocess
import sys
import threading
import time

sys.dont_write_bytecode = True

try:
    from mutation import build, generate, report, run, survivors
    from mutation.errors import MutationError
except ModuleNotFoundError as missing:
    sys.exit(f"{missing}; run scripts/install-packages.sh native clang first")

ROOT = pathlib.Path(__file__).resolve().parent.parent
PROGRAMS = ["unit_tests", "defaults_tests", "linux_tests", "encoder_tests", "fault_tests", "linux_allocation_tests",
            "encoder_allocation_tests", "pipeline_tests"]
MIN_SCORE = 90  # percent, outside src/
MIN_MUTANTS = 40  # fewer count as this many, since a small sample has no meaningful percentage
# A sample takes the lines changed by this many commits first, and assumes this many lines for a mutant, generously.
RECENT_COMMITS = 30
LINES_PER_MUTANT = 5
# Left out because they take seconds per mutant: stress tests, a callback that blocks for ten seconds, and the largest
# clips. The score can only be lower without them.
LEFT_OUT = ["Each/ManyRounds.*", "InvalidInputFromHost.DataCallbackThatBlocksForTenSecondsLosesNoFrame",
            "Sizes/BitRate.*1280x720*"]
# Tests that hang use no CPU time.
WORKERS_PER_CORE = 3


@dataclasses.dataclass(frozen=True)
class Project:
    root: pathlib.Path
    folders: list  # with the sources to mutate
    programs: list  # GoogleTest programs
    survivors: pathlib.Path
    cmake_options: list
    min_scores: dict = dataclasses.field(default_factory=dict)  # percentage of killed mutants, by folder


THIS_PROJECT = Project(ROOT, ["src", "encoder", "platform/com", "platform/linux"], PROGRAMS,
                       ROOT / "tests/robustness/mutation/survivors.txt",
                       [f"-DCMAKE_PREFIX_PATH={ROOT / 'build/deps/native'}", "-DNUVEQ_INSTRUMENTATION=-O1;-D_GLIBCXX_ASSERTIONS"],
                       {"src": 97, "encoder": MIN_SCORE, "platform/com": MIN_SCORE, "platform/linux": MIN_SCORE})


def changed_lines(project, commits):
    """Returns (source, line) of the lines that the work tree and the last commits changed; None if unknown."""
    try:
        diff = subprocess.run(["git", "-c", "safe.directory=*", "-C", project.root, "diff", "--unified=0",
                               "--no-renames", f"HEAD~{commits}", "--", *project.folders],
                              capture_output=True, text=True, check=True).stdout
    except (OSError, subprocess.CalledProcessError):
        return None  # not a clone, or the end of the history
    lines, source = set(), ""
    for text in diff.splitlines():
        if text.startswith("+++ "):
            source = text[len("+++ b/"):]
        elif hunk := re.match(r"@@ -\S+ \+(\d+)(?:,(\d+))? @@", text):
            first, length = int(hunk[1]), int(hunk[2] or 1)
            lines.update((source, line) for line in range(first, first + length))
    return lines


def commit_number(project):
    """A number that depends on the current commit."""
    try:
        commit = subprocess.run(["git", "-c", "safe.directory=*", "-C", project.root, "rev-parse", "HEAD"],
                                capture_output=True, text=True, check=True).stdout
    except (OSError, subprocess.CalledProcessError):
        return 0
    return int(commit, 16)


def sampled_files(project, files, count):
    """Returns the files from which to take a sample: those that the last commits changed, and others from one folder.

    A run over few files and folders generates and builds less. Each commit chooses others.
    """
    lines = changed_lines(project, RECENT_COMMITS)
    if lines is None:
        return files
    chosen = {source for source, _ in lines if source in files}
    number_of_lines = len(lines)
    choice = random.Random(commit_number(project))
    folders = list(project.folders)
    choice.shuffle(folders)
    for folder in folders:
        others = [file for file in files if file.startswith(f"{folder}/") and file.endswith(".cpp") and file not in chosen]
        choice.shuffle(others)
        while others and number_of_lines < count * LINES_PER_MUTANT:
            other = others.pop()
            chosen.add(other)
            number_of_lines += (project.root / other).read_text().count("\n")
    return sorted(chosen)


def sample(project, mutants, count):
    """Returns count mutants, those of the most recently changed lines first; at random among equals."""
    choice = random.Random(commit_number(project))
    chosen, rest = [], mutants
    for commits in (0, 1, 3, 10, RECENT_COMMITS, None):
        lines = None if commits is None else changed_lines(project, commits)
        candidates = rest if lines is None else [mutant for mutant in rest if (mutant.source, mutant.line) in lines]
        chosen += choice.sample(candidates, min(len(candidates), count - len(chosen)))
        if lines is None or len(chosen) == count:
            break
        rest = [mutant for mutant in rest if mutant not in chosen]
    return sorted(chosen, key=lambda mutant: mutant.number)


def in_parallel(count, work, items, cancel):
    """Yields the results in the order in which they are ready."""
    with concurrent.futures.ThreadPoolExecutor(count) as pool:
        try:
            for done in concurrent.futures.as_completed([pool.submit(work, item) for item in items]):
                yield done.result()
        except BaseException:
            pool.shutdown(wait=False, cancel_futures=True)
            cancel()
            raise


def trace(runner, workers, mutant_count):
    """Runs every test once. Returns the number of tests, and the tests that reach each mutant."""
    listed = [(program, name) for program, path in runner.programs.items() for name in run.list_tests(path)
              if not any(fnmatch.fnmatchcase(name, pattern) for pattern in LEFT_OUT)]
    reaching = [[] for _ in range(mutant_count)]
    for traced in in_parallel(workers, lambda test: run.trace(runner, *test, mutant_count), listed, runner.cancel):
        if traced is not None:
            for number in traced[1]:
                reaching[number].append(traced[0])
    return len(listed), reaching


def test_mutants(runner, workers, mutants, reaching, listed, outcomes_file, out):
    progress = report.Progress(len(mutants), out)
    file_lock = threading.Lock()

    def work(mutant):
        tests = reaching[mutant.number]
        outcome = report.Outcome(mutant, run.killing_test(runner, mutant, tests), listed.get(mutant.key), bool(tests))
        with file_lock:
            print(outcome, file=outcomes_file, flush=True)
        progress.add(outcome)
        return outcome

    return sorted(in_parallel(workers, work, mutants, runner.cancel), key=lambda outcome: outcome.mutant.number)


def is_good(outcomes):
    """Whether enough mutants were killed."""
    if any(outcome.verdict == "KILLED, BUT LISTED" for outcome in outcomes):
        return False
    survived = [outcome for outcome in outcomes if outcome.verdict == "SURVIVED"]
    if any(outcome.mutant.source.startswith("src/") for outcome in survived):
        return False
    elsewhere = [outcome for outcome in outcomes if not outcome.mutant.source.startswith("src/")]
    return len(survived) * 100 <= max(len(elsewhere), MIN_MUTANTS) * (100 - MIN_SCORE)


def has_good_scores(project, outcomes):
    """Whether enough mutants of each folder were killed, the listed ones included."""
    scores = report.scores(outcomes)
    return all(scores.get(folder, 0) >= required for folder, required in project.min_scores.items())


def arguments(words):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", metavar="TEXT", action="append", default=[],
                        help="run only mutants with this text in their key; may be repeated")
    parser.add_argument("--sample", type=int, metavar="N", help="run only N mutants")
    parser.add_argument("--recheck", action="store_true", help="run the mutants listed in survivors.txt, too")
    parser.add_argument("--list", action="store_true", help="list the mutants and exit")
    parser.add_argument("--operators", action="store_true", help="list the operators and exit")
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/mutation", metavar="FOLDER",
                        help="folder of the instrumented build, which the next run reuses (default: build/mutation)")
    return parser.parse_args(words)


def mutate(project, options, out):
    """Returns the exit code."""
    begin = time.monotonic()

    def say(text):
        print(f"[{time.monotonic() - begin:4.0f} s] {text}", file=out, flush=True)

    listed = survivors.read(project.survivors)
    instrumented = build.InstrumentedBuild(project.root, options.build.resolve(), project.folders,
                                           project.cmake_options)
    instrumented.lock()
    say("generating mutants")
    instrumented.configure()
    all_files = instrumented.mutated_files()
    files = all_files if options.sample is None else sampled_files(project, all_files, options.sample)
    instrumented.generate(files)
    say(f"{len(instrumented.mutants)} mutants in {len(files)} of {len(all_files)} files")
    stale = survivors.stale(listed, instrumented.mutants, set(all_files) - set(files))
    for survivor in stale:
        print(f"{project.survivors.name}: no such mutant: {survivor.key}: {survivor.change}", file=out)
    mutants = [mutant for mutant in instrumented.mutants
               if not options.only or any(text in mutant.key for text in options.only)]
    if options.sample is not None:
        mutants = sample(project, mutants, options.sample)
    if options.list:
        for mutant in mutants:
            print(f"{mutant.key}: {mutant.change}", file=out)
        return 0
    if not mutants:
        raise MutationError("no mutants to run")
    say("checking which of them compile")
    count = len(mutants)
    mutants = instrumented.instrument(mutants)
    programs = instrumented.programs_with(mutants, project.programs)
    say(f"{count - len(mutants)} of {count} do not compile; building {' '.join(programs)}")
    instrumented.compile(programs)
    runner = run.Runner({program: instrumented.build / "bin" / program for program in programs})
    cores = len(os.sched_getaffinity(0))
    say("running the tests without a mutant")
    count, reaching = trace(runner, cores, len(instrumented.mutants))
    # A mutant with another change than that of its entry is stale, and runs.
    listed = {mutant.key: listed[mutant.key] for mutant in mutants
              if mutant.key in listed and listed[mutant.key].change == mutant.change}
    skipped = [] if options.recheck else [mutant for mutant in mutants if mutant.key in listed]
    wanted = [mutant for mutant in mutants if mutant not in skipped]
    say(f"{count} tests; running {len(wanted)} mutants")
    with open(options.build / "outcomes.txt", "w", encoding="utf-8") as outcomes_file:
        outcomes = test_mutants(runner, cores * WORKERS_PER_CORE, wanted, reaching, listed, outcomes_file, out)
        outcomes += [report.Outcome(mutant, None, listed[mutant.key]) for mutant in skipped]
        for outcome in outcomes[len(wanted):]:
            print(outcome, file=outcomes_file)
    report.print_summary(outcomes, out)
    say("done")
    is_whole = options.sample is None and not options.only
    return 0 if is_good(outcomes) and not stale and (not is_whole or has_good_scores(project, outcomes)) else 1


def main(words=None, project=THIS_PROJECT, out=sys.stdout):
    options = arguments(words)
    if options.operators:
        for operator, meaning in generate.OPERATORS.items():
            print(f"{operator:<12}{meaning}", file=out)
        return 0
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        return mutate(project, options, out)
    except MutationError as error:
        print(error, file=sys.stderr)
        return 2


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
