"""Fixtures for tests of XR applications: `xr_app`, a fresh application for each test, and `xr`, its tools as methods.

What an application lacks to be tested (a runtime, the focus, its life) is an error of the test's set-up, and never a
failed test.
"""

from __future__ import annotations

import pathlib
import re
import shlex
import shutil
from typing import Any, Generator, Optional

import pytest

from .application import SIMULATOR, Application, Tools
from .client import SetUpError

LINES_TOLD = 40
APPLICATION = pytest.StashKey[Application]()
FAILED = pytest.StashKey[bool]()

# Name, what stands where nothing is given, help. Each is an option --xr-... and a line xr_... of the configuration.
OPTIONS = (
    ("app", "", "the application under test, with its arguments"),
    ("runtime", SIMULATOR, "simulator, active, or the file of a runtime's manifest"),
    ("start-limit", "30", "seconds until the application's session has to be in focus"),
    ("renderer", "", "what baselines of pictures call this machine's renderer"),
    ("artefacts", "xr-artefacts", "directory for what failed tests leave behind"),
    ("velmoor", "", "the command velmoor, if it is not in the path"),
)


def pytest_addoption(parser: pytest.Parser) -> None:
    group = parser.getgroup("velmoor", "tests of XR applications")
    for name, usual, text in OPTIONS:
        group.addoption(f"--xr-{name}", default=None, help=text)
        parser.addini(f"xr_{name.replace('-', '_')}", text, default=usual)
    group.addoption("--xr-update", action="store_true", help="write the baselines of pictures, and compare nothing")


def _setting(config: pytest.Config, name: str) -> str:
    given: Optional[str] = config.getoption(f"--xr-{name}")
    return given if given is not None else str(config.getini(f"xr_{name.replace('-', '_')}"))


@pytest.fixture
def xr_command(pytestconfig: pytest.Config) -> list[str]:
    """The application and its arguments. A conftest.py may have its own."""
    return shlex.split(_setting(pytestconfig, "app"))


@pytest.fixture
def xr_environment() -> dict[str, str]:
    """Variables that the application gets beside those of the environment. A conftest.py may have its own."""
    return {}


@pytest.fixture
def xr_app(
    request: pytest.FixtureRequest, xr_command: list[str], xr_environment: dict[str, str]
) -> Generator[Application, None, None]:
    """A fresh application, in a network of its own, whose session is in focus."""
    config, test = request.config, request.node
    if not xr_command:
        raise SetUpError("no application is named: --xr-app, or xr_app in the configuration")
    place = config.invocation_params.dir / _setting(config, "artefacts") / re.sub(r"[^A-Za-z0-9._-]+", "-", test.nodeid)
    shutil.rmtree(place, ignore_errors=True)
    path = pathlib.Path(str(test.fspath))
    application = Application(
        xr_command,
        runtime=_setting(config, "runtime"),
        artefacts=place,
        environment=xr_environment,
        velmoor=_setting(config, "velmoor") or None,
        renderer=_setting(config, "renderer") or None,
        baselines=path.parent / "baselines" / path.stem,
        update=config.getoption("--xr-update"),
    )
    test.stash[APPLICATION] = application
    application.start(float(_setting(config, "start-limit")))
    try:
        yield application
    finally:
        application.stop()
        if not test.stash.get(FAILED, False):
            shutil.rmtree(place, ignore_errors=True)


@pytest.fixture
def xr(xr_app: Application) -> Tools:
    """The tools of the application under test, as methods."""
    return xr_app.xr


@pytest.hookimpl(hookwrapper=True)  # type: ignore[misc]
def pytest_runtest_makereport(
    item: pytest.Item, call: pytest.CallInfo[None]
) -> Generator[None, Any, None]:
    outcome = yield
    report = outcome.get_result()
    application = item.stash.get(APPLICATION, None)
    if not report.failed or application is None:
        return
    item.stash[FAILED] = True
    if call.excinfo is not None and call.excinfo.errisinstance(SetUpError):
        # pytest calls what fails in a set-up an error, and not a failure.
        report.when = "setup"
    report.sections.append(("application's output", _end_of(application.output())))
    report.sections.append(("layer's log", _end_of(application.layer_log())))
    if application.last_picture:
        report.sections.append(("last picture", str(application.last_picture)))


def _end_of(text: str) -> str:
    return "\n".join(text.splitlines()[-LINES_TOLD:])
