// An application of OpenXR 1.1, whose calls of 1.1 pass by the layer: it is served as without.
#include "tests/guest/guest.h"

namespace guest_test {
namespace {

class GuestOf11 : public Guest {
    void SetUp() override { CreateInstance(XR_MAKE_VERSION(1, 1, 0)); }
};

TEST_F(GuestOf11, FindsSimulatedHandsByEitherWayOfLocating) {
    CreateSession();
    const XrActionSet set = MakeActionSet("play");
    const XrAction hand = MakeAction(set, "hand", XR_ACTION_TYPE_POSE_INPUT);
    ASSERT_EQ(Suggest("oculus/touch_controller",
                      {{hand, "/user/hand/left/input/grip/pose"}, {hand, "/user/hand/left/input/grip_surface/pose"}}),
              XR_SUCCESS);
    ASSERT_EQ(Suggest("meta/touch_plus_controller", {{hand, "/user/hand/left/input/grip/pose"}}), XR_SUCCESS);
    ASSERT_EQ(Attach({set}), XR_SUCCESS);
    const XrSpace space = MakeActionSpace(hand, kLeft);
    const XrSpace floor = MakeSpace(XR_REFERENCE_SPACE_TYPE_LOCAL_FLOOR);
    Ask("openxr_set_controller_pose", {{"hand", "left"},
                                       {"pose_type", "grip"},
                                       {"base_space", "stage"},
                                       {"position", {1, 1, 1}},
                                       {"orientation", {0, 1, 0, 0}}});
    RunFrame({set});
    RunFrame({set});
    EXPECT_NEAR(Locate(space, floor).position.z, 0.5f, 1e-5);

    XrSpaceLocationData data = {};
    XrSpaceLocations locations = {XR_TYPE_SPACE_LOCATIONS, nullptr, 1, &data};
    const XrSpacesLocateInfo info = {XR_TYPE_SPACES_LOCATE_INFO, nullptr, floor, time_, 1, &space};
    PFN_xrVoidFunction locate_spaces = nullptr;
    ASSERT_EQ(xrGetInstanceProcAddr(instance_, "xrLocateSpaces", &locate_spaces), XR_SUCCESS);
    ASSERT_EQ(reinterpret_cast<PFN_xrLocateSpaces>(locate_spaces)(session_, &info, &locations), XR_SUCCESS);
    EXPECT_EQ(data.locationFlags, 0xFu);
    EXPECT_NEAR(data.pose.position.z, 0.5f, 1e-5);
    EXPECT_NEAR(data.pose.orientation.y, 1.0f, 1e-5);
    DestroySession();
}

}  // namespace
}  // namespace guest_test
