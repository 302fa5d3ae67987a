// The extensions that real applications enable beside graphics: hands, the clock, the display's rate and its mask.
#include <gmock/gmock.h>

#include <cmath>
#include <ctime>
#include <limits>

#define XR_USE_TIMESPEC
#include <openxr/openxr_platform.h>

#include "tests/simulator/simulator_fixture.h"

namespace simulator_test {
namespace {

using testing::ElementsAre;

class SimulatorBesideFrames : public SimulatorTest {
 protected:
    std::vector<const char*> Extensions() const override {
        return {"XR_MND_headless",        "XR_EXT_conformance_automation", "XR_EXT_hand_tracking",
                "XR_KHR_visibility_mask", "XR_KHR_convert_timespec_time",  "XR_FB_display_refresh_rate"};
    }
};

class SimulatorHands : public SimulatorBesideFrames {
 protected:
    void SetUp() override {
        SimulatorBesideFrames::SetUp();
        session_ = MakeFocusedSession();
        stage_ = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_STAGE);
        locate_ = FunctionOf<PFN_xrLocateHandJointsEXT>("xrLocateHandJointsEXT");
    }
    XrResult Create(XrHandEXT hand, XrHandTrackerEXT& tracker, XrHandJointSetEXT set = XR_HAND_JOINT_SET_DEFAULT_EXT) {
        const XrHandTrackerCreateInfoEXT info = {XR_TYPE_HAND_TRACKER_CREATE_INFO_EXT, nullptr, hand, set};
        return FunctionOf<PFN_xrCreateHandTrackerEXT>("xrCreateHandTrackerEXT")(session_, &info, &tracker);
    }
    XrResult LocateHand(XrHandTrackerEXT tracker, XrTime time = 1, std::uint32_t count = XR_HAND_JOINT_COUNT_EXT) {
        const XrHandJointsLocateInfoEXT info = {XR_TYPE_HAND_JOINTS_LOCATE_INFO_EXT, nullptr, stage_, time};
        XrHandJointLocationsEXT located = {XR_TYPE_HAND_JOINT_LOCATIONS_EXT, nullptr, 7, count, joints_};
        const XrResult result = locate_(tracker, &info, &located);
        active_ = located.isActive;
        return result;
    }
    void Hold(const char* hand, const XrPosef& grip) {
        const XrPath top = Path(hand);
        EXPECT_EQ(SetInputDeviceActiveEXT(session_, Path(kTouchProfile), top, XR_TRUE), XR_SUCCESS);
        EXPECT_EQ(SetInputDeviceLocationEXT(session_, top, Path(std::string(hand) + "/input/grip/pose"), stage_, grip),
                  XR_SUCCESS);
    }
    const XrVector3f& Position(XrHandJointEXT joint) const { return joints_[joint].pose.position; }

