// What comes from the runtime while devices are simulated: trackers, recentring, and the end of the instance.
#include <vulkan/vulkan.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "automation/session.h"
#include "tests/automation/layered_lookup.h"
#include "tests/simulator/simulator_fixture.h"

#define XR_USE_GRAPHICS_API_VULKAN
#include <openxr/openxr_platform.h>

namespace automation_test {
namespace {

using namespace simulator_test;

constexpr char kLeft[] = "/user/hand/left";
constexpr char kHead[] = "/user/head";
constexpr char kHeadProfile[] = "/interaction_profiles/kest/head_kestx2";
constexpr char kHeadPose[] = "/user/head/input/view_kest/pose";
constexpr char kTracker[] = "/interaction_profiles/htcx/vive_tracker_htcx";

// A runtime with a tracker, whose button is pressed.
bool has_tracker = false;
XrResult XRAPI_PTR SuggestBelow(XrInstance /*instance*/, const XrInteractionProfileSuggestedBinding* /*suggested*/) {
    return XR_SUCCESS;
}
XrResult XRAPI_PTR StateBelow(XrSession /*session*/, const XrActionStateGetInfo* /*info*/,
                              XrActionStateBoolean* state) {
    state->isActive = state->currentState = has_tracker;
    return XR_SUCCESS;
}

// What the runtime has to tell next.
XrEventDataReferenceSpaceChangePending recentre;
XrResult XRAPI_PTR PollBelow(XrInstance /*instance*/, XrEventDataBuffer* event) {
    if (!recentre.session) return XR_EVENT_UNAVAILABLE;
    std::memcpy(event, &recentre, sizeof recentre);
    recentre = {};
    return XR_SUCCESS;
}

// Spaces lie where the world does, and nobody says how they move.
XrResult XRAPI_PTR LocateBelow(XrSpace /*space*/, XrSpace /*base*/, XrTime /*time*/, XrSpaceLocation* location) {
    location->locationFlags = 0xF;
    location->pose = kIdentity;
    return XR_SUCCESS;
}

XrResult XRAPI_PTR CreateVulkanBelow(XrInstance /*instance*/, const XrVulkanInstanceCreateInfoKHR* /*info*/,
                                     VkInstance* /*created*/, VkResult* result) {
    *result = VK_SUCCESS;
    return XR_SUCCESS;
}

template <class Function>
PFN_xrVoidFunction Erased(Function function) {
    return reinterpret_cast<PFN_xrVoidFunction>(function);
}

class RealDevices : public SimulatorTest {
 protected:
    std::vector<const char*> Extensions() const override {
        auto extensions = SimulatorTest::Extensions();
        extensions.push_back(orvanic_xr::kSimulatorCompositorCaptureExtension);
        return extensions;
    }
    void SetUp() override {
        ReplacedBelow() = {{"xrSuggestInteractionProfileBindings", Erased(SuggestBelow)},
                           {"xrGetActionStateBoolean", Erased(StateBelow)},
                           {"xrPollEvent", Erased(PollBelow)},
                           {"xrLocateSpace", Erased(LocateBelow)},
                           {"xrCreateVulkanInstanceKHR", Erased(CreateVulkanBelow)}};
        SimulatorTest::SetUp();
        session_ = MakeFocusedSession();
        stage_ = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_STAGE);
        view_ = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_VIEW);
    }
    void TearDown() override {
        SimulatorTest::TearDown();
        ReplacedBelow().clear();
    }
    void TakeHead(float x) {
        SetInputDeviceActiveEXT(session_, Path(kHeadProfile), Path(kHead), XR_TRUE);
        const XrPosef pose = {{0, 0, 0, 1}, {x, 0, 0}};
        EXPECT_EQ(SetInputDeviceLocationEXT(session_, Path(kHead), Path(kHeadPose), stage_, pose), XR_SUCCESS);
    }
    // By a metre to the right.
    void Recentre(XrTime at) {
        recentre = {XR_TYPE_EVENT_DATA_REFERENCE_SPACE_CHANGE_PENDING,
                    nullptr,
                    session_,
                    XR_REFERENCE_SPACE_TYPE_STAGE,
                    at,
                    XR_TRUE,
                    {{0, 0, 0, 1}, {1, 0, 0}}};
        EXPECT_TRUE(NextEvent());
    }
    float HeadAt(XrTime time) { return Locate(view_, stage_, time).pose.position.x; }

    XrSession session_ = XR_NULL_HANDLE;
    XrSpace stage_ = XR_NULL_HANDLE;
    XrSpace view_ = XR_NULL_HANDLE;
};

TEST_F(RealDevices, TrackerStaysBesideASimulatedHand) {
    const XrActionSet set = MakeActionSet("play");
    const XrAction step = MakeAction(set, "step", XR_ACTION_TYPE_BOOLEAN_INPUT);
    const XrAction grab = MakeAction(set, "grab", XR_ACTION_TYPE_BOOLEAN_INPUT);
    Suggest(kTracker, {{step, "/user/vive_tracker_htcx/role/waist/input/trigger/click"}});
    Suggest(kTouchProfile, {{grab, "/user/hand/left/input/x/click"}, {grab, "/user/hand/left/input/pinch_ext/value"}});
    Suggest(kProntoProfile, {{grab, "/user/hand/left/input/x/click"}});
    Attach(session_, {set});
    has_tracker = true;
    SetInputDeviceActiveEXT(session_, Path(kTouchProfile), Path(kLeft), XR_TRUE);
    Sync(session_, {set});
    const auto get = [&](XrAction action) {
        return StateOf(GetActionStateBoolean, XR_TYPE_ACTION_STATE_BOOLEAN, session_, action);
    };
    EXPECT_TRUE(get(step).currentState);
    EXPECT_TRUE(get(grab).isActive) << "one path that the layer does not know drops no other";
    EXPECT_FALSE(get(grab).currentState);
}

