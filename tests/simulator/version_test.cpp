// What an application gets that asks for OpenXR 1.1, and one that asks for 1.0 does not.
#include <gmock/gmock.h>

#include "tests/simulator/simulator_fixture.h"

namespace simulator_test {
namespace {

using testing::Contains;

class SimulatorVersion : public SimulatorTest {
 protected:
    XrVersion Version() const override { return version_; }
    std::vector<const char*> Extensions() const override {
        return {"XR_MND_headless", "XR_EXT_conformance_automation"};
    }

    // The instance anew.
    void AskFor(XrVersion version, const std::vector<const char*>& extensions) {
        DestroyInstance(instance_);
        version_ = version;
        ASSERT_EQ(TryCreateInstance(extensions, instance_), XR_SUCCESS);
    }
    std::vector<XrReferenceSpaceType> ReferenceSpaces() {
        std::vector<XrReferenceSpaceType> types(8);
        std::uint32_t count = 0;
        EXPECT_EQ(EnumerateReferenceSpaces(MakeSession(), 8, &count, types.data()), XR_SUCCESS);
        types.resize(count);
        return types;
    }
    bool HasPath(const char* profile, const char* path) {
        const std::string name = "act" + std::to_string(++actions_);
        const XrAction action = MakeAction(MakeActionSet(name), name, XR_ACTION_TYPE_POSE_INPUT);
        const XrResult result = Suggest(profile, {{action, path}});
        EXPECT_THAT(result, testing::AnyOf(XR_SUCCESS, XR_ERROR_PATH_UNSUPPORTED));
        return result == XR_SUCCESS;
    }