    XrSession session_ = XR_NULL_HANDLE;
    XrSpace stage_ = XR_NULL_HANDLE;
    PFN_xrLocateHandJointsEXT locate_ = nullptr;
    XrHandJointLocationEXT joints_[XR_HAND_JOINT_COUNT_EXT] = {};
    XrBool32 active_ = 7;
};

TEST_F(SimulatorHands, FollowTheControllers) {
    XrHandTrackerEXT left = XR_NULL_HANDLE;
    XrHandTrackerEXT right = XR_NULL_HANDLE;
    ASSERT_EQ(Create(XR_HAND_LEFT_EXT, left), XR_SUCCESS);
    ASSERT_EQ(Create(XR_HAND_RIGHT_EXT, right), XR_SUCCESS);
    joints_[25].locationFlags = 0xF;
    EXPECT_EQ(LocateHand(left), XR_SUCCESS);
    EXPECT_EQ(active_, XrBool32{XR_FALSE});
    EXPECT_EQ(joints_[25].locationFlags, 0u) << "nothing is held";

    // Both held like torches, a metre and a half up: the grips' -z axes point at the ceiling, and their y axes at the
    // wearer, whose fingers point ahead.
    const float half = std::sqrt(0.5f);
    for (const bool is_left : {true, false}) {
        SCOPED_TRACE(is_left ? "left" : "right");
        Hold(is_left ? "/user/hand/left" : "/user/hand/right", {{half, 0, 0, half}, {1, 1.5f, 0}});
        ASSERT_EQ(LocateHand(is_left ? left : right), XR_SUCCESS);
        EXPECT_EQ(active_, XrBool32{XR_TRUE});
        const float outwards = is_left ? -1.0f : 1.0f;
        // The palms face each other, and the backs of the hands are outside.
        EXPECT_NEAR((Position(XR_HAND_JOINT_PALM_EXT).x - 1) * outwards, 0.03f, 1e-5);
        EXPECT_NEAR(Position(XR_HAND_JOINT_WRIST_EXT).z, 0.055f, 1e-5) << "behind";
        EXPECT_LT(Position(XR_HAND_JOINT_MIDDLE_TIP_EXT).z, -0.07f) << "ahead";
        EXPECT_LT((Position(XR_HAND_JOINT_MIDDLE_TIP_EXT).x - 1) * outwards, 0.0f) << "bent towards the palm";
        EXPECT_GT(Position(XR_HAND_JOINT_THUMB_TIP_EXT).y, Position(XR_HAND_JOINT_INDEX_PROXIMAL_EXT).y);
        EXPECT_GT(Position(XR_HAND_JOINT_INDEX_TIP_EXT).y, Position(XR_HAND_JOINT_LITTLE_TIP_EXT).y + 0.03f);
        for (const auto& joint : joints_) {
            EXPECT_EQ(joint.locationFlags, 0xFu);
            EXPECT_GT(joint.radius, 0.0f);
            const auto& [x, y, z, w] = joint.pose.orientation;
            EXPECT_NEAR(x * x + y * y + z * z + w * w, 1.0f, 1e-4);
        }
    }
}

TEST_F(SimulatorHands, AreCheckedAndGoWithTheirSession) {
    XrHandTrackerEXT tracker = XR_NULL_HANDLE;
    EXPECT_EQ(Create(static_cast<XrHandEXT>(3), tracker), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(Create(XR_HAND_LEFT_EXT, tracker, static_cast<XrHandJointSetEXT>(9)), XR_ERROR_VALIDATION_FAILURE);
    ASSERT_EQ(Create(XR_HAND_LEFT_EXT, tracker), XR_SUCCESS);
    EXPECT_EQ(LocateHand(tracker, 0), XR_ERROR_TIME_INVALID);
    EXPECT_EQ(LocateHand(tracker, 1, 25), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(LocateHand(XR_NULL_HANDLE), XR_ERROR_HANDLE_INVALID);
    auto hands = Typed<XrSystemHandTrackingPropertiesEXT>(XR_TYPE_SYSTEM_HAND_TRACKING_PROPERTIES_EXT);
    auto system = Typed<XrSystemProperties>(XR_TYPE_SYSTEM_PROPERTIES);
    system.next = &hands;
    EXPECT_EQ(GetSystemProperties(instance_, 0x51, &system), XR_SUCCESS);
    EXPECT_EQ(hands.supportsHandTracking, XrBool32{XR_TRUE});
    DestroySession(session_);
    EXPECT_EQ(FunctionOf<PFN_xrDestroyHandTrackerEXT>("xrDestroyHandTrackerEXT")(tracker), XR_ERROR_HANDLE_INVALID);
}

TEST_F(SimulatorBesideFrames, ClockIsTheMonotonicOne) {
    const auto to_time = FunctionOf<PFN_xrConvertTimespecTimeToTimeKHR>("xrConvertTimespecTimeToTimeKHR");
    const auto from_time = FunctionOf<PFN_xrConvertTimeToTimespecTimeKHR>("xrConvertTimeToTimespecTimeKHR");
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    XrTime time = 0;
    EXPECT_EQ(to_time(instance_, &now, &time), XR_SUCCESS);
    const XrTime shown = RunFrame(MakeFocusedSession()).predictedDisplayTime;
    EXPECT_GT(shown, time);
    EXPECT_LT(shown, time + 1'000'000'000);
    EXPECT_EQ(from_time(instance_, 3'000'000'007, &now), XR_SUCCESS);
    EXPECT_EQ(now.tv_sec, 3);
    EXPECT_EQ(now.tv_nsec, 7);
    EXPECT_EQ(from_time(instance_, 0, &now), XR_ERROR_TIME_INVALID);
    constexpr auto kLatest = std::numeric_limits<time_t>::max();
    for (const timespec& bad : {timespec{0, 0}, {-1, 5}, {1, -1}, {1, 1'000'000'000}, {kLatest, 0}}) {
        EXPECT_EQ(to_time(instance_, &bad, &time), XR_ERROR_TIME_INVALID) << bad.tv_sec << " " << bad.tv_nsec;
    }
}

TEST_F(SimulatorBesideFrames, DisplayHasTheRateThatWasAskedFor) {
    const XrSession session = MakeSession();
    float rates[2] = {};
    std::uint32_t count = 0;
    EXPECT_EQ(
        FunctionOf<PFN_xrEnumerateDisplayRefreshRatesFB>("xrEnumerateDisplayRefreshRatesFB")(session, 2, &count, rates),
        XR_SUCCESS);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(rates[0], 500.0f);
    const auto request = FunctionOf<PFN_xrRequestDisplayRefreshRateFB>("xrRequestDisplayRefreshRateFB");
    EXPECT_EQ(request(session, 500.0f), XR_SUCCESS);
    EXPECT_EQ(request(session, 0.0f), XR_SUCCESS);
    EXPECT_EQ(request(session, 90.0f), XR_ERROR_DISPLAY_REFRESH_RATE_UNSUPPORTED_FB);
    EXPECT_EQ(FunctionOf<PFN_xrGetDisplayRefreshRateFB>("xrGetDisplayRefreshRateFB")(session, rates + 1), XR_SUCCESS);
    EXPECT_EQ(rates[1], 500.0f);
}

TEST_F(SimulatorBesideFrames, NothingOfAViewIsHidden) {
    const XrSession session = MakeSession();
    XrVector2f vertices[4] = {};
    std::uint32_t indices[6] = {};
    XrVisibilityMaskKHR mask = {XR_TYPE_VISIBILITY_MASK_KHR, nullptr, 4, 9, vertices, 6, 9, indices};
    const auto ask = [&](XrVisibilityMaskTypeKHR type, std::uint32_t view = 1,
                         XrViewConfigurationType views = XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO) {
        return FunctionOf<PFN_xrGetVisibilityMaskKHR>("xrGetVisibilityMaskKHR")(session, views, view, type, &mask);
    };
    EXPECT_EQ(ask(XR_VISIBILITY_MASK_TYPE_HIDDEN_TRIANGLE_MESH_KHR), XR_SUCCESS);
    EXPECT_EQ(mask.vertexCountOutput + mask.indexCountOutput, 0u);
    EXPECT_EQ(ask(XR_VISIBILITY_MASK_TYPE_VISIBLE_TRIANGLE_MESH_KHR), XR_SUCCESS);
    EXPECT_EQ(mask.vertexCountOutput, 4u);
    EXPECT_THAT(indices, ElementsAre(0, 1, 2, 0, 2, 3));
    EXPECT_NEAR(vertices[2].x, 1.0f, 1e-4) << "45 degrees, one metre ahead";
    EXPECT_NEAR(vertices[0].y, -1.0f, 1e-4);
    EXPECT_EQ(ask(XR_VISIBILITY_MASK_TYPE_LINE_LOOP_KHR), XR_SUCCESS);
    EXPECT_EQ(mask.indexCountOutput, 4u);
    mask.indexCapacityInput = 3;
    EXPECT_EQ(ask(XR_VISIBILITY_MASK_TYPE_LINE_LOOP_KHR), XR_ERROR_SIZE_INSUFFICIENT);
    mask.indexCapacityInput = 0;
    EXPECT_EQ(ask(XR_VISIBILITY_MASK_TYPE_LINE_LOOP_KHR), XR_SUCCESS) << "as if both were 0";
    EXPECT_EQ(ask(XR_VISIBILITY_MASK_TYPE_LINE_LOOP_KHR, 2), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(ask(static_cast<XrVisibilityMaskTypeKHR>(9)), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(ask(XR_VISIBILITY_MASK_TYPE_LINE_LOOP_KHR, 0, XR_VIEW_CONFIGURATION_TYPE_PRIMARY_MONO),
              XR_ERROR_VIEW_CONFIGURATION_TYPE_UNSUPPORTED);
}

}  // namespace
}  // namespace simulator_test
