"""Where things are in the pictures that an application shows."""

import math
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "python" / "velmoor"))

from velmoor import png  # noqa: E402


def picture(client):
    """What the left eye sees: the colour of each pixel, by rows."""
    rows = png.pixel_rows(png.unpack(client.call("openxr_capture_composited_image")))
    return [[tuple(row[i : i + 3]) for i in range(0, len(row), 4)] for row in rows]


def changed_box(before, after):
    """Left, top, right and bottom edge of what differs; None where nothing does."""
    places = [
        (x, y)
        for y, (old, new) in enumerate(zip(before, after, strict=True))
        if old != new
        for x, (one, other) in enumerate(zip(old, new, strict=True))
        if one != other
    ]
    if not places:
        return None
    columns, rows = [x for x, _ in places], [y for _, y in places]
    return min(columns), min(rows), max(columns) + 1, max(rows) + 1


def rotated(quaternion, vector):
    x, y, z, w = quaternion
    cross = lambda a, b: (a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0])  # noqa: E731
    twice = [2 * value for value in cross((x, y, z), vector)]
    return tuple(v + w * t + c for v, t, c in zip(vector, twice, cross((x, y, z), twice)))


class LeftEye:
    """
    `across` and `down` are the tangents of half the field of view, which is the same to both sides, and `aside` is how
    far it is from the middle of the head.
    """

    def __init__(self, across, down, aside=0.0315):
        self._tangents = across, down
        self._aside = aside

    def cube_box(self, shown, head, middle, edge):
        """Where it sees a cube that stands along the axes of the space in which `head`, position and rotation, is."""
        position, (x, y, z, w) = head
        width, height = len(shown[0]), len(shown)
        steps = (-edge / 2, edge / 2)
        columns, rows = [], []
        for corner in [(a, b, c) for a in steps for b in steps for c in steps]:
            offset = [m + c - p for m, c, p in zip(middle, corner, position)]
            right, up, back = rotated((-x, -y, -z, w), offset)
            columns.append(width / 2 * (1 + (right + self._aside) / -back / self._tangents[0]))
            rows.append(height / 2 * (1 - up / -back / self._tangents[1]))
        return min(columns), min(rows), max(columns), max(rows)


def is_at(box, expected, tolerance=1.2):
    return box is not None and all(math.isclose(a, b, abs_tol=tolerance) for a, b in zip(box, expected))
