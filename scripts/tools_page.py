#!/usr/bin/env python3
"""Prints docs/tools.md as the server of a running demo tells it: ./run docs keeps it, a test compares it.

Every declaration comes from tools/list, and every answer from a call. What differs from run to run is left out.
The session is asked to end by the last call.
"""

import json
import pathlib
import re
import struct
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "examples" / "ci"))
from mcp_client import McpClient

LIMIT_SECONDS = 20
WIDTH = 100

UP = [0, 1.6, 0]
AHEAD = [0, 0, 0, 1]
LEFT = [0, 0.7071, 0, 0.7071]

# Each family with a word on it, and its tools with an example call. The calls are made in this order.
FAMILIES = [
    (
        "The application",
        "What application, session, device and frame the agent deals with.",
        {
            "openxr_get_instance_info": {"include_enabled_extensions": True},
            "openxr_get_session_info": {},
            "openxr_get_system_info": {},
            "openxr_get_frame_info": {},
            "openxr_get_active_interaction_profile": {"hand": "right"},
        },
    ),
    (
        "Moving and pressing",
        "The first of these calls takes head and controllers over from the user, until the session ends. With a "
        "duration the answer comes when the move is over.",
        {
            "openxr_set_head_pose": {"position": UP, "orientation": AHEAD, "base_space": "stage"},
            "openxr_set_controller_pose": {
                "hand": "right",
                "pose_type": "aim",
                "position": [0.3, 1.3, -0.5],
                "orientation": LEFT,
                "base_space": "stage",
                "duration_seconds": 0.5,
            },
            "openxr_set_controller_input": {
                "hand": "right",
                "component": "Trigger",
                "value": 1,
                "auto_release": True,
            },
        },
    ),
    (
        "Where head and hands are",
        "Asked after the calls above.",
        {
            "openxr_get_head_pose": {"base_space": "stage"},
            "openxr_get_controller_pose": {"hand": "right", "pose_type": "aim", "base_space": "stage"},
        },
    ),
    (
        "Seeing",
        "The picture that the user sees, and the things of the room.",
        {
            "openxr_capture_composited_image": {"eye": "left"},
            "openxr_list_spatial_entities": {"base_space": "stage"},
        },
    ),
    (
        "Converting poses",
        "From one space of the application to another, and to and from Unity.",
        {
            "openxr_convert_pose_between_spaces": {
                "source_space": "view",
                "target_space": "stage",
                "position": [0, 0, -1],
            },
            "convert_openxr_pose_to_unity": {"position": [1, 2, 3], "orientation": LEFT},
            "convert_unity_pose_to_openxr": {"position": [1, 2, -3], "orientation": [0, -0.7071, 0, 0.7071]},
        },
    ),
    (
        "Computing",
        "Expressions, vectors and rotations.",
        {
            "math_calc": {"expression": "sqrt(2**2 + 0.9**2 + 1**2)"},
            "math_add": {"a": [1, 2, 3], "b": [4, 5, 6]},
            "math_sub": {"a": [2, 0.7, -2], "b": [0, 1.6, -1]},
            "math_mul": {"a": [1, 2, 3], "b": 2},
            "math_div": {"a": [4, 10, 18], "b": [4, 5, 6]},
            "math_dot": {"vector_a": [1, 2, 3], "vector_b": [4, 5, 6]},
            "math_cross": {"vector_a": [1, 0, 0], "vector_b": [0, 1, 0]},
            "math_build_quat": {"front_direction": [2, -0.9, -1]},
            "math_decompose_quat": {"quaternion": LEFT},
            "math_multiply_quat": {"quaternion1": LEFT, "quaternion2": LEFT},
        },
    ),
    (
        "Leaving",
        "",
        {"openxr_exit_session": {}},
    ),
]

# What an answer holds under these names is another thing in each run.
VOLATILE = {"unix_timestamp", "iso8601", "XrTime", "time_in_seconds", "handle", "handle_hex"}
ETC = "…"
SHOWN_ENTITIES = 2

# Every tool of the layer takes these; the page tells them once.
COMMON = ("reason", "sentiment")

INTRODUCTION = """\
# The tools

<!-- Printed by scripts/tools_page.py: change that or the tools themselves, and run `./run docs`. -->

What an agent can ask of an application that runs with the layer. A client gets this list by `tools/list`; tools of the
application's own stand beside these, as [external-tools.md](external-tools.md) tells. Where the runtime lacks an
extension, the tools that need it are not in the list.

Every tool also takes two optional parameters, by which an agent may say why it acts and how it fares: `reason`, a
text, and `sentiment`, which is {sentiments}.

Poses are in metres, with +x to the right, +y up and -z ahead; orientations are quaternions x, y, z, w. Numbers in
answers are rounded to four decimals. What a tool refuses is an ordinary text, mostly beginning with `Error:`; only a
tool that broke down answers with `isError`.

The answers below were given by the demo on the simulator. `{etc}` stands for what differs from run to run, or for more
of the same.

"""


def wait_until(condition):
    deadline = time.monotonic() + LIMIT_SECONDS
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError("the application does not come up")
        time.sleep(0.05)


def connect():
    deadline = time.monotonic() + LIMIT_SECONDS
    while True:
        try:
            return McpClient()
        except ConnectionRefusedError:
            if time.monotonic() > deadline:
                raise
            time.sleep(0.05)


def holds(answer, *keys):
    """The value that the keys lead to; None where a tool answers that it is too early."""
    for key in keys:
        answer = answer.get(key) if isinstance(answer, dict) else None
    return answer


