// Actions as they are declared and bound. Everything goes down as it came, but for the profile of the simulated
// controllers, of which the runtime knows nothing.
#include <algorithm>
#include <span>

#include "automation/guard.h"
#include "automation/hooks.h"
#include "automation/session.h"
#include "xr/input/extensions.h"

namespace automation {
namespace {

TopLevels SubactionsOf(const Instance& instance, const XrActionCreateInfo& info) {
    TopLevels tops = 0;
    for (std::uint32_t i = 0; i < info.countSubactionPaths; ++i) {
        const auto top = instance.TopLevelOf(info.subactionPaths[i]);
        tops = static_cast<TopLevels>(tops | (top ? xr_input::BitOf(*top) : kElsewhere));
    }
    return tops;
}

// What of the suggestion the layer understands.
std::vector<xr_input::SuggestedBinding> Understood(const Instance& instance, const xr_input::Profile& profile,
                                                   const XrInteractionProfileSuggestedBinding& suggested) {
    std::vector<xr_input::SuggestedBinding> bindings;
    for (std::uint32_t i = 0; suggested.suggestedBindings && i < suggested.countSuggestedBindings; ++i) {
        const auto action = Registry::instance().Find(suggested.suggestedBindings[i].action);
        std::string path = instance.PathText(suggested.suggestedBindings[i].binding);
        const auto split = xr_input::SplitTopLevel(path);
        const bool is_offered = split && Offers(profile, instance.offer.api_version, split->top, split->rest);
        if (action && is_offered) bindings.push_back({action, std::move(path)});
    }
    return bindings;
}

// On which devices any profile has the actions.
void NoteDevices(const Instance& instance, const XrInteractionProfileSuggestedBinding& suggested) {
    for (std::uint32_t i = 0; i < suggested.countSuggestedBindings; ++i) {
        const auto action = Registry::instance().Find(suggested.suggestedBindings[i].action);
        const std::string path = instance.PathText(suggested.suggestedBindings[i].binding);
        const auto split = xr_input::SplitTopLevel(path);
        if (action) action->suggested_on |= split ? xr_input::BitOf(split->top) : kElsewhere;
    }
}

// For a profile of which there is no runtime to ask.
XrResult CheckActions(const XrInteractionProfileSuggestedBinding& suggested) {
    if (suggested.countSuggestedBindings == 0 || !suggested.suggestedBindings) return XR_ERROR_VALIDATION_FAILURE;
    for (const auto& binding : std::span(suggested.suggestedBindings, suggested.countSuggestedBindings)) {
        if (!Registry::instance().Find(binding.action)) return XR_ERROR_HANDLE_INVALID;
    }
    return XR_SUCCESS;
}

// What the runtime took may have paths of its extensions in it; `is_own`, where there is no runtime to ask, may not.
XrResult KeepSuggestion(Instance& instance, const xr_input::Profile& profile,
                        const XrInteractionProfileSuggestedBinding& suggested, bool is_own) {
    auto bindings = Understood(instance, profile, suggested);
    if (is_own && bindings.size() != suggested.countSuggestedBindings) return XR_ERROR_PATH_UNSUPPORTED;
    const bool is_late = std::ranges::any_of(bindings, [](const auto& binding) {
        return static_cast<const ActionSet&>(*binding.action->set).attached.load();
    });
    if (is_late) return XR_ERROR_ACTIONSETS_ALREADY_ATTACHED;
    const std::lock_guard lock(instance.mutex);
    instance.suggestions[&profile] = std::move(bindings);
    return XR_SUCCESS;
}

// Profiles that the layer itself brings.
bool IsOwn(const Instance& instance, const xr_input::Profile& profile) {
    if (!profile.extension || !profile.IsOfferedBy(instance.offer)) return false;
    const std::string_view extension = profile.extension;
    return (instance.parts.input && extension == xr_input::kConformanceAutomation) ||
           (instance.parts.controller_profile && extension == xr_input::kProntoProfile);
}

}  // namespace

XrResult CreateActionSet(XrInstance instance, const XrActionSetCreateInfo* info, XrActionSet* action_set) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(instance);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = owner->next.CreateActionSet(instance, info, action_set);
        if (XR_FAILED(result)) return result;
        GuardOwnWork([&] {
            auto made = std::make_shared<ActionSet>();
            made->instance = owner;
            made->priority = info->priority;
            Registry::instance().Add(*action_set, std::move(made));
        });
        return result;
    });
}

