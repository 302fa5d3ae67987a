#include "layer/space_hooks.h"

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/verbose.h"
#include "layer/action_hooks.h"
#include "tests/layer/hook_fixture.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr float kHalfRoot = 0.70710678f;
constexpr XrPosef kElsewhere = {{0, 0, 0, 1}, {9, 9, 9}};

std::vector<float> Numbers(const XrPosef& pose) {
    return {pose.position.x,    pose.position.y,    pose.position.z,   pose.orientation.x,
            pose.orientation.y, pose.orientation.z, pose.orientation.w};
}

class SpaceHooks : public HookFixture {
 protected:
    XrSpace MakeSpace(XrSession session, XrAction action, const char* subaction_path) {
        const XrActionSpaceCreateInfo info = {XR_TYPE_ACTION_SPACE_CREATE_INFO,
                                              nullptr,
                                              action,
                                              subaction_path ? runtime_.path(subaction_path) : XR_NULL_PATH,
                                              {{0, 0, 0, 1}, {0, 0, 0}}};
        XrSpace space = XR_NULL_HANDLE;
        OrvanicLayerXrCreateActionSpace(session, &info, &space);
        return space;
    }
    XrSpaceLocation Locate(XrSpace space) {
        XrSpaceLocation location = {XR_TYPE_SPACE_LOCATION, nullptr, 0, {}};
        EXPECT_EQ(OrvanicLayerXrLocateSpace(space, base_, 77, &location), XR_SUCCESS);
        return location;
    }

    // A session under automation in which the left hand's grip is simulated, and the application's space of it.
    void SimulateLeftGrip() {
        session_ = OpenSession();
        hand_ = MakeAction("hand");
        ActionMaps::instance().AddPoseKinds(hand_, {true, false});
        space_ = MakeSpace(session_, hand_, "/user/hand/left");
        Context(session_).conformance_automation_active = true;
        Context(session_).SetSimulatedControllerPose(kLeftHand, kGripKind, {{0, 0, 0, 1}, {1, 2, 3}});
        runtime_.place("space(hand, /user/hand/left)", kElsewhere, XR_SPACE_LOCATION_POSITION_VALID_BIT);
        runtime_.take_calls();
        log_.take();
    }

    XrSession session_ = XR_NULL_HANDLE;
    XrAction hand_ = XR_NULL_HANDLE;
    XrSpace space_ = XR_NULL_HANDLE;
    const XrSpace base_ = HandleFromValue<XrSpace>(0xBA5E);
};

constexpr const char* kForwarded = "xrLocateSpace(space(hand, /user/hand/left), 0xba5e, 77)";
constexpr const char* kStageLocated = "xrLocateSpace(STAGE, 0xba5e, 77)";

TEST_F(SpaceHooks, CreatedActionSpacesAreKnownWithTheirHand) {
    const XrSession session = OpenSession();
    const XrAction hand = MakeAction("hand");
    const struct {
        const char* path;
        std::int32_t hand;
        std::string text;
    } kRows[] = {
        {"/user/hand/left", 0, "/user/hand/left hand=0"},
        {"/user/hand/right", 1, "/user/hand/right hand=1"},
        {"/user/gamepad", -1, "/user/gamepad hand=-1"},
        {nullptr, -1, "<null> hand=-1"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.text);
        const XrSpace space = MakeSpace(session, hand, row.path);
        const auto found = ActionMaps::instance().FindSpace(space, false);
        ASSERT_TRUE(found);
        EXPECT_EQ(found->action, hand);
        EXPECT_EQ(found->hand, row.hand);
        const std::vector<std::string> lines = log_.take();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_THAT(lines[0], testing::StartsWith("DEBUG [inputdiag] CreateActionSpace space=0x300"));
        EXPECT_THAT(lines[0], testing::EndsWith(" action=0x5005 subactionPath=" + row.text));
    }
}

