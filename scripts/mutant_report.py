"""Reports of scripts/mutate.py: the outcome of each mutant, the progress and the summary table."""
import collections
import dataclasses
import threading
import time

from mutant_list import KINDS, Mutant


@dataclasses.dataclass
class Outcome:
    mutant: Mutant
    noticed_by: str | None = None
    trouble: str = ""

    def word(self):
        if self.trouble:
            return "ERROR"
        if not self.noticed_by:
            return "survived, as it says" if self.mutant.reason else "SURVIVED"
        return "NOTICED AFTER ALL" if self.mutant.reason and not self.mutant.is_matter_of_luck else "noticed"

    def is_good(self):
        return self.word() in ("noticed", "survived, as it says")


class Progress:
    def __init__(self, total, out):
        self.total = total
        self.out = out
        self.done = 0
        self.begin = time.monotonic()
        self.lock = threading.Lock()

    def print_outcome(self, outcome):
        with self.lock:
            self.done += 1
            left = (time.monotonic() - self.begin) / self.done * (self.total - self.done)
            by = f" <- {outcome.noticed_by}" if outcome.noticed_by else ""
            by += f"\n{outcome.trouble}" if outcome.trouble else ""
            print(f"[{self.done}/{self.total}, {left / 60:.1f} min left] {outcome.word()}: {outcome.mutant}{by}",
                  file=self.out, flush=True)


def report(outcomes, out):
    """Prints the summary and the unexpected outcomes. Returns True if there are none."""
    columns = ["noticed", "survived, as it says", "SURVIVED", "NOTICED AFTER ALL", "ERROR"]
    counts = {kind: collections.Counter(outcome.word() for outcome in outcomes if outcome.mutant.kind == kind)
              for kind in KINDS}
    print(f"\n{'kind':<20}{'made':>6}{'noticed':>9}{'reason':>8}{'survived':>10}{'wrong':>7}", file=out)
    total = collections.Counter()
    for kind, count in [*counts.items(), ("all", total)]:
        if kind != "all":
            total.update(count)
        if count:
            noticed, reason, survived, after_all, error = (count[column] for column in columns)
            print(f"{kind:<20}{count.total():>6}{noticed:>9}{reason:>8}{survived:>10}{after_all + error:>7}", file=out)
    bad = [outcome for outcome in outcomes if not outcome.is_good()]
    for outcome in bad:
        detail = outcome.trouble or outcome.noticed_by or ""
        print(f"\n{outcome.word()}: {outcome.mutant} ({outcome.mutant.place}) {detail}", file=out)
    killable = total["noticed"] + total["SURVIVED"]
    if killable:
        print(f"\nscore: {total['noticed']} of {killable} noticed ({100 * total['noticed'] / killable:.1f} %); "
              f"{total['survived, as it says']} more survive with a documented reason", file=out)
    return not bad


def show(mutants, out):
    for mutant in mutants:
        print(f"{mutant}{'  survives: ' + mutant.reason if mutant.reason else ''}", file=out)
    with_reason = sum(bool(mutant.reason) for mutant in mutants)
    print(f"{len(mutants)} mutants in {len({mutant.source for mutant in mutants})} sources, {with_reason} with a "
          "reason to survive", file=out)
