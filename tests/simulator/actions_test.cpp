// What an application declares: action sets, actions, suggested bindings, attaching.
#include <gmock/gmock.h>

#include <cstring>

#include "tests/simulator/simulator_fixture.h"

namespace simulator_test {
namespace {

class SimulatorActions : public SimulatorTest {
 protected:
    XrResult TryCreateSet(const char* name, const char* localized_name) {
        auto info = Typed<XrActionSetCreateInfo>(XR_TYPE_ACTION_SET_CREATE_INFO);
        std::strcpy(info.actionSetName, name);
        std::strcpy(info.localizedActionSetName, localized_name);
        XrActionSet set = XR_NULL_HANDLE;
        return CreateActionSet(instance_, &info, &set);
    }
};

TEST_F(SimulatorActions, SetNamesAreWellFormedAndUnique) {
    const XrActionSet set = MakeActionSet("taken");
    EXPECT_EQ(TryCreateSet("two/levels", "Two levels"), XR_ERROR_PATH_FORMAT_INVALID);
    EXPECT_EQ(TryCreateSet("taken", "Another"), XR_ERROR_NAME_DUPLICATED);
    EXPECT_EQ(TryCreateSet("another", "Set taken"), XR_ERROR_LOCALIZED_NAME_DUPLICATED);
    DestroyActionSet(set);
    EXPECT_EQ(TryCreateSet("taken", "Set taken"), XR_SUCCESS) << "a destroyed set frees its names";
}

TEST_F(SimulatorActions, SuggestedPathsHaveToBeThoseOfTheProfile) {
    const XrActionSet set = MakeActionSet("play");
    const XrAction action = MakeAction(set, "act", XR_ACTION_TYPE_FLOAT_INPUT);
    const XrAction grip = MakeAction(set, "grip", XR_ACTION_TYPE_POSE_INPUT);
    const char* const simple = "/interaction_profiles/khr/simple_controller";
    const char* const index = "/interaction_profiles/valve/index_controller";
    const char* const hp = "/interaction_profiles/hp/mixed_reality_controller";
    const char* const xbox = "/interaction_profiles/microsoft/xbox_controller";
    const char* const trigger = "/user/hand/left/input/trigger/value";
    const struct {
        const char* profile;
        XrAction action;
        const char* path;
        XrResult expected;
    } rows[] = {
        {kTouchProfile, action, trigger, XR_SUCCESS},
        {kTouchProfile, action, "/user/hand/left/input/trigger", XR_SUCCESS},
        {kTouchProfile, action, "/user/hand/left/input/trigger/click", XR_ERROR_PATH_UNSUPPORTED},
        {kTouchProfile, action, "/user/hand/right/input/a/click", XR_SUCCESS},
        {kTouchProfile, action, "/user/hand/left/input", XR_ERROR_PATH_UNSUPPORTED},
        {kTouchProfile, XR_NULL_HANDLE, trigger, XR_ERROR_HANDLE_INVALID},
        {kTouchProfile, action, "/user/hand/left/input/trigger/valu", XR_ERROR_PATH_UNSUPPORTED},
        {kTouchProfile, action, "/user/hand/left/input/trigger/value/x", XR_ERROR_PATH_UNSUPPORTED},
        {kTouchProfile, action, "/user/hand/left/input/trigge", XR_ERROR_PATH_UNSUPPORTED},
        {kTouchProfile, grip, "/user/hand/left/input/grip_surface/pose", XR_ERROR_PATH_UNSUPPORTED},
        {kTouchProfile, action, "/user/hand/left/input/trigger/proximity", XR_ERROR_PATH_UNSUPPORTED},
        {hp, action, "/user/hand/left/input/x/click", XR_ERROR_PATH_UNSUPPORTED},
        {"/interaction_profiles/google/daydream_controller", action, "/user/hand/right/input/trackpad/y", XR_SUCCESS},
        {"/interaction_profiles/oculus/go_controller", action, "/user/hand/left/input/back/click", XR_SUCCESS},
        {"/interaction_profiles/htc/vive_pro", action, "/user/head/input/mute_mic/click", XR_SUCCESS},
        {index, action, "/user/hand/left/input/a/click", XR_SUCCESS},
        {simple, action, trigger, XR_ERROR_PATH_UNSUPPORTED},
        {xbox, grip, "/user/hand/left/input/grip/pose", XR_ERROR_PATH_UNSUPPORTED},
        {kProntoProfile, action, "/user/hand/right/input/trigger/curl_kest", XR_SUCCESS},
        {kProntoProfile, XR_NULL_HANDLE, "/user/hand/right/input/trigger/curl_kest", XR_ERROR_HANDLE_INVALID},
        {kProntoProfile, action, "/user/hand/right/input/nothing", XR_ERROR_PATH_UNSUPPORTED},
        {"/interaction_profiles/nobody/nothing", action, trigger, XR_ERROR_PATH_UNSUPPORTED},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.profile) + " " + row.path);
        EXPECT_EQ(Suggest(row.profile, {{row.action, row.path}}), row.expected);
    }
    EXPECT_EQ(Suggest(kProntoProfile, {}), XR_ERROR_VALIDATION_FAILURE);
}

