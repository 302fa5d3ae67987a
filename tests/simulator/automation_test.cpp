// Devices that are worked by calls: what they refuse, and what an application's actions and spaces make of them.
#include <gmock/gmock.h>

#include <cmath>

#include "tests/simulator/simulator_fixture.h"

namespace simulator_test {
namespace {

constexpr char kLeft[] = "/user/hand/left";
constexpr char kRight[] = "/user/hand/right";
constexpr char kHead[] = "/user/head";
constexpr char kHeadProfile[] = "/interaction_profiles/kest/head_kestx2";

class SimulatorAutomation : public SimulatorTest {
 protected:
    void SetUp() override {
        SimulatorTest::SetUp();
        session_ = MakeFocusedSession();
        stage_ = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_STAGE);
        set_ = MakeActionSet("play");
    }

    // The actions of the set are bound so, and a device is active at the left hand.
    void Play(std::initializer_list<std::pair<XrAction, const char*>> bindings, const char* profile = kProntoProfile) {
        EXPECT_EQ(Suggest(profile, bindings), XR_SUCCESS);
        EXPECT_EQ(Attach(session_, {set_}), XR_SUCCESS);
        EXPECT_EQ(Activate(kProntoProfile, kLeft), XR_SUCCESS);
    }
    void SyncSet() { EXPECT_EQ(Sync(session_, {set_}), XR_SUCCESS); }
    XrResult Activate(const char* profile, const char* top, XrBool32 active = XR_TRUE) {
        return SetInputDeviceActiveEXT(session_, Path(profile), Path(top), active);
    }
    XrResult SetFloat(const char* top, const char* source, float value) {
        return SetInputDeviceStateFloatEXT(session_, Path(top), Path(std::string(top) + "/" + source), value);
    }
    XrResult SetBool(const char* top, const char* source, XrBool32 value) {
        return SetInputDeviceStateBoolEXT(session_, Path(top), Path(std::string(top) + "/" + source), value);
    }
    XrResult SetVector(const char* top, const char* source, XrVector2f value) {
        return SetInputDeviceStateVector2fEXT(session_, Path(top), Path(std::string(top) + "/" + source), value);
    }
    XrResult Place(const char* top, const char* source, XrSpace base, const XrPosef& pose) {
        return SetInputDeviceLocationEXT(session_, Path(top), Path(std::string(top) + "/" + source), base, pose);
    }
    std::string ProfileOf(const char* top) {
        auto state = Typed<XrInteractionProfileState>(XR_TYPE_INTERACTION_PROFILE_STATE);
        EXPECT_EQ(GetCurrentInteractionProfile(session_, Path(top), &state), XR_SUCCESS);
        return state.interactionProfile == XR_NULL_PATH ? "" : Text(state.interactionProfile);
    }
    bool ProfileChangeIsTold() {
        while (const auto event = NextEvent()) {
            if (event->type == XR_TYPE_EVENT_DATA_INTERACTION_PROFILE_CHANGED) return true;
        }
        return false;
    }
    XrActionStateFloat Float(XrAction action, const char* subaction = nullptr) {
        return StateOf(GetActionStateFloat, XR_TYPE_ACTION_STATE_FLOAT, session_, action, subaction);
    }
    XrVector2f Vector(XrAction action) {
        return StateOf(GetActionStateVector2f, XR_TYPE_ACTION_STATE_VECTOR2F, session_, action).currentState;
    }

    XrSession session_ = XR_NULL_HANDLE;
    XrSpace stage_ = XR_NULL_HANDLE;
    XrActionSet set_ = XR_NULL_HANDLE;
};

TEST_F(SimulatorAutomation, SourcesAreThoseOfTheActiveDevice) {
    EXPECT_EQ(SetFloat(kLeft, "input/trigger/value", 1.0f), XR_ERROR_PATH_UNSUPPORTED) << "nothing is active yet";
    EXPECT_EQ(Activate(kProntoProfile, kHead), XR_ERROR_PATH_UNSUPPORTED);
    EXPECT_EQ(Activate(kHeadProfile, kLeft), XR_ERROR_PATH_UNSUPPORTED);
    EXPECT_EQ(Activate("/interaction_profiles/nobody/nothing", kLeft), XR_ERROR_PATH_UNSUPPORTED);
    ASSERT_EQ(Activate(kProntoProfile, kLeft), XR_SUCCESS);
    const struct {
        const char* name;
        XrResult result;
        XrResult expected;
    } rows[] = {
        {"trigger", SetFloat(kLeft, "input/trigger/value", 1.0f), XR_SUCCESS},
        {"trigger too far", SetFloat(kLeft, "input/trigger/value", 1.01f), XR_ERROR_VALIDATION_FAILURE},
        {"trigger of NaN", SetFloat(kLeft, "input/trigger/value", std::nanf("")), XR_ERROR_VALIDATION_FAILURE},
        {"axis both ways", SetFloat(kLeft, "input/thumbstick/x", -1.0f), XR_SUCCESS},
        {"button", SetBool(kLeft, "input/x/click", XR_TRUE), XR_SUCCESS},
        {"button of the other hand", SetBool(kLeft, "input/a/click", XR_TRUE), XR_ERROR_PATH_UNSUPPORTED},
        {"button that is neither", SetBool(kLeft, "input/x/click", 7), XR_ERROR_VALIDATION_FAILURE},
        {"stick", SetVector(kLeft, "input/thumbstick", {0.5f, -0.5f}), XR_SUCCESS},
        {"pose", Place(kLeft, "input/grip/pose", stage_, kIdentity), XR_SUCCESS},
        {"no pose", Place(kLeft, "input/grip/pose", stage_, {{0, 0, 0, 2}, {0, 0, 0}}), XR_ERROR_POSE_INVALID},
        {"no space", Place(kLeft, "input/grip/pose", XR_NULL_HANDLE, kIdentity), XR_ERROR_HANDLE_INVALID},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.result, row.expected);
    }
    EXPECT_EQ(Activate(kProntoProfile, kLeft, XR_FALSE), XR_SUCCESS);
    EXPECT_EQ(SetFloat(kLeft, "input/trigger/value", 1.0f), XR_ERROR_PATH_UNSUPPORTED);
}

