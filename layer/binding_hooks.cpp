#include "layer/binding_hooks.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "context/context_manager.h"
#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "layer/action_maps.h"
#include "layer/binding_mirror.h"
#include "layer/dispatch/paths.h"
#include "layer/hook_support.h"

namespace orvanic_xr {
namespace {

constexpr HookGuard kSuggestGuard = {"OrvanicLayerXrSuggestInteractionProfileBindings"};
constexpr HookGuard kAttachGuard = {"OrvanicLayerXrAttachSessionActionSets"};

// A list with a count and no entries can't be widened; the next layer is left to refuse it.
template <typename Entry>
bool CanWiden(std::uint32_t count, const Entry* entries) {
    return count == 0 || (entries && count < std::numeric_limits<std::uint32_t>::max());
}

template <typename Entry>
std::span<const Entry> Entries(std::uint32_t count, const Entry* entries) {
    return entries ? std::span(entries, count) : std::span<const Entry>();
}

PoseKinds KindsOfPath(const std::string& path) {
    return {path.find("/grip/pose") != std::string::npos, path.find("/aim/pose") != std::string::npos};
}

void NoteSuggestion(XrInstance instance, XrPath profile_path, std::span<const XrActionSuggestedBinding> bindings) {
    const std::string profile = TextFromPath(instance, profile_path);
    if (profile.empty()) return;
    for (const XrActionSuggestedBinding& binding : bindings) {
        const std::string path = TextFromPath(instance, binding.binding);
        LogDebug("[inputdiag] suggest action=", binding.action, " path=", path, " profile=", profile);
        ActionMaps::instance().AddPoseKinds(binding.action, KindsOfPath(path));
    }
    BindingMirror::instance().Note(profile, bindings);
}

// The application's bindings and the layer's behind them. An action that could not be made is left out: the next
// layer would refuse the application's bindings with it.
std::vector<XrActionSuggestedBinding> WithOwnBindings(std::span<const XrActionSuggestedBinding> bindings,
                                                      const SessionContext& context) {
    std::vector<XrActionSuggestedBinding> all(bindings.begin(), bindings.end());
    if (context.ended()) return all;
    for (const XrActionSuggestedBinding& own : context.SuggestedBindings()) {
        if (own.action) all.push_back(own);
    }
    return all;
}

XrResult SuggestBindings(XrInstance instance, const XrInteractionProfileSuggestedBinding* suggested) {
    LogInfo("OrvanicLayerXrSuggestInteractionProfileBindings called");
    const auto suggest =
        NextFunction(&NextDispatchTable::SuggestInteractionProfileBindings, "xrSuggestInteractionProfileBindings");
    if (!suggest) return XR_ERROR_RUNTIME_FAILURE;
    if (!suggested) {
        LogError("suggestedBindings is null");
        return XR_ERROR_VALIDATION_FAILURE;
    }
    if (!CanWiden(suggested->countSuggestedBindings, suggested->suggestedBindings)) return suggest(instance, suggested);
    const auto bindings = Entries(suggested->countSuggestedBindings, suggested->suggestedBindings);
    GuardOwnWork(kSuggestGuard, [&] { NoteSuggestion(instance, suggested->interactionProfile, bindings); });

    const SessionState state = ContextManager::instance().getSessionState();
    if (!state.valid || !state.session) {
        LogWarning("No valid session found, calling next without appending bindings");
        return suggest(instance, suggested);
    }
    const auto context = ContextManager::instance().getSessionContext(state.session);
    if (!context) {
        LogWarning("Session context not found, calling next without appending bindings");
        return suggest(instance, suggested);
    }
    // A suggestion takes the instance: the application may destroy the session meanwhile.
    const auto pass = context->EnterRuntime();
    std::vector<XrActionSuggestedBinding> all;
    if (!GuardOwnWork(kSuggestGuard, [&] { all = WithOwnBindings(bindings, *context); })) {
        return suggest(instance, suggested);
    }
    XrInteractionProfileSuggestedBinding widened = *suggested;
    widened.countSuggestedBindings = static_cast<std::uint32_t>(all.size());
    widened.suggestedBindings = all.data();
    LogInfo("Appending ", all.size() - bindings.size(), " orvanic bindings to ", bindings.size(), " original bindings");
    const XrResult result = suggest(instance, &widened);
    if (XR_FAILED(result)) {
        LogError("OrvanicLayerXrSuggestInteractionProfileBindings failed");
    } else {
        LogInfo("OrvanicLayerXrSuggestInteractionProfileBindings succeeded");
    }
    return result;
}

XrResult AttachActionSets(XrSession session, const XrSessionActionSetsAttachInfo* attach_info) {
    LogInfo("OrvanicLayerXrAttachSessionActionSets called");
    const auto attach = NextFunction(&NextDispatchTable::AttachSessionActionSets, "xrAttachSessionActionSets");
    if (!attach) return XR_ERROR_RUNTIME_FAILURE;
    if (!attach_info) {
        LogError("attachInfo is null");
        return XR_ERROR_VALIDATION_FAILURE;
    }
    GuardOwnWork(kAttachGuard, EnsureProntoControllerPlusBindingsSuggested);
    if (!CanWiden(attach_info->countActionSets, attach_info->actionSets)) return attach(session, attach_info);

    const auto context = ContextManager::instance().getSessionContext(session);
    if (!context) {
        LogWarning("Session context not found, calling next without appending action set");
        return attach(session, attach_info);
    }
    if (!context->actionSet) {
        LogWarning("Orvanic action set is null, calling next without appending action set");
        return attach(session, attach_info);
    }
    const auto original = Entries(attach_info->countActionSets, attach_info->actionSets);
    std::vector<XrActionSet> all(original.begin(), original.end());
    all.push_back(context->actionSet);
    XrSessionActionSetsAttachInfo widened = *attach_info;
    widened.countActionSets = static_cast<std::uint32_t>(all.size());
    widened.actionSets = all.data();
    LogInfo("Appending 1 orvanic action set to %u original action sets", attach_info->countActionSets);
    const XrResult result = attach(session, &widened);
    if (XR_FAILED(result)) {
        LogError("OrvanicLayerXrAttachSessionActionSets failed");
    } else {
        LogInfo("OrvanicLayerXrAttachSessionActionSets succeeded");
    }
    return result;
}

// Few applications have more active sets than that; one list more then comes from the heap.
constexpr std::size_t kUsualActiveSets = 15;

XrResult SyncWithOwnSet(PFN_xrSyncActions sync, XrSession session, const XrActionsSyncInfo& sync_info,
                        XrActionSet own_set) {
    const auto original = Entries(sync_info.countActiveActionSets, sync_info.activeActionSets);
    std::array<XrActiveActionSet, kUsualActiveSets + 1> usual;
    std::vector<XrActiveActionSet> many;
    XrActiveActionSet* all = usual.data();
    if (original.size() > kUsualActiveSets) {
        many.resize(original.size() + 1);
        all = many.data();
    }
    std::ranges::copy(original, all);
    all[original.size()] = {own_set, XR_NULL_PATH};
    XrActionsSyncInfo widened = sync_info;
    widened.countActiveActionSets = static_cast<std::uint32_t>(original.size() + 1);
    widened.activeActionSets = all;
    return sync(session, &widened);
}

XrResult SyncActions(XrSession session, const XrActionsSyncInfo* sync_info) {
    const auto sync = NextFunction(&NextDispatchTable::SyncActions, "xrSyncActions");
    if (!sync) return XR_ERROR_RUNTIME_FAILURE;
    if (!sync_info) {
        LogError("syncInfo is null");
        return XR_ERROR_VALIDATION_FAILURE;
    }
    if (!CanWiden(sync_info->countActiveActionSets, sync_info->activeActionSets)) return sync(session, sync_info);

    const auto context = ContextManager::instance().getSessionContext(session);
    if (!context) {
        LogWarning("Session context not found, calling next without appending active action set");
        return sync(session, sync_info);
    }
    if (!context->actionSet) {
        LogWarning("Orvanic action set is null, calling next without appending active action set");
        return sync(session, sync_info);
    }
    const XrResult result = SyncWithOwnSet(sync, session, *sync_info, context->actionSet);
    if (XR_FAILED(result)) LogError("OrvanicLayerXrSyncActions failed");
    return result;
}

}  // namespace

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrSuggestInteractionProfileBindings(
    XrInstance instance, const XrInteractionProfileSuggestedBinding* suggestedBindings) {
    return GuardHook(kSuggestGuard, [&] { return SuggestBindings(instance, suggestedBindings); });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrAttachSessionActionSets(XrSession session,
                                                                     const XrSessionActionSetsAttachInfo* attachInfo) {
    return GuardHook(kAttachGuard, [&] { return AttachActionSets(session, attachInfo); });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrSyncActions(XrSession session, const XrActionsSyncInfo* syncInfo) {
    return GuardHook({"OrvanicLayerXrSyncActions"}, [&] { return SyncActions(session, syncInfo); });
}

}  // namespace orvanic_xr
