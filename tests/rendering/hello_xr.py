#!/usr/bin/env python3
"""
An agent plays hello_xr, a rendering application of the OpenXR SDK that knows nothing of the layer: it moves a hand and
squeezes it, and the picture shows the hand's cube where the hand is, and half as large.

    hello_xr.py BUILD_DIRECTORY GRAPHICS      GRAPHICS as hello_xr names them: Vulkan2, Vulkan, OpenGL

With OpenGL it starts an X server of its own. Ends with 77, which stands for "skipped", where something is missing that is
no part of the build. Where the package libopenxr-utils is not installed, its hello_xr may be unpacked as
BUILD_DIRECTORY/hello_xr; bring_hello_xr.sh does it.
"""

import contextlib
import json
import math
import os
import pathlib
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time
import zlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts"))

from application import Application  # noqa: E402

SIZE = 256
HEAD = (0.0, 1.6, 0.5)
HALF_EYE_DISTANCE = 0.0315


def pixels_of(png):
    """The colour of each pixel, by rows."""
    width, height, depth, kind = struct.unpack(">IIBB", png[16:26])
    assert (width, height, depth, kind) in [(SIZE, SIZE, 8, 2), (SIZE, SIZE, 8, 6)], (width, height, depth, kind)
    channels = 3 if kind == 2 else 4
    data, at = b"", 8
    while at < len(png):
        length, name = struct.unpack(">I4s", png[at : at + 8])
        if name == b"IDAT":
            data += png[at + 8 : at + 8 + length]
        at += 12 + length
    data, stride = zlib.decompress(data), width * channels
    rows, above = [], bytearray(stride)
    for y in range(height):
        filter_kind, *row = data[y * (stride + 1) : (y + 1) * (stride + 1)]
        for i in range(stride):
            left, up = row[i - channels] if i >= channels else 0, above[i]
            corner = above[i - channels] if i >= channels else 0
            estimate = left + up - corner
            nearest = min((left, up, corner), key=lambda value: abs(estimate - value))
            row[i] = (row[i] + (0, left, up, (left + up) // 2, nearest)[filter_kind]) & 255
        rows.append([tuple(row[i : i + 3]) for i in range(0, stride, channels)])
        above = row
    return rows


def changed_box(before, after):
    """Left, top, right and bottom edge of what differs; None where nothing does."""
    places = [(x, y) for y in range(SIZE) for x in range(SIZE) if before[y][x] != after[y][x]]
    if not places:
        return None
    columns, rows = [x for x, _ in places], [y for _, y in places]
    return min(columns), min(rows), max(columns) + 1, max(rows) + 1


def cube_box(middle, edge):
    """Where the left eye, which looks along -z with 90 degrees to each side, sees a cube."""
    steps = (-edge / 2, edge / 2)
    columns, rows = [], []
    for x, y, z in [(middle[0] + a, middle[1] + b, middle[2] + c) for a in steps for b in steps for c in steps]:
        depth = HEAD[2] - z
        columns.append(SIZE / 2 * (1 + (x - HEAD[0] + HALF_EYE_DISTANCE) / depth))
        rows.append(SIZE / 2 * (1 - (y - HEAD[1]) / depth))
    return min(columns), min(rows), max(columns), max(rows)


def expect_box(client, what, empty, expected):
    # Of an application that takes a quarter of a second for a frame, as on a busy machine, the first may be older.
    for _ in range(2):
        box = changed_box(empty, picture(client))
        print(f"{what}: seen at {box}, expected at {[round(edge, 1) for edge in expected]}")
        if box and all(math.isclose(a, b, abs_tol=1.2) for a, b in zip(box, expected)):
            return
    raise AssertionError(what)


def place_hand(client, position):
    client.call(
        "openxr_set_controller_pose",
        hand="right",
        pose_type="grip",
        position=position,
        orientation=[0, 0, 0, 1],
        base_space="stage",
    )


def picture(client):
    return pixels_of(client.call("openxr_capture_composited_image"))


def play(client):
    client.call("openxr_set_head_pose", position=HEAD, orientation=[0, 0, 0, 1], base_space="stage")
    place_hand(client, [0, 1.6, 3])
    empty = picture(client)
    # Up and to the left of whatever else it shows.
    for position in ([-0.3, 1.9, -0.2], [-0.45, 1.75, -0.1]):
        place_hand(client, position)
        expect_box(client, "open hand", empty, cube_box(position, 0.1))
    client.call("openxr_set_controller_input", hand="right", component="Grip", value=1.0)
    expect_box(client, "squeezed hand", empty, cube_box(position, 0.05))


def step(client, path):
    """Frame by frame: each moves the time that the application is told by one period, and nothing else does."""
    with socket.socket(socket.AF_UNIX) as control, control.makefile("rw") as lines:
        control.connect(path)

        def ask(**request):
            print(json.dumps(request), file=lines, flush=True)
            return json.loads(lines.readline())

        def shown():
            return client.call("openxr_get_frame_info")["frame_state"]["predicted_display_time"]["XrTime"]

        first, period, begin = ask(do="pause")["frame"], ask(do="state")["period"], shown()
        for number in range(1, 51):
            start = time.monotonic()
            state = ask(do="step")
            print(f"one frame after {1000 * (time.monotonic() - start):.1f} ms")
            assert (state["frame"] - first, shown() - begin) == (number, number * period), state
        assert picture(client) == picture(client), "the frame that is held has changed"
        ask(do="run")


def missing(build, program, graphics):
    """Why it can't be tried on this machine; nothing if it can."""
    if not program:
        return "there is no hello_xr (package libopenxr-utils)"
    if "not found" in subprocess.run(["ldd", program], capture_output=True, text=True, check=False).stdout:
        return "hello_xr lacks libraries (install libopenxr-utils)"
    if graphics == "OpenGL":
        drivers = pathlib.Path("/usr/lib/xorg/modules/drivers/dummy_drv.so")
        if os.geteuid() != 0 or not shutil.which("Xorg") or not drivers.exists():
            return "it takes root, and Xorg's dummy driver (packages xserver-xorg-core, xserver-xorg-video-dummy)"
        return None
    probe = [build / "bin" / "rendering_test", f"--gtest_filter=*PictureShows*/{graphics}"]
    if "can't be had" in subprocess.run(probe, capture_output=True, text=True, check=False).stdout:
        return f"this machine has no driver for {graphics} (package mesa-vulkan-drivers)"
    return None


@contextlib.contextmanager
def x_server(scratch):
    """DISPLAY names it."""
    reader, writer = os.pipe()
    command = ["Xorg", "-displayfd", str(writer), "-config", str(pathlib.Path(__file__).with_name("dummy.conf"))]
    command += ["-noreset", "-nolisten", "tcp", "-logfile", f"{scratch}/xorg.log"]
    with open(f"{scratch}/xorg.txt", "wb") as output:
        server = subprocess.Popen(command, pass_fds=[writer], stdout=output, stderr=output)
    os.close(writer)
    try:
        # Ends when the server does, if it never gets that far.
        os.environ["DISPLAY"] = ":" + os.read(reader, 16).decode().strip()
        yield
    finally:
        os.close(reader)
        server.terminate()
        server.wait(20)


def main():
    build, graphics = pathlib.Path(sys.argv[1]), sys.argv[2]
    program = shutil.which("hello_xr") or shutil.which("hello_xr", path=build)
    reason = missing(build, program, graphics)
    if reason:
        print(f"skipped: {reason}")
        return 77
    os.environ.update(
        XR_RUNTIME_JSON=str(build / "lib" / "velmoor_simulator.json"),
        XR_API_LAYER_PATH=str(build / "layers"),
        VELMOOR_SIM_EYE_SIZE=f"{SIZE}x{SIZE}",
        VELMOOR_SIM_STRICT="1",
    )
    with contextlib.ExitStack() as stack:
        scratch = stack.enter_context(tempfile.TemporaryDirectory())
        os.environ["VELMOOR_SIM_CONTROL"] = f"{scratch}/control"
        if graphics == "OpenGL":
            stack.enter_context(x_server(scratch))
        # It ends when its input does.
        application = None
        reader, writer = os.pipe()
        try:
            application = Application([program, "-g", graphics], scratch, stdin=reader)
            focused = lambda: "FOCUSED" in str(application.client.call("openxr_get_session_info"))  # noqa: E731
            application.wait_until(focused, 20, "its session has the focus")
            play(application.client)
            step(application.client, os.environ["VELMOOR_SIM_CONTROL"])
            assert application.end() == 0
        except BaseException:
            print((pathlib.Path(scratch) / "application.txt").read_text(errors="replace")[-4000:])
            raise
        finally:
            if application:
                application.stop()
            os.close(reader)
            os.close(writer)
    return 0


if __name__ == "__main__":
    sys.exit(main())
