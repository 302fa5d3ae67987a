#include "simulator/bindings.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/session.h"

namespace simulator {
namespace {

// The path is a source of the profile, or one without its component ("input/trigger"), which the runtime then picks.
bool Offers(const Instance& instance, const Profile& profile, TopLevel top, std::string_view rest) {
    const bool names_source = rest.find('/') != std::string_view::npos;
    return std::any_of(profile.sources.begin(), profile.sources.end(), [&](const Source& source) {
        const std::string_view parent = std::string_view(source.path).substr(0, source.path.rfind('/'));
        return (source.tops & BitOf(top)) && source.since <= instance.api_version &&
               (source.path == rest || (names_source && parent == rest));
    });
}

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

std::vector<const char*> ComponentsFor(XrActionType action) {
    switch (action) {
        case XR_ACTION_TYPE_BOOLEAN_INPUT:
            return {"", "/click", "/value", "/force"};
        case XR_ACTION_TYPE_FLOAT_INPUT:
            return {"", "/value", "/force", "/click"};
        case XR_ACTION_TYPE_POSE_INPUT:
            return {"", "/pose"};
        default:
            return {""};
    }
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

// The profile of every suggestion stays selectable, even where it binds nothing of what is attached.
void ResolveAll(const Instance& instance, Input& input) {
    for (const auto& [profile, suggestions] : instance.suggestions) {
        std::vector<Binding>& bindings = input.bindings_by_profile[profile];
        for (const SuggestedBinding& suggestion : suggestions) {
            if (!input.IsAttached(*suggestion.action->set)) continue;
            if (auto binding = Resolve(*profile, suggestion)) bindings.push_back(std::move(*binding));
        }
    }
}

std::string SourcePath(const Input& input, const Binding& binding) {
    const auto top = static_cast<std::size_t>(binding.top);
    return std::string(kTopLevelPaths[top]) + "/" + input.profiles[top]->sources[binding.source].path;
}

// "input/trigger/value" reads "Trigger Value".
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

constexpr std::string_view kTopLevelNames[] = {"Left Hand", "Right Hand", "Head", "Gamepad", "Treadmill"};

}  // namespace

const Profile& CheckedProfile(const Instance& instance, XrPath path) {
    const Profile* profile = FindProfile(instance.PathText(path));
    if (!profile || !profile->IsOffered(instance)) Refuse(XR_ERROR_PATH_UNSUPPORTED);
    return *profile;
}

XrResult SuggestInteractionProfileBindings(XrInstance instance, const XrInteractionProfileSuggestedBinding* suggested) {
    return Guarded([&](Runtime& runtime) {
        Instance& owner = *runtime.Get(instance);
        RequireType(suggested, XR_TYPE_INTERACTION_PROFILE_SUGGESTED_BINDING);
        Require(suggested->countSuggestedBindings > 0 && suggested->suggestedBindings);
        const Profile& profile = CheckedProfile(owner, suggested->interactionProfile);
        std::vector<SuggestedBinding> bindings;
        for (std::uint32_t i = 0; i < suggested->countSuggestedBindings; ++i) {
            const auto action = runtime.Get(suggested->suggestedBindings[i].action);
            Require(action->set->instance == &owner);
            if (action->set->attached) Refuse(XR_ERROR_ACTIONSETS_ALREADY_ATTACHED);
            const std::string& path = owner.PathText(suggested->suggestedBindings[i].binding);
            const auto split = SplitTopLevel(path);
            if (!split || !Offers(owner, profile, split->top, split->rest)) Refuse(XR_ERROR_PATH_UNSUPPORTED);
            bindings.push_back({action, path});
        }
        owner.suggestions[&profile] = std::move(bindings);
        return XR_SUCCESS;
    });
}

XrResult AttachSessionActionSets(XrSession session, const XrSessionActionSetsAttachInfo* info) {
    return Guarded([&](Runtime& runtime) {
        Session& owner = *runtime.Get(session);
        RequireType(info, XR_TYPE_SESSION_ACTION_SETS_ATTACH_INFO);
        Require(info->countActionSets > 0 && info->actionSets);
        if (!owner.input.attached.empty()) Refuse(XR_ERROR_ACTIONSETS_ALREADY_ATTACHED);
        std::vector<std::shared_ptr<ActionSet>> sets;
        for (std::uint32_t i = 0; i < info->countActionSets; ++i) {
            sets.push_back(runtime.Get(info->actionSets[i]));
            Require(sets.back()->instance == owner.instance.get());
        }
        for (const auto& set : sets) set->attached = true;
        owner.input.attached = std::move(sets);
        ResolveAll(*owner.instance, owner.input);
        return XR_SUCCESS;
    });
}

XrResult GetCurrentInteractionProfile(XrSession session, XrPath top_level_path, XrInteractionProfileState* profile) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        RequireType(profile, XR_TYPE_INTERACTION_PROFILE_STATE);
        const auto split = SplitTopLevel(owner->instance->PathText(top_level_path));
        if (!split || !split->rest.empty()) Refuse(XR_ERROR_PATH_UNSUPPORTED);
        if (owner->input.attached.empty()) Refuse(XR_ERROR_ACTIONSET_NOT_ATTACHED);
        const Profile* current = owner->input.profiles[static_cast<std::size_t>(split->top)];
        profile->interactionProfile = current ? owner->instance->paths.Intern(current->path) : XR_NULL_PATH;
        return XR_SUCCESS;
    });
}