TEST_F(RealDevices, HeadStaysInTheRoomWhenTheWorldIsCentredAnew) {
    const XrTime before = RunFrame(session_).predictedDisplayTime;
    Recentre(before);
    TakeHead(5);
    XrTime time = RunFrame(session_).predictedDisplayTime;
    EXPECT_EQ(HeadAt(time), 5.0f) << "it was placed in the new world";
    Recentre(time + 1);
    Recentre(time + 2);
    EXPECT_EQ(HeadAt(time), 5.0f);
    time = RunFrame(session_).predictedDisplayTime;
    EXPECT_EQ(HeadAt(time), 3.0f);

    SetInputDeviceActiveEXT(session_, Path(kHeadProfile), Path(kHead), XR_FALSE);
    for (int i = 0; i < 3; ++i) Recentre(time);
    EXPECT_EQ(automation::Registry::instance().Find(session_)->recentres.size(), 1u) << "they are not hoarded";
}

TEST_F(RealDevices, SpeedIsKnownInASpaceThatRests) {
    const XrSpace local = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_LOCAL);
    TakeHead(0);
    const XrTime time = RunFrame(session_).predictedDisplayTime;
    auto velocity = Typed<XrSpaceVelocity>(XR_TYPE_SPACE_VELOCITY);
    XrSpaceLocation location = {XR_TYPE_SPACE_LOCATION, &velocity, 0, {}};
    EXPECT_EQ(LocateSpace(view_, local, time, &location), XR_SUCCESS);
    EXPECT_EQ(velocity.velocityFlags, 3u);
}

TEST_F(RealDevices, VulkanIsFoundAsTheApplicationFindsIt) {
    const auto create = FunctionOf<PFN_xrCreateVulkanInstanceKHR>("xrCreateVulkanInstanceKHR");
    auto info = Typed<XrVulkanInstanceCreateInfoKHR>(XR_TYPE_VULKAN_INSTANCE_CREATE_INFO_KHR);
    info.pfnGetInstanceProcAddr = [](VkInstance, const char*) -> PFN_vkVoidFunction { return nullptr; };
    VkInstance created = VK_NULL_HANDLE;
    VkResult result = VK_NOT_READY;
    EXPECT_EQ(create(instance_, &info, &created, &result), XR_SUCCESS);
    EXPECT_EQ(automation::Registry::instance().Find(instance_)->vulkan_lookup, info.pfnGetInstanceProcAddr);
}

TEST_F(RealDevices, InstanceGoesWithItsActions) {
    const XrActionSet set = MakeActionSet("play");
    Suggest(kProntoProfile, {{MakeAction(set, "grab", XR_ACTION_TYPE_BOOLEAN_INPUT), "/user/hand/left/input/x/click"}});
    const std::weak_ptr<automation::Instance> known = automation::Registry::instance().Find(instance_);
    ASSERT_FALSE(known.expired());
    EXPECT_EQ(DestroyInstance(instance_), XR_SUCCESS);
    instance_ = XR_NULL_HANDLE;
    EXPECT_TRUE(known.expired());
}

TEST_F(RealDevices, InstanceThatIsRefusedLeavesNoLogOpen) {
    DestroyInstance(std::exchange(instance_, XR_NULL_HANDLE));
    XrInstance refused = XR_NULL_HANDLE;
    EXPECT_EQ(TryCreateInstance({"XR_EXT_conformance_automation", "XR_NOBODY_nothing"}, refused),
              XR_ERROR_EXTENSION_NOT_PRESENT);
    testing::internal::CaptureStderr();
    EXPECT_EQ(TryCreateInstance(Extensions(), instance_), XR_SUCCESS);
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(told.find("called twice"), std::string::npos) << told;
}

// What the sanitizers are to look at: an agent moves and switches devices while frames are made.
TEST_F(RealDevices, AgentsAndFramesDoNotMeet) {
    std::atomic<bool> ends = false;
    const auto agent = [&](const char* profile, const char* top) {
        while (!ends) {
            for (const XrBool32 active : {XR_TRUE, XR_FALSE}) {
                EXPECT_EQ(SetInputDeviceActiveEXT(session_, Path(profile), Path(top), active), XR_SUCCESS);
                SetInputDeviceLocationEXT(session_, Path(kHead), Path(kHeadPose), stage_, kIdentity);
                Locate(view_, stage_, 1);
            }
        }
    };
    std::thread first(agent, kHeadProfile, kHead);
    std::thread second(agent, kTouchProfile, kLeft);
    for (int i = 0; i < 20; ++i) {
        const XrTime time = RunFrame(session_).predictedDisplayTime;
        Recentre(time);
        Locate(stage_, view_, time);
    }
    ends = true;
    first.join();
    second.join();
    EXPECT_EQ(automation::Registry::instance().Find(session_)->simulated, 0);
}

}  // namespace
}  // namespace automation_test
