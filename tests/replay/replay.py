#!/usr/bin/env python3
"""
An agent's session becomes a test that a machine repeats, without an agent.

    replay.py demo|hello_xr BUILD_DIRECTORY [REPEATS]

demo:      a session with the demo is recorded and made a test. It passes as it is written, and again and again once it
           is edited; it names what is planted in the application; and two runs of it, one on a busy machine, see the
           same frames, pictures and output.
hello_xr:  the same with an application of the OpenXR SDK that knows nothing of the layer: a hand moves and squeezes, and
           the test fails if it does not squeeze. Ends with 77, which stands for "skipped", where it can't be had.
"""

import contextlib
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "python" / "velmoor"))

from velmoor.client import Client, ToolError  # noqa: E402

BUILD = pathlib.Path(sys.argv[2]).resolve()
VELMOOR = str(BUILD / "bin" / "velmoor")
REPEATS = sys.argv[3] if len(sys.argv) > 3 else "3"
AHEAD = {"base_space": "stage", "orientation": [0, 0, 0, 1]}

DEMO_SESSION = [
    ("app_start", {}),
    ("openxr_get_instance_info", {}),
    ("openxr_get_session_info", {}),
    ("openxr_get_head_pose", {"base_space": "stage"}),
    ("openxr_set_head_pose", {**AHEAD, "position": [0, 1.6, 0.5]}),
    ("openxr_list_spatial_entities", {}),
    ("read_score", {}),
    ("spawn_cube", {"position": [0, 1.5, -1], "color": "red"}),
    ("wait_until", {"condition": "cube_is_there"}),
    ("xr_picture", {}),
    ("openxr_set_controller_pose", {**AHEAD, "hand": "right", "position": [0.2, 1.4, 0]}),
    ("openxr_set_controller_pose", {**AHEAD, "hand": "left", "position": [-0.2, 1.4, 0]}),
    ("openxr_get_controller_pose", {"hand": "right", "base_space": "stage"}),
    ("openxr_capture_composited_image", {}),
    ("openxr_set_controller_input", {"hand": "right", "component": "Trigger", "value": 1}),
    ("xr_inputs", {}),
    ("xr_picture", {"eye": "right", "crop": [0.25, 0, 1, 0.75]}),
    ("xr_release_all", {}),
    ("play_sequence", {"steps": [{"at_ms": at, "action": "add_score", "amount": 3} for at in (0, 200)]}),
    ("read_score", {}),
    ("xr_move", {"ahead": 0.2, "duration_seconds": 0.3}),
    ("openxr_get_head_pose", {"base_space": "stage"}),
    ("set_weather", {"weather": "snow"}),
    ("wait_until", {"condition": "weather_settled"}),
    ("xr_picture", {}),
    ("openxr_get_frame_info", {}),
    ("no_such_tool", {}),
    ("app_restart", {}),
    ("read_score", {}),
]

HAND = {**AHEAD, "hand": "right", "pose_type": "grip"}
HELLO_SESSION = [
    ("app_start", {}),
    ("openxr_set_head_pose", {**AHEAD, "position": [0, 1.6, 0.5]}),
    ("openxr_set_controller_pose", {**HAND, "position": [0, 1.6, 3]}),
    ("xr_picture", {}),
    ("openxr_set_controller_pose", {**HAND, "position": [-0.3, 1.9, -0.2]}),
    ("xr_picture", {}),
    ("openxr_set_controller_input", {"hand": "right", "component": "Grip", "value": 1}),
    ("xr_picture", {"crop": [0, 0, 0.5, 0.5]}),
]


def record(session, application):
    client = Client([VELMOOR, "mcp", "--record", "session", "--", *application])
    with contextlib.closing(client):
        for tool, arguments in session:
            with contextlib.suppress(ToolError) if tool == "no_such_tool" else contextlib.nullcontext():
                client.call(tool, arguments)
    shown = subprocess.run([VELMOOR, "record", "show", "session"], capture_output=True, text=True, check=True).stdout
    assert all(tool in shown for tool, _ in session), shown
    made = subprocess.run([VELMOOR, "record", "test", "session"], capture_output=True, text=True, check=True).stdout
    print(made)
    return made


def write(name, text):
    pathlib.Path(name).write_text(text)


def edited(text, old, new):
    assert old in text, old
    return text.replace(old, new, 1)


def test(code, *words, application):
    command = [VELMOOR, "test", *words, "--", *application]
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=300, check=False)
    print(done.stdout, done.stderr)
    assert done.returncode == code, (words, done.returncode)
    return done.stdout


