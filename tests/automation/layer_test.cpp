// What only the layer has to do: it stands between an application and real devices. These are the simulator's, moved by
// its own functions.
#include <array>
#include <cmath>
#include <thread>

#include "automation/pose_history.h"
#include "automation/submitted_layers.h"
#include "tests/simulator/simulator_fixture.h"
#include "xr/pose_math.h"

namespace automation_test {
namespace {

using namespace simulator_test;
using orvanic_xr::Compose;

constexpr char kLeft[] = "/user/hand/left";
constexpr char kRight[] = "/user/hand/right";
constexpr char kHead[] = "/user/head";
constexpr char kHeadProfile[] = "/interaction_profiles/kest/head_kestx2";
constexpr char kSimpleProfile[] = "/interaction_profiles/khr/simple_controller";
// A quarter turn to the left.
constexpr XrQuaternionf kLeftTurn = {0, 0.70710678f, 0, 0.70710678f};

void ExpectNear(const XrPosef& pose, const XrPosef& wanted) {
    EXPECT_NEAR(pose.position.x, wanted.position.x, 1e-5);
    EXPECT_NEAR(pose.position.y, wanted.position.y, 1e-5);
    EXPECT_NEAR(pose.position.z, wanted.position.z, 1e-5);
    EXPECT_NEAR(std::fabs(orvanic_xr::Dot(pose.orientation, wanted.orientation)), 1.0f, 1e-5);
}

class AutomationLayer : public SimulatorTest {
 protected:
    XrVersion Version() const override { return XR_MAKE_VERSION(1, 1, 0); }
    void SetUp() override {
        SimulatorTest::SetUp();
        session_ = MakeFocusedSession();
        stage_ = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_STAGE);
        RuntimeLookup()(instance_, "xrSetInputDeviceActiveEXT", reinterpret_cast<PFN_xrVoidFunction*>(&real_active_));
        RuntimeLookup()(instance_, "xrSetInputDeviceStateBoolEXT", reinterpret_cast<PFN_xrVoidFunction*>(&real_bool_));
        RuntimeLookup()(instance_, "xrSetInputDeviceLocationEXT", reinterpret_cast<PFN_xrVoidFunction*>(&real_place_));
    }
    void TakeHead(const XrPosef& pose) {
        EXPECT_EQ(SetInputDeviceActiveEXT(session_, Path(kHeadProfile), Path(kHead), XR_TRUE), XR_SUCCESS);
        PlaceHead(pose);
    }
    void PlaceHead(const XrPosef& pose) {
        EXPECT_EQ(
            SetInputDeviceLocationEXT(session_, Path(kHead), Path("/user/head/input/view_kest/pose"), stage_, pose),
            XR_SUCCESS);
    }
    std::array<XrView, 2> Views(XrSpace space, XrTime time) {
        const XrViewLocateInfo info = {XR_TYPE_VIEW_LOCATE_INFO, nullptr, XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO,
                                       time, space};
        auto state = Typed<XrViewState>(XR_TYPE_VIEW_STATE);
        std::array<XrView, 2> views = {Typed<XrView>(XR_TYPE_VIEW), Typed<XrView>(XR_TYPE_VIEW)};
        std::uint32_t count = 2;
        EXPECT_EQ(LocateViews(session_, &info, &state, 2, &count, views.data()), XR_SUCCESS);
        EXPECT_EQ(state.viewStateFlags, 0xFu);
        return views;
    }
    XrActionStateBoolean Select(const char* hand = nullptr) {
        return StateOf(GetActionStateBoolean, XR_TYPE_ACTION_STATE_BOOLEAN, session_, select_, hand);
    }