TEST_F(SimulatorAutomation, ProfileIsSelectedAtTheNextSync) {
    const XrAction fire = MakeAction(set_, "fire", XR_ACTION_TYPE_FLOAT_INPUT);
    Play({{fire, "/user/hand/left/input/trigger/value"}});
    EXPECT_FALSE(ProfileChangeIsTold());
    EXPECT_EQ(ProfileOf(kLeft), "");
    SyncSet();
    EXPECT_TRUE(ProfileChangeIsTold());
    EXPECT_EQ(ProfileOf(kLeft), kProntoProfile);
    EXPECT_EQ(ProfileOf(kRight), "");
    Activate(kProntoProfile, kLeft, XR_FALSE);
    SyncSet();
    EXPECT_TRUE(ProfileChangeIsTold());
    EXPECT_EQ(ProfileOf(kLeft), "");

    Activate(kProntoProfile, kLeft);
    SyncSet();
    DestroySession(session_);
    EXPECT_FALSE(ProfileChangeIsTold()) << "of a session that is gone";
}

TEST_F(SimulatorAutomation, DeviceFeedsNothingThatWasNotSuggestedForItsProfile) {
    const XrAction fire = MakeAction(set_, "fire", XR_ACTION_TYPE_FLOAT_INPUT);
    const XrAction aim = MakeAction(set_, "aim", XR_ACTION_TYPE_POSE_INPUT);
    const XrAction other = MakeAction(set_, "other", XR_ACTION_TYPE_FLOAT_INPUT);
    Suggest(kTouchProfile, {{fire, "/user/hand/left/input/trigger/value"}, {aim, "/user/hand/left/input/aim/pose"}});
    Play({{other, "/user/hand/left/input/squeeze/value"}});
    SetFloat(kLeft, "input/trigger/value", 1.0f);
    SyncSet();
    EXPECT_EQ(Float(other).isActive, XrBool32{XR_TRUE});
    EXPECT_EQ(Float(fire).isActive, XrBool32{XR_FALSE});
    EXPECT_EQ(StateOf(GetActionStatePose, XR_TYPE_ACTION_STATE_POSE, session_, aim).isActive, XrBool32{XR_FALSE});
}

TEST_F(SimulatorAutomation, ValuesReachTheActionsAndStay) {
    const XrAction fire = MakeAction(set_, "fire", XR_ACTION_TYPE_FLOAT_INPUT, {kLeft, kRight});
    const XrAction shoot = MakeAction(set_, "shoot", XR_ACTION_TYPE_BOOLEAN_INPUT);
    const XrAction move = MakeAction(set_, "move", XR_ACTION_TYPE_VECTOR2F_INPUT);
    Play({{fire, "/user/hand/left/input/trigger/value"},
          {fire, "/user/hand/right/input/trigger/value"},
          {shoot, "/user/hand/right/input/trigger/value"},
          {move, "/user/hand/left/input/thumbstick"}});
    Activate(kProntoProfile, kRight);
    SetFloat(kRight, "input/trigger/value", 0.75f);
    SetFloat(kLeft, "input/thumbstick/x", -0.5f);
    EXPECT_EQ(Float(fire, kRight).isActive, XrBool32{XR_FALSE}) << "nothing changes before the sync";

    SyncSet();
    EXPECT_EQ(Float(fire, kRight).currentState, 0.75f);
    EXPECT_EQ(Float(fire, kRight).changedSinceLastSync, XrBool32{XR_FALSE}) << "it was not active before";
    EXPECT_EQ(Float(fire, kLeft).currentState, 0.0f);
    EXPECT_EQ(Float(fire, kLeft).isActive, XrBool32{XR_TRUE});
    EXPECT_EQ(Float(fire).currentState, 0.75f) << "without a hand, the one that is moved furthest counts";
    EXPECT_EQ(StateOf(GetActionStateBoolean, XR_TYPE_ACTION_STATE_BOOLEAN, session_, shoot).currentState,
              XrBool32{XR_TRUE});
    EXPECT_EQ(Vector(move).x, -0.5f);
    SetFloat(kRight, "input/trigger/value", 0.5f);
    SyncSet();
    EXPECT_EQ(Float(fire, kRight).changedSinceLastSync, XrBool32{XR_TRUE});
    const XrTime changed = Float(fire, kRight).lastChangeTime;

    Activate(kProntoProfile, kRight);
    SetFloat(kLeft, "input/thumbstick/y", 1.0f);
    SyncSet();
    EXPECT_EQ(Float(fire, kRight).currentState, 0.5f) << "switching on once more changes nothing";
    EXPECT_EQ(Float(fire, kRight).changedSinceLastSync, XrBool32{XR_FALSE});
    EXPECT_EQ(Float(fire, kRight).lastChangeTime, changed);
    EXPECT_EQ(Vector(move).x, -0.5f) << "one axis leaves the other alone";
    EXPECT_EQ(Vector(move).y, 1.0f);
    SetVector(kLeft, "input/thumbstick", {0.25f, -0.75f});
    SyncSet();
    EXPECT_EQ(Vector(move).x, 0.25f);
    EXPECT_EQ(Vector(move).y, -0.75f);

    EXPECT_EQ(Sync(session_, {}), XR_SUCCESS);
    EXPECT_EQ(Float(fire, kRight).isActive, XrBool32{XR_FALSE}) << "its set was not synced";
    SyncSet();
    EXPECT_EQ(RequestExitSession(session_), XR_SUCCESS);
    EXPECT_EQ(EndSession(session_), XR_SUCCESS);
    EXPECT_EQ(Float(fire, kRight).isActive, XrBool32{XR_FALSE}) << "the session does not run";
}

