#!/usr/bin/env python3
"""Prints docs/tools.md as the server of a running demo tells it: ./run docs keeps it, a test compares it.

    tools_page.py VELMOOR      the command, whose own tools it lists

Every declaration comes from tools/list, and every answer from a call. What an agent should know before it calls stands
in a table below, and is tried where a call can show it. What differs from run to run is left out.
The session is asked to end by the last call.
"""

import json
import re
import struct
import subprocess
import sys
import time

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

# What an agent should know before it calls, by tool. Where a call can show it, the function is given `call` and has to
# come out true; it runs before the example, and leaves nothing behind that an example would show.
KNOW = {
    "openxr_get_instance_info": [
        (
            "The enabled extensions are those that went down to the runtime: the layer added what its tools need.",
            lambda call: "XR_EXT_conformance_automation"
            in call("openxr_get_instance_info", include_enabled_extensions=True)["enabled_extensions"],
        ),
    ],
    "openxr_get_session_info": [
        (
            "Tools that take a `session_handle` use this session if none is given. A handle of an earlier session is "
            "refused.",
            lambda call: "pose"
            in call(
                "openxr_get_head_pose",
                session_handle=call("openxr_get_session_info")["session"]["handle"],
            ),
        ),
        "The state is the last one that the application polled.",
    ],
    "openxr_get_system_info": [
        "The record is made when a session is created, and kept after the session has ended.",
    ],
    "openxr_get_frame_info": [
        "The record is of the last frame that the runtime took, and is kept after the session has ended: compare "
        "its time with the present one.",
        (
            "The history holds the last 30 frames.",
            lambda call: len(call("openxr_get_frame_info", include_history=True)["history"]) <= 30,
        ),
    ],
    "openxr_get_active_interaction_profile": [
        "When the simulation takes over, the profile changes with the application's next `xrSyncActions`, not "
        "with the call that took over.",
    ],
    "openxr_set_head_pose": [
        "The first move or press of a session takes head and both controllers over: they stay where they were, "
        "and no longer follow the user until the session ends. Both poses of a controller start as its aim pose.",
        "Call it after the application's first frame. Before that nothing can be located: the move is instant "
        "whatever its duration, and what is not given becomes identity.",
        (
            "The aim poses of the controllers move along with the head. The grip poses stay behind.",
            lambda call: head_carries_aim_and_not_grip(call),
        ),
        (
            "Relative to `view` the position is a step from where the head is: [0, 0, -1] goes one metre ahead.",
            lambda call: steps_ahead(call),
        ),
        "Orientations are not normalised: send unit quaternions.",
        "The application sees an instant move in its next frame. A running animation of the head overwrites the "
        "move then.",
        "The `note` that a newer call superseded an animation is also the answer when the session ends, or when "
        "another animation times out. The log names the cause.",
    ],
    "openxr_set_controller_pose": [
        (
            "`grip` and `aim` are two poses: setting one leaves the other where it is. Set both to move a controller.",
            lambda call: aim_and_grip_are_apart(call),
        ),
        "A later move of the head moves the aim pose again.",
        "With a duration it is refused where the present pose can't be located; an instant move is not.",
    ],
    "openxr_set_controller_input": [
        "An input keeps its value until another call changes it, or `auto_release` sets it to 0.",
        "With `auto_release` the answer comes at once, before the release.",
        "The application reads inputs once a frame: a hold that is shorter than a frame may never be seen. 0.1 s "
        "is enough at 30 frames a second.",
        "A thumbstick has two axes, and a call sets one of them.",
    ],
    "openxr_get_head_pose": [
        "The head is located for the display time of the application's latest frame.",
        "Look at `flags` first: an answer without a valid pose is no error.",
    ],
    "openxr_get_controller_pose": [
        (
            "`is_active` is a number while the user holds the controller, and a boolean once it is simulated.",
            lambda call: call("openxr_get_controller_pose", hand="left")["is_active"] is True,
        ),
        "Once simulated, the pose is the one that was last asked for, even if the runtime refused it.",
    ],
    "openxr_capture_composited_image": [
        "The picture is of the latest frame that was composited. After a move it may still show the frame before: "
        "wait for a frame or two.",
        "A pending permission is also the answer while no session runs. The log tells which it is.",
    ],
    "openxr_list_spatial_entities": [
        (
            "Sizes are along an entity's own axes, which the orientation of `center` turns: the height of a box is not "
            "always along +y of the base space.",
            lambda call: all(
                "orientation" in box["center"] and "width" in box["size"]
                for entity in call("openxr_list_spatial_entities")["entities"]
                for box in (entity["bounding_box_2d"], entity["bounding_box_3d"])
                if box
            ),
        ),
        "The room is read once a session. A name belongs to that reading: the number in it may differ in another "
        "session.",
        "A query in progress is also the answer when the query could not start, or when the application did not "
        "enable the scene extensions. The log tells which it is.",
    ],
    "openxr_convert_pose_between_spaces": [
        (
            "Without position and orientation it answers where the origin of the source space is.",
            lambda call: call("openxr_convert_pose_between_spaces", source_space="view")["output_pose"]
            == call("openxr_get_head_pose", base_space="stage")["pose"],
        ),
        "The spaces are located now: do not keep a conversion that involves `view`.",
    ],
    "convert_openxr_pose_to_unity": [
        (
            "The conversion is its own inverse: both tools compute the same.",
            lambda call: call("convert_openxr_pose_to_unity", position=[1, 2, 3])
            == call("convert_unity_pose_to_openxr", position=[1, 2, 3]),
        ),
    ],
    "convert_unity_pose_to_openxr": [
        "Unity's world origin is not necessarily that of `local` or `stage`: ask the application.",
    ],
    "math_calc": [
        (
            "A power is `**`, not `^`.",
            lambda call: not call("math_calc", expression="2^3")["success"]
            and call("math_calc", expression="2**3")["result"] == 8,
        ),
        ("Angles are in radians.", lambda call: call("math_calc", expression="sin(pi/2)")["result"] == 1),
        (
            "The result is rounded to four decimals: scale small values up.",
            lambda call: call("math_calc", expression="0.00001")["result"] == 0
            and call("math_calc", expression="0.00001 * 10**5")["result"] == 1,
        ),
    ],
    "math_add": [
        (
            "A vector has three components; two are refused.",
            lambda call: call("math_add", a=[1, 2], b=[3, 4]).startswith("Error: "),
        ),
    ],
    "math_sub": [
        (
            "From `a` to `b` is `b` minus `a`: give the target as `a`.",
            lambda call: call("math_sub", a=[2, 0, 0], b=[0, 0, 0])["result"] == [2, 0, 0],
        ),
    ],
    "math_mul": [
        (
            "Two vectors are multiplied component by component.",
            lambda call: call("math_mul", a=[1, 2, 3], b=[4, 5, 6])["result"] == [4, 10, 18],
        ),
    ],
    "math_div": [
        (
            "A division by zero is refused.",
            lambda call: call("math_div", a=1, b=0) == "Error: Division by zero",
        ),
    ],
    "math_dot": [
        (
            "It is the cosine of the angle only for vectors of length 1.",
            lambda call: call("math_dot", vector_a=[2, 0, 0], vector_b=[2, 0, 0])["result"] == 4,
        ),
    ],
    "math_cross": [
        (
            "The order matters: swapped vectors give the opposite direction.",
            lambda call: call("math_cross", vector_a=[0, 1, 0], vector_b=[1, 0, 0])["result"] == [0, 0, -1],
        ),
    ],
    "math_build_quat": [
        (
            "To look at a point, give the point minus the head's position. The length does not matter.",
            lambda call: call("math_build_quat", front_direction=[0, 0, -5])["quaternion"] == AHEAD,
        ),
        (
            "Straight up or down takes another `up_direction`.",
            lambda call: call("math_build_quat", front_direction=UP).startswith("Error: "),
        ),
    ],
    "math_decompose_quat": [
        (
            "The quaternion may have any length but zero.",
            lambda call: call("math_decompose_quat", quaternion=[0, 1, 0, 1])["front_direction"] == [-1, 0, 0],
        ),
    ],
    "math_multiply_quat": [
        (
            "The second rotation is applied first.",
            lambda call: call("math_multiply_quat", quaternion1=[0, 1, 0, 1], quaternion2=[1, 0, 0, 1])["result"]
            == [0.5, 0.5, -0.5, 0.5],
        ),
    ],
    "openxr_exit_session": [
        "It asks and does not wait: the session ends when the application takes part. The server goes with the "
        "instance.",
    ],
}