    XrVersion version_ = XR_MAKE_VERSION(1, 1, 0);
    int actions_ = 0;
};

constexpr char kHpProfile[] = "/interaction_profiles/hp/mixed_reality_controller";
constexpr char kHpPath[] = "/user/hand/left/input/x/click";
constexpr char kSurface[] = "/user/hand/left/input/grip_surface/pose";

TEST_F(SimulatorVersion, DecidesWhatIsOffered) {
    EXPECT_THAT(ReferenceSpaces(), Contains(XR_REFERENCE_SPACE_TYPE_LOCAL_FLOOR));
    EXPECT_TRUE(HasPath(kTouchProfile, kSurface));
    EXPECT_TRUE(HasPath(kTouchProfile, "/user/hand/right/input/thumb_resting_surfaces/proximity"));
    EXPECT_TRUE(HasPath(kHpProfile, kHpPath));
    EXPECT_TRUE(HasPath("/interaction_profiles/meta/touch_pro_controller", "/user/hand/left/output/haptic_thumb"));
    EXPECT_NE(LocateSpaces, nullptr);
    EXPECT_EQ(FunctionOf<PFN_xrLocateSpacesKHR>("xrLocateSpacesKHR"), nullptr) << "its extension is not enabled";

    AskFor(XR_MAKE_VERSION(1, 0, 99), {"XR_MND_headless"});
    EXPECT_THAT(ReferenceSpaces(), testing::Not(Contains(XR_REFERENCE_SPACE_TYPE_LOCAL_FLOOR)));
    EXPECT_FALSE(HasPath(kTouchProfile, kSurface));
    EXPECT_FALSE(HasPath(kHpProfile, kHpPath));
    EXPECT_EQ(FunctionOf<PFN_xrLocateSpaces>("xrLocateSpaces"), nullptr);

    AskFor(XR_MAKE_VERSION(1, 0, 0), {"XR_MND_headless", "XR_EXT_hp_mixed_reality_controller", "XR_KHR_locate_spaces"});
    EXPECT_TRUE(HasPath(kHpProfile, kHpPath));
    EXPECT_FALSE(HasPath(kHpProfile, kSurface));
    EXPECT_NE(FunctionOf<PFN_xrLocateSpacesKHR>("xrLocateSpacesKHR"), nullptr);

    for (const XrVersion version :
         std::initializer_list<XrVersion>{XR_MAKE_VERSION(1, 2, 0), XR_MAKE_VERSION(2, 0, 0), 0}) {
        version_ = version;
        XrInstance instance = XR_NULL_HANDLE;
        EXPECT_EQ(TryCreateInstance({"XR_MND_headless"}, instance), XR_ERROR_API_VERSION_UNSUPPORTED);
    }
}

TEST_F(SimulatorVersion, ManySpacesAreLocatedAtOnce) {
    const XrSession session = MakeFocusedSession();
    const XrSpace stage = MakeSpace(session, XR_REFERENCE_SPACE_TYPE_STAGE);
    std::vector<XrSpace> spaces = {MakeSpace(session, XR_REFERENCE_SPACE_TYPE_LOCAL_FLOOR),
                                   MakeSpace(session, XR_REFERENCE_SPACE_TYPE_LOCAL)};
    XrSpaceLocationData data[2] = {};
    XrSpaceVelocityData velocity_data[2] = {{3, {}, {}}, {3, {}, {}}};
    XrSpaceVelocities velocities = {XR_TYPE_SPACE_VELOCITIES, nullptr, 2, velocity_data};
    XrSpaceLocations locations = {XR_TYPE_SPACE_LOCATIONS, &velocities, 2, data};
    const auto locate = [&](XrSpace base, XrTime time) {
        const XrSpacesLocateInfo info = {
            XR_TYPE_SPACES_LOCATE_INFO, nullptr, base, time, static_cast<std::uint32_t>(spaces.size()), spaces.data()};
        return LocateSpaces(session, &info, &locations);
    };
    EXPECT_EQ(locate(stage, 1), XR_SUCCESS);
    EXPECT_EQ(data[0].locationFlags, 0xFu);
    EXPECT_FLOAT_EQ(data[0].pose.position.y, 0.0f);
    EXPECT_FLOAT_EQ(data[1].pose.position.y, 1.6f);
    EXPECT_EQ(velocity_data[1].velocityFlags, 0u);

    EXPECT_EQ(locate(stage, 0), XR_ERROR_TIME_INVALID);
    EXPECT_EQ(locate(XR_NULL_HANDLE, 1), XR_ERROR_HANDLE_INVALID);
    const XrSpace foreign = MakeSpace(MakeSession(), XR_REFERENCE_SPACE_TYPE_STAGE);
    EXPECT_EQ(locate(foreign, 1), XR_ERROR_VALIDATION_FAILURE);
    velocities.velocityCount = 1;
    EXPECT_EQ(locate(stage, 1), XR_ERROR_VALIDATION_FAILURE);
    locations.next = nullptr;
    spaces[1] = foreign;
    EXPECT_EQ(locate(stage, 1), XR_ERROR_VALIDATION_FAILURE);
    spaces.pop_back();
    EXPECT_EQ(locate(stage, 1), XR_ERROR_VALIDATION_FAILURE) << "places for more than are asked for";
    spaces.clear();
    locations.locationCount = 0;
    EXPECT_EQ(locate(stage, 1), XR_ERROR_VALIDATION_FAILURE);
}

TEST_F(SimulatorVersion, PalmIsWhereTheGripPutsIt) {
    const XrSession session = MakeFocusedSession();
    const XrActionSet set = MakeActionSet("play");
    const XrAction palm = MakeAction(set, "palm", XR_ACTION_TYPE_POSE_INPUT);
    const XrSpace space = MakeActionSpace(session, palm);
    const XrSpace stage = MakeSpace(session, XR_REFERENCE_SPACE_TYPE_STAGE);
    ASSERT_EQ(Suggest(kTouchProfile, {{palm, kSurface}}), XR_SUCCESS);
    ASSERT_EQ(Attach(session, {set}), XR_SUCCESS);
    const XrPath hand = Path("/user/hand/left");
    const auto place = [&](const char* path, const XrPosef& pose) {
        EXPECT_EQ(SetInputDeviceLocationEXT(session, hand, Path(path), stage, pose), XR_SUCCESS);
    };
    EXPECT_EQ(SetInputDeviceActiveEXT(session, Path(kTouchProfile), hand, XR_TRUE), XR_SUCCESS);
    place("/user/hand/left/input/grip/pose", {{0, 1, 0, 0}, {0, 1, 0}});
    EXPECT_EQ(Sync(session, {set}), XR_SUCCESS);
    // Half a turn about y: the left palm, at -x of the grip, comes to lie at +x.
    EXPECT_NEAR(Locate(space, stage).pose.position.x, 0.02f, 1e-6);
    place(kSurface, {{0, 0, 0, 1}, {3, 0, 0}});
    EXPECT_NEAR(Locate(space, stage).pose.position.x, 3.0f, 1e-6);
}

}  // namespace
}  // namespace simulator_test
