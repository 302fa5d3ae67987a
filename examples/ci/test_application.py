"""
An example of a test that plays an application as its user would. The demo stands in for the application under test:

    pytest --xr-app velmoor_demo test_application.py
    pytest --xr-app velmoor_demo -n 8 test_application.py     # eight at a time, each with an application of its own
"""

import pytest

AHEAD = [0, 0, 0, 1]
TO_THE_LEFT = [0, 0.7071, 0, 0.7071]


@pytest.fixture
def xr_environment():
    # Small pictures are quick to take and to compare.
    return {"VELMOOR_SIM_EYE_SIZE": "256x256"}


def place_head(xr, position, orientation):
    answer = xr.openxr_set_head_pose(position=position, orientation=orientation, base_space="stage")
    assert answer == {"success": True}
    xr.wait(frames=2)


def test_head_goes_where_it_is_told(xr):
    place_head(xr, [0.5, 1.7, 0.25], TO_THE_LEFT)
    pose = xr.openxr_get_head_pose(base_space="stage")["pose"]
    assert pose["position"] == pytest.approx([0.5, 1.7, 0.25], abs=1e-3)
    assert pose["orientation"] == pytest.approx(TO_THE_LEFT, abs=1e-3)


def test_user_sees_something_else_when_turning(xr):
    place_head(xr, [0, 1.6, 0], AHEAD)
    ahead = xr.picture("left")
    ahead.assert_not_blank()
    # With a baseline beside the test, this would be: ahead.assert_matches("ahead")
    place_head(xr, [0, 1.6, 0], TO_THE_LEFT)
    assert xr.picture("left").data != ahead.data


def test_application_feels_the_trigger(xr, xr_app):
    xr.openxr_set_controller_input(hand="right", component="Trigger", value=1, auto_release=True)
    xr.until(lambda: "right trigger pulled to 1.00" in xr_app.output())
    xr.until(lambda: "right trigger let go" in xr_app.output())


def test_room_has_a_table(xr):
    # Before the runtime has told the room, the answer is a text.
    room = xr.until(lambda: isinstance(answer := xr.openxr_list_spatial_entities(), dict) and answer)
    assert "TABLE" in [entity["semantic_label"] for entity in room["entities"]]


def test_score_counts_what_is_played(xr):
    """Tools of the application's own reach into its logic, and its frames decide when a step happens."""
    before = xr.read_score()["score"]
    steps = [{"at_ms": 0, "action": "add_score", "amount": 5}, {"at_ms": 100, "action": "add_score", "amount": 2}]
    played = xr.play_sequence(steps=steps)
    assert played["happened"][0]["frame"] < played["happened"][1]["frame"]
    assert xr.read_score()["score"] == before + 7


def test_application_ends_when_it_is_asked_to(xr_app):
    assert xr_app.end() == 0
