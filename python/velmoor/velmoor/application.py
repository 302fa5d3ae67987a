"""An application that runs with the layer, in a network of its own, for as long as it is needed."""

from __future__ import annotations

import base64
import functools
import json
import os
import pathlib
import re
import shutil
import subprocess
import time
from typing import Any, Callable, Iterable, Mapping, Optional, Sequence, Union

from .client import ApplicationEnded, Client, Json, SetUpError, ToolError
from .picture import Picture

SIMULATOR = "simulator"
ACTIVE = "active"
LAYERS_LINE = re.compile(r"\[Velmoor\]|\[cpp-mcp\]")
MOST_LINES = 1000
# Seconds that `velmoor` waits for an application before it gives a call up.
PATIENCE = "5"

# Of the extensions that an application enabled, the first that is there names how it renders.
GRAPHICS = (
    ("XR_KHR_vulkan_enable2", "vulkan"),
    ("XR_KHR_vulkan_enable", "vulkan"),
    ("XR_KHR_opengl_es_enable", "opengles"),
    ("XR_KHR_opengl_enable", "opengl"),
)


def machine_has_gpu() -> bool:
    places = (("/dev/dri", "renderD*"), ("/dev", "nvidia[0-9]*"), ("/dev", "dxg"))
    return any(True for directory, pattern in places for _ in pathlib.Path(directory).glob(pattern))


class Tools:
    """Each tool as a method, those of the application too: `xr.openxr_get_head_pose(base_space="stage")`."""

    def __init__(self, application: "Application"):
        self._application = application

    def __getattr__(self, tool: str) -> Callable[..., Json]:
        if tool.startswith("_"):
            raise AttributeError(tool)
        return functools.partial(self._application.call, tool)

    def __dir__(self) -> Iterable[str]:
        names = [tool["name"] for tool in self._application.client.tools()]
        return [*super().__dir__(), *names]

    def picture(self, eye: str = "left") -> Picture:
        """What the user sees with that eye."""
        picture = self.openxr_capture_composited_image(eye=eye)
        if not isinstance(picture, Picture):
            raise ToolError(f"openxr_capture_composited_image: {picture}")
        return picture

    def wait(self, timeout: float = 10, **conditions: Json) -> None:
        """As the tool xr_wait: `xr.wait(frames=3)`, or `xr.wait(tool="read_score", path="/score", equals=5)`."""
        self._application.call("xr_wait", timeout_seconds=timeout, **conditions)

    def until(self, condition: Callable[[], Any], timeout: float = 10, what: str = "the condition holds") -> Any:
        """The first value of `condition()` that counts as true; it is asked again while it does not."""
        deadline = time.monotonic() + timeout
        while not (value := condition()):
            if time.monotonic() > deadline:
                raise AssertionError(f"waited {timeout:g} seconds in vain until {what}")
            self._application.check_runs()
            time.sleep(0.05)
        return value


