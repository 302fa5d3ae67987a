#!/usr/bin/env python3
"""
An agent plays hello_xr on a runtime that offers neither automation nor pictures: both come from the layer below ours.

    tour.py BUILD_DIRECTORY RUNTIME GRAPHICS      GRAPHICS as hello_xr names them

RUNTIME is simulator, monado, or implicit: the simulator, with our layer installed as an implicit one. Monado is started
here, with a simulated headset and without a display. Ends with 77, which stands for "skipped", where
something is missing that is no part of the build.
"""

import contextlib
import json
import math
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "rendering"))

from hello_xr import SIZE, missing, place_hand, playing  # noqa: E402
from seen import LeftEye, changed_box, is_at, picture  # noqa: E402

UPPER, LOWER = "XR_APILAYER_KESTX_velmoor", "XR_APILAYER_VELMOOR_automation"
PRONTO = "/interaction_profiles/kest/pronto_controller_plus"
MONADO = pathlib.Path("/usr/share/openxr/1/openxr_monado.json")
# Of its simulated headset: 85 degrees across, 89.24 degrees down.
MONADO_EYE = LeftEye(math.tan(math.radians(42.5)), math.tan(math.radians(44.62)))
SIMULATOR_EYE = LeftEye(1.0, 1.0)

AHEAD = (0.0, 1.6, 0.5), (0.0, 0.0, 0.0, 1.0)
# 40 degrees to the left, and from there 5 up.
TURNED = (0.1, 1.65, 0.6), (0.0409888, 0.3416946, -0.0149187, 0.9387982)
BEHIND = (0.0, 1.6, 3.0)
# Seen from both, with nothing before or behind it.
PLACE = (-0.3, 1.9, -0.2)


def is_near(one, other, tolerance=0.002):
    return all(math.isclose(a, b, abs_tol=tolerance) for a, b in zip(one, other, strict=True))


def eventually(what, condition, limit=10):
    """The application has to come to its next frames before it shows what it was told."""
    deadline = time.monotonic() + limit
    while True:
        fits, seen = condition()
        if fits:
            print(f"{what}: {seen}")
            return
        assert time.monotonic() < deadline, f"{what}: {seen}"


class Tour:
    def __init__(self, application, eye):
        self._application = application
        self._client = application.client
        self._eye = eye
        self._head = AHEAD
        self._empty = []

    def read_the_session(self):
        assert self._client.call("openxr_get_instance_info")["application"]["name"] == "HelloXR"
        assert self._client.call("openxr_get_session_info")["state"]["name"] == "XR_SESSION_STATE_FOCUSED"

    def read_the_profile(self, expected):
        def holds():
            answer = self._client.call("openxr_get_active_interaction_profile")
            return all(answer[hand]["profile"] == expected for hand in ("left", "right")), answer

        eventually("profile", holds)

    def move_the_head(self, head):
        """And have it read from the runtime in all spaces, which have to agree."""
        self._head = position, orientation = head
        self._client.call("openxr_set_head_pose", position=position, orientation=orientation, base_space="stage")
        place_hand(self._client, BEHIND)

        def agrees():
            stage, local, view = (self._head_in(space) for space in ("stage", "local", "view"))
            there = self._converted(stage, "stage", "local")
            fits = is_near(stage, position + orientation) and is_near(local, there) and is_near(view, [0] * 6 + [1])
            return fits, {"stage": stage, "local": local, "expected there": there, "view": view}

        eventually("head", agrees)
        self._empty = self._settled()

    def expect_cube(self, what, middle, edge):
        expected = self._eye.cube_box(self._empty, self._head, middle, edge)

        def is_there():
            box = changed_box(self._empty, picture(self._client))
            return is_at(box, expected), f"seen at {box}, expected at {[round(side, 1) for side in expected]}"

        eventually(what, is_there)

    def point(self):
        """Pointing moves nothing that is held, and goes by the head that is simulated."""
        before = self._settled()
        forward, half = (0.2, 1.5, -0.1), math.sqrt(0.5)
        pose = {"position": forward, "orientation": (0, half, 0, half), "base_space": "stage"}
        self._client.call("openxr_set_controller_pose", hand="right", pose_type="aim", **pose)
        for space in ("stage", "view"):
            answer = self._client.call("openxr_get_controller_pose", hand="right", pose_type="aim", base_space=space)
            expected = self._converted(forward + (0, half, 0, half), "stage", space)
            assert is_near(_flat(answer["pose"]), expected), (space, answer, expected)
        assert self._settled() == before

    def squeeze(self, value):
        self._client.call("openxr_set_controller_input", hand="right", component="Grip", value=value)

    def squeeze_and_release(self):
        before = self._settled()
        self.squeeze(1.0)
        self.expect_cube("squeezed hand", PLACE, 0.05)
        after = self._settled()
        whole = self._eye.cube_box(before, self._head, PLACE, 0.1)
        assert is_at(changed_box(before, after), whole), "something else than the cube has changed"
        self.squeeze(0.0)
        eventually("released hand", lambda: (picture(self._client) == before, "the picture from before"))

    def validation_is_silent(self):
        """hello_xr switches Vulkan's validation layer on where it is installed, and prints what that says."""
        found = re.search(r"^.*\] (ERROR|WARN): .*", self._application.output(), re.M)
        assert not found, found.group()

    def _settled(self):
        """A picture that is the same twice, of frames that were begun after the call."""
        last = []

        def is_same():
            last.append(picture(self._client))
            return len(last) > 2 and last[-1] == last[-2], "still"

        eventually("picture", is_same)
        return last[-1]

    def _head_in(self, space):
        return _flat(self._client.call("openxr_get_head_pose", base_space=space)["pose"])

    def _converted(self, pose, source, target):
        where = {"position": pose[:3], "orientation": pose[3:], "source_space": source, "target_space": target}
        return _flat(self._client.call("openxr_convert_pose_between_spaces", **where)["output_pose"])


