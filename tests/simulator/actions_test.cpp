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

    XrResult TryCreateAction(XrActionSet set, const char* name, const char* localized_name,
                             XrActionType type = XR_ACTION_TYPE_FLOAT_INPUT, std::vector<XrPath> subactions = {}) {
        auto info = Typed<XrActionCreateInfo>(XR_TYPE_ACTION_CREATE_INFO);
        std::strcpy(info.actionName, name);
        std::strcpy(info.localizedActionName, localized_name);
        info.actionType = type;
        info.countSubactionPaths = static_cast<std::uint32_t>(subactions.size());
        info.subactionPaths = subactions.data();
        XrAction action = XR_NULL_HANDLE;
        return CreateAction(set, &info, &action);
    }
};

TEST_F(SimulatorActions, NamesAreWellFormedAndUnique) {
    const XrActionSet set = MakeActionSet("taken");
    MakeAction(set, "taken", XR_ACTION_TYPE_FLOAT_INPUT);
    const struct {
        const char* name;
        const char* localized_name;
        XrResult expected;
    } rows[] = {
        {"free", "Free", XR_SUCCESS},
        {"", "Nameless", XR_ERROR_NAME_INVALID},
        {"silent", "", XR_ERROR_LOCALIZED_NAME_INVALID},
        {"Upper", "Upper", XR_ERROR_PATH_FORMAT_INVALID},
        {"two/levels", "Two levels", XR_ERROR_PATH_FORMAT_INVALID},
        {"taken", "Another", XR_ERROR_NAME_DUPLICATED},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.localized_name);
        EXPECT_EQ(TryCreateSet(row.name, row.localized_name), row.expected);
        EXPECT_EQ(TryCreateAction(set, row.name, row.localized_name), row.expected);
    }
    EXPECT_EQ(TryCreateSet("another", "Set taken"), XR_ERROR_LOCALIZED_NAME_DUPLICATED);
    EXPECT_EQ(TryCreateAction(set, "another", "Action taken"), XR_ERROR_LOCALIZED_NAME_DUPLICATED);
    DestroyActionSet(set);
    EXPECT_EQ(TryCreateSet("taken", "Set taken"), XR_SUCCESS) << "a destroyed set frees its names";
}

TEST_F(SimulatorActions, CreateActionIsChecked) {
    const XrActionSet set = MakeActionSet("play");
    const XrPath left = Path("/user/hand/left");
    const auto with = [&](XrActionType type, std::vector<XrPath> subactions) {
        return TryCreateAction(set, "act", "Act", type, std::move(subactions));
    };
    EXPECT_EQ(with(static_cast<XrActionType>(99), {}), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(with(XR_ACTION_TYPE_FLOAT_INPUT, {XrPath{12345}}), XR_ERROR_PATH_INVALID);
    EXPECT_EQ(with(XR_ACTION_TYPE_FLOAT_INPUT, {Path("/user/foot/left")}), XR_ERROR_PATH_UNSUPPORTED);
    EXPECT_EQ(with(XR_ACTION_TYPE_FLOAT_INPUT, {Path("/user/hand/left/input")}), XR_ERROR_PATH_UNSUPPORTED);
    EXPECT_EQ(with(XR_ACTION_TYPE_FLOAT_INPUT, {left, left}), XR_ERROR_PATH_UNSUPPORTED);
    EXPECT_EQ(with(XR_ACTION_TYPE_FLOAT_INPUT, {left, Path("/user/hand/right")}), XR_SUCCESS);
}

TEST_F(SimulatorActions, SuggestedPathsHaveToBeThoseOfTheProfile) {
    const XrActionSet set = MakeActionSet("play");
    const XrAction action = MakeAction(set, "act", XR_ACTION_TYPE_FLOAT_INPUT);
    const XrAction grip = MakeAction(set, "grip", XR_ACTION_TYPE_POSE_INPUT);
    const char* const simple = "/interaction_profiles/khr/simple_controller";
    const char* const index = "/interaction_profiles/valve/index_controller";
    const char* const xbox = "/interaction_profiles/microsoft/xbox_controller";
    const struct {
        const char* profile;
        XrAction action;
        const char* path;
        XrResult expected;
    } rows[] = {
        {kTouchProfile, action, "/user/hand/left/input/trigger/value", XR_SUCCESS},
        {kTouchProfile, action, "/user/hand/left/input/trigger", XR_SUCCESS},
        {kTouchProfile, action, "/user/hand/left/input/trigger/click", XR_ERROR_PATH_UNSUPPORTED},
        {kTouchProfile, action, "/user/hand/left/input/a/click", XR_ERROR_PATH_UNSUPPORTED},
        {kTouchProfile, action, "/user/hand/right/input/a/click", XR_SUCCESS},
        {kTouchProfile, action, "/user/hand/left", XR_ERROR_PATH_UNSUPPORTED},
        {kTouchProfile, action, "/user/head/input/trigger/value", XR_ERROR_PATH_UNSUPPORTED},
        {index, action, "/user/hand/left/input/a/click", XR_SUCCESS},
        {simple, action, "/user/hand/left/input/trigger/value", XR_ERROR_PATH_UNSUPPORTED},
        {xbox, grip, "/user/hand/left/input/grip/pose", XR_ERROR_PATH_UNSUPPORTED},
        {kProntoProfile, action, "/user/hand/right/input/trigger/curl_kest", XR_SUCCESS},
        {kProntoProfile, action, "/user/hand/left/input/system/click", XR_ERROR_PATH_UNSUPPORTED},
        {"/interaction_profiles/nobody/nothing", action, "/user/hand/left/input/trigger/value",
         XR_ERROR_PATH_UNSUPPORTED},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.profile) + " " + row.path);
        EXPECT_EQ(Suggest(row.profile, {{row.action, row.path}}), row.expected);
    }
}

