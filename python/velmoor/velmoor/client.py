"""A client of `velmoor mcp`, which it starts: one JSON message a line on the command's input and output.

The command is used, and not the layer's port, because it finds the application in a network of its own, tells it from
others by its process, and answers a call at once when the application ends in it.
"""

from __future__ import annotations

import itertools
import json
import queue
import subprocess
import threading
import time
from typing import Any, Mapping, Optional, Sequence

PROTOCOL_VERSION = "2025-11-25"

Json = Any


class SetUpError(Exception):
    """What a test stands on is not there: no command, no runtime, no application. No test has failed by it."""


class ApplicationEnded(SetUpError):
    """The application ended while it was needed."""


class ToolError(Exception):
    """A tool refused, or the server did."""


class Client:
    def __init__(self, command: Sequence[str], environment: Optional[Mapping[str, str]] = None, errors: Any = None):
        """Starts `command`, such as ["velmoor", "mcp"], and shakes hands. What it says of errors goes to `errors`."""
        try:
            self._process = subprocess.Popen(
                command, env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=errors
            )
        except OSError as error:
            raise SetUpError(f"{command[0]} can't be started: {error}") from error
        self._ids = itertools.count(1)
        self._lines: queue.Queue[Optional[bytes]] = queue.Queue()
        # Reading has no bound of its own.
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        client_info = {"name": "velmoor-python", "version": "1"}
        try:
            self.request(
                "initialize", {"protocolVersion": PROTOCOL_VERSION, "capabilities": {}, "clientInfo": client_info}
            )
            self._send({"jsonrpc": "2.0", "method": "notifications/initialized"})
        except BaseException:
            self.close()
            raise

    def tools(self) -> list[dict[str, Json]]:
        """The declarations of all tools."""
        tools: list[dict[str, Json]] = self.request("tools/list")["tools"]
        return tools

    def call(self, tool: str, arguments: Mapping[str, Json], timeout: float = 60) -> list[dict[str, Json]]:
        """The items of the tool's answer. Raises ToolError with the answer's text if the tool refuses."""
        result = self.request("tools/call", {"name": tool, "arguments": dict(arguments)}, timeout)
        items: list[dict[str, Json]] = result.get("content", [])
        if result.get("isError"):
            raise ToolError(f"{tool}: " + "\n".join(item.get("text", "") for item in items))
        return items

    def request(self, method: str, parameters: Optional[Mapping[str, Json]] = None, timeout: float = 60) -> Json:
        number = next(self._ids)
        deadline = time.monotonic() + timeout
        self._send({"jsonrpc": "2.0", "id": number, "method": method, "params": parameters or {}})
        while True:
            try:
                line = self._lines.get(timeout=max(0.0, deadline - time.monotonic()))
            except queue.Empty:
                raise TimeoutError(f"{method} got no answer in {timeout:g} seconds") from None
            if line is None:
                self._lines.put(None)  # for whoever asks next
                raise SetUpError(f"velmoor ended before it answered {method}")
            message = json.loads(line)
            # What comes without being asked for, and late answers to what nobody waits for, are passed over.
            if message.get("id") != number or "method" in message:
                continue
            if "error" in message:
                raise ToolError(f"{method}: {message['error'].get('message')}")
            return message["result"]

    def close(self, limit: float = 10) -> None:
        """Ends the command, and with it the application that it started."""
        try:
            if self._process.stdin:
                self._process.stdin.close()
        except OSError:
            pass  # it has ended
        try:
            self._process.wait(limit)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._reader.join(limit)
        if self._process.stdout:
            self._process.stdout.close()

    def _send(self, message: Mapping[str, Json]) -> None:
        assert self._process.stdin
        try:
            self._process.stdin.write(json.dumps(message).encode() + b"\n")
            self._process.stdin.flush()
        except (OSError, ValueError) as error:
            raise SetUpError(f"velmoor has ended: {error}") from error

    def _read(self) -> None:
        assert self._process.stdout
        for line in self._process.stdout:
            self._lines.put(line)
        self._lines.put(None)
