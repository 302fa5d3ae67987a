#!/usr/bin/env python3
"""
An example of a test that plays an application as its user would. Runs with python3 alone, or under pytest:

    APPLICATION="path/to/velmoor_demo" XR_RUNTIME_JSON=path/to/velmoor_simulator.json ./test_application.py

The demo stands in for the application under test. What the run leaves behind is in the directory that ARTEFACTS names.
"""

import os
import pathlib
import shlex
import struct
import sys
import unittest
import zlib

from application import Application

COMMAND = shlex.split(os.environ.get("APPLICATION", "velmoor_demo"))
ARTEFACTS = pathlib.Path(os.environ.get("ARTEFACTS", "artefacts"))

AHEAD = [0, 0, 0, 1]
TO_THE_LEFT = [0, 0.7071, 0, 0.7071]


def png_size(png):
    return struct.unpack(">II", png[16:24])


def is_blank(png):
    """Whether the picture has one colour, or hardly more."""
    compressed, place = b"", 8
    while place < len(png):
        (length,) = struct.unpack(">I", png[place : place + 4])
        if png[place + 4 : place + 8] == b"IDAT":
            compressed += png[place + 8 : place + 8 + length]
        place += 12 + length
    data = zlib.decompress(compressed)
    # Filtered rows hold differences, so that few kinds of bytes are left where nothing changes.
    return len(set(data)) < 16


class TestApplication(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.application = Application(COMMAND, ARTEFACTS)
        cls.addClassCleanup(cls.application.stop)
        cls.client = cls.application.client
        cls.application.wait_until(cls.has_focus, 20, "its session has the focus")

    @classmethod
    def tearDownClass(cls):
        code = cls.application.end()
        if code != 0:
            raise AssertionError(f"the application ended with {code}")

    @classmethod
    def has_focus(cls):
        # Before there is a session, the answer is a text that says so.
        info = cls.client.call("openxr_get_session_info")
        return isinstance(info, dict) and info["state"]["name"] == "XR_SESSION_STATE_FOCUSED"

    def room(self):
        # As above, until the runtime has told the room.
        answer = self.client.call("openxr_list_spatial_entities", base_space="stage")
        return answer if isinstance(answer, dict) else None

    def place_head(self, position, orientation):
        answer = self.client.call(
            "openxr_set_head_pose", position=position, orientation=orientation, base_space="stage"
        )
        self.assertEqual(answer, {"success": True})

    def take_picture(self, name):
        png = self.client.call("openxr_capture_composited_image", eye="left")
        self.assertIsInstance(png, bytes, png)
        (ARTEFACTS / f"{name}.png").write_bytes(png)
        return png

    def test_head_goes_where_it_is_told(self):
        self.place_head([0.5, 1.7, 0.25], TO_THE_LEFT)
        pose = self.client.call("openxr_get_head_pose", base_space="stage")["pose"]
        for expected, seen in zip([0.5, 1.7, 0.25] + TO_THE_LEFT, pose["position"] + pose["orientation"]):
            self.assertAlmostEqual(seen, expected, places=3)

    def test_user_sees_something_and_something_else_when_turning(self):
        self.place_head([0, 1.6, 0], AHEAD)
        ahead = self.take_picture("ahead")
        self.assertGreaterEqual(min(png_size(ahead)), 64)
        self.assertFalse(is_blank(ahead), "the picture is blank")
        self.place_head([0, 1.6, 0], TO_THE_LEFT)
        self.assertNotEqual(self.take_picture("left"), ahead)

    def test_application_feels_the_trigger(self):
        pulled = self.client.call(
            "openxr_set_controller_input", hand="right", component="Trigger", value=1, auto_release=True
        )
        self.assertEqual(pulled, {"success": True, "auto_release": True})
        self.application.wait_for_output("right trigger pulled to 1.00")
        self.application.wait_for_output("right trigger let go")

    def test_room_has_a_table(self):
        room = self.application.wait_until(self.room, 10, "the room is known")
        self.assertIn("TABLE", [entity["semantic_label"] for entity in room["entities"]])

    def test_score_counts_what_is_played(self):
        """Tools of the application's own reach into its logic, and its frames decide when a step happens."""
        before = self.client.call("read_score")["score"]
        steps = [{"at_ms": 0, "action": "add_score", "amount": 5}, {"at_ms": 100, "action": "add_score", "amount": 2}]
        played = self.client.call("play_sequence", steps=steps)
        self.assertLess(played["happened"][0]["frame"], played["happened"][1]["frame"])
        self.assertEqual(self.client.call("read_score")["score"], before + 7)


def main():
    outcome = unittest.main(exit=False, verbosity=2).result
    if not outcome.wasSuccessful():
        output = ARTEFACTS / "application.txt"
        if output.exists():
            print(f"\n--- the end of {output} ---", file=sys.stderr)
            print("\n".join(output.read_text(errors="replace").splitlines()[-40:]), file=sys.stderr)
        sys.exit(1)


if __name__ == "__main__":
    main()
