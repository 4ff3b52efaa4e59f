"""The list of mistakes that scripts/mutate.py makes: reads it and checks it against the sources."""
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
    """Something that stands in the way of finding anything out."""


@dataclasses.dataclass
class Mutant:
    source: str  # name of a file in one of SOURCES
    kind: str
    title: str
    old: list
    new: list
    reason: str  # to survive
    is_matter_of_luck: bool
    place: str  # in the list

    def __str__(self):
        return f"{self.source}: [{self.kind}] {self.title}"

    def apply(self, text):
        """The source's text with the mistake in it."""
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
        raise Trouble(f"{place}: does not begin with the kind in brackets, one of {', '.join(KINDS)}, and a title")
    mutant = Mutant(source, head[1], head[2], [], [], "", False, place)
    for number, line in enumerate(lines[1:], 1):
        if reason := re.fullmatch(r"(may survive|survives): (\S.*)", line):
            mutant.is_matter_of_luck = reason[1] == "may survive"
            mutant.reason = " ".join([reason[2], *lines[number + 1:]])
            break
        if line[0] not in " -+":
            raise Trouble(f"{place}: neither blank nor - nor + at the beginning of: {line}")
        if line[0] in " -":
            mutant.old.append(line[1:])
        if line[0] in " +":
            mutant.new.append(line[1:])
    if mutant.old == mutant.new or len(mutant.old) < len(mutant.new):
        raise Trouble(f"{place}: changes nothing, or puts in more lines than it takes out")
    return mutant


def read_list(path):
    """The entries of one file, which is named as its source and ends in .mutants."""
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
    """The source of that name in a tree."""
    for folder in SOURCES:
        if (root / folder / name).is_file():
            return root / folder / name
    raise Trouble(f"there is no {name} in {' or '.join(str(folder) for folder in SOURCES)}")


def read_lists(root):
    """All entries, after a check that each fits its source and is like no other."""
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
    """That many, the same ones as long as the list stays: one from each source in turn, in an arbitrary order."""
    by_source = collections.defaultdict(list)
    for mutant in sorted(mutants, key=lambda mutant: hashlib.sha256(str(mutant).encode()).hexdigest()):
        by_source[mutant.source].append(mutant)
    turns = [entry for entries in by_source.values() for entry in enumerate(entries)]
    return [mutant for _, mutant in sorted(turns, key=lambda turn: turn[0])][:count]
