#!/usr/bin/env python3
"""Generates the seed corpus of the fuzz targets: writes corpus/ next to this file.

The formats are those that the fuzz targets read; numbers are little-endian.
"""
import pathlib
import struct

from tiny_jpeg import huffman_tables, jpeg

CORPUS = pathlib.Path(__file__).resolve().parent / "corpus"
seeds = {}


def save(program, name, content):
    seeds[CORPUS / program / name] = content


# --- Media types: flags (1: a raw format block comes first, 2: open the camera at the end), then pins and types ---

YUY2, MJPG, ARGB32, NO_SUBTYPE = range(4)
SIDES = {640: 0, 480: 1, 16: 2, 32: 3, 1280: 4, 720: 5, 0: 6, -480: 7, 1: 8, 3: 9, 2**31 - 1: 10, -2**31: 11}
INTERVALS = {333333: 0, 166666: 1, 0: 2, 1: 3, -1: 4, 400000: 5, 10000000: 6, 10000001: 7, 2**63 - 1: 8, -2**63: 9}
WHOLE_BLOCK = 0
NEW_PIN, NULL_PIN, INPUT_PIN = b"\xff", b"\xfe", b"\xfd"


def side(value):
    return bytes([SIDES[value]]) if value in SIDES else b"\xff" + struct.pack("<i", value)


def interval(value):
    return bytes([INTERVALS[value]]) if value in INTERVALS else b"\xff" + struct.pack("<q", value)


def media_type(subtype, width, height, time, block=WHOLE_BLOCK, flags=0, format_type=b""):
    """flags: 1 no format block, 2 with pUnk, 4 null, 8 the format type follows."""
    return (bytes([0, flags, subtype]) + side(width) + side(height) + interval(time) + bytes([block]) + format_type)


def block_of(size):
    """The selector byte of a cbFormat other than that of a complete block."""
    return 0x80 + size if size < 0x40 else size - 88 + 0xC8


def raw_block(width, height, time, size=88):
    block = struct.pack("<4i4iIIq", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, time)
    block += struct.pack("<IiiHHIIiiII", 40, width, height, 1, 16, 0, 0, 0, 0, 0, 0)
    block = block.ljust(size, b"\0")[:size]
    return bytes([len(block)]) + block + bytes([YUY2, 0])


def save_media_types():
    laptop = media_type(YUY2, 640, 480, 333333) + media_type(MJPG, 1280, 720, 333333)
    save("media_types", "laptop", b"\0" + laptop)
    save("media_types", "opened", b"\2" + media_type(MJPG, 16, 32, 166666) + media_type(YUY2, 16, 32, 333333))
    save("media_types", "raw_block", b"\1" + raw_block(640, -480, 333333) + laptop)
    save("media_types", "raw_block_too_short", b"\1" + raw_block(640, 480, 333333, 87) + laptop)
    save("media_types", "raw_block_too_long", b"\1" + raw_block(640, 480, 0, 120))
    save("media_types", "blocks_of_other_sizes", b"\0" + b"".join(
        media_type(YUY2, 640, 480, 333333, block_of(size)) for size in (0, 1, 40, 80, 87, 89, 120)))
    save("media_types", "no_blocks", b"\0" + b"".join(
        media_type(YUY2, 640, 480, 333333, flags=flags) for flags in (1, 2, 3, 4, 7)) + laptop)
    save("media_types", "other_format_type", b"\2" + media_type(YUY2, 640, 480, 1, flags=8, format_type=bytes(16)))
    save("media_types", "extremes", b"\0" + b"".join(
        media_type(NO_SUBTYPE, a, b, time) for a, b, time in
        ((2**31 - 1, -2**31, 2**63 - 1), (0, 0, -2**63), (-480, 1, -1), (1, 3, 1), (640, 480, 10000001))))
    save("media_types", "orders_that_go_round", b"\0" + b"".join(
        media_type(YUY2, a, b, 400000) for a, b in ((1280, 480), (640, 720), (1280, 16), (16, 720), (640, 480), (640, 720))))
    save("media_types", "pins", b"\2" + laptop + NULL_PIN + NEW_PIN + media_type(YUY2, 16, 16, 400000) + INPUT_PIN)
    save("media_types", "sizes_of_its_own", b"\2" + media_type(YUY2, 48, 20, 123456) + media_type(MJPG, 48, 20, 654321))


