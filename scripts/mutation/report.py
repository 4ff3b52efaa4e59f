"""The outcomes of a run, its progress and its summary."""
import collections
import dataclasses
import threading
import time

from .generate import Mutant
from .survivors import Survivor


@dataclasses.dataclass(frozen=True)
class Outcome:
    mutant: Mutant
    killed_by: str | None
    listed: Survivor | None = None
    is_reached: bool = True

    @property
    def verdict(self):
        if self.killed_by:
            return "killed" if self.listed is None else "KILLED, BUT LISTED"
        return "SURVIVED" if self.listed is None else "equivalent"

    def __str__(self):
        mutant = self.mutant
        by = f" <- {self.killed_by}" if self.killed_by else ""
        reach = "" if self.is_reached else " (reached by no test)"
        return f"{self.verdict}: {mutant.key}: {mutant.change}{by}{reach} [{mutant.source}:{mutant.line}]"


class Progress:
    INTERVAL_S = 15

    def __init__(self, total, out):
        self.total = total
        self.out = out
        self.done = 0
        self.begin = self.last = time.monotonic()
        self.lock = threading.Lock()

    def add(self, outcome):
        with self.lock:
            self.done += 1
            now = time.monotonic()
            if outcome.verdict.isupper():
                print(outcome, file=self.out, flush=True)
            if now - self.last >= self.INTERVAL_S or self.done == self.total:
                self.last = now
                left = (now - self.begin) / self.done * (self.total - self.done)
                print(f"{self.done} of {self.total} mutants, {left / 60:.1f} min left", file=self.out, flush=True)


def folder_of(source):
    head, _, tail = source.partition("/")
    return f"{head}/{tail.partition('/')[0]}" if head == "platform" else head


def percentage(part, whole):
    return f"{100 * part / whole:.1f} %" if whole else "-"


def killed_count(outcomes):
    return sum(outcome.killed_by is not None for outcome in outcomes)


def scores(outcomes):
    """Returns the percentage of killed mutants by folder."""
    return {folder: 100 * killed_count(group) / len(group)
            for folder, group in grouped(outcomes, lambda outcome: folder_of(outcome.mutant.source))}


def table(title, rows, out):
    print(f"\n{title:<18}{'mutants':>9}{'killed':>9}{'score':>9}{'equivalent':>12}{'survived':>10}", file=out)
    for name, outcomes in rows:
        counts = collections.Counter(outcome.verdict for outcome in outcomes)
        killed = killed_count(outcomes)
        print(f"{name:<18}{len(outcomes):>9}{killed:>9}{percentage(killed, len(outcomes)):>9}{counts['equivalent']:>12}"
              f"{counts['SURVIVED']:>10}", file=out)


def grouped(outcomes, key):
    groups = collections.defaultdict(list)
    for outcome in outcomes:
        groups[key(outcome)].append(outcome)
    return sorted(groups.items())


def print_summary(outcomes, out):
    table("folder", [*grouped(outcomes, lambda outcome: folder_of(outcome.mutant.source)), ("all", outcomes)], out)
    table("operator", grouped(outcomes, lambda outcome: outcome.mutant.operator), out)
    ways = collections.Counter("hang" if (outcome.killed_by or "").endswith("(hangs)") else
                               "crash" if (outcome.killed_by or "").endswith("(crashes)") else "failed test"
                               for outcome in outcomes if outcome.killed_by)
    print("\nkilled by " + ", ".join(f"{way}: {count}" for way, count in ways.most_common()), file=out)