def position_of(call, tool, **arguments):
    return call(f"openxr_get_{tool}_pose", base_space="stage", **arguments)["pose"]["position"]


def head_carries_aim_and_not_grip(call):
    def where(kind):
        return position_of(call, "controller", hand="right", pose_type=kind)

    aim, grip = where("aim"), where("grip")
    call("openxr_set_head_pose", position=[1, 1.6, 0], base_space="stage")
    moved = where("aim") != aim and where("grip") == grip
    call("openxr_set_head_pose", position=UP, base_space="stage")
    return moved


def steps_ahead(call):
    call("openxr_set_head_pose", position=[0, 0, -1], base_space="view")
    there = position_of(call, "head") == [0, 1.6, -1]
    call("openxr_set_head_pose", position=UP, base_space="stage")
    return there


def aim_and_grip_are_apart(call):
    aim = position_of(call, "controller", hand="left", pose_type="aim")
    call("openxr_set_controller_pose", hand="left", position=[-0.3, 1, -0.3], base_space="stage")
    return position_of(call, "controller", hand="left", pose_type="aim") == aim


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

COMMAND = """
## Tools of the command

`velmoor mcp` and `velmoor serve` list these as well. They use the tools above. The `app_` tools but `app_list` are there
when an application stands behind `--`, and the `sim_` tools when it runs on the simulator ([simulator.md](simulator.md)).
Each parameter with a `?` may be left out. With several applications, each `xr_` tool also takes `app`, a program's name or
a pid.

| Tool | What it does | Parameters |
|---|---|---|
"""