# --- Sessions: the PC, then steps ---

QUERY, OPEN, CLOSE, DELIVER, LATE, DATA_CALLBACK, LISTENER, FAULT, ENCODING, STREAM, HOST, ANOTHER_PC, RELOAD, BAD_CALLS, RELEASE = (
    0, 1, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15)
S16, S32, S64, S_EMPTY, S_NEGATIVE, S_GREAT, S_ODD, S_ONE = range(8)
ID_0, ID_NONE, ID_00, ID_1, ID_0X, ID_MINUS, ID_LONG, ID_SPACE = range(8)
WHOLE, SHORT, ONE_BYTE, NO_BYTES, NEGATIVE, TOO_LONG, GREATEST, NO_DATA = range(8)
FAIL, FALSE, NULL, NO_MEMORY, WRONG_STATE, THROW = range(6)


def pc(types=((S16, 0, 0), (S64, 1, 0)), flags=0, camera_flags=0, more=b""):
    """types: (size, 0 for YUY2 or 1 for MJPG, frame rate)"""
    return bytes([flags, camera_flags, len(types)]) + b"".join(map(bytes, types)) + more


def opening(size=S16, camera_id=ID_0, fps=30):
    return bytes([OPEN, size, camera_id, fps])


def stream(*frames):
    return bytes([STREAM, len(frames), *frames])


def fault(call, kind):
    """call: number of the failing call, counted from 1."""
    return bytes([FAULT, call - 1, kind])


def frame(kind):
    return bytes([DELIVER, kind])


def save_sessions():
    ready = bytes([DATA_CALLBACK, 0, LISTENER, 0, QUERY, RELEASE])
    save("session", "plain", pc() + ready + opening() + frame(WHOLE) + frame(SHORT) + bytes([CLOSE]))
    save("session", "mjpg", pc() + ready + opening(S64) + frame(WHOLE) * 3 + bytes([CLOSE]))
    save("session", "opened_twice", pc() + ready + opening() + opening(S32, ID_00) + frame(WHOLE) + bytes([CLOSE, CLOSE])
         + opening() + bytes([CLOSE]))
    save("session", "all_buffers_lost", pc() + ready + opening() + frame(TOO_LONG) * 4 + frame(GREATEST) + bytes([CLOSE]))
    save("session", "odd_frames", pc() + ready + opening(S_ODD) + b"".join(map(frame, range(8))) + bytes([CLOSE]))
    save("session", "streaming", pc() + ready + stream(WHOLE, SHORT, WHOLE) + opening() + bytes([CLOSE]))
    save("session", "streaming_until_starved", pc() + ready + stream(*[TOO_LONG] * 6) + opening() + bytes([CLOSE]))
    save("session", "unloaded_while_streaming", pc() + ready + stream(WHOLE, TOO_LONG) + opening() + bytes([RELOAD, QUERY]))
    save("session", "late_frames", pc() + bytes([LATE, WHOLE]) + ready + opening() + frame(WHOLE)
         + bytes([CLOSE, LATE, WHOLE, LATE, TOO_LONG, RELOAD, LATE, WHOLE]))
    save("session", "ids", pc() + b"".join(opening(S16, camera_id) + bytes([CLOSE]) for camera_id in range(8)))
    save("session", "sizes", pc() + b"".join(opening(size) + bytes([CLOSE]) for size in range(8)))
    save("session", "encoder_fails", pc() + ready + opening() + bytes([ENCODING, 1]) + frame(WHOLE) + bytes([ENCODING, 3])
         + frame(WHOLE) + bytes([ENCODING, 0]) + frame(WHOLE) + bytes([CLOSE]))
    save("session", "host_closes", pc() + ready + bytes([HOST, 8]) + opening() + frame(WHOLE) + bytes([CLOSE, HOST, 31])
         + opening() + bytes([CLOSE]))
    save("session", "unplugged", pc() + ready + opening() + pc_step(pc(flags=32)) + bytes([CLOSE, QUERY]) + opening()
         + bytes([CLOSE]) + pc_step(pc()) + bytes([QUERY]) + opening() + bytes([CLOSE]))
    save("session", "not_built_in", pc(flags=1) + ready + opening() + bytes([CLOSE]))
    save("session", "long_child_id", pc(flags=2, more=b"\x80") + ready + opening())
    save("session", "no_text", pc(camera_flags=8, more=b"\x7c") + ready + opening())
    save("session", "bad_calls", pc() + bytes([BAD_CALLS, 3, 9, DATA_CALLBACK, 1, LISTENER, 3, QUERY]) + opening())
    for call, kind in ((1, NULL), (9, FAIL), (20, FALSE), (45, FAIL)):
        save("session", f"query_fault_{call}", pc() + ready[:4] + fault(call, kind) + bytes([QUERY, QUERY]))
    for call, kind in ((1, THROW), (2, FALSE), (4, THROW), (6, NULL), (9, NO_MEMORY), (10, NULL), (11, FALSE), (25, FAIL),
                       (40, NULL), (50, FALSE), (55, WRONG_STATE)):
        save("session", f"open_fault_{call}", pc() + ready + fault(call, kind) + opening() + frame(WHOLE) + opening()
             + bytes([CLOSE]) + opening())


