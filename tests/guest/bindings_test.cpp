// The application's actions and the layer's, side by side: neither gets in the other's way.
#include "tests/guest/guest.h"

namespace guest_test {
namespace {

constexpr char kTouch[] = "oculus/touch_controller";
constexpr char kIndex[] = "valve/index_controller";
constexpr char kGamepad[] = "microsoft/xbox_controller";
constexpr char kPronto[] = "kest/pronto_controller_plus";
constexpr char kTrigger[] = "/user/hand/left/input/trigger/value";

class GuestBindings : public Guest {
 protected:
    XrAction MakeTrigger(XrActionSet set) { return MakeAction(set, "trigger", XR_ACTION_TYPE_FLOAT_INPUT); }

    // What the application sees of a trigger that an agent pulls.
    float Pull(XrActionSet set, XrAction trigger) {
        Ask("openxr_set_controller_input", {{"hand", "left"}, {"component", "Trigger"}, {"value", 0.5}});
        RunFrame({set});
        return Float(trigger, kLeft);
    }
};

class LayersHands : public GuestBindings, public testing::WithParamInterface<int> {};

// Whatever the application binds: controllers of another profile, the simulated one before it has a session, no hands.
TEST_P(LayersHands, FollowTheSimulation) {
    const XrActionSet set = MakeActionSet("play");
    const XrAction trigger = MakeTrigger(set);
    if (GetParam() == 0) {
        EXPECT_EQ(Suggest(kPronto, {{trigger, kTrigger}}), XR_SUCCESS);
    }
    CreateSession();
    if (GetParam() == 1) {
        EXPECT_EQ(Suggest(kTouch, {{trigger, kTrigger}}), XR_SUCCESS);
    }
    if (GetParam() == 2) {
        const XrAction jump = MakeAction(set, "jump", XR_ACTION_TYPE_BOOLEAN_INPUT, {});
        EXPECT_EQ(Suggest(kGamepad, {{jump, "/user/gamepad/input/a/click"}}), XR_SUCCESS);
    }
    ASSERT_EQ(Attach({set}), XR_SUCCESS);
    if (GetParam() == 0) {
        EXPECT_EQ(Pull(set, trigger), 0.5f);
    }
    Ask("openxr_set_controller_pose",
        {{"hand", "left"}, {"pose_type", "aim"}, {"position", {1, 1, 1}}, {"orientation", {0, 1, 0, 0}}});
    RunFrame({set});
    RunFrame({set});
    Ask("openxr_set_controller_pose", {{"hand", "left"}, {"pose_type", "aim"}, {"position", {2, 1, 1}}});
    const nlohmann::json pose = Ask("openxr_get_controller_pose", {{"hand", "left"}, {"pose_type", "aim"}}).at("pose");
    EXPECT_EQ(pose.dump(), R"({"orientation":[0.0,1.0,0.0,0.0],"position":[2.0,1.0,1.0]})");
}
INSTANTIATE_TEST_SUITE_P(GuestBindings, LayersHands, testing::Range(0, 3));

TEST_F(GuestBindings, LegalCallsStayLegalWithTheLayersAdditions) {
    CreateSession();
    EXPECT_EQ(Sync({}), XR_SUCCESS) << "nothing is attached";
    const XrActionSet set = MakeActionSet("play");
    const XrActionSet later = MakeActionSet("later");
    const XrAction trigger = MakeTrigger(set);
    const XrAction jump = MakeAction(set, "jump", XR_ACTION_TYPE_BOOLEAN_INPUT, {});
    ASSERT_EQ(Suggest(kTouch, {{trigger, kTrigger}}), XR_SUCCESS);
    EXPECT_EQ(Suggest(kGamepad, {{jump, "/user/gamepad/input/a/click"}}), XR_SUCCESS) << "a profile without hands";
    ASSERT_EQ(Attach({set}), XR_SUCCESS);
    EXPECT_EQ(Suggest(kTouch, {{MakeTrigger(later), kTrigger}}), XR_SUCCESS) << "of a set that is not attached";
    EXPECT_EQ(Pull(set, trigger), 0.5f);
}

TEST_F(GuestBindings, SimulatedSpacesKeepTheirOwnOffset) {
    CreateSession();
    const XrActionSet set = MakeActionSet("play");
    const XrAction hand = MakeAction(set, "hand", XR_ACTION_TYPE_POSE_INPUT);
    Suggest(kTouch, {{hand, "/user/hand/left/input/grip/pose"}});
    Attach({set});
    // Half a turn about Y and a quarter of a metre ahead.
    const XrSpace space = MakeActionSpace(hand, kLeft, {{0, 1, 0, 0}, {0, 0, -0.25f}});
    const XrSpace stage = MakeSpace(XR_REFERENCE_SPACE_TYPE_STAGE);
    Ask("openxr_set_controller_pose", {{"hand", "left"},
                                       {"base_space", "stage"},
                                       {"position", {1, 1, 1}},
                                       {"orientation", {0, 0.70710678, 0, 0.70710678}}});
    RunFrame({set});
    const XrPosef pose = Locate(space, stage);
    // Ahead is -X there.
    EXPECT_NEAR(pose.position.x, 0.75f, 1e-6);
    EXPECT_NEAR(pose.position.z, 1.0f, 1e-6);
    EXPECT_NEAR(pose.orientation.y, 0.70710678f, 1e-6);
    EXPECT_NEAR(pose.orientation.w, -0.70710678f, 1e-6);
}

// The simulator ends the process where a destroyed action is handed to it.
TEST_F(GuestBindings, DestroyedActionsAreNotMirrored) {
    CreateSession();
    const XrActionSet gone = MakeActionSet("gone");
    Suggest("khr/simple_controller", {{MakeTrigger(gone), "/user/hand/left/input/select/click"}});
    EXPECT_EQ(xrDestroyActionSet(gone), XR_SUCCESS);
    const XrActionSet set = MakeActionSet("play");
    const XrAction replaced = MakeTrigger(set);
    Suggest(kTouch, {{replaced, kTrigger}});
    EXPECT_EQ(xrDestroyAction(replaced), XR_SUCCESS);
    const XrAction trigger = MakeTrigger(set);
    Suggest(kIndex, {{trigger, kTrigger}});
    Attach({set});
    EXPECT_EQ(Pull(set, trigger), 0.5f);

    DestroySession();
    CreateSession();
    const XrActionSet next = MakeActionSet("next");
    const XrAction next_trigger = MakeTrigger(next);
    Suggest(kTouch, {{next_trigger, kTrigger}});
    Attach({next});
    EXPECT_EQ(Pull(next, next_trigger), 0.5f) << "the first session's are attached and would be refused";
}

TEST_F(GuestBindings, WhatOneInstanceKnewSaysNothingOfTheNext) {
    CreateSession();
    const XrActionSet knowing = MakeActionSet("play");
    Suggest(kPronto, {{MakeTrigger(knowing), kTrigger}});
    DestroyInstance();
    CreateInstance();
    CreateSession();
    const XrActionSet set = MakeActionSet("play");
    const XrAction trigger = MakeTrigger(set);
    Suggest(kTouch, {{trigger, kTrigger}});
    Attach({set});
    EXPECT_EQ(Pull(set, trigger), 0.5f);
}

}  // namespace
}  // namespace guest_test
