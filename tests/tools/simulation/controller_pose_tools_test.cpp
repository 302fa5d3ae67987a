#include "tests/tools/simulation/simulation_fixture.h"

namespace orvanic_xr {
namespace {

using mcp::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kSucceeded[] = R"({"success":true})";

class ControllerPoseTools : public SimulationTest {
 protected:
    std::string Get(const json& arguments) { return Call(make_openxr_get_controller_pose_tool_entry, arguments); }
    std::string Set(const json& arguments) { return Call(make_openxr_set_controller_pose_tool_entry, arguments); }
};

TEST_F(ControllerPoseTools, RefuseBadArgumentsBeforeTheSession) {
    ContextManager::instance().updateSessionState({});
    struct Case {
        json arguments;
        const char* answer;
    };
    const Case cases[] = {
        {json::array(), "Error: Missing or invalid 'hand' parameter. Must be 'left' or 'right'."},
        {{{"hand", 1}}, "Error: Missing or invalid 'hand' parameter. Must be 'left' or 'right'."},
        {{{"hand", "LEFT"}}, "Error: Invalid 'hand' parameter. Must be 'left' or 'right', got 'LEFT'."},
        {{{"hand", "left"}, {"pose_type", "palm"}},
         "Error: Invalid 'pose_type' parameter. Must be 'aim' or 'grip', got 'palm'."},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.answer);
        EXPECT_EQ(Get(row.arguments), row.answer);
        EXPECT_EQ(Set(row.arguments), row.answer);
    }
    EXPECT_EQ(Set({{"hand", "left"}, {"position", {1, 2, 3, 4}}}),
              "Error: At least one of 'position' or 'orientation' must be provided.");
    EXPECT_EQ(Get({{"hand", "left"}, {"pose_type", 5}}), "Error: No valid XR session is currently active.");
    EXPECT_EQ(Set({{"hand", "left"}, {"position", {1, 2, 3}}}),
              "Error: Error: No valid XR session is currently active.");
}

TEST_F(ControllerPoseTools, ReadTheRuntimeWhileTheUserHoldsTheController) {
    runtime_.place("space(orvanic_xr_left_hand_aim_pose)", {{0, 0, 0, 1}, {-0.5f, 1, 0}}, 0x3);
    const std::string answer = Get({{"hand", "left"}, {"pose_type", "aim"}, {"base_space", "local"}});
    EXPECT_THAT(answer, HasSubstr(R"("position":[-0.5,1.0,0.0])"));
    EXPECT_THAT(answer, HasSubstr(R"("position_tracked":false)"));
    EXPECT_THAT(answer, HasSubstr(R"("simulated":false)"));
    EXPECT_THAT(runtime_.take_calls(),
                ElementsAre("xrGetActionStatePose(session1, orvanic_xr_left_hand_aim_pose)",
                            "xrLocateSpace(space(orvanic_xr_left_hand_aim_pose), LOCAL, 1000000000)"));
    // A number from the runtime, a boolean from the mirror.
    for (const XrBool32 active : {XR_FALSE, XR_TRUE}) {
        runtime_.on("xrGetActionStatePose", [active](XrSession, const XrActionStateGetInfo*, XrActionStatePose* state) {
            state->isActive = active;
            return XR_SUCCESS;
        });
        EXPECT_THAT(Get({{"hand", "left"}}), HasSubstr(active ? R"("is_active":1,)" : R"("is_active":0,)"));
    }
    runtime_.answer("xrGetActionStatePose", XR_ERROR_ACTIONSET_NOT_ATTACHED);
    EXPECT_EQ(Get({{"hand", "right"}}), "Error: xrGetActionStatePose failed (error code: -46).");
}

TEST_F(ControllerPoseTools, ReadTheMirrorOnceSimulated) {
    Activate();
    context_->SetSimulatedControllerPose(kRightHand, kGripKind, {{0, 0, 0, 1}, {1, 2, 3}});
    EXPECT_EQ(Get({{"hand", "right"}, {"base_space", "stage"}}),
              R"({"pose":{"position":[1.0,2.0,3.0],"orientation":[0.0,0.0,0.0,1.0]},"flags":{"position_valid":true,)"
              R"("orientation_valid":true,"position_tracked":true,"orientation_tracked":true},"is_active":true,)"
              R"("simulated":true})");
    EXPECT_THAT(runtime_.take_calls(), IsEmpty()) << "STAGE is the mirror's own space";
    runtime_.place("STAGE", {{0, 0, 0, 1}, {0, 10, 0}});
    EXPECT_THAT(Get({{"hand", "right"}, {"base_space", "local"}}), HasSubstr("[1.0,12.0,3.0]"));
    runtime_.place("STAGE", {{0, 0, 0, 1}, {0, 10, 0}}, 0x1);
    EXPECT_THAT(Get({{"hand", "right"}, {"base_space", "local"}}), HasSubstr("[1.0,2.0,3.0]"));
    EXPECT_EQ(log_.lines("WARNING").back(),
              "WARNING openxr_get_controller_pose: could not transform simulated pose to base space; reporting "
              "STAGE-space pose");
    EXPECT_THAT(Get({{"hand", "left"}}), HasSubstr(R"("simulated":false)")) << "never written: the runtime answers";
}

TEST_F(ControllerPoseTools, MoveOneInputAtOnce) {
    Activate();
    runtime_.place("space(orvanic_xr_right_hand_aim_pose)", {{0, 0.6f, 0, 0.8f}, {1, 1, 1}});
    EXPECT_EQ(Set({{"hand", "right"}, {"pose_type", "aim"}, {"position", {0, 1, -1}}, {"base_space", "stage"}}),
              kSucceeded);
    EXPECT_EQ(Set({{"hand", "left"}, {"position", {0, 1, -1}}, {"orientation", {0, 0, 0, 1}}, {"base_space", "local"}}),
              kSucceeded);
    EXPECT_THAT(runtime_.calls("xrSetInputDeviceLocationEXT"),
                ElementsAre("xrSetInputDeviceLocationEXT(session1, /user/hand/right, "
                            "/user/hand/right/input/aim/pose, STAGE, [0 1 -1 | 0 0.6 0 0.8])",
                            "xrSetInputDeviceLocationEXT(session1, /user/hand/left, /user/hand/left/input/grip/pose, "
                            "LOCAL, [0 1 -1 | 0 0 0 1])"));
    EXPECT_FALSE(context_->GetSimulatedControllerPose(kRightHand, kGripKind).valid);
    runtime_.answer("xrSetInputDeviceLocationEXT", XR_ERROR_PATH_UNSUPPORTED);
    EXPECT_EQ(Set({{"hand", "left"}, {"position", {0, 1, -1}}}), "Error: Failed to set left controller grip pose.");
    EXPECT_THAT(log_.lines("WARNING").back(), HasSubstr("failed for /user/hand/left with error code: -22"));
}

TEST_F(ControllerPoseTools, MoveRelativeToWhereTheViewWas) {
    Activate();
    runtime_.place("VIEW", {{0, 1, 0, 0}, {0, 1.5f, 1}});  // turned round: ahead is +z
    EXPECT_EQ(Set({{"hand", "left"}, {"position", {0, 0, -1}}, {"base_space", "view"}}), kSucceeded);
    EXPECT_THAT(runtime_.calls("xrSetInputDeviceLocationEXT"), ElementsAre(HasSubstr("STAGE, [0 1.5 2 | 0 1 0 0]")));
    runtime_.place("VIEW", kIdentityPose, 0);
    EXPECT_EQ(Set({{"hand", "left"}, {"position", {0, 0, -1}}, {"base_space", "view"}, {"duration_seconds", 1}}),
              "Error: Cannot query current left controller pose for animation start.");
}

TEST_F(ControllerPoseTools, WalkUnderAKeyOfTheirOwn) {
    Activate();
    auto walk = std::async(std::launch::async, [&] {
        return Set({{"hand", "left"}, {"pose_type", "aim"}, {"position", {0, 1, -1}}, {"duration_seconds", 1e9}});
    });
    EXPECT_TRUE(WaitFor("Started animation for /user/hand/left/aim (duration=1000000000.000000s)"));
    PoseAnimationManager::instance().CancelAll("the test");
    EXPECT_EQ(walk.get(), R"({"success":true,"note":"Animation was superseded by a newer set_controller_pose call."})");
}

}  // namespace
}  // namespace orvanic_xr
