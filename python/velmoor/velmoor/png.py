"""PNG files with eight bits a channel, as the layer writes them, as rows of four bytes a pixel; and the way back."""

from __future__ import annotations

import itertools
import struct
import zlib
from typing import NamedTuple, Sequence

SIGNATURE = b"\x89PNG\r\n\x1a\n"
CHANNELS = {2: 3, 6: 4}  # by colour type: RGB and RGBA
MOST_BYTES = 1 << 30


class Packed(NamedTuple):
    """A file's rows as they are stored: each is the number of its filter, and what the filter left."""

    width: int
    height: int
    channels: int
    rows: bytes


def unpack(png: bytes) -> Packed:
    """Raises ValueError for what is no such file."""
    if png[:8] != SIGNATURE or png[12:16] != b"IHDR" or len(png) < 33:
        raise ValueError("it is no PNG file")
    width, height, depth, colour, _, _, interlaced = struct.unpack(">IIBBBBB", png[16:29])
    if depth != 8 or colour not in CHANNELS or interlaced:
        raise ValueError("only PNG files with 8 bits a channel, in RGB or RGBA and not interlaced, are read")
    size = height * (width * CHANNELS[colour] + 1)
    if not 0 < size <= MOST_BYTES:
        raise ValueError(f"{width}x{height} pixels are not read")
    data, place = [], 8
    while place + 8 <= len(png):
        (length,) = struct.unpack(">I", png[place : place + 4])
        if png[place + 4 : place + 8] == b"IDAT":
            data.append(png[place + 8 : place + 8 + length])
        place += 12 + length
    try:
        rows = zlib.decompressobj().decompress(b"".join(data), size)
    except zlib.error as error:
        raise ValueError(f"the PNG file is damaged: {error}") from None
    if len(rows) != size:
        raise ValueError("the PNG file is cut short")
    return Packed(width, height, CHANNELS[colour], rows)


def pixel_rows(packed: Packed) -> list[bytes]:
    """RGBA, a row each."""
    width, height, channels, stored = packed
    length = width * channels
    above = bytes(length)
    rows = []
    for start in range(0, height * (length + 1), length + 1):
        above = _restored(stored[start], stored[start + 1 : start + 1 + length], above, channels)
        rows.append(above if channels == 4 else _with_alpha(above))
    return rows


def encode(width: int, rows: Sequence[bytes]) -> bytes:
    def chunk(name: bytes, content: bytes) -> bytes:
        return struct.pack(">I", len(content)) + name + content + struct.pack(">I", zlib.crc32(name + content))

    header = struct.pack(">IIBBBBB", width, len(rows), 8, 6, 0, 0, 0)
    data = zlib.compress(b"".join(b"\0" + row for row in rows))
    return SIGNATURE + chunk(b"IHDR", header) + chunk(b"IDAT", data) + chunk(b"IEND", b"")


def _with_alpha(row: bytes) -> bytes:
    wide = bytearray(b"\xff") * (len(row) // 3 * 4)
    for channel in range(3):
        wide[channel::4] = row[channel::3]
    return bytes(wide)


def _restored(kind: int, row: bytes, above: bytes, step: int) -> bytes:
    if kind == 0:
        return row
    if kind == 1:
        return _sum_of_left(row, step)
    if kind == 2:
        return _sum_of_rows(row, above)
    if kind == 3:
        return _with_average(row, above, step)
    if kind == 4:
        return _with_paeth(row, above, step)
    raise ValueError(f"the PNG file is damaged: there is no filter {kind}")


def _sum_of_left(row: bytes, step: int) -> bytes:
    result = bytearray(len(row))
    for channel in range(step):
        result[channel::step] = bytes(map((255).__and__, itertools.accumulate(row[channel::step])))
    return bytes(result)


def _sum_of_rows(row: bytes, above: bytes) -> bytes:
    # All bytes at once, as two long numbers: the lower seven bits of each are added, then the eighth without a carry.
    one, other = int.from_bytes(row, "little"), int.from_bytes(above, "little")
    low = int.from_bytes(b"\x7f" * len(row), "little")
    return (((one & low) + (other & low)) ^ ((one ^ other) & ~low)).to_bytes(len(row), "little")


def _with_average(row: bytes, above: bytes, step: int) -> bytes:
    result = bytearray(len(row))
    for channel in range(step):
        left, column = 0, []
        for value, up in zip(row[channel::step], above[channel::step]):
            left = (value + ((left + up) >> 1)) & 255
            column.append(left)
        result[channel::step] = bytes(column)
    return bytes(result)


def _with_paeth(row: bytes, above: bytes, step: int) -> bytes:
    result = bytearray(len(row))
    for channel in range(step):
        left, corner, column = 0, 0, []
        for value, up in zip(row[channel::step], above[channel::step]):
            if up == corner:
                predicted = left
            elif left == corner:
                predicted = up
            else:
                to_left, to_up = up - corner, left - corner
                to_corner = abs(to_left + to_up)
                to_left, to_up = abs(to_left), abs(to_up)
                if to_left <= to_up and to_left <= to_corner:
                    predicted = left
                else:
                    predicted = up if to_up <= to_corner else corner
            left = (value + predicted) & 255
            corner = up
            column.append(left)
        result[channel::step] = bytes(column)
    return bytes(result)