TEST_F(SimulatorAutomation, ActionSpacesFollowTheirDevice) {
    const XrAction aim = MakeAction(set_, "aim", XR_ACTION_TYPE_POSE_INPUT);
    const XrSpace space = MakeActionSpace(session_, aim);
    Play({{aim, "/user/hand/left/input/aim/pose"}});
    // Half a turn about y: what is ahead of the base lies behind in the world.
    const XrSpace turned = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_STAGE, {{0, 1, 0, 0}, {1, 0, 0}});
    EXPECT_EQ(Place(kLeft, "input/aim/pose", turned, {{0, 0, 0, 1}, {0, 1.2f, -0.4f}}), XR_SUCCESS);
    EXPECT_EQ(Locate(space, stage_).locationFlags, 0u) << "the action is not active before the sync";

    SyncSet();
    const XrSpaceLocation location = Locate(space, stage_);
    EXPECT_EQ(location.locationFlags, 0xFu);
    EXPECT_NEAR(location.pose.position.x, 1.0f, 1e-6);
    EXPECT_NEAR(location.pose.position.y, 1.2f, 1e-6);
    EXPECT_NEAR(location.pose.position.z, 0.4f, 1e-6);
    EXPECT_NEAR(std::fabs(location.pose.orientation.y), 1.0f, 1e-6);
    DestroySpace(turned);
    EXPECT_EQ(Locate(space, stage_).locationFlags, 0xFu) << "the place is kept in the world";

    Activate("/interaction_profiles/khr/simple_controller", kLeft);
    EXPECT_EQ(Locate(space, stage_).locationFlags, 0u) << "another device has taken its place";
    Activate(kProntoProfile, kLeft);
    SyncSet();
    EXPECT_EQ(StateOf(GetActionStatePose, XR_TYPE_ACTION_STATE_POSE, session_, aim).isActive, XrBool32{XR_TRUE});
    EXPECT_EQ(Locate(space, stage_).locationFlags, 0u) << "active, but without a place";
}

TEST_F(SimulatorAutomation, HeadMovesWhereItIsTold) {
    const XrSpace view = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_VIEW);
    const XrSpace local = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_LOCAL);
    EXPECT_EQ(Locate(view, stage_).locationFlags, 0xFu);
    Activate(kHeadProfile, kHead);
    EXPECT_EQ(Locate(view, stage_).locationFlags, 0xFu);
    EXPECT_NEAR(Locate(view, stage_).pose.position.z, 0.5f, 0.02f) << "it stays where it is until it is placed";
    EXPECT_EQ(Place(kHead, "input/view_kest/pose", local, {{0, 0, 0, 1}, {0, 0, -2}}), XR_SUCCESS);
    const XrSpaceLocation location = Locate(view, stage_);
    EXPECT_EQ(location.locationFlags, 0xFu);
    EXPECT_NEAR(location.pose.position.y, 1.6f, 1e-6);
    EXPECT_NEAR(location.pose.position.z, -1.5f, 1e-6);
    Activate(kHeadProfile, kHead, XR_FALSE);
    EXPECT_NEAR(Locate(view, stage_).pose.position.z, 0.5f, 0.02f) << "and sways again by itself";
    EXPECT_EQ(Activate("/interaction_profiles/htc/vive_pro", kHead), XR_SUCCESS);
    EXPECT_EQ(Locate(view, stage_).locationFlags, 0xFu) << "its buttons are simulated, not its place";
}

}  // namespace
}  // namespace simulator_test