EXAMPLES = """
```json
{"name": "xr_wait", "arguments": {"session_state": "FOCUSED", "frames": 30}}
{"name": "xr_wait", "arguments": {"device": "left", "near": [0.2, 1.2, -0.3], "within": 0.1, "base_space": "stage"}}
{"name": "xr_picture", "arguments": {"eye": "right", "crop": [0.25, 0.25, 0.75, 0.75], "format": "jpeg"}}
{"name": "xr_point_at", "arguments": {"pixel": [300, 512], "eye": "right", "duration_seconds": 0.5}}
{"name": "xr_move", "arguments": {"ahead": 0.5, "turn_left": 30}}
{"name": "xr_act", "arguments": {"steps": [{"tool": "xr_move", "arguments": {"ahead": 1}}, {"frames": 3}, {"at": 0.5, "tool": "openxr_set_controller_input", "arguments": {"hand": "right", "component": "A", "value": 1}}]}}
```
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


def known(call, name):
    """What to know of a tool, as a list. What a call shows to be otherwise ends the script."""
    lines = []
    for entry in KNOW[name]:
        text, is_so = (entry, None) if isinstance(entry, str) else entry
        if is_so and not is_so(call):
            raise SystemExit(f"scripts/tools_page.py: of {name} it does not hold: {text}")
        lines.append(f"- {text}\n")
    return "Before you call it:\n\n" + "".join(lines)


def section(tool, know, arguments, answer):
    hints = [text for name, text in HINTS.items() if tool["annotations"][name]]
    return "\n".join(
        [
            f"### {tool['name']}\n",
            paragraphs(tool["description"]) + "\n",
            f"*Hints: {'; '.join(hints)}.*\n",
            parameter_table(tool["inputSchema"]),
            know,
            "```\n" + fit(arguments) + "\n```\n",
            "answers\n",
            "```\n" + answer_text(answer) + "\n```\n",
        ]
    )


def tools_of_command(velmoor):
    """What the command lists with an application behind it. That is not started."""
    opening = {"protocolVersion": "2025-11-25", "capabilities": {}, "clientInfo": {"name": "tools_page", "version": "1"}}
    lines = "".join(
        json.dumps({"jsonrpc": "2.0", "id": number, "method": method, "params": params}) + "\n"
        for number, (method, params) in enumerate([("initialize", opening), ("tools/list", {})])
    )
    printed = subprocess.run([velmoor, "mcp", "--", "./build/my_app"], input=lines, capture_output=True, text=True, check=True)
    return json.loads(printed.stdout.splitlines()[1])["result"]["tools"]


def command_section(tools):
    rows = []
    for tool in tools:
        required = tool["inputSchema"].get("required", [])
        parameters = [
            f"`{name}`{'' if name in required else '?'}: {parameter.get('description', '')}"
            for name, parameter in tool["inputSchema"]["properties"].items()
            if name != "app"
        ]
        cells = [f"`{tool['name']}`", escaped(tool["description"]), escaped("<br>".join(parameters))]
        rows.append("| " + " | ".join(cells) + " |\n")
    return "".join(rows)


def page(client, velmoor):
    # The application's own tools have no annotations.
    tools = {tool["name"]: tool for tool in client.tools() if "annotations" in tool}
    for told in ({name for _, _, examples in FAMILIES for name in examples}, KNOW.keys()):
        if tools.keys() != told:
            names = ", ".join(sorted(tools.keys() ^ told))
            raise SystemExit(f"scripts/tools_page.py and the server differ over: {names}")
    common = [{name: tool["inputSchema"]["properties"][name] for name in COMMON} for tool in tools.values()]
    if any(one != common[0] for one in common):
        raise SystemExit("reason and sentiment are not the same in all tools")

    parts = [INTRODUCTION.format(sentiments=type_text(common[0]["sentiment"]), etc=ETC)]
    for family, _, examples in FAMILIES:
        parts.append(f"- [{family}](#{family.lower().replace(' ', '-')}): ")
        parts.append(", ".join(f"[`{name}`](#{name})" for name in examples) + "\n")
    parts.append("- [Tools of the command](#tools-of-the-command), beside these, for clients of `velmoor`\n")
    for family, word, examples in FAMILIES:
        parts.append(f"\n## {family}\n" + (f"\n{word}\n" if word else ""))
        for name, arguments in examples.items():
            know = known(client.call, name)
            parts.append("\n" + section(tools[name], know, arguments, client.call(name, **arguments)))
    own = [tool for tool in tools_of_command(velmoor) if re.match("(app|sim|xr)_", tool["name"])]
    parts.append(COMMAND + command_section(own) + EXAMPLES)
    return "".join(parts)


def main():
    with connect() as client:
        set_the_stage(client)
        sys.stdout.reconfigure(encoding="utf-8")
        sys.stdout.write(page(client, sys.argv[1]))


if __name__ == "__main__":
    main()
