#include "tools/simulation/conformance_automation.h"

#include <chrono>
#include <future>
#include <thread>

#include "tests/tools/simulation/simulation_fixture.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

constexpr XrPosef kHead = {{0, 0, 0, 1}, {0, 1.5f, 0}};
constexpr XrPosef kLeft = {{0, 0, 0, 1}, {-0.25f, 1, -0.5f}};
constexpr XrPosef kRight = {{0, 0, 0, 1}, {0.25f, 1, -0.5f}};

using Activation = SimulationTest;

TEST_F(Activation, TakesASnapshotActivatesAndWritesItBackInOrder) {
    runtime_.place("VIEW", kHead);
    runtime_.place("space(orvanic_xr_left_hand_aim_pose)", kLeft);
    runtime_.place("space(orvanic_xr_right_hand_aim_pose)", kRight);
    EXPECT_TRUE(EnsureConformanceAutomationActive(*context_).ok);
    std::vector<std::string> calls = runtime_.take_calls();
    std::erase_if(calls, [](const std::string& call) { return call.starts_with("xrStringToPath"); });
    EXPECT_THAT(
        calls,
        ElementsAre("xrLocateSpace(VIEW, STAGE, 1000000000)",
                    "xrLocateSpace(space(orvanic_xr_left_hand_aim_pose), STAGE, 1000000000)",
                    "xrLocateSpace(space(orvanic_xr_right_hand_aim_pose), STAGE, 1000000000)",
                    "xrSetInputDeviceActiveEXT(session1, /interaction_profiles/kest/head_kestx2, /user/head, 1)",
                    "xrSetInputDeviceActiveEXT(session1, /interaction_profiles/kest/pronto_controller_plus, "
                    "/user/hand/left, 1)",
                    "xrSetInputDeviceActiveEXT(session1, /interaction_profiles/kest/pronto_controller_plus, "
                    "/user/hand/right, 1)",
                    "xrSetInputDeviceLocationEXT(session1, /user/head, /user/head/input/view_kest/pose, STAGE, "
                    "[0 1.5 0 | 0 0 0 1])",
                    "xrSetInputDeviceLocationEXT(session1, /user/hand/left, /user/hand/left/input/aim/pose, STAGE, "
                    "[-0.25 1 -0.5 | 0 0 0 1])",
                    "xrSetInputDeviceLocationEXT(session1, /user/hand/right, /user/hand/right/input/aim/pose, STAGE, "
                    "[0.25 1 -0.5 | 0 0 0 1])",
                    "xrSetInputDeviceLocationEXT(session1, /user/hand/left, /user/hand/left/input/grip/pose, STAGE, "
                    "[-0.25 1 -0.5 | 0 0 0 1])",
                    "xrSetInputDeviceLocationEXT(session1, /user/hand/right, /user/hand/right/input/grip/pose, STAGE, "
                    "[0.25 1 -0.5 | 0 0 0 1])"));
    EXPECT_TRUE(EnsureConformanceAutomationActive(*context_).ok);
    EXPECT_THAT(runtime_.take_calls(), IsEmpty()) << "active already: the runtime is left alone";
}

TEST_F(Activation, GivesRestingPosesToWhatCouldNotBeLocated) {
    context_->ConsumeFrameTime();  // and no period is known yet: no time to locate at
    EXPECT_TRUE(EnsureConformanceAutomationActive(*context_).ok);
    EXPECT_THAT(runtime_.calls("xrLocateSpace"), IsEmpty());
    EXPECT_THAT(runtime_.calls("xrSetInputDeviceLocationEXT"),
                ElementsAre(EndsWith("left/input/aim/pose, STAGE, [-0.2 1.2 -0.4 | 0 0 0 1])"),
                            EndsWith("right/input/aim/pose, STAGE, [0.2 1.2 -0.4 | 0 0 0 1])"),
                            EndsWith("left/input/grip/pose, STAGE, [-0.2 1.2 -0.4 | 0 0 0 1])"),
                            EndsWith("right/input/grip/pose, STAGE, [0.2 1.2 -0.4 | 0 0 0 1])")));
    EXPECT_THAT(log_.lines("WARNING"),
                ElementsAre("WARNING Cannot query head pose: no frame timing data",
                            "WARNING Cannot query left controller pose: no frame timing data",
                            "WARNING Cannot query right controller pose: no frame timing data",
                            "WARNING Skipping head pose restore: pose was not available before activation"));
}