XrResult EnumerateBoundSourcesForAction(XrSession session, const XrBoundSourcesForActionEnumerateInfo* info,
                                        std::uint32_t capacity, std::uint32_t* count, XrPath* sources) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        RequireType(info, XR_TYPE_BOUND_SOURCES_FOR_ACTION_ENUMERATE_INFO);
        const auto action = runtime.Get(info->action);
        if (!owner->input.IsAttached(*action->set)) Refuse(XR_ERROR_ACTIONSET_NOT_ATTACHED);
        std::vector<XrPath> bound;
        for (const Binding& binding : owner->input.bindings) {
            if (binding.action != action) continue;
            bound.push_back(owner->instance->paths.Intern(SourcePath(owner->input, binding)));
        }
        return WriteList(bound, capacity, count, sources);
    });
}

XrResult GetInputSourceLocalizedName(XrSession session, const XrInputSourceLocalizedNameGetInfo* info,
                                     std::uint32_t capacity, std::uint32_t* count, char* buffer) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        RequireType(info, XR_TYPE_INPUT_SOURCE_LOCALIZED_NAME_GET_INFO);
        constexpr XrInputSourceLocalizedNameFlags kKnown = XR_INPUT_SOURCE_LOCALIZED_NAME_USER_PATH_BIT |
                                                           XR_INPUT_SOURCE_LOCALIZED_NAME_INTERACTION_PROFILE_BIT |
                                                           XR_INPUT_SOURCE_LOCALIZED_NAME_COMPONENT_BIT;
        Require(info->whichComponents != 0 && (info->whichComponents & ~kKnown) == 0);
        if (owner->input.attached.empty()) Refuse(XR_ERROR_ACTIONSET_NOT_ATTACHED);
        const auto split = SplitTopLevel(owner->instance->PathText(info->sourcePath));
        const Profile* profile = split ? owner->input.profiles[static_cast<std::size_t>(split->top)] : nullptr;
        if (!profile || !Offers(*owner->instance, *profile, split->top, split->rest)) Refuse(XR_ERROR_PATH_UNSUPPORTED);
        std::string name;
        const auto append = [&](XrInputSourceLocalizedNameFlags flag, const std::string& text) {
            if (info->whichComponents & flag) name += (name.empty() ? "" : " ") + text;
        };
        append(XR_INPUT_SOURCE_LOCALIZED_NAME_USER_PATH_BIT,
               std::string(kTopLevelNames[static_cast<std::size_t>(split->top)]));
        append(XR_INPUT_SOURCE_LOCALIZED_NAME_INTERACTION_PROFILE_BIT, std::string(profile->name));
        append(XR_INPUT_SOURCE_LOCALIZED_NAME_COMPONENT_BIT, InWords(split->rest));
        return WriteText(name, capacity, count, buffer);
    });
}

}  // namespace simulator