def _flat(pose):
    """With the rotation of which the real part is positive."""
    *imaginary, real = pose["orientation"]
    sign = -1 if real < 0 else 1
    return [*pose["position"], *(sign * value for value in imaginary), sign * real]


def play(application, eye, profile):
    tour = Tour(application, eye)
    tour.read_the_session()
    tour.read_the_profile(profile)
    for head in (TURNED, AHEAD):
        tour.move_the_head(head)
        place_hand(application.client, PLACE)
        tour.expect_cube("open hand", PLACE, 0.1)
    tour.read_the_profile(PRONTO)
    tour.point()
    tour.squeeze_and_release()
    tour.validation_is_silent()


def install_implicitly(build, scratch):
    """As for one user, with the switch that takes it off."""
    manifest = json.loads((build / "layers" / "XrApiLayer_KESTX_velmoor.json").read_text())
    layer = manifest["api_layer"]
    layer["library_path"] = str(build.resolve() / "lib" / "libXrApiLayer_KESTX_velmoor.so")
    layer["disable_environment"] = "DISABLE_XR_APILAYER_KESTX_velmoor"
    home = pathlib.Path(scratch) / "data"
    place = home / "openxr" / "1" / "api_layers" / "implicit.d"
    place.mkdir(parents=True)
    (place / "velmoor.json").write_text(json.dumps(manifest))
    os.environ["XDG_DATA_HOME"] = str(home)


@contextlib.contextmanager
def monado(scratch):
    """Its service, with a socket of its own: at that of another one it would abort."""
    os.environ.update(XDG_RUNTIME_DIR=scratch, XRT_COMPOSITOR_NULL="1", SIMULATED_ENABLE="1")
    os.environ.update(SIMULATED_LEFT="simple", SIMULATED_RIGHT="simple")
    output = pathlib.Path(scratch) / "monado.txt"
    with output.open("wb") as file:
        service = subprocess.Popen(["monado-service"], stdin=subprocess.PIPE, stdout=file, stderr=file)
    try:
        eventually("monado", lambda: ("service has started" in output.read_text(), service.poll()))
        yield
    except BaseException:
        print(output.read_text(errors="replace")[-2000:])
        raise
    finally:
        service.terminate()
        service.wait(20)


def main():
    build, runtime, graphics = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3]
    reason = missing(build, graphics)
    if runtime == "monado" and not (MONADO.exists() and shutil.which("monado-service")):
        reason = "there is no Monado (packages monado-service, libopenxr1-monado)"
    if reason:
        print(f"skipped: {reason}")
        return 77
    os.environ["XR_API_LAYER_PATH"] = str(build / "layers")
    with contextlib.ExitStack() as stack:
        scratch = stack.enter_context(tempfile.TemporaryDirectory())
        if runtime == "monado":
            os.environ["XR_RUNTIME_JSON"] = str(MONADO)
            eye, profile = MONADO_EYE, "/interaction_profiles/khr/simple_controller"
            stack.enter_context(monado(scratch))
        else:
            os.environ.update(
                XR_RUNTIME_JSON=str(build / "lib" / "velmoor_simulator.json"),
                VELMOOR_SIM_WITHOUT="automation,capture",
                VELMOOR_SIM_EYE_SIZE=f"{SIZE}x{SIZE}",
                VELMOOR_SIM_STRICT="1",
            )
            eye, profile = SIMULATOR_EYE, None
        layers = f"{UPPER}:{LOWER}"
        if runtime == "implicit":
            install_implicitly(build, scratch)
            layers = LOWER
        application = stack.enter_context(playing(build, graphics, scratch, layers))
        play(application, eye, profile)
        assert "lies below" not in application.output(), "the layers are in the wrong order"
    return 0


if __name__ == "__main__":
    sys.exit(main())