def pc_step(described):
    return bytes([ANOTHER_PC]) + described


# --- V4L2: 1 to list the cameras, then the results of system calls, interleaved with the format and graph settings ---

LISTING = bytes(14)  # well-formed: YUYV and MJPEG, 64x48 at 30 and 15 frames per second
SET_FORMAT = bytes(3)
START = bytes(3 + 1 + 3 * 4 + 1)  # set the format again, map four buffers, start streaming
NV12, UYVY, YVU420 = 2, 5, 6  # indexes of pixel formats
TO_YUY2, TO_ARGB32, TO_MJPG, TO_ANY = range(4)


def listing_of(pixel_format):
    """LISTING with YUYV replaced by another format."""
    return b"\x40" + bytes([pixel_format]) + LISTING[1:]


def graph(number, wanted, flags=0):
    """number: index of the media type; wanted: subtype that the grabber requests."""
    return bytes([number, 0]) + SET_FORMAT + bytes([wanted, flags])


def filled(picture=b""):
    """poll, DQBUF, the picture with its length, QBUF."""
    content = struct.pack("<H", len(picture)) + picture if picture else bytes(8)
    return bytes(2) + content + bytes(1)


def save_v4l2():
    picture = jpeg(64, 48, "422")
    plain = b"\0" + LISTING + graph(0, TO_YUY2) + START
    mjpeg = b"\0" + LISTING + graph(2, TO_ARGB32) + START
    save("v4l2", "yuyv", plain + filled() * 6)
    save("v4l2", "mjpeg_to_argb", mjpeg + filled(picture) * 2)
    save("v4l2", "mjpeg_to_yuy2", b"\0" + LISTING + graph(3, TO_YUY2, 1) + START + filled(picture))
    save("v4l2", "mjpeg_as_it_is", b"\0" + LISTING + graph(2, TO_ANY) + START + filled(picture))
    save("v4l2", "mjpeg_cut_off", mjpeg + filled(picture[:-40]) + filled(picture))
    save("v4l2", "twice", b"\0" + LISTING + graph(0, TO_YUY2, 128) + START + filled() * 2)
    for name, number, size in (("nv12", NV12, 4608), ("uyvy", UYVY, 6144), ("yv12", YVU420, 4608)):
        raw = b"\0" + listing_of(number) + graph(0, TO_YUY2) + START
        save("v4l2", name, raw + filled(bytes(range(256)) * (size // 256)) * 2)
        save("v4l2", name + "_too_short", raw + filled(bytes(size - 1)))
    # For each of the two nodes: open, query capabilities and formats.
    save("v4l2", "listed", b"\1" + bytes(5) * 2 + LISTING + graph(0, TO_YUY2) + START + filled())
    save("v4l2", "listed_but_busy", b"\1\2\2")
    save("v4l2", "in_use", b"\0\2")
    # A failing size enumeration; then a range of sizes with a range of frame rates.
    save("v4l2", "lists_badly", b"\0" + bytes(3) + b"\5" + bytes(40))
    save("v4l2", "ranges", b"\0" + bytes(3) + b"\x40\2" + bytes([5, 6, 4, 5, 6, 4]) + b"\x40\2" + bytes([5, 0, 0]) + bytes(60))
    # poll and DQBUF: error events, timeouts, failures, malformed buffers.
    save("v4l2", "unplugged", plain + filled() + b"\x41\4" + bytes(8))
    save("v4l2", "slow", plain + b"\x21" + filled() + b"\x21\x22")
    save("v4l2", "interrupted", plain + b"\2\2" + b"\0\6\6" + bytes(9) + filled())
    save("v4l2", "damaged", plain + b"\0\x40\0" + struct.pack("<II", 6144, 7) + b"\1" + bytes(9) + filled())
    save("v4l2", "wrong_buffer", plain + b"\0\x40\x1f" + struct.pack("<II", 6144, 7) + bytes(9) + filled())
    save("v4l2", "padded_lines", b"\0" + LISTING + bytes([0, 0]) + b"\x40\0\x20" + bytes(2) + bytes([TO_YUY2, 0])
         + b"\x40\0\x20" + bytes(2 + 1 + 3 * 4 + 1) + filled() * 3)


# --- MJPEG: flags (1: the size follows; otherwise it is read from the picture), size, picture ---

def save_mjpeg():
    whole = jpeg(64, 48, "422")
    own = bytes(3)
    save("mjpeg", "422", own + whole)
    save("mjpeg", "420", own + jpeg(48, 32, "420"))
    save("mjpeg", "422_tall", own + jpeg(34, 21, "422_tall"))
    save("mjpeg", "420_with_gaps", b"\x30\0\0" + jpeg(22, 19, "420"))
    save("mjpeg", "444", own + jpeg(17, 13, "444"))
    save("mjpeg", "grey", own + jpeg(16, 16, "grey"))
    save("mjpeg", "restart_markers", own + jpeg(64, 48, "422", restart=3))
    save("mjpeg", "without_tables", own + jpeg(64, 48, "422", tables=False))
    save("mjpeg", "without_tables_420", own + jpeg(32, 16, "420", tables=False, restart=1))
    bare = jpeg(64, 48, "422", tables=False)
    save("mjpeg", "tables_too_late", own + bare[:-2] + huffman_tables() + bare[-2:])
    save("mjpeg", "cut_off", own + whole[:-30])
    save("mjpeg", "cut_off_in_header", own + whole[:80])
    save("mjpeg", "without_end", own + whole[:-2])
    save("mjpeg", "without_end_padded", own + whole[:-2] + bytes(50))
    save("mjpeg", "stray_bytes", own + whole[:-2] + bytes(3) + whole[-2:])
    save("mjpeg", "rubbish_after", own + whole + b"\xa5" * 50)
    save("mjpeg", "marker_in_the_middle", own + whole[:-25] + b"\xff\xd9" + whole[-23:])
    save("mjpeg", "gaps", b"\x50\0\0" + jpeg(15, 3, "422"))
    save("mjpeg", "another_size", bytes([1, 63, 55]) + whole)
    save("mjpeg", "one_pixel", own + jpeg(1, 1, "420"))
    save("mjpeg", "start_alone", own + b"\xff\xd8\xff")


# --- Arguments: one per line ---

def save_arguments():
    lines = {
        "list": "list --json --verbose",
        "doctor": "doctor --json --library=x.so",
        "record": "record -o a.h264 --size 1280x720 --fps=30 --seconds 10",
        "record_mp4": "-v record -oa=b.mp4 --size=640x480",
        "record_to_standard_output": "record -o - --seconds=0",
        "snapshot": "snapshot --output=picture.PNG --skip 3 --size 65535x65535",
        "probe": "probe --json --seconds 10 --all-rates",
        "view": "view --port 8080 --no-open --keep-open --json --size=640x480 --fps 15",
        "simulated": "--simulated clip.mp4 list --simulated",
        "library": "--library ./x.so snapshot",
        "help": "record --help -h --version",
        "numbers": "record --size 0x99999999999 --fps -1 --seconds 86401",
        "mistakes": "fly --bogus -x -- - list list",
        "lacks": "record --fps= --output",
        "combined": "-vh record -voa.mp4 -- -x",
        "misplaced": "--json --fps 3 record ++",
        "steers": "\x1b[2Jlist",
        "not_text": "record -o\xff\xfe.mp4",
    }
    for name, line in lines.items():
        save("arguments", name, "\n".join(line.split(" ")).encode("latin-1"))


# --- View: the size of the pieces in which the bytes arrive, less one; then HTTP requests ---

TOKEN = "abcdefghijklmnopqrstuvwxyz-_0123"


def request(resource="", method="GET", body="", version="1.1", **fields):
    """Underscores in the names of fields stand for hyphens."""
    fields = {"Host": "localhost:4711", **fields}
    if body:
        fields = {"X_Nuveqcam": "1", "Content_Type": "application/json", "Content_Length": str(len(body)), **fields}
    lines = [f"{method} /{TOKEN}/{resource} HTTP/{version}",
             *(f"{name.replace('_', '-')}: {value}" for name, value in fields.items())]
    return "\r\n".join([*lines, "", body])


def save_view():
    change = '{"width":640,"height":480,"fps":29.97}'
    requests = {
        "page": request(),
        "files": request("view.js") + request("view.css", method="HEAD") + request("icon.svg?x", version="1.0"),
        "streams": request("stream") + request("stream.h264") + request("stream.mp4"),
        "state": request("state") + request("time"),
        "snapshot": request("snapshot.png"),
        "camera": request("camera", "POST", change),
        "camera_invalid": request("camera", "POST", '{"width":-1,"height":1e9,"fps":"x"}') + request("camera", "POST", "[[[["),
        "record": request("record", "POST", '{"record":true}') + request("record", "POST", '{"record":false}')
        + request("recording.mp4"),
        "form": request("camera", "POST", change, Content_Type="text/plain"),
        "other_site": request(Origin="http://example.org") + request(Sec_Fetch_Site="cross-site"),
        "own_site": request(Origin="http://localhost:4711", Sec_Fetch_Site="same-origin"),
        "rebound": request(Host="example.org:4711"),
        "without_token": "GET / HTTP/1.1\r\nHost: [::1]:4711\r\n\r\n",
        "methods": request(method="PUT") + request("camera") + request("state", "POST", "{}"),
        "chunked": request("camera", "POST", Transfer_Encoding="chunked") + "1\r\n{\r\n0\r\n\r\n",
        "repeated_fields": f"GET /{TOKEN}/ HTTP/1.1\r\nHost: a\r\nHost: b\r\nX:\r\n y\r\n\r\n",
        "long": request("x" * 9000),
        "long_body": request("camera", "POST", "x" * 4097),
        "not_http": "\x16\x03\x01\x00\xa5",
    }
    for name, text in requests.items():
        save("view", name, b"\xff" + text.encode("latin-1"))
    save("view", "byte_by_byte", b"\0" + (request("state") + request("camera", "POST", change)).encode())


for save_all in (save_media_types, save_sessions, save_v4l2, save_mjpeg, save_arguments, save_view):
    save_all()
if __name__ == "__main__":
    for path, content in seeds.items():
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
