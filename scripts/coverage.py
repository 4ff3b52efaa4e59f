#!/usr/bin/env python3
"""Reports the coverage of src/ and platform/linux/ by the tests of the preset asan, which must have run before.

Writes a line for each file to build/asan/coverage.txt. The exit code is 1 if fewer than 95 % of the lines are covered.
"""
import json
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/asan"
FOLDERS = ["src", "platform/linux"]
MIN_LINES = 95  # percent
KINDS = ["lines", "branches"]


def is_elf(path):
    """Whether a file is a program or a shared library."""
    if not path.is_file():
        return False
    with open(path, "rb") as file:
        return file.read(4) == b"\x7fELF"


def summaries():
    """The summaries of the files, by name."""
    profile = BUILD / "coverage.profdata"
    raw = sorted((BUILD / "profiles").glob("*.profraw"))
    if not raw:
        sys.exit(f"{BUILD}/profiles has no profiles; run ctest --preset asan first")
    subprocess.run(["llvm-profdata", "merge", "-sparse", "-o", profile, *raw], check=True)
    binaries = [path for path in sorted((BUILD / "bin").iterdir()) if is_elf(path)]
    command = ["llvm-cov", "export", "-summary-only", f"-instr-profile={profile}", binaries[0]]
    command += [f"-object={path}" for path in binaries[1:]]
    command += [ROOT / folder for folder in FOLDERS]
    exported = subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout
    files = json.loads(exported)["data"][0]["files"]
    return {str(pathlib.Path(file["filename"]).relative_to(ROOT)): file["summary"] for file in files}


def percent(covered, count):
    return 100 * covered / count if count else 100.0


def main():
    files = summaries()
    missing = {str(path.relative_to(ROOT)) for folder in FOLDERS for path in (ROOT / folder).rglob("*.cpp")} - {*files}
    if missing:
        sys.exit(f"no coverage data for {' '.join(sorted(missing))}")
    with open(BUILD / "coverage.txt", "w", encoding="utf-8") as report:
        for name, summary in sorted(files.items()):
            columns = [f"{kind} {summary[kind]['covered']:>4} of {summary[kind]['count']:>4}" for kind in KINDS]
            print(f"{name:<55}{'   '.join(columns)}", file=report)
    total = {kind: [sum(summary[kind][part] for summary in files.values()) for part in ("covered", "count")]
             for kind in KINDS}
    for kind, (covered, count) in total.items():
        print(f"{kind}: {percent(covered, count):.1f} % ({covered} of {count})")
    return 0 if percent(*total["lines"]) >= MIN_LINES else 1


if __name__ == "__main__":
    sys.exit(main())