    XrSession session_ = XR_NULL_HANDLE;
    XrSpace stage_ = XR_NULL_HANDLE;
    XrAction select_ = XR_NULL_HANDLE;
    PFN_xrSetInputDeviceActiveEXT real_active_ = nullptr;
    PFN_xrSetInputDeviceStateBoolEXT real_bool_ = nullptr;
    PFN_xrSetInputDeviceLocationEXT real_place_ = nullptr;
};

TEST_F(AutomationLayer, HeadIsTheSameFromEverySpace) {
    const XrPosef head = {kLeftTurn, {1, 1.6f, -2}};
    const XrPosef offset = {kLeftTurn, {0, 0.5f, 0}};
    const XrSpace view = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_VIEW);
    const XrSpace below_view = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_VIEW, offset);
    const XrSpace local = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_LOCAL);
    TakeHead(head);
    const XrTime time = RunFrame(session_).predictedDisplayTime;
    ExpectNear(Locate(view, stage_, time).pose, head);
    ExpectNear(Locate(below_view, stage_, time).pose, Compose(head, offset));
    const XrPosef in_local = Locate(view, local, time).pose;
    ExpectNear(Compose(Locate(local, stage_, time).pose, in_local), head);
    ExpectNear(Compose(Locate(stage_, view, time).pose, head), kIdentity);
    const auto in_stage = Views(stage_, time);
    const auto in_view = Views(view, time);
    // Half of the eye distance to the left of a head that looks along -x is nearer in z.
    ExpectNear(in_stage[0].pose, {kLeftTurn, {1, 1.6f, -2 + 0.0315f}});
    ExpectNear(in_view[1].pose, {{0, 0, 0, 1}, {0.0315f, 0, 0}});
    EXPECT_EQ(in_stage[0].fov.angleLeft, -0.7854f);

    std::array<XrSpace, 2> asked = {view, local};
    const XrSpacesLocateInfo info = {XR_TYPE_SPACES_LOCATE_INFO, nullptr, stage_, time, 2, asked.data()};
    std::array<XrSpaceLocationData, 2> told = {};
    XrSpaceLocations locations = {XR_TYPE_SPACE_LOCATIONS, nullptr, 2, told.data()};
    EXPECT_EQ(LocateSpaces(session_, &info, &locations), XR_SUCCESS);
    ExpectNear(told[0].pose, head);
    ExpectNear(told[1].pose, Locate(local, stage_, time).pose);

    EXPECT_EQ(SetInputDeviceActiveEXT(session_, Path(kHeadProfile), Path(kHead), XR_FALSE), XR_SUCCESS);
    EXPECT_NEAR(Locate(view, stage_, time).pose.position.z, 0.5f, 0.05f) << "the real head is back";
}

TEST_F(AutomationLayer, FrameSeesAStandingHeadAndTheNextOneItsMovement) {
    const XrSpace view = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_VIEW);
    TakeHead({{0, 0, 0, 1}, {0, 1, 0}});
    const XrTime first = RunFrame(session_).predictedDisplayTime;
    // On a thread that makes no frames.
    std::thread([&] {
        PlaceHead({{0, 0, 0, 1}, {0, 2, 0}});
        EXPECT_EQ(Locate(view, stage_, first).pose.position.y, 2.0f) << "who moves it sees it moved";
    }).join();
    EXPECT_EQ(Locate(view, stage_, first).pose.position.y, 1.0f);
    EXPECT_NEAR(Views(stage_, first)[0].pose.position.y, 1.0f, 1e-6);
    const XrTime second = RunFrame(session_).predictedDisplayTime;
    EXPECT_EQ(Locate(view, stage_, second).pose.position.y, 2.0f);
    EXPECT_EQ(Locate(view, stage_, first).pose.position.y, 1.0f) << "the earlier frame is remembered";
    auto velocity = Typed<XrSpaceVelocity>(XR_TYPE_SPACE_VELOCITY);
    XrSpaceLocation location = {XR_TYPE_SPACE_LOCATION, &velocity, 0, {}};
    EXPECT_EQ(LocateSpace(view, stage_, second, &location), XR_SUCCESS);
    EXPECT_EQ(velocity.velocityFlags, 3u);
    EXPECT_NEAR(velocity.linearVelocity.y, 1e9 / static_cast<double>(second - first), 1.0);
}

