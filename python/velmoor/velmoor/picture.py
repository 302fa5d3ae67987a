"""A picture that an application shows, and how it is held against one that was approved."""

from __future__ import annotations

import os
import pathlib
import re
from typing import Callable, Iterable, Optional, Union

from . import comparison, png
from .comparison import Mask

__all__ = ["Mask", "Picture", "PictureMismatch"]

THRESHOLD = 0.1
SHARE = 0.001


class PictureMismatch(AssertionError):
    """A picture is not what was approved."""


def _percent(share: float) -> str:
    return f"{100 * share:.4g} %"


class Picture:
    """`path` is where the file lies; `key` names what it may depend on, and is asked for when it is compared."""

    def __init__(
        self,
        data: bytes,
        path: pathlib.Path,
        key: Callable[[], str],
        baselines: Union[str, "os.PathLike[str]"] = "baselines",
        update: bool = False,
    ):
        self.data = data
        self.path = path
        self._baselines = baselines
        self._update = update
        self._key = key
        self._packed: Optional[png.Packed] = None

    def __repr__(self) -> str:
        return f"Picture({str(self.path)!r})"

    @property
    def size(self) -> tuple[int, int]:
        """Width and height."""
        return self._stored().width, self._stored().height

    def assert_not_blank(self) -> None:
        self._refuse_blank(*comparison.masked(png.pixel_rows(self._stored()), ()), self.path.name)

    def baseline(self, name: str, directory: Union[None, str, "os.PathLike[str]"] = None) -> pathlib.Path:
        """The file that this picture is compared with, for this runtime, renderer and eye."""
        return pathlib.Path(directory or self._baselines) / (re.sub(r"[^A-Za-z0-9._-]+", "-", f"{name}.{self._key()}") + ".png")

    def assert_matches(
        self,
        name: str,
        threshold: float = THRESHOLD,
        share: float = SHARE,
        masks: Iterable[Mask] = (),
        directory: Union[None, str, "os.PathLike[str]"] = None,
    ) -> None:
        """
        Raises PictureMismatch if more than `share` of the pixels differ by more than `threshold` in YIQ. Anti-aliased
        pixels are left out, and so is what lies below `masks`.
        """
        baseline = self.baseline(name, directory)
        masks = [Mask(*mask) for mask in masks]
        if self._update:
            self._refuse_blank(*comparison.masked(png.pixel_rows(self._stored()), masks), name)
            baseline.parent.mkdir(parents=True, exist_ok=True)
            baseline.write_bytes(self.data)
            return
        if not baseline.is_file():
            raise PictureMismatch(
                f"picture '{name}' has no baseline {baseline}: look at {self.path}, and --xr-update makes it one"
            )
        try:
            approved = png.unpack(baseline.read_bytes())
        except ValueError as error:
            raise PictureMismatch(f"baseline {baseline} can't be read: {error}") from None
        if approved == self._stored():
            return
        if (approved.width, approved.height) != self.size:
            width, height = self.size
            raise PictureMismatch(
                f"picture '{name}' has {width}x{height} pixels, and the limit is {approved.width}x{approved.height}, "
                f"the size of {baseline}\n  actual: {self.path}"
            )
        ours, looked_at = comparison.masked(png.pixel_rows(self._stored()), masks)
        theirs, _ = comparison.masked(png.pixel_rows(approved), masks)
        self._refuse_blank(ours, looked_at, name)
        found = comparison.compare(ours, theirs, looked_at, threshold)
        if found.share > share:
            raise PictureMismatch(
                f"picture '{name}' differs in {_percent(found.share)} of its pixels ({found.differing} of {looked_at}), "
                f"and the limit is {_percent(share)} (threshold {threshold:g}; {found.smoothed} anti-aliased pixels "
                f"left out; {self.size[0] * self.size[1] - looked_at} masked)\n"
                f"  expected:   {baseline}\n  actual:     {self.path}\n  difference: {self._show(found)}"
            )

    def _stored(self) -> png.Packed:
        if self._packed is None:
            self._packed = png.unpack(self.data)
        return self._packed

    def _refuse_blank(self, rows: comparison.Rows, looked_at: int, name: str) -> None:
        share = comparison.share_of_one_colour(rows, looked_at)
        if share >= comparison.BLANK_SHARE:
            raise PictureMismatch(
                f"picture '{name}' is blank: one colour fills {_percent(share)} of it, and the limit is "
                f"{_percent(comparison.BLANK_SHARE)}\n  actual: {self.path}"
            )

    def _show(self, found: comparison.Difference) -> pathlib.Path:
        """The picture, darkened, with red where it differs, beside the file itself."""
        halves = bytes(value // 3 for value in range(256))
        rows = [bytearray(row.translate(halves)) for row in png.pixel_rows(self._stored())]
        for row in rows:
            row[3::4] = b"\xff" * (len(row) // 4)
        for x, y in found.places:
            rows[y][x * 4 : x * 4 + 4] = b"\xff\0\0\xff"
        path = self.path.with_name(self.path.stem + "-difference.png")
        path.write_bytes(png.encode(self.size[0], [bytes(row) for row in rows]))
        return path
