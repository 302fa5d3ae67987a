import importlib.util
import os
import struct
import zlib

import pytest

from velmoor import Mask, Picture, PictureMismatch, png

GREY, WHITE, BLACK = b"\x80\x80\x80\xff", b"\xff\xff\xff\xff", b"\0\0\0\xff"
DARK, DARKER = b"\x28\x28\x28\xff", b"\x14\x14\x14\xff"


def column(x, colour, count, step=1):
    return {(x, y * step): colour for y in range(count)}


def halves(changes, size=100):
    """Black and white, with pixels of other colours."""
    own = [b"".join(changes.get((x, y), BLACK if x < 50 else WHITE) for x in range(size)) for y in range(size)]
    return png.encode(size, own)


@pytest.mark.parametrize(
    "data, masks, message",
    [
        (halves(column(9, DARKER, 50)), [], None),  # below the threshold
        (halves(column(9, DARK, 50)), [], "in 0.5 % of its pixels (50 of 10000), and the limit is 0.1 %"),
        (halves(column(9, GREY, 10, 5)), [], None),  # just at the limit
        (halves(column(50, GREY, 100)), [], None),  # a smoothed edge
        (halves(column(50, BLACK, 100)), [], "(100 of 10000)"),  # one that has moved
        (halves(column(9, GREY, 50)), [Mask(9, 0, 1, 50)], None),
        (halves(column(9, GREY, 50)), [Mask(9, 0, 1, 30)], "in 0.2006 % of its pixels (20 of 9970)"),
        (png.encode(100, [BLACK * 100] * 100), [], "is blank: one colour fills 100 % of it, and the limit is 99.9 %"),
        (halves({}, 90), [], "has 90x90 pixels, and the limit is 100x100"),
    ],
    ids=lambda value: "png" if isinstance(value, bytes) else str(value),
)
def test_pictures_match_as_far_as_the_eye_can_see(tmp_path, data, masks, message):
    def match(content, update=False):
        picture = Picture(content, tmp_path / "actual.png", lambda: "Some Runtime.soft.left", tmp_path, update)
        picture.assert_matches("halves", masks=masks)

    match(halves({}), update=True)
    assert (tmp_path / "halves.Some-Runtime.soft.left.png").exists()
    if not message:
        return match(data)
    with pytest.raises(PictureMismatch) as refused:
        match(data)
    assert message in str(refused.value)


def test_all_filters_of_png_files_are_undone():
    stored = [1, 10, 20, 30, 5, 250, 1], [2, 1, 1, 1, 255, 255, 255], [3, 0, 0, 0, 1, 0, 2]
    stored += [4, 1, 1, 1, 0, 0, 200], [4, 252, 0, 0, 1, 0, 0]
    content = zlib.compress(b"".join(map(bytes, stored)))
    header = struct.pack(">IIBBBBB", 2, 5, 8, 2, 0, 0, 0)
    file = png.SIGNATURE + struct.pack(">I", 13) + b"IHDR" + header + bytes(4)
    file += struct.pack(">I", len(content)) + b"IDAT" + content + bytes(4)
    alpha = [10, 20, 30, 255, 15, 14, 31, 255], [11, 21, 31, 255, 14, 13, 30, 255], [5, 10, 15, 255, 10, 11, 24, 255]
    alpha += [6, 11, 16, 255, 10, 11, 224, 255], [2, 11, 16, 255, 7, 11, 224, 255]
    assert png.pixel_rows(png.unpack(file)) == list(map(bytes, alpha))
    with pytest.raises(ValueError, match="cut short"):
        png.unpack(file[:-20])


def run(pytester, *options, app=os.environ["DEMO"]):
    return pytester.runpytest_subprocess(f"--xr-app={app}", *options)


def test_failures_show_what_was_there_and_lacks_are_errors(pytester):
    pytester.makepyfile(
        """
        import os, pytest
        def test_wrong(xr):
            xr.picture()
            assert xr.read_score() == {"score": 1, "weather": "sun"}
        def test_death(xr, xr_app):
            os.kill(int(xr_app._pid), 9)
            xr.read_score()
        """
    )
    result = run(pytester)
    result.assert_outcomes(failed=1, errors=1)
    said = ["*application's output*", "*session is FOCUSED*", "*layer's log*", "*last picture*", "*picture-1-left.png"]
    result.stdout.fnmatch_lines(["*exit code 137*"])
    result.stdout.fnmatch_lines(said)
    assert len(list(pytester.path.glob("xr-artefacts/*/picture-1-left.png"))) == 1
    for options, app, message in (
        (["--xr-runtime", "/none.json"], "any", "*there is no runtime: /none.json*"),
        ([], "false", "*ended with exit code 1 before*"),
        (["--xr-start-limit=0.5"], "sleep 60", "*did not come in time*"),
        ([], "", "*no application is named*"),
    ):
        result = run(pytester, *options, app=app)
        result.assert_outcomes(errors=2)
        result.stdout.fnmatch_lines([message])


def test_eight_workers_play_with_eight_applications_and_pictures_are_kept(pytester, monkeypatch):
    monkeypatch.setenv("VELMOOR_SIM_HZ", "20")  # they draw in software
    workers = ["-n", "8"] if importlib.util.find_spec("xdist") else []
    pytester.makepyfile(
        """
        import pytest
        @pytest.mark.parametrize("number", range(8))
        def test_score(xr, number):
            xr.openxr_set_head_pose(position=[0, 1.6, number / 8], orientation=[0, 0, 0, 1], base_space="stage")
            xr.play_sequence(steps=[{"at_ms": 500, "action": "add_score", "amount": number}])
            assert xr.read_score()["score"] == number
            xr.picture("right").assert_matches(str(number))
        """
    )
    run(pytester, *workers, "--xr-update").assert_outcomes(passed=8)
    run(pytester, *workers).assert_outcomes(passed=8)
    assert len(list(pytester.path.glob("baselines/*/7.Velmoor-Simulator.*.right.png"))) == 1
