"""A Model Context Protocol client over HTTP and Server-Sent Events, with nothing but Python's standard library.

    with McpClient() as client:
        pose = client.call("openxr_get_head_pose", base_space="stage")["pose"]

Requests are posted; their answers come back on one event stream. One thread, one request at a time.
"""

import base64
import http.client
import itertools
import json
import time

PROTOCOL_VERSION = "2025-11-25"


class McpError(Exception):
    """The server refused a request, or a tool broke down. What a tool refuses is an ordinary answer."""


class McpClient:
    def __init__(self, host="127.0.0.1", port=8720, timeout=30):
        """Connects and shakes hands. No request takes longer than about `timeout` seconds."""
        self._address = (host, port)
        self._timeout = timeout
        self._ids = itertools.count(1)
        self._stream = http.client.HTTPConnection(host, port, timeout=timeout)
        try:
            self._stream.request("GET", "/sse", headers={"Accept": "text/event-stream"})
            self._events = self._read_events(self._stream.getresponse())
            self._path = next(data for event, data in self._events if event == "endpoint")
            client_info = {"name": "mcp_client.py", "version": "1.0"}
            self.server = self.request(
                "initialize",
                {"protocolVersion": PROTOCOL_VERSION, "capabilities": {}, "clientInfo": client_info},
            )
            self._post({"jsonrpc": "2.0", "method": "notifications/initialized"})
        except BaseException:
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self._stream.close()

    def tools(self):
        """The declarations of all tools."""
        return self.request("tools/list")["tools"]

    def call(self, tool, **arguments):
        """The tool's answer: JSON as Python values, a picture as the bytes of its PNG file, else the text."""
        result = self.request("tools/call", {"name": tool, "arguments": arguments})
        item = result["content"][0]
        if result.get("isError"):
            raise McpError(f"{tool} broke down: {item.get('text')}")
        if item["type"] == "image":
            return base64.b64decode(item["data"])
        try:
            return json.loads(item["text"])
        except ValueError:
            return item["text"]

    def request(self, method, params=None):
        number = next(self._ids)
        deadline = time.monotonic() + self._timeout
        self._post({"jsonrpc": "2.0", "id": number, "method": method, "params": params or {}})
        for event, data in self._events:
            message = json.loads(data) if event == "message" else {}
            if message.get("id") == number:
                if "error" in message:
                    raise McpError(f"{method} was refused: {message['error']}")
                return message["result"]
            # Heartbeats come every few seconds, so that this is reached even if the answer never comes.
            if time.monotonic() > deadline:
                raise TimeoutError(f"{method} got no answer in {self._timeout} seconds")
        raise ConnectionError(f"the event stream ended before {method} was answered")

    def _post(self, message):
        connection = http.client.HTTPConnection(*self._address, timeout=self._timeout)
        try:
            connection.request("POST", self._path, json.dumps(message), {"Content-Type": "application/json"})
            status = connection.getresponse().status
        finally:
            connection.close()
        if status != 202:
            raise McpError(f"the POST was answered with {status}")

    @staticmethod
    def _read_events(response):
        """Each event of the stream as its name and its data."""
        event, data = "", []
        for line in response:
            line = line.decode().rstrip("\r\n")
            field, _, value = line.partition(":")
            value = value.removeprefix(" ")
            if field == "event":
                event = value
            elif field == "data":
                data.append(value)
            elif not line:
                yield event, "\n".join(data)
                event, data = "", []