TEST_F(SimulatorActions, BelongToOneInstanceAndToTopLevelPaths) {
    const XrSession session = MakeSession();
    const XrInstance first = instance_;
    ASSERT_EQ(TryCreateInstance(Extensions(), instance_), XR_SUCCESS);
    const XrAction foreign = MakeAction(MakeActionSet("play"), "walk", XR_ACTION_TYPE_POSE_INPUT,
                                        {"/user/head", "/user/gamepad", "/user/treadmill"});
    const XrActionSpaceCreateInfo info = {XR_TYPE_ACTION_SPACE_CREATE_INFO, nullptr, foreign, XR_NULL_PATH, kIdentity};
    XrSpace space = XR_NULL_HANDLE;
    EXPECT_EQ(CreateActionSpace(session, &info, &space), XR_ERROR_VALIDATION_FAILURE);
    DestroyInstance(std::exchange(instance_, first));
}

TEST_F(SimulatorActions, SourcesAreNamedInWords) {
    const XrSession session = MakeFocusedSession();
    const XrActionSet set = MakeActionSet("play");
    ASSERT_EQ(Suggest(kTouchProfile,
                      {{MakeAction(set, "act", XR_ACTION_TYPE_FLOAT_INPUT), "/user/hand/left/input/trigger/value"}}),
              XR_SUCCESS);
    Attach(session, {set});
    EXPECT_EQ(SetInputDeviceActiveEXT(session, Path(kTouchProfile), Path("/user/hand/left"), XR_TRUE), XR_SUCCESS);
    Sync(session, {set});
    XrInputSourceLocalizedNameGetInfo info = {XR_TYPE_INPUT_SOURCE_LOCALIZED_NAME_GET_INFO, nullptr,
                                              Path("/user/hand/left/input/trigger/value"), 7};
    std::uint32_t count = 0;
    char name[64] = {};
    EXPECT_EQ(GetInputSourceLocalizedName(session, &info, sizeof(name), &count, name), XR_SUCCESS);
    EXPECT_STREQ(name, "Left Hand Touch Controller Trigger Value");
    for (const XrInputSourceLocalizedNameFlags unknown : {0u, 8u}) {
        info.whichComponents = unknown;
        EXPECT_EQ(GetInputSourceLocalizedName(session, &info, sizeof(name), &count, name), XR_ERROR_VALIDATION_FAILURE);
    }
}

TEST_F(SimulatorActions, AttachHappensOnceAndFreezesTheSets) {
    const XrSession session = MakeFocusedSession();
    const XrActionSet set = MakeActionSet("play");
    const XrActionSet other = MakeActionSet("other");
    const XrAction action = MakeAction(set, "act", XR_ACTION_TYPE_FLOAT_INPUT, {"/user/hand/left"});
    XrActionStateGetInfo get = {XR_TYPE_ACTION_STATE_GET_INFO, nullptr, action, Path("/user/hand/left")};
    auto state = Typed<XrActionStateFloat>(XR_TYPE_ACTION_STATE_FLOAT);
    auto profile = Typed<XrInteractionProfileState>(XR_TYPE_INTERACTION_PROFILE_STATE);
    EXPECT_EQ(GetActionStateFloat(session, &get, &state), XR_ERROR_ACTIONSET_NOT_ATTACHED);
    EXPECT_EQ(GetCurrentInteractionProfile(session, get.subactionPath, &profile), XR_ERROR_ACTIONSET_NOT_ATTACHED);
    EXPECT_EQ(Attach(session, {set, XR_NULL_HANDLE}), XR_ERROR_HANDLE_INVALID);

    EXPECT_EQ(Attach(session, {set}), XR_SUCCESS);
    EXPECT_EQ(Attach(session, {other}), XR_ERROR_ACTIONSETS_ALREADY_ATTACHED);
    EXPECT_EQ(Suggest(kTouchProfile, {{action, "/user/hand/left/input/trigger/value"}}),
              XR_ERROR_ACTIONSETS_ALREADY_ATTACHED);
    EXPECT_EQ(Sync(session, {other}), XR_ERROR_ACTIONSET_NOT_ATTACHED);
    EXPECT_EQ(Sync(session, {set}), XR_SUCCESS);
    EXPECT_EQ(GetCurrentInteractionProfile(session, get.subactionPath, &profile), XR_SUCCESS);
    EXPECT_EQ(profile.interactionProfile, XrPath{XR_NULL_PATH});
    EXPECT_EQ(GetActionStateFloat(session, &get, &state), XR_SUCCESS);
    EXPECT_EQ(state.isActive, XrBool32{XR_FALSE});
    auto boolean = Typed<XrActionStateBoolean>(XR_TYPE_ACTION_STATE_BOOLEAN);
    EXPECT_EQ(GetActionStateBoolean(session, &get, &boolean), XR_ERROR_ACTION_TYPE_MISMATCH);
    get.subactionPath = Path("/user/hand/right");
    EXPECT_EQ(GetActionStateFloat(session, &get, &state), XR_ERROR_PATH_UNSUPPORTED) << "the action does not have it";
}

TEST_F(SimulatorActions, SyncOutsideTheFocusGivesNothing) {
    const XrSession session = MakeSession();
    const XrActionSet set = MakeActionSet("play");
    Attach(session, {set});
    EXPECT_EQ(Sync(session, {set}), XR_SESSION_NOT_FOCUSED);
    Begin(session);
    EXPECT_EQ(Sync(session, {set}), XR_SUCCESS);
    RequestExitSession(session);
    EXPECT_EQ(Sync(session, {set}), XR_SESSION_NOT_FOCUSED);
}

}  // namespace
}  // namespace simulator_test