TEST_F(AutomationLayer, OneHandIsSimulatedBesideARealOne) {
    const XrActionSet set = MakeActionSet("play");
    select_ = MakeAction(set, "select", XR_ACTION_TYPE_BOOLEAN_INPUT, {kLeft, kRight});
    const XrAction buzz = MakeAction(set, "buzz", XR_ACTION_TYPE_VIBRATION_OUTPUT, {kLeft, kRight});
    const XrAction grip = MakeAction(set, "grip", XR_ACTION_TYPE_POSE_INPUT, {kLeft, kRight});
    const XrActionSpaceCreateInfo info = {XR_TYPE_ACTION_SPACE_CREATE_INFO, nullptr, grip, Path(kRight), kIdentity};
    XrSpace right_grip = XR_NULL_HANDLE;
    EXPECT_EQ(CreateActionSpace(session_, &info, &right_grip), XR_SUCCESS);
    Suggest(kSimpleProfile, {{select_, "/user/hand/left/input/select/click"},
                             {select_, "/user/hand/right/input/select/click"},
                             {grip, "/user/hand/right/input/grip/pose"},
                             {buzz, "/user/hand/left/output/haptic"}});
    EXPECT_EQ(Suggest(kProntoProfile, {{select_, "/user/hand/right/input/a/click"},
                                       {grip, "/user/hand/right/input/grip/pose"},
                                       {buzz, "/user/hand/right/output/haptic"}}),
              XR_SUCCESS)
        << "a profile of which the runtime does not know";
    EXPECT_EQ(Attach(session_, {set}), XR_SUCCESS);
    for (const char* hand : {kLeft, kRight}) real_active_(session_, Path(kSimpleProfile), Path(hand), XR_TRUE);
    real_bool_(session_, Path(kRight), Path("/user/hand/right/input/select/click"), XR_TRUE);
    real_place_(session_, Path(kRight), Path("/user/hand/right/input/grip/pose"), stage_, {{0, 0, 0, 1}, {7, 0, 0}});
    Sync(session_, {set});
    EXPECT_TRUE(Select(kRight).currentState);
    while (NextEvent()) {
    }

    SetInputDeviceActiveEXT(session_, Path(kProntoProfile), Path(kRight), XR_TRUE);
    SetInputDeviceLocationEXT(session_, Path(kRight), Path("/user/hand/right/input/grip/pose"), stage_,
                              {{0, 0, 0, 1}, {1, 2, 3}});
    Sync(session_, {set});
    EXPECT_TRUE(Select(kRight).isActive);
    EXPECT_FALSE(Select(kRight).currentState) << "the real button does not count";
    EXPECT_FALSE(Select().currentState);
    EXPECT_EQ(Locate(right_grip, stage_, 1).pose.position.x, 1.0f);
    const auto event = NextEvent();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->type, XR_TYPE_EVENT_DATA_INTERACTION_PROFILE_CHANGED);
    EXPECT_FALSE(NextEvent());
    auto profile = Typed<XrInteractionProfileState>(XR_TYPE_INTERACTION_PROFILE_STATE);
    EXPECT_EQ(GetCurrentInteractionProfile(session_, Path(kRight), &profile), XR_SUCCESS);
    EXPECT_EQ(Text(profile.interactionProfile), kProntoProfile);
    EXPECT_EQ(GetCurrentInteractionProfile(session_, Path(kLeft), &profile), XR_SUCCESS);
    EXPECT_EQ(Text(profile.interactionProfile), kSimpleProfile);

    real_bool_(session_, Path(kLeft), Path("/user/hand/left/input/select/click"), XR_TRUE);
    Sync(session_, {set});
    EXPECT_TRUE(Select(kLeft).currentState);
    EXPECT_TRUE(Select().currentState) << "of both hands, the real one is pressed";
    std::array<XrPath, 4> sources = {};
    std::uint32_t count = 0;
    const XrBoundSourcesForActionEnumerateInfo bound = {XR_TYPE_BOUND_SOURCES_FOR_ACTION_ENUMERATE_INFO, nullptr,
                                                        select_};
    EXPECT_EQ(EnumerateBoundSourcesForAction(session_, &bound, 4, &count, sources.data()), XR_SUCCESS);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(Text(sources[0]), "/user/hand/left/input/select/click");
    EXPECT_EQ(Text(sources[1]), "/user/hand/right/input/a/click");
    // Swallowed: for the runtime an amplitude of 2 is wrong.
    const XrHapticVibration hard = {XR_TYPE_HAPTIC_VIBRATION, nullptr, 1, 0, 2.0f};
    XrHapticActionInfo haptic = {XR_TYPE_HAPTIC_ACTION_INFO, nullptr, buzz, Path(kRight)};
    const auto* const feedback = reinterpret_cast<const XrHapticBaseHeader*>(&hard);
    EXPECT_EQ(ApplyHapticFeedback(session_, &haptic, feedback), XR_SUCCESS);
    haptic.subactionPath = Path(kLeft);
    EXPECT_EQ(ApplyHapticFeedback(session_, &haptic, feedback), XR_ERROR_VALIDATION_FAILURE);

    SetInputDeviceActiveEXT(session_, Path(kProntoProfile), Path(kRight), XR_FALSE);
    Sync(session_, {set});
    EXPECT_TRUE(Select(kRight).currentState) << "the real hand is back";
    EXPECT_EQ(Locate(right_grip, stage_, 1).pose.position.x, 7.0f);
}