def expect_failure(name, what, application):
    test(1, f"{name}.yaml", application=application)
    for report in ("junit.xml", "report.html"):
        text = pathlib.Path("velmoor-test", report).read_text()
        assert what in text, f"{report} does not name {what}"


def seen_by_one_run(directory, text, application):
    """All that a run leaves; its last step fails, and tells the time of its last frame."""
    pathlib.Path(directory).mkdir()
    back = os.getcwd()
    os.chdir(directory)
    try:
        time = "/frame_state/predicted_display_time/XrTime"
        write("run.yaml", text + f"  - {{expect: openxr_get_frame_info, timeout_seconds: 0, values: {{{time}: 0}}}}\n")
        said = test(1, "--update", "run.yaml", application=application)
        output = pathlib.Path("velmoor-test/run-1/output.txt").read_text().splitlines()
        left = {each.name: each.read_bytes() for each in pathlib.Path("baselines/run").iterdir()}
        left["application"] = [line for line in output if "[Velmoor]" not in line and "[cpp-mcp]" not in line]
        left["last frame"] = next(line for line in said.splitlines() if "XrTime is" in line)
        return left
    finally:
        os.chdir(back)


def compare_two_runs(text, application):
    idle = seen_by_one_run("idle", text, application)
    others = [subprocess.Popen([sys.executable, "-c", "while True: pass"]) for _ in range(4)]
    try:
        busy = seen_by_one_run("busy", text, application)
    finally:
        for each in others:
            each.kill()
            each.wait()
    assert idle.keys() == busy.keys() and len(idle) == 6, idle.keys()
    assert [each for each in idle if idle[each] != busy[each]] == []


def demo():
    application = [str(BUILD / "bin" / "velmoor_demo")]
    made = record(DEMO_SESSION, application)
    assert made.count("\n  - ") >= 25, "steps are missing"
    write("cube.yaml", made)
    test(0, "--update", "cube.yaml", application=application)
    test(0, "cube.yaml", application=application)
    made = edited(made, "/score: 6", "/score: {near: 6, absolute: 0.5}")
    write("cube.yaml", edited(made, "  - picture: picture-1\n", "  - picture: picture-1\n    share: 0.0005\n"))
    test(0, "-j", "4", "--repeat", REPEATS, "cube.yaml", application=application)
    expect_failure("cube", "/score is 8, and should be near 6", application + ["--fault", "score"])
    if "Running headless" not in pathlib.Path("velmoor-test/cube-1/output.txt").read_text():
        for fault in ("colour", "pose"):
            expect_failure("cube", "picture picture-1, left eye: ", application + ["--fault", fault])
    compare_two_runs(made.split("  - call: app_restart")[0], application)


def hello_xr():
    program = shutil.which("hello_xr") or shutil.which("hello_xr", path=BUILD)
    if not program or "not found" in subprocess.run(["ldd", program], capture_output=True, text=True).stdout:
        return "there is no hello_xr (package libopenxr-utils)"
    probe = [BUILD / "bin" / "rendering_test", "--gtest_filter=*PictureShows*/Vulkan2"]
    if "can't be had" in subprocess.run(probe, capture_output=True, text=True, check=False).stdout:
        return "this machine has no driver for Vulkan (package mesa-vulkan-drivers)"
    application = [program, "-g", "Vulkan2"]
    made = record(HELLO_SESSION, application)
    write("hello.yaml", made)
    test(0, "--update", "hello.yaml", application=application)
    test(0, "-j", "2", "--repeat", REPEATS, "hello.yaml", application=application)
    write("hello.yaml", edited(made, '"value":1', '"value":0'))
    expect_failure("hello", "picture picture-3, left eye: ", application)
    return None


def main():
    for name in ("XR_RUNTIME_JSON", "XR_API_LAYER_PATH", "XR_ENABLE_API_LAYERS", "VELMOOR_SIM_CLOCK"):
        os.environ.pop(name, None)
    with tempfile.TemporaryDirectory() as scratch:
        os.environ.update(HOME=scratch, VELMOOR_SIM_EYE_SIZE="256x256", VELMOOR_SIM_STRICT="1")
        os.chdir(scratch)
        reason = {"demo": demo, "hello_xr": hello_xr}[sys.argv[1]]()
        os.chdir("/")
    if reason:
        print(f"skipped: {reason}")
    return 77 if reason else 0


if __name__ == "__main__":
    sys.exit(main())
