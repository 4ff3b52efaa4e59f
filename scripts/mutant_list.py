"""Reads the mutation lists of scripts/mutate.py and checks them against the sources."""
import collections
import dataclasses
import hashlib
import pathlib
import re

LISTS = pathlib.Path("tests/robustness/mutation")
SOURCES = [pathlib.Path("src"), pathlib.Path("platform/com")]

KINDS = ["comparison", "condition", "constant", "argument", "result", "call dropped", "assignment dropped", "reordered",
         "changed call"]


class Trouble(Exception):
    """An error that prevents a result: an invalid list or a failed build."""


@dataclasses.dataclass
class Mutant:
    source: str  # name of a file in one of SOURCES
    kind: str  # one of KINDS
    title: str
    old: list  # lines
    new: list  # lines that replace them
    reason: str  # why the mutant survives; empty: it must be noticed
    is_matter_of_luck: bool  # both results are accepted
    place: str  # file and line of the entry

    def __str__(self):
        return f"{self.source}: [{self.kind}] {self.title}"

    def apply(self, text):
        """Returns the source text with the mutation applied."""
        lines = text.split("\n")
        stripped = [line.strip() for line in lines]
        wanted = [line.strip() for line in self.old]
        places = [i for i in range(len(lines)) if stripped[i:i + len(wanted)] == wanted]
        if len(places) != 1:
            times = f"{len(places)} times" if places else "not"
            raise Trouble(f"{self.place}: {times} in {self.source}: {' / '.join(wanted)}")
        gap = [""] * (len(self.old) - len(self.new))
        lines[places[0]:places[0] + len(self.old)] = self.new + gap
        return "\n".join(lines)


def parse_entry(source, place, lines):
    head = re.fullmatch(r"\[([a-z ]+)\] (\S.*)", lines[0])
    if not head or head[1] not in KINDS:
        raise Trouble(f"{place}: does not begin with the kind in brackets and a title; kinds: {', '.join(KINDS)}")
    mutant = Mutant(source, head[1], head[2], [], [], "", False, place)
    for number, line in enumerate(lines[1:], 1):
        if reason := re.fullmatch(r"(may survive|survives): (\S.*)", line):
            mutant.is_matter_of_luck = reason[1] == "may survive"
            mutant.reason = " ".join([reason[2], *lines[number + 1:]])
            break
        if line[0] not in " -+":
            raise Trouble(f"{place}: line must start with a blank, - or +: {line}")
        if line[0] in " -":
            mutant.old.append(line[1:])
        if line[0] in " +":
            mutant.new.append(line[1:])
    if mutant.old == mutant.new or len(mutant.old) < len(mutant.new):
        raise Trouble(f"{place}: changes nothing, or inserts more lines than it removes")
    return mutant


def read_list(path):
    """Reads the entries of a list. Its file name is the name of the source with the suffix .mutants."""
    entries, entry, begin = [], [], 0
    for number, line in enumerate([*path.read_text().splitlines(), ""], 1):
        if line.startswith("#"):
            continue
        if line.strip():
            begin = begin if entry else number
            entry.append(line)
        elif entry:
            entries.append(parse_entry(path.stem, f"{path.name}:{begin}", entry))
            entry = []
    return entries


def find_source(root, name):
    """Returns the path of the source with that name."""
    for folder in SOURCES:
        if (root / folder / name).is_file():
            return root / folder / name
    raise Trouble(f"there is no {name} in {' or '.join(str(folder) for folder in SOURCES)}")


def read_lists(root):
    """Returns all entries. Raises Trouble if an entry does not match its source or is a duplicate."""
    mutants = [mutant for path in sorted((root / LISTS).glob("*.mutants")) for mutant in read_list(path)]
    seen, troubles = {}, []
    for mutant in mutants:
        try:
            try:
                source = find_source(root, mutant.source)
            except Trouble as trouble:
                raise Trouble(f"{mutant.place}: {trouble}") from None
            for key in (str(mutant), (mutant.source, mutant.apply(source.read_text()))):
                if key in seen:
                    raise Trouble(f"{mutant.place}: the same as {seen[key]}")
                seen[key] = mutant.place
        except Trouble as trouble:
            troubles.append(str(trouble))
    if troubles or not mutants:
        raise Trouble("\n".join(troubles) or "the list is empty")
    return mutants


def sample(mutants, count):
    """Selects count mutants, distributed over the sources. The selection depends only on the lists."""
    by_source = collections.defaultdict(list)
    for mutant in sorted(mutants, key=lambda mutant: hashlib.sha256(str(mutant).encode()).hexdigest()):
        by_source[mutant.source].append(mutant)
    turns = [entry for entries in by_source.values() for entry in enumerate(entries)]
    return [mutant for _, mutant in sorted(turns, key=lambda turn: turn[0])][:count]
