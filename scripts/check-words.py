#!/usr/bin/env python3
"""Searches the tracked text files for the words in scripts/old-words.txt. Prints each hit with its replacement.

Exit codes: 0 if there is no hit, 1 otherwise.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIST = ROOT / "scripts/old-words.txt"
EXCLUDED = ("CHANGELOG.md", "scripts/old-words.txt", "tests/robustness/fuzz/corpus/")
# A blank, or a line break with the markers of comments and strings around it.
GAP = r"(?:[ ]|[\\\"n ]*\n[\s/#*>\"]*)"


def read_list():
    """Yields (compiled expression, replacement)."""
    for number, line in enumerate(LIST.read_text().splitlines(), 1):
        if line and not line.startswith("#"):
            expression, tab, replacement = line.partition("\t")
            if not tab or not replacement:
                sys.exit(f"{LIST}:{number}: expected an expression, a tab and the replacement")
            yield re.compile(expression.replace(" ", GAP)), replacement


def text_files():
    """Yields (path relative to the root, text) for each tracked text file."""
    # safe.directory: the folder may belong to another user, as in a container.
    names = subprocess.run(["git", "-c", "safe.directory=*", "ls-files", "-z"], cwd=ROOT, check=True,
                           stdout=subprocess.PIPE).stdout
    for name in sorted(names.decode().split("\0")):
        path = ROOT / name
        if name.startswith(EXCLUDED) or not path.is_file():
            continue
        data = path.read_bytes()
        if b"\0" not in data:
            yield name, data.decode(errors="replace")


def main():
    if len(sys.argv) != 1:
        sys.exit(__doc__)
    words = list(read_list())
    count = 0
    for name, text in text_files():
        hits = [(match.start(), match[0], replacement) for expression, replacement in words
                for match in expression.finditer(text)]
        for start, found, replacement in sorted(hits):
            line = text.count("\n", 0, start) + 1
            print(f"{name}:{line}: {' '.join(found.split())} -> {replacement}")
        count += len(hits)
    print(f"{count} old words")
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main())