TEST_F(SpaceHooks, SimulatedPoseIsLocatedThroughTheStage) {
    SimulateLeftGrip();
    // A quarter turn about Y, then one about X.
    runtime_.place("STAGE", {{0, kHalfRoot, 0, kHalfRoot}, {1, 0, 0}},
                   XR_SPACE_LOCATION_ORIENTATION_VALID_BIT | XR_SPACE_LOCATION_POSITION_VALID_BIT);
    Context(session_).SetSimulatedControllerPose(kLeftHand, kGripKind, {{kHalfRoot, 0, 0, kHalfRoot}, {2, 3, -1}});
    const XrSpaceLocation location = Locate(space_);
    EXPECT_THAT(Numbers(location.pose),
                testing::Pointwise(testing::FloatNear(1e-6f), {0.0f, 3.0f, -2.0f, 0.5f, 0.5f, -0.5f, 0.5f}));
    EXPECT_EQ(location.locationFlags, 0xFu);
    EXPECT_THAT(runtime_.take_calls(), ElementsAre(kStageLocated));
}

TEST_F(SpaceHooks, PoseOfTheActionsOwnKindComesFirst) {
    SimulateLeftGrip();
    Context(session_).SetSimulatedControllerPose(kLeftHand, kAimKind, {{0, 0, 0, 1}, {4, 5, 6}});
    Context(session_).SetSimulatedControllerPose(kRightHand, kAimKind, {{0, 0, 0, 1}, {7, 8, 9}});
    const XrAction unbound = MakeAction("unbound");
    const struct {
        const char* what;
        XrAction action;
        const char* hand;
        float x;
    } kRows[] = {
        {"grip", hand_, "/user/hand/left", 1},
        {"no known kind: aim", unbound, "/user/hand/left", 4},
        {"grip, of which only the aim is recorded", hand_, "/user/hand/right", 7},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(Locate(MakeSpace(session_, row.action, row.hand)).pose.position.x, row.x);
    }
}

TEST_F(SpaceHooks, LocateIsForwardedWhereTheSimulationHasNoSay) {
    const auto place = [&](XrSpace space, XrSpaceLocationFlags flags) {
        runtime_.place(runtime_.name_of(HandleValue(space)), kElsewhere, flags);
    };
    const auto place_stage = [&](XrSpaceLocationFlags flags) { place(Context(session_).stageSpace, flags); };
    const struct {
        const char* what;
        std::function<void()> change;
        bool is_stage_located;
    } kRows[] = {
        {"automation off", [&] { Context(session_).conformance_automation_active = false; }, false},
        {"no current session", [] { ContextManager::instance().updateSessionState({}); }, false},
        {"no stage space", [&] { Context(session_).stageSpace = XR_NULL_HANDLE; }, false},
        {"space forgotten", [&] { ActionMaps::instance().ForgetSpace(space_); }, false},
        {"no stage", [&] { runtime_.answer_once("xrLocateSpace", XR_ERROR_TIME_INVALID); }, true},
        {"stage without an orientation", [&] { place_stage(XR_SPACE_LOCATION_POSITION_VALID_BIT); }, true},
        {"stage without a position", [&] { place_stage(XR_SPACE_LOCATION_ORIENTATION_VALID_BIT); }, true},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.what);
        SimulateLeftGrip();
        place(space_, XR_SPACE_LOCATION_POSITION_VALID_BIT);
        row.change();
        const XrSpaceLocation location = Locate(space_);
        EXPECT_EQ(Numbers(location.pose), Numbers(kElsewhere));
        EXPECT_EQ(location.locationFlags, XR_SPACE_LOCATION_POSITION_VALID_BIT);
        EXPECT_THAT(runtime_.take_calls(), SizeIs(row.is_stage_located ? 2 : 1));
    }
}

