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

void NoteSuggestion(XrInstance instance, XrPath profile_path, std::span<const XrActionSuggestedBinding> bindings,
                    bool alone) {
    const std::string profile = TextFromPath(instance, profile_path);
    if (profile.empty()) return;
    for (const XrActionSuggestedBinding& binding : bindings) {
        const std::string path = TextFromPath(instance, binding.binding);
        LogDebug("[inputdiag] suggest action=", binding.action, " path=", path, " profile=", profile);
        ActionMaps::instance().AddPoseKinds(binding.action, KindsOfPath(path));
    }
    BindingMirror::instance().Note(profile, bindings, alone);
}

// The codes with which a runtime may refuse a call for the sake of what the layer put into it.
bool MayComeOfWidening(XrResult result) {
    switch (result) {
        case XR_ERROR_VALIDATION_FAILURE:
        case XR_ERROR_HANDLE_INVALID:
        case XR_ERROR_PATH_INVALID:
        case XR_ERROR_PATH_UNSUPPORTED:
        case XR_ERROR_ACTIONSETS_ALREADY_ATTACHED:
        case XR_ERROR_ACTIONSET_NOT_ATTACHED:
            return true;
        default:
            return false;
    }
}

void LogRefusedSuggestion(XrInstance instance, XrPath profile_path, XrResult refusal) {
    const std::string profile = TextFromPath(instance, profile_path);
    if (!BindingMirror::instance().NoteRefusal(profile)) return;
    LogWarning("Bindings for ", profile, " were refused with the orvanic ones among them, XrResult=", refusal,
               "; suggesting them as they came");
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
    const SessionState state = ContextManager::instance().getSessionState();
    const bool has_session = state.valid && state.session;
    GuardOwnWork(kSuggestGuard,
                 [&] { NoteSuggestion(instance, suggested->interactionProfile, bindings, !has_session); });
    if (!has_session) {
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
    const auto widen = [&] {
        all.assign(bindings.begin(), bindings.end());
        AppendOwnBindings(*context, all);
    };
    if (!GuardOwnWork(kSuggestGuard, widen)) return suggest(instance, suggested);
    XrInteractionProfileSuggestedBinding widened = *suggested;
    widened.countSuggestedBindings = static_cast<std::uint32_t>(all.size());
    widened.suggestedBindings = all.data();
    LogInfo("Appending ", all.size() - bindings.size(), " orvanic bindings to ", bindings.size(), " original bindings");
    XrResult result = suggest(instance, &widened);
    if (all.size() > bindings.size() && MayComeOfWidening(result)) {
        GuardOwnWork(kSuggestGuard, [&] { LogRefusedSuggestion(instance, suggested->interactionProfile, result); });
        result = suggest(instance, suggested);
    }
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
    const auto context = ContextManager::instance().getSessionContext(session);
    GuardOwnWork(kAttachGuard, [&] {
        if (context) EnsureProntoControllerPlusBindingsSuggested(*context);
    });
    if (!CanWiden(attach_info->countActionSets, attach_info->actionSets)) return attach(session, attach_info);

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
        context->own_set = OwnSet::kAttached;
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

// After a sync that was refused with the layer's set in it. Once that set is attached the refusal is the
// application's own, unless it is gone without the layer's set.
XrResult SyncAsItCame(PFN_xrSyncActions sync, XrSession session, const XrActionsSyncInfo& sync_info, XrResult refusal,
                      SessionContext& context) {
    const XrResult result = sync(session, &sync_info);
    if (context.own_set == OwnSet::kAttached && XR_FAILED(result)) return result;
    context.own_set = OwnSet::kRefused;
    LogWarning("Sync was refused with the orvanic action set in it, XrResult=", refusal,
               "; syncing as the application does until action sets are attached");
    return result;
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
    if (context->own_set == OwnSet::kRefused) return sync(session, sync_info);
    XrResult result = SyncWithOwnSet(sync, session, *sync_info, context->actionSet);
    if (MayComeOfWidening(result)) result = SyncAsItCame(sync, session, *sync_info, result, *context);
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
