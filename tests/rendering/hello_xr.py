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
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts"))

from application import Application  # noqa: E402
from seen import LeftEye, changed_box, is_at, picture  # noqa: E402

SIZE = 256
HEAD = (0.0, 1.6, 0.5), (0.0, 0.0, 0.0, 1.0)
EYE = LeftEye(1.0, 1.0)


def expect_cube(client, what, empty, middle, edge):
    expected = EYE.cube_box(empty, HEAD, middle, edge)
    # Of an application that takes a quarter of a second for a frame, as on a busy machine, the first may be older.
    for _ in range(2):
        box = changed_box(empty, picture(client))
        print(f"{what}: seen at {box}, expected at {[round(side, 1) for side in expected]}")
        if is_at(box, expected):
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


def play(client):
    client.call("openxr_set_head_pose", position=HEAD[0], orientation=HEAD[1], base_space="stage")
    place_hand(client, [0, 1.6, 3])
    empty = picture(client)
    assert (len(empty[0]), len(empty)) == (SIZE, SIZE)
    # Up and to the left of whatever else it shows.
    for position in ([-0.3, 1.9, -0.2], [-0.45, 1.75, -0.1]):
        place_hand(client, position)
        expect_cube(client, "open hand", empty, position, 0.1)
    client.call("openxr_set_controller_input", hand="right", component="Grip", value=1.0)
    expect_cube(client, "squeezed hand", empty, position, 0.05)


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


def program_in(build):
    return shutil.which("hello_xr") or shutil.which("hello_xr", path=build)


def missing(build, graphics):
    """Why it can't be tried on this machine; nothing if it can."""
    program = program_in(build)
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


@contextlib.contextmanager
def playing(build, graphics, scratch, layers=None):
    """hello_xr, from when its session has the focus until it was asked to end, and did with 0."""
    with contextlib.ExitStack() as stack:
        if graphics == "OpenGL":
            stack.enter_context(x_server(scratch))
        try:
            # It ends when its input does.
            application = Application([program_in(build), "-g", graphics], scratch, subprocess.PIPE, layers)
            stack.callback(application.stop)
            focused = lambda: "FOCUSED" in str(application.client.call("openxr_get_session_info"))  # noqa: E731
            application.wait_until(focused, 20, "its session has the focus")
            yield application
            assert application.end() == 0
        except BaseException:
            print((pathlib.Path(scratch) / "application.txt").read_text(errors="replace")[-4000:])
            raise


def main():
    build, graphics = pathlib.Path(sys.argv[1]), sys.argv[2]
    if reason := missing(build, graphics):
        print(f"skipped: {reason}")
        return 77
    os.environ.update(
        XR_RUNTIME_JSON=str(build / "lib" / "velmoor_simulator.json"),
        XR_API_LAYER_PATH=str(build / "layers"),
        VELMOOR_SIM_EYE_SIZE=f"{SIZE}x{SIZE}",
        VELMOOR_SIM_STRICT="1",
    )
    with tempfile.TemporaryDirectory() as scratch:
        os.environ["VELMOOR_SIM_CONTROL"] = f"{scratch}/control"
        with playing(build, graphics, scratch) as application:
            play(application.client)
            step(application.client, os.environ["VELMOOR_SIM_CONTROL"])
    return 0


if __name__ == "__main__":
    sys.exit(main())