TEST_F(SpaceHooks, LocateIsForwardedWhereNoPoseOfTheHandIsRecordedOrThereIsNoHand) {
    SimulateLeftGrip();
    for (const char* path : {"/user/hand/right", "/user/gamepad", static_cast<const char*>(nullptr)}) {
        const XrSpace space = MakeSpace(session_, hand_, path);
        runtime_.take_calls();
        Locate(space);
        EXPECT_THAT(runtime_.take_calls(),
                    ElementsAre("xrLocateSpace(" + runtime_.name_of(HandleValue(space)) + ", 0xba5e, 77)"));
    }
}

TEST_F(SpaceHooks, NullLocationIsTheNextLayersBusiness) {
    SimulateLeftGrip();
    runtime_.answer("xrLocateSpace", XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(OrvanicLayerXrLocateSpace(space_, base_, 77, nullptr), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_THAT(runtime_.take_calls(), ElementsAre(kForwarded));
}

TEST_F(SpaceHooks, FirstLocateOfAnActionSpaceIsToldOnceWhenVerbose) {
    SimulateLeftGrip();
    const auto locate_lines = [&] {
        Locate(space_);
        return log_.take();
    };
    {
        ScopedVerboseAnswer verbose(false);
        EXPECT_THAT(locate_lines(), IsEmpty());
    }
    ScopedVerboseAnswer verbose(true);
    EXPECT_THAT(locate_lines(),
                ElementsAre(testing::AllOf(testing::StartsWith("DEBUG [inputdiag] LocateSpace app pose space=0x300"),
                                           testing::EndsWith(" action=0x5005 hand=0 grip=1"))));
    EXPECT_THAT(locate_lines(), IsEmpty());
}

TEST_F(SpaceHooks, PoseActionUnderAutomationIsActive) {
    SimulateLeftGrip();
    const XrAction other = MakeAction("other");
    const auto is_active = [&](XrAction action) {
        const XrActionStateGetInfo info = {XR_TYPE_ACTION_STATE_GET_INFO, nullptr, action, XR_NULL_PATH};
        XrActionStatePose state = {XR_TYPE_ACTION_STATE_POSE, nullptr, XR_FALSE};
        OrvanicLayerXrGetActionStatePose(session_, &info, &state);
        return state.isActive == XR_TRUE;
    };
    EXPECT_TRUE(is_active(hand_));
    EXPECT_FALSE(is_active(other)) << "an action without a space";
    runtime_.answer("xrGetActionStatePose", XR_ERROR_ACTIONSET_NOT_ATTACHED);
    EXPECT_FALSE(is_active(hand_)) << "the call failed";
    runtime_.behave("xrGetActionStatePose");
    Context(session_).conformance_automation_active = false;
    EXPECT_FALSE(is_active(hand_)) << "automation is off";
    runtime_.on("xrGetActionStatePose", [](XrSession, const XrActionStateGetInfo*, XrActionStatePose* state) {
        state->isActive = XR_TRUE;
        return XR_SUCCESS;
    });
    EXPECT_TRUE(is_active(other)) << "the runtime's own word";
}

TEST_F(SpaceHooks, LocateAndStateMeetTheApplicationsOtherThreads) {
    SimulateLeftGrip();
    std::atomic<bool> done = false;
    std::thread frame_thread([&] {
        const XrActionStateGetInfo info = {XR_TYPE_ACTION_STATE_GET_INFO, nullptr, hand_, XR_NULL_PATH};
        XrActionStatePose state = {XR_TYPE_ACTION_STATE_POSE, nullptr, XR_FALSE};
        while (!done) {
            Locate(space_);
            OrvanicLayerXrGetActionStatePose(session_, &info, &state);
        }
    });
    for (int i = 0; i < 200; ++i) {
        OrvanicLayerXrDestroySpace(MakeSpace(session_, hand_, "/user/hand/right"));
        Context(session_).conformance_automation_active = i % 2 == 0;
        Context(session_).SetSimulatedControllerPose(kLeftHand, kGripKind, {{0, 0, 0, 1}, {0, 0, 1.0f}});
        if (i % 50 == 0) OrvanicLayerXrDestroyAction(hand_);
    }
    done = true;
    frame_thread.join();
}

TEST_F(SpaceHooks, ActionStatesAreToldWhenTheyChange) {
    const XrSession session = OpenSession();
    const XrAction fire = MakeAction("fire");
    const XrActionStateGetInfo info = {XR_TYPE_ACTION_STATE_GET_INFO, nullptr, fire, XR_NULL_PATH};
    XrActionStateFloat next_float = {XR_TYPE_ACTION_STATE_FLOAT, nullptr, 0.25f, XR_TRUE, 0, XR_TRUE};
    XrActionStateBoolean next_boolean = {XR_TYPE_ACTION_STATE_BOOLEAN, nullptr, XR_TRUE, XR_FALSE, 0, XR_TRUE};
    runtime_.on("xrGetActionStateFloat", [&](XrSession, const XrActionStateGetInfo*, XrActionStateFloat* state) {
        *state = next_float;
        return XR_SUCCESS;
    });
    runtime_.on("xrGetActionStateBoolean", [&](XrSession, const XrActionStateGetInfo*, XrActionStateBoolean* state) {
        *state = next_boolean;
        return XR_SUCCESS;
    });
    const auto lines = [&] {
        XrActionStateFloat float_state{};
        XrActionStateBoolean boolean_state{};
        EXPECT_EQ(OrvanicLayerXrGetActionStateFloat(session, &info, &float_state), XR_SUCCESS);
        EXPECT_EQ(OrvanicLayerXrGetActionStateBoolean(session, &info, &boolean_state), XR_SUCCESS);
        return log_.take();
    };
    EXPECT_THAT(lines(), ElementsAre("DEBUG [inputdiag] float action=0x5005 cur=0.250000 active=1 changed=1",
                                     "DEBUG [inputdiag] bool action=0x5005 cur=1 active=1 changed=0"));
    next_float.changedSinceLastSync = XR_FALSE;
    EXPECT_THAT(lines(), IsEmpty());
    next_float.isActive = next_boolean.currentState = XR_FALSE;
    EXPECT_THAT(lines(), ElementsAre("DEBUG [inputdiag] float action=0x5005 cur=0.250000 active=0 changed=0",
                                     "DEBUG [inputdiag] bool action=0x5005 cur=0 active=1 changed=0"));
}

TEST_F(SpaceHooks, DestroyedSpacesAndActionsAreForgottenWhateverTheRuntimeSays) {
    SimulateLeftGrip();
    const XrSpace second = MakeSpace(session_, hand_, "/user/hand/right");
    runtime_.take_calls();
    runtime_.answer("xrDestroySpace", XR_ERROR_HANDLE_INVALID);
    EXPECT_EQ(OrvanicLayerXrDestroySpace(space_), XR_ERROR_HANDLE_INVALID);
    EXPECT_FALSE(ActionMaps::instance().FindSpace(space_, false));
    EXPECT_TRUE(ActionMaps::instance().FindSpace(second, false)->isGrip);
    EXPECT_EQ(OrvanicLayerXrDestroyAction(hand_), XR_SUCCESS);
    EXPECT_FALSE(ActionMaps::instance().FindSpace(second, false));
    EXPECT_FALSE(ActionMaps::instance().HadSpaceOf(hand_));
    EXPECT_THAT(runtime_.take_calls(),
                ElementsAre("xrDestroySpace(space(hand, /user/hand/left))", "xrDestroyAction(hand)"));
    ActionMaps::instance().AddSpace(second, {hand_, kRightHand});
    EXPECT_FALSE(ActionMaps::instance().FindSpace(second, false)->isGrip) << "the kinds went with the action";
}

}  // namespace
}  // namespace orvanic_xr
