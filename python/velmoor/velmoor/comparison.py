"""How much two pictures of one size differ to the eye.

The difference of two pixels is taken in YIQ, where brightness counts most. A pixel that differs and lies on an edge
that was smoothed is left out: rasterizers do not agree on those.
"""

from __future__ import annotations

import functools
from collections import Counter
from typing import Iterable, NamedTuple, Sequence

# Of black and white, as the weighted squares below have it.
GREATEST_DIFFERENCE = 35215.0
# From here on, one colour is all that there is to see.
BLANK_SHARE = 0.999

Rows = Sequence["memoryview"]


class Mask(NamedTuple):
    """A rectangle that is not looked at, in pixels from the upper left."""

    left: int
    top: int
    width: int
    height: int


class Difference(NamedTuple):
    differing: int
    smoothed: int  # they differ, and are left out
    looked_at: int
    places: list[tuple[int, int]]  # x and y of those that differ

    @property
    def share(self) -> float:
        return self.differing / self.looked_at if self.looked_at else 0.0


def masked(rows: Sequence[bytes], masks: Iterable[Mask]) -> tuple[list[memoryview], int]:
    """The rows with a number a pixel, those below masks being 0, and how many pixels are left to look at."""
    copies = [bytearray(row) for row in rows]
    hidden = [bytearray(len(row) // 4) for row in rows]
    for mask in masks:
        for y in range(max(mask.top, 0), min(mask.top + mask.height, len(copies))):
            left = max(mask.left, 0)
            right = min(mask.left + mask.width, len(hidden[y]))
            if left < right:
                copies[y][left * 4 : right * 4] = bytes((right - left) * 4)
                hidden[y][left:right] = b"\1" * (right - left)
    looked_at = sum(row.count(0) for row in hidden)
    return [memoryview(bytes(row)).cast("I") for row in copies], looked_at


def share_of_one_colour(rows: Rows, looked_at: int) -> float:
    """Of the commonest, in what is not masked."""
    colours: Counter[int] = Counter()
    for row in rows:
        colours.update(row)
    colours[0] -= sum(len(row) for row in rows) - looked_at
    return max(colours.values()) / max(looked_at, 1)


def _yiq(pixel: int) -> tuple[float, float, float]:
    # The first byte in memory is the lowest: the machines that this runs on are little-endian.
    red, green, blue = pixel & 255, pixel >> 8 & 255, pixel >> 16 & 255
    return (
        0.29889531 * red + 0.58662247 * green + 0.11448223 * blue,
        0.59597799 * red - 0.27417610 * green - 0.32180189 * blue,
        0.21147017 * red - 0.52261711 * green + 0.31114694 * blue,
    )


@functools.lru_cache(maxsize=1 << 16)
def _brightness(pixel: int) -> float:
    return _yiq(pixel)[0]


def distance(one: int, other: int) -> float:
    """Between 0 and GREATEST_DIFFERENCE."""
    y, i, q = (a - b for a, b in zip(_yiq(one), _yiq(other)))
    return 0.5053 * y * y + 0.299 * i * i + 0.1957 * q * q


def compare(one: Rows, other: Rows, looked_at: int, threshold: float) -> Difference:
    """`threshold` is between 0 and 1: how different two pixels may be and still count as equal."""
    limit = GREATEST_DIFFERENCE * threshold * threshold
    known: dict[tuple[int, int], bool] = {}
    places, smoothed = [], 0
    for y, pair in enumerate(zip(one, other)):
        if pair[0] == pair[1]:
            continue
        for x, pixels in enumerate(zip(*pair)):
            if pixels[0] == pixels[1]:
                continue
            differs = known.get(pixels)
            if differs is None:
                differs = known[pixels] = distance(*pixels) > limit
            if not differs:
                continue
            if is_smoothed(one, other, x, y) or is_smoothed(other, one, x, y):
                smoothed += 1
            else:
                places.append((x, y))
    return Difference(len(places), smoothed, looked_at, places)


def _around(rows: Rows, x: int, y: int) -> list[tuple[int, int]]:
    columns = range(max(x - 1, 0), min(x + 2, len(rows[0])))
    lines = range(max(y - 1, 0), min(y + 2, len(rows)))
    return [(nx, ny) for ny in lines for nx in columns if nx != x or ny != y]


def _has_flat_surroundings(rows: Rows, x: int, y: int) -> bool:
    """Whether the pixel has more than two neighbours of its own colour."""
    own, around = rows[y][x], _around(rows, x, y)
    same = [rows[ny][nx] for nx, ny in around].count(own)
    return same + (len(around) < 8) > 2


def is_smoothed(rows: Rows, other: Rows, x: int, y: int) -> bool:
    """Whether a pixel lies between a darker and a brighter neighbour, one of which belongs to a surface in both."""
    own, around = rows[y][x], _around(rows, x, y)
    colours = [rows[ny][nx] for nx, ny in around]
    if colours.count(own) + (len(around) < 8) > 2:
        return False
    own_brightness = _brightness(own)
    brightness = [_brightness(colour) for colour in colours]
    darkest, brightest = min(brightness), max(brightness)
    if darkest >= own_brightness or brightest <= own_brightness:
        return False
    return any(
        _has_flat_surroundings(rows, nx, ny) and _has_flat_surroundings(other, nx, ny)
        for nx, ny in (around[brightness.index(darkest)], around[brightness.index(brightest)])
    )
