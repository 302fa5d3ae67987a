#include "simulator/bindings.h"

#include <string>
#include <utility>
#include <vector>

#include "simulator/input.h"
#include "simulator/instance.h"
#include "simulator/runtime.h"
#include "simulator/session.h"

namespace simulator {

const Profile& CheckedProfile(const Instance& instance, XrPath path) {
    const Profile* profile = FindProfile(instance.PathText(path));
    if (!profile || !profile->IsOfferedBy(instance)) Refuse(XR_ERROR_PATH_UNSUPPORTED);
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
            Require(action->Set().instance == &owner);
            if (action->Set().attached) Refuse(XR_ERROR_ACTIONSETS_ALREADY_ATTACHED);
            const std::string& path = owner.PathText(suggested->suggestedBindings[i].binding);
            const auto split = SplitTopLevel(path);
            if (!split || !Offers(profile, owner.api_version, split->top, split->rest))
                Refuse(XR_ERROR_PATH_UNSUPPORTED);
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
        owner.input.attached.assign(sets.begin(), sets.end());
        owner.input.Bind(owner.instance->suggestions);
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
        for (const std::string& source : owner->input.BoundSources(*action)) {
            bound.push_back(owner->instance->paths.Intern(source));
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
        if (!profile || !Offers(*profile, owner->instance->api_version, split->top, split->rest)) {
            Refuse(XR_ERROR_PATH_UNSUPPORTED);
        }
        const std::string name = LocalizedName(*profile, split->top, split->rest, info->whichComponents);
        return WriteText(name, capacity, count, buffer);
    });
}

}  // namespace simulator
