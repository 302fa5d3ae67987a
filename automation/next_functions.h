// The functions below this layer that its hooks call, one table for each instance.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <ctime>

struct VkInstance_T;
struct XrVulkanInstanceCreateInfoKHR;

namespace automation {

// As the header has it where the platform's records are included.
using PFN_xrConvertTimespecTimeToTimeKHR = XrResult(XRAPI_PTR*)(XrInstance instance, const timespec* timespec_time,
                                                                XrTime* time);
// `result` is a VkResult.
using PFN_xrCreateVulkanInstanceKHR = XrResult(XRAPI_PTR*)(XrInstance instance,
                                                           const XrVulkanInstanceCreateInfoKHR* info,
                                                           VkInstance_T** created, std::int32_t* result);

// Each is asked for once, when the instance is there. One of an extension that is not enabled stays null.
#define VELMOOR_AUTOMATION_NEXT(X)       \
    X(AcquireSwapchainImage)             \
    X(ApplyHapticFeedback)               \
    X(AttachSessionActionSets)           \
    X(BeginFrame)                        \
    X(BeginSession)                      \
    X(CreateAction)                      \
    X(CreateActionSet)                   \
    X(CreateActionSpace)                 \
    X(CreateReferenceSpace)              \
    X(CreateSession)                     \
    X(CreateSwapchain)                   \
    X(CreateVulkanInstanceKHR)           \
    X(DestroyAction)                     \
    X(DestroyActionSet)                  \
    X(DestroyInstance)                   \
    X(DestroySession)                    \
    X(DestroySpace)                      \
    X(DestroySwapchain)                  \
    X(EndFrame)                          \
    X(EndSession)                        \
    X(EnumerateBoundSourcesForAction)    \
    X(EnumerateSwapchainImages)          \
    X(EnumerateViewConfigurationViews)   \
    X(GetActionStateBoolean)             \
    X(GetActionStateFloat)               \
    X(GetActionStatePose)                \
    X(GetActionStateVector2f)            \
    X(GetCurrentInteractionProfile)      \
    X(GetInputSourceLocalizedName)       \
    X(LocateSpace)                       \
    X(LocateSpaces)                      \
    X(LocateSpacesKHR)                   \
    X(LocateViews)                       \
    X(PathToString)                      \
    X(PollEvent)                         \
    X(ReleaseSwapchainImage)             \
    X(StopHapticFeedback)                \
    X(StringToPath)                      \
    X(SuggestInteractionProfileBindings) \
    X(SyncActions)                       \
    X(WaitSwapchainImage)                \
    X(WaitFrame)                         \
    X(ConvertTimespecTimeToTimeKHR)

struct NextFunctions {
    NextFunctions() = default;
    NextFunctions(PFN_xrGetInstanceProcAddr next, XrInstance instance);

    PFN_xrGetInstanceProcAddr GetInstanceProcAddr = nullptr;
#define VELMOOR_DECLARE(Name) PFN_xr##Name Name = nullptr;
    VELMOOR_AUTOMATION_NEXT(VELMOOR_DECLARE)
#undef VELMOOR_DECLARE
};

}  // namespace automation
