#include "simulator/profiles.h"

#include <algorithm>

#include "simulator/extensions.h"

namespace simulator {
namespace {

constexpr Source kSimpleController[] = {
    {"input/select/click", kBoth}, {"input/menu/click", kBoth}, {"input/grip/pose", kBoth},
    {"input/aim/pose", kBoth},     {"output/haptic", kBoth},
};

constexpr Source kTouchController[] = {
    {"input/x/click", kLeft},         {"input/x/touch", kLeft},          {"input/y/click", kLeft},
    {"input/y/touch", kLeft},         {"input/menu/click", kLeft},       {"input/a/click", kRight},
    {"input/a/touch", kRight},        {"input/b/click", kRight},         {"input/b/touch", kRight},
    {"input/system/click", kRight},   {"input/squeeze/value", kBoth},    {"input/trigger/value", kBoth},
    {"input/trigger/touch", kBoth},   {"input/thumbstick", kBoth},       {"input/thumbstick/x", kBoth},
    {"input/thumbstick/y", kBoth},    {"input/thumbstick/click", kBoth}, {"input/thumbstick/touch", kBoth},
    {"input/thumbrest/touch", kBoth}, {"input/grip/pose", kBoth},        {"input/aim/pose", kBoth},
    {"output/haptic", kBoth},
};

constexpr Source kIndexController[] = {
    {"input/system/click", kBoth},     {"input/system/touch", kBoth},   {"input/a/click", kBoth},
    {"input/a/touch", kBoth},          {"input/b/click", kBoth},        {"input/b/touch", kBoth},
    {"input/squeeze/value", kBoth},    {"input/squeeze/force", kBoth},  {"input/trigger/click", kBoth},
    {"input/trigger/value", kBoth},    {"input/trigger/touch", kBoth},  {"input/thumbstick", kBoth},
    {"input/thumbstick/x", kBoth},     {"input/thumbstick/y", kBoth},   {"input/thumbstick/click", kBoth},
    {"input/thumbstick/touch", kBoth}, {"input/trackpad", kBoth},       {"input/trackpad/x", kBoth},
    {"input/trackpad/y", kBoth},       {"input/trackpad/force", kBoth}, {"input/trackpad/touch", kBoth},
    {"input/grip/pose", kBoth},        {"input/aim/pose", kBoth},       {"output/haptic", kBoth},
};

constexpr Source kViveController[] = {
    {"input/system/click", kBoth},   {"input/squeeze/click", kBoth}, {"input/menu/click", kBoth},
    {"input/trigger/click", kBoth},  {"input/trigger/value", kBoth}, {"input/trackpad", kBoth},
    {"input/trackpad/x", kBoth},     {"input/trackpad/y", kBoth},    {"input/trackpad/click", kBoth},
    {"input/trackpad/touch", kBoth}, {"input/grip/pose", kBoth},     {"input/aim/pose", kBoth},
    {"output/haptic", kBoth},
};

constexpr Source kMotionController[] = {
    {"input/menu/click", kBoth},       {"input/squeeze/click", kBoth},  {"input/trigger/value", kBoth},
    {"input/thumbstick", kBoth},       {"input/thumbstick/x", kBoth},   {"input/thumbstick/y", kBoth},
    {"input/thumbstick/click", kBoth}, {"input/trackpad", kBoth},       {"input/trackpad/x", kBoth},
    {"input/trackpad/y", kBoth},       {"input/trackpad/click", kBoth}, {"input/trackpad/touch", kBoth},
    {"input/grip/pose", kBoth},        {"input/aim/pose", kBoth},       {"output/haptic", kBoth},
};

// A device without poses, and not held in one hand.
constexpr Source kXboxController[] = {
    {"input/menu/click", kGamepadOnly},
    {"input/view/click", kGamepadOnly},
    {"input/a/click", kGamepadOnly},
    {"input/b/click", kGamepadOnly},
    {"input/x/click", kGamepadOnly},
    {"input/y/click", kGamepadOnly},
    {"input/dpad_down/click", kGamepadOnly},
    {"input/dpad_right/click", kGamepadOnly},
    {"input/dpad_up/click", kGamepadOnly},
    {"input/dpad_left/click", kGamepadOnly},
    {"input/shoulder_left/click", kGamepadOnly},
    {"input/shoulder_right/click", kGamepadOnly},
    {"input/trigger_left/value", kGamepadOnly},
    {"input/trigger_right/value", kGamepadOnly},
    {"input/thumbstick_left", kGamepadOnly},
    {"input/thumbstick_left/x", kGamepadOnly},
    {"input/thumbstick_left/y", kGamepadOnly},
    {"input/thumbstick_left/click", kGamepadOnly},
    {"input/thumbstick_right", kGamepadOnly},
    {"input/thumbstick_right/x", kGamepadOnly},
    {"input/thumbstick_right/y", kGamepadOnly},
    {"input/thumbstick_right/click", kGamepadOnly},
    {"output/haptic_left", kGamepadOnly},
    {"output/haptic_right", kGamepadOnly},
    {"output/haptic_left_trigger", kGamepadOnly},
    {"output/haptic_right_trigger", kGamepadOnly},
};

constexpr Source kProntoControllerPlus[] = {
    {"input/x/click", kLeft},
    {"input/x/touch", kLeft},
    {"input/y/click", kLeft},
    {"input/y/touch", kLeft},
    {"input/menu/click", kLeft},
    {"input/a/click", kRight},
    {"input/a/touch", kRight},
    {"input/b/click", kRight},
    {"input/b/touch", kRight},
    {"input/system/click", kRight},
    {"input/squeeze/value", kBoth},
    {"input/trigger/value", kBoth},
    {"input/trigger/touch", kBoth},
    {"input/trigger/proximity", kBoth},
    {"input/trigger/force", kBoth},
    {"input/trigger/curl_kest", kBoth},
    {"input/trigger/slide_kest", kBoth},
    {"input/thumbstick", kBoth},
    {"input/thumbstick/x", kBoth},
    {"input/thumbstick/y", kBoth},
    {"input/thumbstick/click", kBoth},
    {"input/thumbstick/touch", kBoth},
    {"input/thumbrest/touch", kBoth},
    {"input/grip/pose", kBoth},
    {"input/aim/pose", kBoth},
    {"output/haptic", kBoth},
};

constexpr Source kHeadKestx2[] = {{"input/view_kest/pose", kHeadOnly}};

constexpr Profile kProfiles[] = {
    {"/interaction_profiles/khr/simple_controller", "Simple Controller", nullptr, kSimpleController},
    {"/interaction_profiles/oculus/touch_controller", "Touch Controller", nullptr, kTouchController},
    {"/interaction_profiles/valve/index_controller", "Index Controller", nullptr, kIndexController},
    {"/interaction_profiles/htc/vive_controller", "Vive Controller", nullptr, kViveController},
    {"/interaction_profiles/microsoft/motion_controller", "Motion Controller", nullptr, kMotionController},
    {"/interaction_profiles/microsoft/xbox_controller", "Xbox Controller", nullptr, kXboxController},
    {"/interaction_profiles/kest/pronto_controller_plus", "Pronto Controller Plus", kProntoProfile,
     kProntoControllerPlus},
    {"/interaction_profiles/kest/head_kestx2", "Headset", kConformanceAutomation, kHeadKestx2},
};

bool EndsWithLevel(std::string_view path, std::string_view level) {
    return path.size() > level.size() && path.substr(path.size() - level.size()) == level &&
           path[path.size() - level.size() - 1] == '/';
}

bool EndsWithOneOf(std::string_view path, std::initializer_list<std::string_view> levels) {
    return std::any_of(levels.begin(), levels.end(),
                       [&](std::string_view level) { return EndsWithLevel(path, level); });
}

}  // namespace

bool Profile::Has(TopLevel top) const {
    return std::any_of(sources.begin(), sources.end(), [&](const Source& source) { return source.tops & BitOf(top); });
}

std::optional<std::size_t> Profile::Find(TopLevel top, std::string_view wanted) const {
    for (std::size_t i = 0; i < sources.size(); ++i) {
        if (sources[i].path == wanted && (sources[i].tops & BitOf(top))) return i;
    }
    return std::nullopt;
}

std::span<const Profile> AllProfiles() {
    return kProfiles;
}

const Profile* FindProfile(std::string_view path) {
    const auto* const end = std::end(kProfiles);
    const auto* const found =
        std::find_if(std::begin(kProfiles), end, [&](const Profile& profile) { return profile.path == path; });
    return found == end ? nullptr : found;
}

SourceType TypeOf(std::string_view source_path) {
    if (source_path.substr(0, 7) == "output/") return SourceType::kHaptic;
    if (EndsWithLevel(source_path, "pose")) return SourceType::kPose;
    if (EndsWithOneOf(source_path, {"click", "touch", "proximity"})) return SourceType::kBoolean;
    if (EndsWithOneOf(source_path, {"thumbstick", "trackpad", "thumbstick_left", "thumbstick_right"})) {
        return SourceType::kVector2;
    }
    return SourceType::kFloat;
}

}  // namespace simulator