TEST_F(AutomationLayer, SwallowedVibrationsAreCheckedAsOthers) {
    const XrActionSet set = MakeActionSet("play");
    const XrAction buzz = MakeAction(set, "buzz", XR_ACTION_TYPE_VIBRATION_OUTPUT, {kRight});
    const XrAction late = MakeAction(MakeActionSet("late"), "late", XR_ACTION_TYPE_VIBRATION_OUTPUT, {kRight});
    select_ = MakeAction(set, "select", XR_ACTION_TYPE_BOOLEAN_INPUT, {kRight});
    Suggest(kProntoProfile, {{buzz, "/user/hand/right/output/haptic"},
                             {late, "/user/hand/right/output/haptic"},
                             {select_, "/user/hand/right/input/a/click"}});
    Attach(session_, {set});
    SetInputDeviceActiveEXT(session_, Path(kProntoProfile), Path(kRight), XR_TRUE);
    const struct {
        XrAction action;
        XrPath path;
        XrResult result;
    } rows[] = {
        {buzz, Path(kRight), XR_SUCCESS},
        {buzz, XR_NULL_PATH, XR_SUCCESS},
        {buzz, Path(kLeft), XR_ERROR_PATH_UNSUPPORTED},
        {buzz, 0xFFFF, XR_ERROR_PATH_INVALID},
        {late, Path(kRight), XR_ERROR_ACTIONSET_NOT_ATTACHED},
        {select_, Path(kRight), XR_ERROR_ACTION_TYPE_MISMATCH},
        {XR_NULL_HANDLE, Path(kRight), XR_ERROR_HANDLE_INVALID},
    };
    const XrHapticVibration soft = {XR_TYPE_HAPTIC_VIBRATION, nullptr, 1, 0, 0.5f};
    const auto* const feedback = reinterpret_cast<const XrHapticBaseHeader*>(&soft);
    for (const auto& row : rows) {
        const XrHapticActionInfo info = {XR_TYPE_HAPTIC_ACTION_INFO, nullptr, row.action, row.path};
        EXPECT_EQ(ApplyHapticFeedback(session_, &info, feedback), row.result) << &row - rows;
        EXPECT_EQ(StopHapticFeedback(session_, &info), row.result) << &row - rows;
    }
    XrHapticActionInfo info = {XR_TYPE_HAPTIC_ACTION_INFO, nullptr, buzz, Path(kRight)};
    EXPECT_EQ(ApplyHapticFeedback(session_, &info, nullptr), XR_ERROR_VALIDATION_FAILURE);
    RequestExitSession(session_);
    EXPECT_EQ(ApplyHapticFeedback(session_, &info, feedback), XR_SESSION_NOT_FOCUSED);
}

