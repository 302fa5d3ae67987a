#include <chrono>
#include <future>

#include "mcp/thread_pool.h"
#include "tests/tools/simulation/simulation_fixture.h"
#include "tools/simulation/pose_moves.h"

namespace orvanic_xr {
namespace {

using mcp::json;
using testing::_;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kSucceeded[] = R"({"success":true})";

class HeadPoseTools : public SimulationTest {
 protected:
    std::string Get(const json& arguments) { return Call(make_openxr_get_head_pose_tool_entry, arguments); }
    std::string Set(const json& arguments) { return Call(make_openxr_set_head_pose_tool_entry, arguments); }
};

TEST_F(HeadPoseTools, TellThePoseAndItsFlags) {
    runtime_.place("VIEW", {{0, 0.5f, 0, 0.8660254f}, {1, 1.70006f, -0.00001f}}, 0x3);
    EXPECT_EQ(Get(json::array()), R"({"pose":{"position":[1.0,1.7001,0.0],"orientation":[0.0,0.5,0.0,0.866]},"flags":)"
                                  R"({"position_valid":true,"orientation_valid":true,"position_tracked":false,)"
                                  R"("orientation_tracked":false}})");
    EXPECT_THAT(runtime_.take_calls(), ElementsAre("xrLocateSpace(VIEW, LOCAL_FLOOR, 1000000000)"));
}

TEST_F(HeadPoseTools, RefuseToReadWhatIsNotThere) {
    EXPECT_EQ(Get({{"base_space", "Stage"}}),
              "Error: Invalid or unavailable base_space 'Stage'. Valid options: 'local', 'stage', 'local_floor', "
              "'view'.");
    runtime_.answer_once("xrLocateSpace", XR_ERROR_TIME_INVALID);
    EXPECT_EQ(Get({{"base_space", 5}}), "Error: xrLocateSpace failed (error code: -30).");
    context_->ConsumeFrameTime();
    EXPECT_EQ(Get({}), "Error: No frame timing data available. No frames have been rendered yet.");
    EXPECT_EQ(Get({{"session_handle", 0}}), "Error: Provided session handle is null.");
    ContextManager::instance().removeSessionContext(session_);
    EXPECT_EQ(Get({}), "Error: SessionContext is not valid.");
}

TEST_F(HeadPoseTools, MoveTheHeadAndCarryTheControllersAlong) {
    Activate();
    // The head turns a quarter to the left and goes one metre to the right; what was in front of it is now where
    // the new head looks, which is along -x.
    runtime_.place("VIEW", {{0, 0, 0, 1}, {0, 1.5f, 0}});
    runtime_.place("space(orvanic_xr_left_hand_aim_pose)", {{0, 0, 0, 1}, {0, 1.5f, -2}});
    runtime_.place("space(orvanic_xr_right_hand_aim_pose)", kIdentityPose, 0);
    EXPECT_EQ(Set({{"position", {1, 1.5, 0}}, {"orientation", {0, 1, 0, 1}}, {"base_space", "stage"}}), kSucceeded);
    // The quaternion is taken as it comes, twice as long as a unit one: nothing is normalised on the way.
    EXPECT_THAT(runtime_.calls("xrSetInputDeviceLocationEXT"),
                ElementsAre("xrSetInputDeviceLocationEXT(session1, /user/head, /user/head/input/view_kest/pose, STAGE, "
                            "[1 1.5 0 | 0 1 0 1])",
                            "xrSetInputDeviceLocationEXT(session1, /user/hand/left, /user/hand/left/input/aim/pose, "
                            "STAGE, [-3 1.5 0 | 0 1 0 1])"));
    EXPECT_FALSE(context_->GetSimulatedControllerPose(kLeftHand, kGripKind).valid) << "the grip stays behind";
}

TEST_F(HeadPoseTools, KeepWhatWasNotGiven) {
    Activate();
    runtime_.place("VIEW", {{0, 0.6f, 0, 0.8f}, {3, 1.5f, 4}});
    Set({{"position", {0, 2, 0}}, {"orientation", {1, 2, 3}}, {"base_space", "stage"}});
    EXPECT_THAT(runtime_.calls("xrSetInputDeviceLocationEXT").front(), HasSubstr("STAGE, [0 2 0 | 0 0.6 0 0.8]"));
    runtime_.take_calls();
    // With no pose known the rest is identity, the move is at once whatever the duration, and the hands stay.
    runtime_.place("VIEW", kIdentityPose, 0);
    EXPECT_EQ(Set({{"position", {0, 2, 0}}, {"duration_seconds", 9}, {"base_space", "stage"}}), kSucceeded);
    EXPECT_THAT(runtime_.calls("xrSetInputDeviceLocationEXT"), ElementsAre(HasSubstr("STAGE, [0 2 0 | 0 0 0 1])")));
    EXPECT_EQ(log_.lines("WARNING").back(),
              "WARNING openxr_set_head_pose: Could not query old head pose, controllers will not be moved with the "
              "head");
}

TEST_F(HeadPoseTools, RefuseToMoveInTheOrderOfTheirChecks) {
    const json position = json::array({0, 1, 0});
    EXPECT_EQ(Set({{"position", {1, 2}}}), "Error: At least one of 'position' or 'orientation' must be provided.");
    EXPECT_EQ(Set({{"position", position}, {"session_handle", 0}}), "Error: Error: Provided session handle is null.");
    runtime_.answer("xrSetInputDeviceActiveEXT", XR_ERROR_FEATURE_UNSUPPORTED);
    EXPECT_EQ(Set({{"position", position}, {"base_space", "no"}}),
              "Error: Failed to activate conformance automation for /user/head. Error code: -8");
    runtime_.behave("xrSetInputDeviceActiveEXT");
    EXPECT_EQ(Set({{"position", position}, {"base_space", "no"}}),
              "Error: Invalid or unavailable base_space 'no'. Valid options: 'local', 'stage', 'local_floor', 'view'.");
    EXPECT_TRUE(context_->conformance_automation_active) << "activation comes before the look at the space";
    EXPECT_THROW(Set({{"position", {0, "1", 0}}}), json::type_error);
    runtime_.answer("xrSetInputDeviceLocationEXT", XR_ERROR_PATH_UNSUPPORTED);
    EXPECT_EQ(Set({{"position", position}}), "Error: Failed to set head pose.");
    EXPECT_EQ(log_.lines("ERROR").back(), "ERROR openxr_set_head_pose: Failed to set head pose.");
    EXPECT_EQ(log_.lines("WARNING").back(),
              "WARNING openxr_set_head_pose: xrSetInputDeviceLocationEXT failed for /user/head with error code: -22");
}

TEST_F(HeadPoseTools, MoveRelativeToWhereTheViewWas) {
    Activate();
    runtime_.place("VIEW", {{0, 1, 0, 0}, {0, 1.5f, 1}});  // turned round: ahead is +z
    runtime_.place("space(orvanic_xr_left_hand_aim_pose)", {{0, 0, 0, 1}, {0, 1, 1}});
    json ahead = {{"position", {0, 0, -1}}, {"base_space", "view"}};
    EXPECT_EQ(Set(ahead), kSucceeded);
    EXPECT_THAT(runtime_.calls("xrSetInputDeviceLocationEXT"),
                ElementsAre(HasSubstr("STAGE, [0 1.5 2 | 0 1 0 0]"), HasSubstr("STAGE, [0 1 2 | 0 0 0 1]"), _));
    runtime_.take_calls();
    // Nobody knows where the view is: at once, and nothing but the head, as from any other unknown place.
    runtime_.place("VIEW", kIdentityPose, 0);
    ahead["duration_seconds"] = 9;
    EXPECT_EQ(Set(ahead), kSucceeded);
    EXPECT_THAT(runtime_.calls("xrSetInputDeviceLocationEXT"), ElementsAre(HasSubstr("VIEW, [0 0 -1 | 0 0 0 1]")));
}

TEST_F(HeadPoseTools, DoNotWaitForAWalkThatBeginsAfterTheSession) {
    context_->End();
    const json content = play_pose_animation(*context_, {}, "a_tool", "head", "set_head_pose");
    EXPECT_EQ(content.at(0).at("text"), "Error: SessionContext is not valid.");
}

TEST_F(HeadPoseTools, SayWhenAWalkIsSupersededOrFails) {
    Activate();
    // 1e308 seconds: the wait ends with the animation, not with the clock.
    std::string answer;
    mcp::thread_pool pool(1);
    auto superseded = pool.enqueue([&] {
        answer = Set({{"position", {2, 1.5, 0}}, {"duration_seconds", 1e308}, {"base_space", "stage"}});
    });
    EXPECT_TRUE(WaitFor("Started animation for /user/head"));
    EXPECT_EQ(pool.enqueue([] {}).wait_for(std::chrono::seconds(3)), std::future_status::ready)
        << "the only worker serves nobody meanwhile";
    PoseAnimationManager::instance().CancelAll("the test");
    superseded.wait();
    EXPECT_EQ(answer, R"({"success":true,"note":"Animation was superseded by a newer set_head_pose call."})");
    runtime_.answer("xrSetInputDeviceLocationEXT", XR_ERROR_RUNTIME_FAILURE);
    log_.take();
    auto failed = std::async(std::launch::async, [&] {
        return Set({{"position", {2, 1.5, 0}}, {"duration_seconds", 60}});
    });
    EXPECT_TRUE(WaitFor("Started animation for /user/head"));
    PoseAnimationManager::instance().Tick();
    EXPECT_EQ(failed.get(), "Error: Animation failed while transitioning head pose.");
}

}  // namespace
}  // namespace orvanic_xr
