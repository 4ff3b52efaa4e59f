"""Encodes small baseline JPEG pictures: blocks of a single colour, some with one AC coefficient."""
import struct

# Standard DC Huffman tables: number of codes per length, for the values 0 to 11.
DC_COUNTS = ([0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0], [0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0])
# The AC codes in use, end of block and one coefficient of one bit, as (code, length).
AC_STANDARD = ({0x00: (0b1010, 4), 0x01: (0b00, 2)}, {0x00: (0b00, 2), 0x01: (0b01, 2)})
AC_OWN = {0x00: (0b00, 2), 0x01: (0b01, 2)}

# Luma blocks per MCU horizontally and vertically, and chroma blocks per component, stacked vertically.
SAMPLING = {"422": (2, 1, 1), "422_tall": (2, 2, 2), "420": (2, 2, 1), "444": (1, 1, 1), "grey": (1, 1, 0)}


def dc_codes(counts):
    codes, code, value = {}, 0, 0
    for length, count in enumerate(counts, 1):
        for _ in range(count):
            codes[value] = (code, length)
            code += 1
            value += 1
        code <<= 1
    return codes


class Bits:
    def __init__(self):
        self.text = ""

    def put(self, value, length):
        self.text += format(value, f"0{length}b") if length else ""

    def flush(self):
        """Returns the bytes, padded with ones, with a zero stuffed after each 0xFF."""
        self.text += "1" * (-len(self.text) % 8)
        data = bytes(int(self.text[at:at + 8], 2) for at in range(0, len(self.text), 8))
        self.text = ""
        return data.replace(b"\xff", b"\xff\x00")


def segment(marker, content):
    return bytes([0xFF, marker]) + struct.pack(">H", len(content) + 2) + content


def huffman_tables():
    content = b""
    for table, counts in enumerate(DC_COUNTS):
        content += bytes([table]) + bytes(counts) + bytes(range(12))
        content += bytes([0x10 | table]) + bytes([0, 2] + [0] * 14) + bytes(AC_OWN)
    return segment(0xC4, content)


def put_block(bits, difference, table, ac, has_ripple):
    length = abs(difference).bit_length()
    bits.put(*dc_codes(DC_COUNTS[table])[length])
    bits.put(difference if difference >= 0 else difference + (1 << length) - 1, length)
    if has_ripple:
        bits.put(*ac[0x01])
        bits.put(1, 1)
    bits.put(*ac[0x00])


def scan(units, across, down, colour, acs, restart):
    bits, data = Bits(), b""
    latest = [0, 0, 0]
    for unit in range(units):
        if restart and unit and unit % restart == 0:
            data += bits.flush() + bytes([0xFF, 0xD0 + (unit // restart - 1) % 8])
            latest = [0, 0, 0]
        components = [0] * (across * down) + [1] * colour + [2] * colour
        for number, component in enumerate(components):
            level = (unit * 37 + number * 11 + component * 50) % 101 - 50
            table = min(component, 1)
            put_block(bits, level - latest[component], table, acs[table], (unit + number) % 3 == 0)
            latest[component] = level
    return data + bits.flush()


def jpeg(width, height, sampling, restart=0, tables=True):
    """restart: MCUs between restart markers; tables: include the Huffman tables (without them: the standard ones)."""
    across, down, colour = SAMPLING[sampling]
    units = -(-width // (8 * across)) * -(-height // (8 * down))
    components = [(1, across << 4 | down, 0)] + ([(2, 0x10 | colour, 1), (3, 0x10 | colour, 1)] if colour else [])
    data = b"\xff\xd8"
    data += segment(0xE0, b"AVI1" + bytes(10) if not tables else b"JFIF\0\1\1\0\0\1\0\1\0\0")
    data += b"".join(segment(0xDB, bytes([table]) + bytes([12] * 64)) for table in (0, 1))
    data += segment(0xC0, struct.pack(">BHHB", 8, height, width, len(components))
                    + b"".join(map(bytes, components)))
    if tables:
        data += huffman_tables()
    if restart:
        data += segment(0xDD, struct.pack(">H", restart))
    data += segment(0xDA, bytes([len(components)]) + b"".join(bytes([c, t << 4 | t]) for c, _, t in components)
                    + b"\0\x3f\0")
    acs = (AC_OWN, AC_OWN) if tables else AC_STANDARD
    return data + scan(units, across, down, colour, acs, restart) + b"\xff\xd9"