TEST_F(Activation, ReportsARefusalAndTriesTheWholeSequenceAgain) {
    const char* const devices[] = {"/user/head", "/user/hand/left", "/user/hand/right"};
    for (int device = 0; device < 3; ++device) {
        SCOPED_TRACE(devices[device]);
        runtime_.answer_call("xrSetInputDeviceActiveEXT", device + 1, XR_ERROR_FEATURE_UNSUPPORTED);
        const OperationResult refused = EnsureConformanceAutomationActive(*context_);
        EXPECT_FALSE(refused.ok);
        EXPECT_EQ(refused.error,
                  std::string("Failed to activate conformance automation for ") + devices[device] + ". Error code: -8");
        EXPECT_FALSE(context_->conformance_automation_active);
        EXPECT_EQ(runtime_.calls("xrSetInputDeviceActiveEXT").size(), static_cast<std::size_t>(device) + 1);
        EXPECT_THAT(runtime_.calls("xrSetInputDeviceLocationEXT"), IsEmpty());
        runtime_.take_calls();
    }
    EXPECT_TRUE(EnsureConformanceAutomationActive(*context_).ok);
    EXPECT_EQ(runtime_.calls("xrSetInputDeviceActiveEXT").size(), 3u);
    EXPECT_EQ(runtime_.calls("xrSetInputDeviceLocationEXT").size(), 5u);
}

// The first is held on its way, the second comes in between and moves: nothing writes an older pose over that.
TEST_F(Activation, OfTwoFirstCallsTheSecondWaitsForTheFirst) {
    Gate gate = runtime_.block_call("xrSetInputDeviceActiveEXT", 2);
    std::thread first([&] { EXPECT_TRUE(EnsureConformanceAutomationActive(*context_).ok); });
    ASSERT_TRUE(gate.wait_for_caller());
    auto second = std::async(std::launch::async, [&] {
        EXPECT_TRUE(EnsureConformanceAutomationActive(*context_).ok);
        return SetDeviceLocation(*context_, kHeadTopLevelPath, kHeadPosePath, context_->stageSpace, kHead).ok;
    });
    EXPECT_EQ(second.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    gate.open();
    first.join();
    EXPECT_TRUE(second.get());
    EXPECT_EQ(runtime_.calls("xrSetInputDeviceActiveEXT").size(), 3u);
    EXPECT_THAT(runtime_.calls("xrSetInputDeviceLocationEXT").back(), EndsWith("STAGE, [0 1.5 0 | 0 0 0 1])"));
}

class Mirror : public SimulationTest {
 protected:
    XrVector3f Mirrored(int hand, int kind) {
        const SimulatedPoseSlot slot = context_->GetSimulatedControllerPose(hand, kind);
        EXPECT_TRUE(slot.valid);
        return slot.pose.position;
    }
};

constexpr char kRightAim[] = "/user/hand/right/input/aim/pose";

TEST_F(Mirror, KeepsWhatTheAgentSetEvenIfTheRuntimeRefusesIt) {
    runtime_.answer("xrSetInputDeviceLocationEXT", XR_ERROR_PATH_UNSUPPORTED);
    const OperationResult refused =
        SetDeviceLocation(*context_, "/user/hand/right", kRightAim, context_->stageSpace, kRight);
    EXPECT_EQ(refused.error, "xrSetInputDeviceLocationEXT failed for /user/hand/right with error code: -22");
    EXPECT_EQ(Mirrored(kRightHand, kAimKind).x, 0.25f);
    EXPECT_THAT(runtime_.calls("xrLocateSpace"), IsEmpty()) << "a STAGE pose is kept as it came";
    EXPECT_FALSE(context_->GetSimulatedControllerPose(kRightHand, kGripKind).valid);
    EXPECT_FALSE(context_->GetSimulatedControllerPose(kLeftHand, kAimKind).valid);
}

TEST_F(Mirror, IsInStageSpaceWhereThatCanBeTold) {
    // LOCAL stands a quarter turn to the left at (1, 0, 0) of STAGE: its -z points along -x.
    runtime_.place("LOCAL", {{0, 0.70710678f, 0, 0.70710678f}, {1, 0, 0}});
    SetDeviceLocation(*context_, "/user/hand/right", kRightAim, context_->localSpace, {{0, 0, 0, 1}, {0, 1, -2}});
    EXPECT_NEAR(Mirrored(kRightHand, kAimKind).x, -1.0f, 1e-6f);
    EXPECT_NEAR(Mirrored(kRightHand, kAimKind).y, 1.0f, 1e-6f);
    EXPECT_NEAR(Mirrored(kRightHand, kAimKind).z, 0.0f, 1e-6f);
    log_.take();
    runtime_.place("LOCAL", kIdentityPose, XR_SPACE_LOCATION_POSITION_VALID_BIT);
    SetDeviceLocation(*context_, "/user/hand/right", kRightAim, context_->localSpace, kRight);
    EXPECT_EQ(Mirrored(kRightHand, kAimKind).x, 0.25f);
    EXPECT_EQ(log_.take().front(),
              "WARNING RecordSimulatedControllerPose: could not transform pose to STAGE space; storing as-is");
}

}  // namespace
}  // namespace orvanic_xr
