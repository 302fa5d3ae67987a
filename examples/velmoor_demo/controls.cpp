#include "examples/velmoor_demo/controls.h"

#include <cstdint>
#include <cstring>

#include "examples/velmoor_demo/check.h"
#include "xr/location.h"

namespace demo {
namespace {

struct Button {
    const char* name;
    const char* shown_name;
    // Where it is on a touch controller; null where that hand has no such button.
    const char* left;
    const char* right;
    // Where it is on a simple controller, or null.
    const char* simple_left;
    const char* simple_right;
};

constexpr Button kButtons[] = {
    {"a", "Button A", nullptr, "input/a/click", nullptr, "input/select/click"},
    {"b", "Button B", nullptr, "input/b/click", nullptr, nullptr},
    {"x", "Button X", "input/x/click", nullptr, "input/select/click", nullptr},
    {"y", "Button Y", "input/y/click", nullptr, nullptr, nullptr},
    {"menu", "Menu button", "input/menu/click", nullptr, "input/menu/click", nullptr},
    {"stick", "Thumbstick press", "input/thumbstick/click", "input/thumbstick/click", nullptr, nullptr},
};

// Collects the bindings of one profile.
class Suggestions {
 public:
    template <class ToPath>
    void Add(XrAction action, const ToPath& to_path, std::size_t hand, const char* source) {
        if (!source) return;
        bindings_.push_back({action, to_path(std::string("/user/hand/") + kHandNames[hand] + "/" + source)});
    }

    void Send(XrInstance instance, XrPath profile) const {
        XrInteractionProfileSuggestedBinding info = {XR_TYPE_INTERACTION_PROFILE_SUGGESTED_BINDING, nullptr, profile,
                                                     static_cast<std::uint32_t>(bindings_.size()), bindings_.data()};
        Check(xrSuggestInteractionProfileBindings(instance, &info), "xrSuggestInteractionProfileBindings");
    }