XrResult DestroyActionSet(XrActionSet action_set) {
    return Guarded([&] {
        const auto set = Registry::instance().Find(action_set);
        if (!set) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = set->instance->next.DestroyActionSet(action_set);
        if (XR_SUCCEEDED(result)) Registry::instance().Remove(action_set, set);
        return result;
    });
}

XrResult CreateAction(XrActionSet action_set, const XrActionCreateInfo* info, XrAction* action) {
    return Guarded([&] {
        const auto set = Registry::instance().Find(action_set);
        if (!set) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = set->instance->next.CreateAction(action_set, info, action);
        if (XR_FAILED(result)) return result;
        GuardOwnWork([&] {
            auto made = std::make_shared<Action>();
            made->instance = set->instance;
            made->type = info->actionType;
            made->subactions = SubactionsOf(*set->instance, *info);
            made->subaction_paths.assign(info->subactionPaths, info->subactionPaths + info->countSubactionPaths);
            made->set = set;
            Registry::instance().Add(*action, std::move(made));
        });
        return result;
    });
}

XrResult DestroyAction(XrAction action) {
    return Guarded([&] {
        const auto known = Registry::instance().Find(action);
        if (!known) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = known->instance->next.DestroyAction(action);
        if (XR_SUCCEEDED(result)) Registry::instance().Remove(action, known);
        return result;
    });
}

XrResult SuggestInteractionProfileBindings(XrInstance instance, const XrInteractionProfileSuggestedBinding* suggested) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(instance);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const xr_input::Profile* const profile =
            suggested ? xr_input::FindProfile(owner->PathText(suggested->interactionProfile)) : nullptr;
        if (profile && IsOwn(*owner, *profile)) {
            XrResult result = CheckActions(*suggested);
            if (XR_SUCCEEDED(result)) result = KeepSuggestion(*owner, *profile, *suggested, true);
            if (XR_SUCCEEDED(result)) NoteDevices(*owner, *suggested);
            return result;
        }
        const XrResult result = owner->next.SuggestInteractionProfileBindings(instance, suggested);
        if (XR_FAILED(result)) return result;
        GuardOwnWork([&] {
            NoteDevices(*owner, *suggested);
            // One of a runtime's own paths is no business of the layer's.
            if (profile && profile->IsOfferedBy(owner->offer)) KeepSuggestion(*owner, *profile, *suggested, false);
        });
        return result;
    });
}

XrResult AttachSessionActionSets(XrSession session, const XrSessionActionSetsAttachInfo* info) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = owner->instance->next.AttachSessionActionSets(session, info);
        if (XR_FAILED(result)) return result;
        GuardOwnWork([&] {
            xr_input::Suggestions suggestions;
            {
                const std::lock_guard lock(owner->instance->mutex);
                suggestions = owner->instance->suggestions;
            }
            std::vector<std::shared_ptr<const xr_input::ActionSet>> sets;
            for (std::uint32_t i = 0; i < info->countActionSets; ++i) {
                const auto set = Registry::instance().Find(info->actionSets[i]);
                if (!set) continue;
                set->attached = true;
                sets.push_back(set);
            }
            const std::lock_guard lock(owner->mutex);
            owner->input.attached = std::move(sets);
            owner->input.Bind(suggestions);
        });
        return result;
    });
}

}  // namespace automation