TEST_F(SimulatorActions, SuggestIsChecked) {
    const XrAction action = MakeAction(MakeActionSet("play"), "act", XR_ACTION_TYPE_FLOAT_INPUT);
    EXPECT_EQ(Suggest(kTouchProfile, {}), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(Suggest(kTouchProfile, {{XR_NULL_HANDLE, "/user/hand/left/input/trigger/value"}}),
              XR_ERROR_HANDLE_INVALID);
    const XrActionSuggestedBinding binding = {action, 12345};
    XrInteractionProfileSuggestedBinding info = {XR_TYPE_INTERACTION_PROFILE_SUGGESTED_BINDING, nullptr,
                                                 Path(kTouchProfile), 1, &binding};
    EXPECT_EQ(SuggestInteractionProfileBindings(instance_, &info), XR_ERROR_PATH_INVALID);
    info.type = XR_TYPE_ACTION_CREATE_INFO;
    EXPECT_EQ(SuggestInteractionProfileBindings(instance_, &info), XR_ERROR_VALIDATION_FAILURE);
}

TEST_F(SimulatorActions, AttachHappensOnceAndFreezesTheSets) {
    const XrSession session = MakeFocusedSession();
    const XrActionSet set = MakeActionSet("play");
    const XrActionSet other = MakeActionSet("other");
    const XrAction action = MakeAction(set, "act", XR_ACTION_TYPE_FLOAT_INPUT);
    const XrActionStateGetInfo get = {XR_TYPE_ACTION_STATE_GET_INFO, nullptr, action, XR_NULL_PATH};
    auto state = Typed<XrActionStateFloat>(XR_TYPE_ACTION_STATE_FLOAT);
    auto profile = Typed<XrInteractionProfileState>(XR_TYPE_INTERACTION_PROFILE_STATE);
    const XrPath left = Path("/user/hand/left");
    EXPECT_EQ(GetActionStateFloat(session, &get, &state), XR_ERROR_ACTIONSET_NOT_ATTACHED);
    EXPECT_EQ(GetCurrentInteractionProfile(session, left, &profile), XR_ERROR_ACTIONSET_NOT_ATTACHED);
    EXPECT_EQ(Attach(session, {}), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(Attach(session, {set, XR_NULL_HANDLE}), XR_ERROR_HANDLE_INVALID);

    EXPECT_EQ(Attach(session, {set}), XR_SUCCESS);
    EXPECT_EQ(Attach(session, {other}), XR_ERROR_ACTIONSETS_ALREADY_ATTACHED);
    EXPECT_EQ(TryCreateAction(set, "late", "Late"), XR_ERROR_ACTIONSETS_ALREADY_ATTACHED);
    EXPECT_EQ(Suggest(kTouchProfile, {{action, "/user/hand/left/input/trigger/value"}}),
              XR_ERROR_ACTIONSETS_ALREADY_ATTACHED);
    EXPECT_EQ(Sync(session, {other}), XR_ERROR_ACTIONSET_NOT_ATTACHED);
    EXPECT_EQ(Sync(session, {set}), XR_SUCCESS);
    EXPECT_EQ(GetCurrentInteractionProfile(session, left, &profile), XR_SUCCESS);
    EXPECT_EQ(profile.interactionProfile, XrPath{XR_NULL_PATH});
    EXPECT_EQ(GetCurrentInteractionProfile(session, Path("/user/foot"), &profile), XR_ERROR_PATH_UNSUPPORTED);
    EXPECT_EQ(Float(session, action).isActive, XrBool32{XR_FALSE});
}

TEST_F(SimulatorActions, StateGettersAreChecked) {
    const XrSession session = MakeFocusedSession();
    const XrActionSet set = MakeActionSet("play");
    const XrAction action = MakeAction(set, "act", XR_ACTION_TYPE_FLOAT_INPUT, {"/user/hand/left"});
    Attach(session, {set});
    auto state = Typed<XrActionStateFloat>(XR_TYPE_ACTION_STATE_FLOAT);
    auto boolean = Typed<XrActionStateBoolean>(XR_TYPE_ACTION_STATE_BOOLEAN);
    XrActionStateGetInfo info = {XR_TYPE_ACTION_STATE_GET_INFO, nullptr, action, Path("/user/hand/right")};
    EXPECT_EQ(GetActionStateFloat(session, &info, &state), XR_ERROR_PATH_UNSUPPORTED);
    info.subactionPath = 12345;
    EXPECT_EQ(GetActionStateFloat(session, &info, &state), XR_ERROR_PATH_INVALID);
    info.subactionPath = Path("/user/hand/left");
    EXPECT_EQ(GetActionStateFloat(session, &info, &state), XR_SUCCESS);
    EXPECT_EQ(GetActionStateBoolean(session, &info, &boolean), XR_ERROR_ACTION_TYPE_MISMATCH);
    boolean.type = XR_TYPE_ACTION_STATE_FLOAT;
    EXPECT_EQ(GetActionStateBoolean(session, &info, &boolean), XR_ERROR_VALIDATION_FAILURE);

    const XrActionSpaceCreateInfo space_info = {XR_TYPE_ACTION_SPACE_CREATE_INFO, nullptr, action, XR_NULL_PATH,
                                                kIdentity};
    XrSpace space = XR_NULL_HANDLE;
    EXPECT_EQ(CreateActionSpace(session, &space_info, &space), XR_ERROR_ACTION_TYPE_MISMATCH);
}

TEST_F(SimulatorActions, SyncOutsideTheFocusGivesNothing) {
    const XrSession session = MakeSession();
    const XrActionSet set = MakeActionSet("play");
    MakeAction(set, "act", XR_ACTION_TYPE_FLOAT_INPUT, {"/user/hand/left"});
    Attach(session, {set});
    EXPECT_EQ(Sync(session, {set}), XR_SESSION_NOT_FOCUSED);
    Begin(session);
    EXPECT_EQ(Sync(session, {set}), XR_SUCCESS);
    const XrActiveActionSet active = {set, Path("/user/hand/right")};
    const XrActionsSyncInfo info = {XR_TYPE_ACTIONS_SYNC_INFO, nullptr, 1, &active};
    EXPECT_EQ(SyncActions(session, &info), XR_ERROR_PATH_UNSUPPORTED) << "no action has that subaction path";
    RequestExitSession(session);
    EXPECT_EQ(Sync(session, {set}), XR_SESSION_NOT_FOCUSED);
}

}  // namespace
}  // namespace simulator_test
