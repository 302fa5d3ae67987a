"""Runs an application with the layer for the length of a test."""

import os
import pathlib
import re
import socket
import subprocess
import time

from mcp_client import McpClient

PORT = 8720


def port_answers():
    try:
        socket.create_connection(("127.0.0.1", PORT), timeout=1).close()
        return True
    except OSError:
        return False


class Application:
    """
    The application's output and the layer's log end up in the directory `artefacts`.

    Where runtime and layer are is told by the environment, as for any OpenXR application: XR_RUNTIME_JSON and, if the
    layer is not installed where the loader looks, XR_API_LAYER_PATH.
    """

    def __init__(self, command, artefacts, stdin=subprocess.DEVNULL, layers=None, start_limit=30):
        """
        Starts `command` and waits until its server answers; `client` then talks to it. `stdin` may be subprocess.PIPE,
        for an application that ends when its input does. `layers` are named as in XR_ENABLE_API_LAYERS.
        """
        if port_answers():
            # Its tools would be tested in place of ours.
            raise RuntimeError(f"port {PORT} is in use: another application runs with the layer")
        self._artefacts = pathlib.Path(artefacts)
        self._artefacts.mkdir(parents=True, exist_ok=True)
        self._output = self._artefacts / "application.txt"
        environment = dict(
            os.environ,
            XR_ENABLE_API_LAYERS=layers or "XR_APILAYER_KESTX_velmoor",
            XDG_STATE_HOME=str(self._artefacts.resolve() / "state"),
        )
        with self._output.open("wb") as output:
            self._process = subprocess.Popen(
                command, env=environment, stdin=stdin, stdout=output, stderr=subprocess.STDOUT
            )
        try:
            self.wait_until(port_answers, start_limit, "its server answers")
            self.client = McpClient()
        except BaseException:
            self.stop()
            raise

    def output(self):
        """What the application and the layer printed so far."""
        return self._output.read_text(errors="replace")

    def wait_until(self, condition, limit, what):
        """Waits until condition() is true, and gives its value; fails early when the application ends."""
        deadline = time.monotonic() + limit
        while not (value := condition()):
            if self._process.poll() is not None:
                raise RuntimeError(f"the application ended with {self._process.returncode} before {what}")
            if time.monotonic() > deadline:
                raise TimeoutError(f"waited {limit} seconds in vain until {what}")
            time.sleep(0.05)
        return value

    def wait_for_output(self, pattern, limit=10):
        self.wait_until(lambda: re.search(pattern, self.output()), limit, f"it says '{pattern}'")

    def end(self, limit=15):
        """Asks the session to end and gives the application's exit code."""
        self.client.call("openxr_exit_session")
        self.client.close()
        if self._process.stdin:
            # It may read until its very end: exit() of glibc 2.41 waits for whoever does. Not earlier, for then it may
            # be the end of its input that has it end.
            self.wait_for_output("XR_SESSION_STATE_EXITING", limit)
            self._process.stdin.close()
        return self._process.wait(limit)

    def stop(self, limit=10):
        """Whatever happened: afterwards nothing runs."""
        if self._process.stdin:
            self._process.stdin.close()
        self._process.terminate()
        try:
            self._process.wait(limit)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