class Application:
    """
    `command` is run with the layer: on the simulator, with runtime="active" on the active runtime, or on that of a
    manifest. The layer's logs, the pictures and the output end up in the directory `artefacts`. Pictures are compared
    with those in `baselines`, or replace them if `update` says so.
    """

    def __init__(
        self,
        command: Sequence[str],
        runtime: str = SIMULATOR,
        artefacts: Union[str, "os.PathLike[str]"] = "xr-artefacts",
        environment: Optional[Mapping[str, str]] = None,
        velmoor: Optional[str] = None,
        renderer: Optional[str] = None,
        baselines: Union[str, "os.PathLike[str]"] = "baselines",
        update: bool = False,
    ):
        self.command = [str(word) for word in command]
        self.artefacts = pathlib.Path(artefacts).absolute()
        self.last_picture: Optional[pathlib.Path] = None
        self.xr = Tools(self)
        self._runtime = runtime
        self._velmoor = velmoor or os.environ.get("VELMOOR") or "velmoor"
        self._given_renderer = renderer
        self._baselines = baselines
        self._update = update
        self._environment = {**os.environ, **(environment or {}), "XDG_STATE_HOME": str(self.artefacts / "state")}
        self._client: Optional[Client] = None
        self._pid = ""
        self._output = ""
        self._pictures = 0

    def __enter__(self) -> "Application":
        self.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()

    @property
    def client(self) -> Client:
        if self._client is None:
            raise SetUpError("the application is not started")
        return self._client

    def start(self, timeout: float = 30) -> None:
        """Returns when its session is in focus and frames flow. Else raises SetUpError, which says how far it came."""
        program = shutil.which(self._velmoor)
        if program is None:
            raise SetUpError(f"there is no command {self._velmoor}: install Velmoor, or name it with VELMOOR")
        words = [program, "mcp", "--wait", PATIENCE]
        if self._runtime != SIMULATOR:
            words += ["--runtime", "installed"]
            if self._runtime != ACTIVE:
                if not pathlib.Path(self._runtime).is_file():
                    raise SetUpError(f"there is no runtime: {self._runtime} is no file")
                self._environment["XR_RUNTIME_JSON"] = str(pathlib.Path(self._runtime).absolute())
        self.artefacts.mkdir(parents=True, exist_ok=True)
        with (self.artefacts / "velmoor.txt").open("wb") as errors:
            self._client = Client([*words, "--", *self.command], self._environment, errors)
        try:
            said = self._client.call("app_start", {"timeout_seconds": timeout}, timeout + 15)[0]["text"]
            self._pid = re.search(r"\(pid (\d+)\)", said).group(1)  # type: ignore[union-attr]
        except ToolError as error:
            self.stop()
            raise SetUpError(f"{' '.join(self.command)}: {error}{self._lack_of_runtime(program)}") from None
        except BaseException:
            self.stop()
            raise

    def call(self, tool: str, **arguments: Json) -> Json:
        """The tool's answer: JSON as Python's values, a picture as a Picture, else the text."""
        try:
            items = self.client.call(tool, {**arguments, "app": self._pid}, 60 + arguments.get("timeout_seconds", 0))
        except ToolError:
            self.check_runs()
            raise
        for item in items:
            if item["type"] == "image":
                return self._keep(base64.b64decode(item["data"]), arguments.get("eye", "left"))
        text: str = items[0]["text"] if items else ""
        try:
            return json.loads(text)
        except ValueError:
            return text

    def check_runs(self) -> None:
        if not self.is_running():
            raise ApplicationEnded(f"the application has ended: {self.client.call('app_stop', {})[0]['text']}")

    def is_running(self) -> bool:
        listed = json.loads(self.client.call("app_list", {})[0]["text"])
        return any(str(each["pid"]) == self._pid for each in listed["applications"])

    def end(self, timeout: float = 15) -> int:
        """Asks the session to end, waits until the application has, and gives its exit code."""
        self.call("openxr_exit_session")
        deadline = time.monotonic() + timeout
        while self.is_running():
            if time.monotonic() > deadline:
                raise AssertionError(f"the application still runs {timeout:g} seconds after its session was to end")
            time.sleep(0.05)
        code = re.search(r"exit code (\d+)", self.client.call("app_stop", {})[0]["text"])
        return int(code.group(1)) if code else -1

    def stop(self) -> None:
        """Whatever happened: afterwards nothing of it runs."""
        if self._client is None:
            return
        self.output()
        try:
            self._client.call("app_stop", {})
            self.output()
        except (SetUpError, ToolError, TimeoutError):
            pass  # closing ends it
        self._client.close()
        self._client = None
        (self.artefacts / "application.txt").write_text(self._output)

    def output(self) -> str:
        """The last lines that the application printed, without the layer's."""
        if self._client is not None:
            try:
                said = self._client.call("app_output", {"lines": MOST_LINES, "level": "error"}, 10)[0]["text"]
                lines = said.splitlines(keepends=True)
                self._output = "".join(line for line in lines if not LAYERS_LINE.search(line))
            except (SetUpError, ToolError, TimeoutError):
                pass  # what is known stays
        return self._output

    def layer_log(self) -> str:
        """The layer's log of this run."""
        logs = sorted(self.artefacts.glob("state/velmoor/logs/*/api_layer.log"))
        return logs[-1].read_text(errors="replace") if logs else ""

    @functools.cached_property
    def runtime_name(self) -> str:
        """Of the system that the runtime tells, such as "Velmoor Simulator"."""
        return str(self.call("openxr_get_system_info")["system_name"])

    @functools.cached_property
    def renderer(self) -> str:
        """How it renders, such as "vulkan-software", if it was not told: of the GPU that is all that can be known."""
        if self._given_renderer:
            return self._given_renderer
        enabled = self.call("openxr_get_instance_info", include_enabled_extensions=True)["enabled_extensions"]
        graphics = next((name for extension, name in GRAPHICS if extension in enabled), "headless")
        return f"{graphics}-{'gpu' if machine_has_gpu() else 'software'}"

    def _keep(self, png: bytes, eye: str) -> Picture:
        self._pictures += 1
        self.last_picture = self.artefacts / f"picture-{self._pictures}-{eye}.png"
        self.last_picture.write_bytes(png)
        key = functools.partial("{0.runtime_name}.{0.renderer}.{1}".format, self, eye)
        return Picture(png, self.last_picture, key, self._baselines, self._update)

    def _lack_of_runtime(self, program: str) -> str:
        """What the doctor says of the runtime, if there is something."""
        if self._runtime == SIMULATOR:
            return ""
        doctor = subprocess.run([program, "doctor"], env=self._environment, capture_output=True, text=True, timeout=60)
        bad = [line.strip() for line in doctor.stdout.splitlines() if re.match(r"\s*bad\s+runtime", line)]
        return "".join(f"\nvelmoor doctor: {line}" for line in bad)
