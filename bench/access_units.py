"""Splits an H.264 stream in Annex B format into access units (ITU-T H.264, 7.4.1.2.3)."""

_START = b"\0\0\1"
_SLICES = (1, 5)
# Access unit delimiter, SPS, PPS, SEI: they precede the slices of their access unit.
_LEADING = (6, 7, 8, 9)


def _units(stream):
    """Yields (offset including the start code, type, whether a slice is the first of its picture)."""
    found = stream.find(_START)
    while 0 <= found < len(stream) - 3:
        # A start code may have a leading zero byte.
        offset = found - 1 if found > 0 and stream[found - 1] == 0 else found
        kind = stream[found + 3] & 0x1F
        # first_mb_in_slice is 0, which ue(v) codes as a single set bit.
        is_first = found + 4 < len(stream) and stream[found + 4] & 0x80 != 0
        yield offset, kind, is_first
        found = stream.find(_START, found + 3)


def end_offsets(stream):
    """Returns the offset of the end of each access unit, in bytes."""
    starts = []
    has_slice = True
    for offset, kind, is_first in _units(stream):
        if kind in _LEADING and has_slice or kind in _SLICES and is_first and (has_slice or not starts):
            starts.append(offset)
            has_slice = False
        has_slice = has_slice or kind in _SLICES
    return [*starts[1:], len(stream)] if starts else []
