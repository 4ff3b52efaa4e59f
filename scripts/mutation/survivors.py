"""The mutants that no test can notice, each with the reason.

Entries of the list are separated by blank lines:

  src/CBufferQueue.h CBufferQueue::Init call 1: Release() -> (dropped)
  src/CBufferQueue.h CBufferQueue::Init condition 3: stopped -> false
    The reason, which holds for all mutants above it in the entry. It may
    take several lines.
"""
import dataclasses

from .errors import MutationError


@dataclasses.dataclass(frozen=True)
class Survivor:
    key: str
    change: str
    reason: str


def read(path):
    survivors = {}
    mutants, reason = [], []
    for line in [*path.read_text().splitlines(), ""]:
        if line.startswith("#"):
            continue
        if line.startswith(" "):
            reason.append(line.strip())
            continue
        if reason:
            for mutant in mutants:
                key, _, change = mutant.partition(": ")
                if key in survivors:
                    raise MutationError(f"{path.name}: {key} is listed twice")
                survivors[key] = Survivor(key, change, " ".join(reason))
            mutants, reason = [], []
        if line:
            mutants.append(line)
    if mutants:
        raise MutationError(f"{path.name}: {mutants[0]} has no reason")
    return survivors


def stale(survivors, mutants, files):
    """Returns the entries that fit no mutant. `files` are those whose mutants are not known."""
    changes = {mutant.key: mutant.change for mutant in mutants}
    return [survivor for survivor in survivors.values()
            if changes.get(survivor.key) != survivor.change and survivor.key.partition(" ")[0] not in files]
