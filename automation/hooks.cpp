// Which functions stand in the way of the application's calls, and how they are found.
#include "automation/hooks.h"

#include <algorithm>
#include <string_view>

#include "automation/guard.h"
#include "automation/negotiation.h"
#include "automation/objects.h"
#include "automation/offered_extensions.h"

namespace automation {
namespace {

struct HookRow {
    std::string_view name;
    PFN_xrVoidFunction function;
    // Played only where the instance has the part; null for always.
    bool Parts::*part = nullptr;
    // Belongs to an extension that the layer brings: the runtime does not have it.
    bool is_brought = false;
};

template <class Function>
PFN_xrVoidFunction Erased(Function function) {
    return reinterpret_cast<PFN_xrVoidFunction>(function);
}

const HookRow kHooks[] = {
    {"xrGetInstanceProcAddr", Erased(GetInstanceProcAddr)},
    {"xrDestroyInstance", Erased(DestroyInstance)},
    {"xrCreateSession", Erased(CreateSession)},
    {"xrCreateVulkanInstanceKHR", Erased(CreateVulkanInstanceKHR), &Parts::pictures},
    {"xrDestroySession", Erased(DestroySession)},
    {"xrBeginSession", Erased(BeginSession)},
    {"xrEndSession", Erased(EndSession)},
    {"xrPollEvent", Erased(PollEvent), &Parts::input},
    {"xrWaitFrame", Erased(WaitFrame)},
    {"xrBeginFrame", Erased(BeginFrame)},
    {"xrEndFrame", Erased(EndFrame)},
    {"xrCreateReferenceSpace", Erased(CreateReferenceSpace)},
    {"xrCreateActionSpace", Erased(CreateActionSpace)},
    {"xrDestroySpace", Erased(DestroySpace)},
    {"xrLocateSpace", Erased(LocateSpace), &Parts::input},
    {"xrLocateSpaces", Erased(LocateSpaces), &Parts::input},
    {"xrLocateSpacesKHR", Erased(LocateSpacesKHR), &Parts::input},
    {"xrLocateViews", Erased(LocateViews)},
    {"xrCreateSwapchain", Erased(CreateSwapchain), &Parts::pictures},
    {"xrDestroySwapchain", Erased(DestroySwapchain), &Parts::pictures},
    {"xrAcquireSwapchainImage", Erased(AcquireSwapchainImage), &Parts::pictures},
    {"xrWaitSwapchainImage", Erased(WaitSwapchainImage), &Parts::pictures},
    {"xrReleaseSwapchainImage", Erased(ReleaseSwapchainImage), &Parts::pictures},
    {"xrCreateActionSet", Erased(CreateActionSet), &Parts::input},
    {"xrDestroyActionSet", Erased(DestroyActionSet), &Parts::input},
    {"xrCreateAction", Erased(CreateAction), &Parts::input},
    {"xrDestroyAction", Erased(DestroyAction), &Parts::input},
    {"xrSuggestInteractionProfileBindings", Erased(SuggestInteractionProfileBindings), &Parts::input},
    {"xrAttachSessionActionSets", Erased(AttachSessionActionSets), &Parts::input},
    {"xrSyncActions", Erased(SyncActions)},
    {"xrGetActionStateBoolean", Erased(GetActionStateBoolean), &Parts::input},
    {"xrGetActionStateFloat", Erased(GetActionStateFloat), &Parts::input},
    {"xrGetActionStateVector2f", Erased(GetActionStateVector2f), &Parts::input},
    {"xrGetActionStatePose", Erased(GetActionStatePose), &Parts::input},
    {"xrGetCurrentInteractionProfile", Erased(GetCurrentInteractionProfile), &Parts::input},
    {"xrEnumerateBoundSourcesForAction", Erased(EnumerateBoundSourcesForAction), &Parts::input},
    {"xrGetInputSourceLocalizedName", Erased(GetInputSourceLocalizedName), &Parts::input},
    {"xrApplyHapticFeedback", Erased(ApplyHapticFeedback), &Parts::input},
    {"xrStopHapticFeedback", Erased(StopHapticFeedback), &Parts::input},
    {"xrSetInputDeviceActiveEXT", Erased(SetInputDeviceActiveEXT), &Parts::input, true},
    {"xrSetInputDeviceStateBoolEXT", Erased(SetInputDeviceStateBoolEXT), &Parts::input, true},
    {"xrSetInputDeviceStateFloatEXT", Erased(SetInputDeviceStateFloatEXT), &Parts::input, true},
    {"xrSetInputDeviceStateVector2fEXT", Erased(SetInputDeviceStateVector2fEXT), &Parts::input, true},
    {"xrSetInputDeviceLocationEXT", Erased(SetInputDeviceLocationEXT), &Parts::input, true},
    {"xrStartSimulatorCompositorOutputCaptureKESTX1", Erased(StartSimulatorCompositorOutputCaptureKESTX1),
     &Parts::pictures, true},
    {"xrStopSimulatorCompositorOutputCaptureKESTX1", Erased(StopSimulatorCompositorOutputCaptureKESTX1),
     &Parts::pictures, true},
    {"xrCaptureSimulatorCompositorOutputKESTX1", Erased(CaptureSimulatorCompositorOutputKESTX1), &Parts::pictures,
     true},
};

// Null where the call goes straight down.
const HookRow* FindHook(const Instance& instance, std::string_view name) {
    const auto* const row = std::ranges::find(kHooks, name, &HookRow::name);
    if (row == std::end(kHooks)) return nullptr;
    // With nothing to do only the end of the instance has to be known.
    const bool does_nothing = !instance.parts.input && !instance.parts.pictures;
    if (does_nothing && name != "xrGetInstanceProcAddr" && name != "xrDestroyInstance") return nullptr;
    return !row->part || instance.parts.*row->part ? row : nullptr;
}

}  // namespace

XrResult GetInstanceProcAddr(XrInstance instance, const char* name, PFN_xrVoidFunction* function) {
    return Guarded([&] {
        if (!name || !function) return XR_ERROR_VALIDATION_FAILURE;
        *function = nullptr;
        if (instance == XR_NULL_HANDLE) {
            if (std::string_view(name) != "xrEnumerateInstanceExtensionProperties") return XR_ERROR_HANDLE_INVALID;
            *function = Erased(EnumerateInstanceExtensionProperties);
            return XR_SUCCESS;
        }
        const auto owner = Registry::instance().Find(instance);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const HookRow* const hook = FindHook(*owner, name);
        if (hook && hook->is_brought) {
            *function = hook->function;
            return XR_SUCCESS;
        }
        const XrResult result = owner->next.GetInstanceProcAddr(instance, name, function);
        // What the runtime does not have is not there.
        if (hook && *function) *function = hook->function;
        return result;
    });
}

}  // namespace automation