def set_the_stage(client):
    """Waits until frames go by, the room is known, and the simulated controllers feed the application."""
    wait_until(lambda: holds(client.call("openxr_get_session_info"), "state", "name") == "XR_SESSION_STATE_FOCUSED")
    wait_until(lambda: holds(client.call("openxr_list_spatial_entities"), "entity_count"))
    client.call("openxr_set_head_pose", position=UP, orientation=AHEAD, base_space="stage")
    wait_until(lambda: holds(client.call("openxr_get_active_interaction_profile"), "right", "profile"))
    wait_until(lambda: holds(client.call("openxr_get_frame_info"), "frame_end_info"))


class Etc:
    """What is left out of an answer."""


def without_volatile(value):
    if isinstance(value, dict):
        return {k: Etc if k in VOLATILE else without_volatile(v) for k, v in value.items()}
    return [without_volatile(item) for item in value] if isinstance(value, list) else value


def one_line(value):
    if value is Etc:
        return ETC
    if isinstance(value, dict):
        return "{" + ", ".join(f'"{k}": {one_line(v)}' for k, v in value.items()) + "}"
    if isinstance(value, list):
        return "[" + ", ".join(map(one_line, value)) + "]"
    return json.dumps(value, ensure_ascii=False)


def fit(value, indent=0, used=0):
    """The value as JSON over as few lines as its structure allows."""
    line = one_line(value)
    if not isinstance(value, (dict, list)) or not value or used + len(line) <= WIDTH:
        return line
    pairs = value.items() if isinstance(value, dict) else ((None, item) for item in value)
    lines = []
    for key, item in pairs:
        start = " " * (indent + 2) + (f'"{key}": ' if key is not None else "")
        lines.append(start + fit(item, indent + 2, len(start)))
    opening, closing = "{}" if isinstance(value, dict) else "[]"
    return opening + "\n" + ",\n".join(lines) + "\n" + " " * indent + closing


def answer_text(answer):
    if isinstance(answer, bytes):
        width, height = struct.unpack(">II", answer[16:24])
        return f"an image item: a PNG file of {width} by {height} pixels, as base64"
    if isinstance(answer, str):
        return answer
    answer = without_volatile(answer)
    if "entities" in answer:
        answer["entities"] = answer["entities"][:SHOWN_ENTITIES] + [Etc]
    return fit(answer)


def escaped(text):
    return text.replace("*", "\\*")


def paragraphs(description):
    """A description keeps its lines: those within a paragraph are broken by hand."""
    text = escaped(description.strip())
    return re.sub(r"(?<!\n)\n(?!\n|- )", "\\\n", text)


def type_text(schema):
    if "oneOf" in schema:
        return " or ".join(type_text(choice) for choice in schema["oneOf"])
    if "enum" in schema:
        return " or ".join(f'`"{value}"`' for value in schema["enum"])
    if schema["type"] != "array":
        return schema["type"]
    size = f"{schema['minItems']} " if "minItems" in schema else ""
    return f"array of {size}{schema['items']['type']}s"


def parameter_table(schema):
    rows = []
    for name, parameter in schema["properties"].items():
        if name not in COMMON:
            description, _, default = parameter["description"].partition("Default: ")
            cells = [
                f"`{name}`",
                type_text(parameter),
                "yes" if name in schema.get("required", []) else "",
                default.rstrip("."),
                escaped(description.strip()),
            ]
            rows.append("| " + " | ".join(cell.replace("|", "\\|") for cell in cells) + " |\n")
    if not rows:
        return "It takes no parameters of its own.\n"
    return "| Parameter | Type | Required | Default | What it is |\n|---|---|---|---|---|\n" + "".join(rows)


HINTS = {
    "readOnlyHint": "changes nothing",
    "destructiveHint": "may end or destroy something",
    "idempotentHint": "the same call again changes no more",
    "openWorldHint": "reaches outside the layer",
}


def section(tool, arguments, answer):
    hints = [text for name, text in HINTS.items() if tool["annotations"][name]]
    return "\n".join(
        [
            f"### {tool['name']}\n",
            paragraphs(tool["description"]) + "\n",
            f"*Hints: {'; '.join(hints)}.*\n",
            parameter_table(tool["inputSchema"]),
            "```\n" + fit(arguments) + "\n```\n",
            "answers\n",
            "```\n" + answer_text(answer) + "\n```\n",
        ]
    )


def page(client):
    # The application's own tools have no annotations.
    tools = {tool["name"]: tool for tool in client.tools() if "annotations" in tool}
    told = {name for _, _, examples in FAMILIES for name in examples}
    if tools.keys() != told:
        raise SystemExit(f"scripts/tools_page.py and the server differ over: {', '.join(sorted(tools.keys() ^ told))}")
    common = [{name: tool["inputSchema"]["properties"][name] for name in COMMON} for tool in tools.values()]
    if any(one != common[0] for one in common):
        raise SystemExit("reason and sentiment are not the same in all tools")

    parts = [INTRODUCTION.format(sentiments=type_text(common[0]["sentiment"]), etc=ETC)]
    for family, _, examples in FAMILIES:
        parts.append(f"- [{family}](#{family.lower().replace(' ', '-')}): ")
        parts.append(", ".join(f"[`{name}`](#{name})" for name in examples) + "\n")
    for family, word, examples in FAMILIES:
        parts.append(f"\n## {family}\n" + (f"\n{word}\n" if word else ""))
        for name, arguments in examples.items():
            parts.append("\n" + section(tools[name], arguments, client.call(name, **arguments)))
    return "".join(parts)


def main():
    with connect() as client:
        set_the_stage(client)
        sys.stdout.reconfigure(encoding="utf-8")
        sys.stdout.write(page(client))


if __name__ == "__main__":
    main()