TEST(AutomationHistory, GoesStraightBetweenFramesAndKnowsTheSpeed) {
    xr_input::Devices devices;
    devices[xr_input::TopLevel::kHead].poses = {XrPosef{{0, 0, 0, 1}, {0, 0, 0}}};
    const auto head = [](const xr_input::Devices& all) { return all[xr_input::TopLevel::kHead].poses[0]; };
    automation::PoseHistory history;
    EXPECT_FALSE(history.At(1, head));
    for (int i = 1; i <= 20; ++i) {
        devices[xr_input::TopLevel::kHead].poses[0] = XrPosef{{0, 0, 0, 1}, {static_cast<float>(i), 0, 0}};
        history.Add(i * 1'000'000'000LL, devices);
    }
    history.Add(5, devices);  // too late
    EXPECT_EQ(history.At(19'500'000'000, head)->pose.position.x, 19.5f);
    EXPECT_EQ(history.At(99'000'000'000, head)->pose.position.x, 20.0f);
    EXPECT_EQ(history.At(0, head)->pose.position.x, 13.0f) << "the oldest of eight";
    EXPECT_EQ(history.At(18'000'000'000, head)->motion.linear.x, 1.0f);
    history.Rebase({kLeftTurn, {0, 1, 0}});
    ExpectNear(history.At(20'000'000'000, head)->pose, {kLeftTurn, {0, 1, -20}});
}

TEST(AutomationHistory, WhatTurnsCarriesWhatIsFixedToIt) {
    const automation::MovingPose turning = {kIdentity, {{0, 0, 0}, {0, 1, 0}}};
    const auto arm = automation::WithOffset(turning, {{0, 0, 0, 1}, {0, 0, -2}});
    EXPECT_EQ(arm.motion.linear.x, -2.0f);
    const auto seen = automation::RelativeMotion(arm, turning);
    EXPECT_EQ(seen.motion.linear.x, 0.0f) << "seen from what it is fixed to it rests";
    EXPECT_EQ(seen.motion.angular.y, 0.0f);
}

TEST(AutomationLayers, AreMovedToTheRealHeadButForThoseInTheView) {
    const auto world = HandleOf<XrSpace>(1);
    const auto room = HandleOf<XrSpace>(2);
    const auto view = HandleOf<XrSpace>(3);
    std::array<XrCompositionLayerProjectionView, 2> views = {};
    for (auto& one : views) one.pose = {{0, 0, 0, 1}, {0, 0, -1}};
    auto projection = Typed<XrCompositionLayerProjection>(XR_TYPE_COMPOSITION_LAYER_PROJECTION);
    projection.space = room;
    projection.viewCount = 2;
    projection.views = views.data();
    auto quad = Typed<XrCompositionLayerQuad>(XR_TYPE_COMPOSITION_LAYER_QUAD);
    quad.space = view;
    quad.pose = kIdentity;
    auto unknown = Typed<XrCompositionLayerBaseHeader>(XR_TYPE_COMPOSITION_LAYER_PASSTHROUGH_FB);
    unknown.space = room;
    const std::array<const XrCompositionLayerBaseHeader*, 4> layers = {
        reinterpret_cast<const XrCompositionLayerBaseHeader*>(&projection),
        reinterpret_cast<const XrCompositionLayerBaseHeader*>(&quad), &unknown, nullptr};
    auto info = Typed<XrFrameEndInfo>(XR_TYPE_FRAME_END_INFO);
    info.layerCount = 4;
    info.layers = layers.data();
    const auto lookup = [&](XrSpace space) -> std::optional<XrPosef> {
        if (space == view) return std::nullopt;
        return XrPosef{{0, 0, 0, 1}, {0, 1, 0}};
    };
    const automation::SubmittedLayers moved(info, lookup, {kLeftTurn, {5, 0, 0}}, world);
    const auto& first = reinterpret_cast<const XrCompositionLayerProjection&>(*moved.info().layers[0]);
    EXPECT_EQ(first.space, world);
    ExpectNear(first.views[1].pose, {kLeftTurn, {4, 1, 0}});
    for (int i = 1; i < 4; ++i) EXPECT_EQ(moved.info().layers[i], layers[static_cast<std::size_t>(i)]);
    ExpectNear(views[1].pose, {{0, 0, 0, 1}, {0, 0, -1}});
    EXPECT_EQ(projection.space, room) << "the application's records stay as they are";
}

}  // namespace
}  // namespace automation_test