 private:
    std::vector<XrActionSuggestedBinding> bindings_;
};

}  // namespace

Controls::Controls(XrInstance instance, XrSession session) : instance_(instance), session_(session) {
    hand_paths_ = {Path("/user/hand/left"), Path("/user/hand/right")};
    MakeActions();
    SuggestBindings();
    const XrSessionActionSetsAttachInfo attach = {XR_TYPE_SESSION_ACTION_SETS_ATTACH_INFO, nullptr, 1, &set_};
    Check(xrAttachSessionActionSets(session_, &attach), "xrAttachSessionActionSets");
    MakePoseSpaces();
}

Controls::~Controls() {
    for (const XrSpace space : {grip_spaces_[0], grip_spaces_[1], aim_spaces_[0], aim_spaces_[1]}) {
        xrDestroySpace(space);
    }
    xrDestroyActionSet(set_);
}

XrPath Controls::Path(const std::string& text) const {
    XrPath path = XR_NULL_PATH;
    Check(xrStringToPath(instance_, text.c_str(), &path), "xrStringToPath");
    return path;
}

XrAction Controls::MakeAction(const char* name, const char* shown_name, XrActionType type) {
    XrActionCreateInfo info = {};
    info.type = XR_TYPE_ACTION_CREATE_INFO;
    std::strncpy(info.actionName, name, sizeof(info.actionName) - 1);
    std::strncpy(info.localizedActionName, shown_name, sizeof(info.localizedActionName) - 1);
    info.actionType = type;
    info.countSubactionPaths = static_cast<std::uint32_t>(hand_paths_.size());
    info.subactionPaths = hand_paths_.data();
    XrAction action = XR_NULL_HANDLE;
    Check(xrCreateAction(set_, &info, &action), "xrCreateAction");
    return action;
}

void Controls::MakeActions() {
    XrActionSetCreateInfo info = {};
    info.type = XR_TYPE_ACTION_SET_CREATE_INFO;
    std::strcpy(info.actionSetName, "play");
    std::strcpy(info.localizedActionSetName, "Play");
    Check(xrCreateActionSet(instance_, &info, &set_), "xrCreateActionSet");

    grip_ = MakeAction("hand_pose", "Hand", XR_ACTION_TYPE_POSE_INPUT);
    aim_ = MakeAction("aim_pose", "Pointer", XR_ACTION_TYPE_POSE_INPUT);
    trigger_ = MakeAction("trigger", "Trigger", XR_ACTION_TYPE_FLOAT_INPUT);
    squeeze_ = MakeAction("squeeze", "Grab", XR_ACTION_TYPE_FLOAT_INPUT);
    thumbstick_ = MakeAction("thumbstick", "Move", XR_ACTION_TYPE_VECTOR2F_INPUT);
    for (const Button& button : kButtons) {
        buttons_.push_back(MakeAction(button.name, button.shown_name, XR_ACTION_TYPE_BOOLEAN_INPUT));
    }
}

void Controls::SuggestBindings() {
    const auto to_path = [this](const std::string& text) { return Path(text); };
    Suggestions touch;
    Suggestions simple;
    for (std::size_t hand = 0; hand < kHandNames.size(); ++hand) {
        for (Suggestions* profile : {&touch, &simple}) {
            profile->Add(grip_, to_path, hand, "input/grip/pose");
            profile->Add(aim_, to_path, hand, "input/aim/pose");
        }
        touch.Add(trigger_, to_path, hand, "input/trigger/value");
        touch.Add(squeeze_, to_path, hand, "input/squeeze/value");
        touch.Add(thumbstick_, to_path, hand, "input/thumbstick");
        for (std::size_t i = 0; i < buttons_.size(); ++i) {
            touch.Add(buttons_[i], to_path, hand, hand == 0 ? kButtons[i].left : kButtons[i].right);
            simple.Add(buttons_[i], to_path, hand, hand == 0 ? kButtons[i].simple_left : kButtons[i].simple_right);
        }
    }
    touch.Send(instance_, Path("/interaction_profiles/oculus/touch_controller"));
    simple.Send(instance_, Path("/interaction_profiles/khr/simple_controller"));
}

void Controls::MakePoseSpaces() {
    for (std::size_t hand = 0; hand < kHandNames.size(); ++hand) {
        XrActionSpaceCreateInfo info = {XR_TYPE_ACTION_SPACE_CREATE_INFO, nullptr, grip_, hand_paths_[hand],
                                        orvanic_xr::kIdentityPose};
        Check(xrCreateActionSpace(session_, &info, &grip_spaces_[hand]), "xrCreateActionSpace");
        info.action = aim_;
        Check(xrCreateActionSpace(session_, &info, &aim_spaces_[hand]), "xrCreateActionSpace");
    }
}

std::array<HandState, 2> Controls::Update(XrSpace base, XrTime time) {
    const XrActiveActionSet active = {set_, XR_NULL_PATH};
    const XrActionsSyncInfo sync = {XR_TYPE_ACTIONS_SYNC_INFO, nullptr, 1, &active};
    Check(xrSyncActions(session_, &sync), "xrSyncActions");
    std::array<HandState, 2> hands;
    for (std::size_t hand = 0; hand < hands.size(); ++hand) {
        hands[hand].grip = Locate(grip_spaces_[hand], base, time);
        hands[hand].aim = Locate(aim_spaces_[hand], base, time);
        hands[hand].trigger = ReadFloat(trigger_, hand);
        hands[hand].squeeze = ReadFloat(squeeze_, hand);
        hands[hand].thumbstick = ReadVector(thumbstick_, hand);
        hands[hand].pressed = ReadButtons(hand);
    }
    return hands;
}

std::string Controls::ProfileOf(std::size_t hand) const {
    XrInteractionProfileState state = {XR_TYPE_INTERACTION_PROFILE_STATE, nullptr, XR_NULL_PATH};
    Check(xrGetCurrentInteractionProfile(session_, hand_paths_[hand], &state), "xrGetCurrentInteractionProfile");
    if (state.interactionProfile == XR_NULL_PATH) return "none";
    char text[XR_MAX_PATH_LENGTH] = {};
    std::uint32_t count = 0;
    Check(xrPathToString(instance_, state.interactionProfile, sizeof(text), &count, text), "xrPathToString");
    return text;
}

XrActionStateGetInfo Controls::Ask(XrAction action, std::size_t hand) const {
    return {XR_TYPE_ACTION_STATE_GET_INFO, nullptr, action, hand_paths_[hand]};
}

std::optional<XrPosef> Controls::Locate(XrSpace space, XrSpace base, XrTime time) const {
    XrSpaceLocation location = {XR_TYPE_SPACE_LOCATION, nullptr, 0, orvanic_xr::kIdentityPose};
    Check(xrLocateSpace(space, base, time, &location), "xrLocateSpace");
    if (!orvanic_xr::HasValidPose(location.locationFlags)) return std::nullopt;
    return location.pose;
}

float Controls::ReadFloat(XrAction action, std::size_t hand) const {
    const XrActionStateGetInfo info = Ask(action, hand);
    XrActionStateFloat state = {XR_TYPE_ACTION_STATE_FLOAT, nullptr, 0.0f, XR_FALSE, 0, XR_FALSE};
    Check(xrGetActionStateFloat(session_, &info, &state), "xrGetActionStateFloat");
    return state.currentState;
}

XrVector2f Controls::ReadVector(XrAction action, std::size_t hand) const {
    const XrActionStateGetInfo info = Ask(action, hand);
    XrActionStateVector2f state = {XR_TYPE_ACTION_STATE_VECTOR2F, nullptr, {0.0f, 0.0f}, XR_FALSE, 0, XR_FALSE};
    Check(xrGetActionStateVector2f(session_, &info, &state), "xrGetActionStateVector2f");
    return state.currentState;
}

std::vector<std::string> Controls::ReadButtons(std::size_t hand) const {
    std::vector<std::string> pressed;
    for (std::size_t i = 0; i < buttons_.size(); ++i) {
        const XrActionStateGetInfo info = Ask(buttons_[i], hand);
        XrActionStateBoolean state = {XR_TYPE_ACTION_STATE_BOOLEAN, nullptr, XR_FALSE, XR_FALSE, 0, XR_FALSE};
        Check(xrGetActionStateBoolean(session_, &info, &state), "xrGetActionStateBoolean");
        if (state.currentState) pressed.push_back(kButtons[i].name);
    }
    return pressed;
}

}  // namespace demo
