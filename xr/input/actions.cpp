#include "xr/input/actions.h"

#include <algorithm>
#include <initializer_list>

namespace xr_input {
namespace {

bool CanFeed(SourceType source, XrActionType action) {
    const bool scalar = source == SourceType::kBoolean || source == SourceType::kFloat;
    switch (action) {
        case XR_ACTION_TYPE_BOOLEAN_INPUT:
        case XR_ACTION_TYPE_FLOAT_INPUT:
            return scalar;
        case XR_ACTION_TYPE_VECTOR2F_INPUT:
            return source == SourceType::kVector2;
        case XR_ACTION_TYPE_POSE_INPUT:
            return source == SourceType::kPose;
        default:
            return source == SourceType::kHaptic;
    }
}

std::initializer_list<const char*> ComponentsFor(XrActionType action) {
    static constexpr std::initializer_list<const char*> kBooleans = {"", "/click", "/value", "/force"};
    static constexpr std::initializer_list<const char*> kFloats = {"", "/value", "/force", "/click"};
    static constexpr std::initializer_list<const char*> kPoses = {"", "/pose"};
    static constexpr std::initializer_list<const char*> kOthers = {""};
    switch (action) {
        case XR_ACTION_TYPE_BOOLEAN_INPUT:
            return kBooleans;
        case XR_ACTION_TYPE_FLOAT_INPUT:
            return kFloats;
        case XR_ACTION_TYPE_POSE_INPUT:
            return kPoses;
        default:
            return kOthers;
    }
}

constexpr std::string_view kTopLevelNames[] = {"Left Hand", "Right Hand", "Head", "Gamepad", "Treadmill"};

}  // namespace

bool Offers(const Profile& profile, XrVersion api_version, TopLevel top, std::string_view rest) {
    const bool names_source = rest.find('/') != std::string_view::npos;
    return std::any_of(profile.sources.begin(), profile.sources.end(), [&](const Source& source) {
        const std::string_view parent = std::string_view(source.path).substr(0, source.path.rfind('/'));
        return (source.tops & BitOf(top)) && source.since <= api_version &&
               (source.path == rest || (names_source && parent == rest));
    });
}

std::optional<Binding> Resolve(const Profile& profile, const SuggestedBinding& suggestion) {
    const auto split = SplitTopLevel(suggestion.path);
    const Action& action = *suggestion.action;
    if (!split || (action.subactions != 0 && !(action.subactions & BitOf(split->top)))) return std::nullopt;
    for (const char* component : ComponentsFor(action.type)) {
        const auto source = profile.Find(split->top, std::string(split->rest) + component);
        if (source && CanFeed(TypeOf(profile.sources[*source].path), action.type)) {
            return Binding{suggestion.action, split->top, *source};
        }
    }
    return std::nullopt;
}

std::string InWords(std::string_view source_path) {
    std::string words(source_path.substr(source_path.find('/') + 1));
    bool first = true;
    for (char& c : words) {
        if (c == '/' || c == '_') c = ' ';
        if (first && c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        first = c == ' ';
    }
    return words;
}

std::string LocalizedName(const Profile& profile, TopLevel top, std::string_view rest,
                          XrInputSourceLocalizedNameFlags parts) {
    std::string name;
    const auto append = [&](XrInputSourceLocalizedNameFlags flag, std::string_view text) {
        if ((parts & flag) == 0) return;
        if (!name.empty()) name += ' ';
        name += text;
    };
    append(XR_INPUT_SOURCE_LOCALIZED_NAME_USER_PATH_BIT, kTopLevelNames[static_cast<std::size_t>(top)]);
    append(XR_INPUT_SOURCE_LOCALIZED_NAME_INTERACTION_PROFILE_BIT, profile.name);
    append(XR_INPUT_SOURCE_LOCALIZED_NAME_COMPONENT_BIT, InWords(rest));
    return name;
}

}  // namespace xr_input
