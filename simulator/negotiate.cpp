#include "simulator/negotiate.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#define XR_USE_TIMESPEC
#include <openxr/openxr_platform.h>

#include "simulator/actions.h"
#include "simulator/automation.h"
#include "simulator/bindings.h"
#include "simulator/capture.h"
#include "simulator/display.h"
#include "simulator/events.h"
#include "simulator/extensions.h"
#include "simulator/frames.h"
#include "simulator/graphics_calls.h"
#include "simulator/hand_tracking.h"
#include "simulator/input.h"
#include "simulator/instance.h"
#include "simulator/paths.h"
#include "simulator/runtime.h"
#include "simulator/scene.h"
#include "simulator/session.h"
#include "simulator/spaces.h"
#include "simulator/swapchains.h"
#include "simulator/views.h"

namespace simulator {
namespace {

struct Function {
    const char* name;
    PFN_xrVoidFunction function;
    // The extension that it belongs to, or null for the core.
    const char* extension;
    // The version of the core that brought it.
    XrVersion since = kVersion10;

    bool IsOffered(const Instance& instance) const {
        return extension ? instance.HasExtension(extension) : instance.api_version >= since;
    }
};

#define VELMOOR_ROW(name, extension) \
    { "xr" #name, reinterpret_cast<PFN_xrVoidFunction>(static_cast<PFN_xr##name>(name)), extension }
#define VELMOOR_CORE(name) VELMOOR_ROW(name, nullptr)
#define VELMOOR_CORE_11(name) \
    { "xr" #name, reinterpret_cast<PFN_xrVoidFunction>(static_cast<PFN_xr##name>(name)), nullptr, kVersion11 }
// Whose types belong to a graphics interface, which this file does not know.
#define VELMOOR_GRAPHICS_ROW(name, function, extension) \
    { "xr" #name, reinterpret_cast<PFN_xrVoidFunction>(function), extension }

// The rows that need no instance come first.
const Function kFunctions[] = {
    VELMOOR_CORE(EnumerateInstanceExtensionProperties),
    VELMOOR_CORE(CreateInstance),
    VELMOOR_CORE(GetInstanceProcAddr),
    VELMOOR_CORE(DestroyInstance),
    VELMOOR_CORE(GetInstanceProperties),
    VELMOOR_CORE(PollEvent),
    VELMOOR_CORE(ResultToString),
    VELMOOR_CORE(StructureTypeToString),
    VELMOOR_CORE(GetSystem),
    VELMOOR_CORE(GetSystemProperties),
    VELMOOR_CORE(EnumerateEnvironmentBlendModes),
    VELMOOR_CORE(EnumerateViewConfigurations),
    VELMOOR_CORE(GetViewConfigurationProperties),
    VELMOOR_CORE(EnumerateViewConfigurationViews),
    VELMOOR_CORE(CreateSession),
    VELMOOR_CORE(DestroySession),
    VELMOOR_CORE(BeginSession),
    VELMOOR_CORE(EndSession),
    VELMOOR_CORE(RequestExitSession),
    VELMOOR_CORE(WaitFrame),
    VELMOOR_CORE(BeginFrame),
    VELMOOR_CORE(EndFrame),
    VELMOOR_CORE(LocateViews),
    VELMOOR_CORE(EnumerateReferenceSpaces),
    VELMOOR_CORE(CreateReferenceSpace),
    VELMOOR_CORE(GetReferenceSpaceBoundsRect),
    VELMOOR_CORE(CreateActionSpace),
    VELMOOR_CORE(LocateSpace),
    VELMOOR_CORE_11(LocateSpaces),
    {"xrLocateSpacesKHR", reinterpret_cast<PFN_xrVoidFunction>(LocateSpaces), kLocateSpaces},
    VELMOOR_CORE(DestroySpace),
    VELMOOR_CORE(EnumerateSwapchainFormats),
    VELMOOR_CORE(CreateSwapchain),
    VELMOOR_CORE(DestroySwapchain),
    VELMOOR_CORE(EnumerateSwapchainImages),
    VELMOOR_CORE(AcquireSwapchainImage),
    VELMOOR_CORE(WaitSwapchainImage),
    VELMOOR_CORE(ReleaseSwapchainImage),
    VELMOOR_CORE(StringToPath),
    VELMOOR_CORE(PathToString),
    VELMOOR_CORE(CreateActionSet),
    VELMOOR_CORE(DestroyActionSet),
    VELMOOR_CORE(CreateAction),
    VELMOOR_CORE(DestroyAction),
    VELMOOR_CORE(SuggestInteractionProfileBindings),
    VELMOOR_CORE(AttachSessionActionSets),
    VELMOOR_CORE(GetCurrentInteractionProfile),
    VELMOOR_CORE(SyncActions),
    VELMOOR_CORE(GetActionStateBoolean),
    VELMOOR_CORE(GetActionStateFloat),
    VELMOOR_CORE(GetActionStateVector2f),
    VELMOOR_CORE(GetActionStatePose),
    VELMOOR_CORE(EnumerateBoundSourcesForAction),
    VELMOOR_CORE(GetInputSourceLocalizedName),
    VELMOOR_CORE(ApplyHapticFeedback),
    VELMOOR_CORE(StopHapticFeedback),
    VELMOOR_GRAPHICS_ROW(GetVulkanInstanceExtensionsKHR, GetVulkanExtensions, kVulkanEnable),
    VELMOOR_GRAPHICS_ROW(GetVulkanDeviceExtensionsKHR, GetVulkanExtensions, kVulkanEnable),
    VELMOOR_GRAPHICS_ROW(GetVulkanGraphicsDeviceKHR, GetVulkanGraphicsDeviceKHR, kVulkanEnable),
    VELMOOR_GRAPHICS_ROW(GetVulkanGraphicsRequirementsKHR, GetVulkanGraphicsRequirements, kVulkanEnable),
    VELMOOR_GRAPHICS_ROW(CreateVulkanInstanceKHR, CreateVulkanInstanceKHR, kVulkanEnable2),
    VELMOOR_GRAPHICS_ROW(CreateVulkanDeviceKHR, CreateVulkanDeviceKHR, kVulkanEnable2),
    VELMOOR_GRAPHICS_ROW(GetVulkanGraphicsDevice2KHR, GetVulkanGraphicsDevice2KHR, kVulkanEnable2),
    VELMOOR_GRAPHICS_ROW(GetVulkanGraphicsRequirements2KHR, GetVulkanGraphicsRequirements, kVulkanEnable2),
    VELMOOR_GRAPHICS_ROW(GetOpenGLGraphicsRequirementsKHR, GetOpenGlGraphicsRequirements, kOpenGlEnable),
    VELMOOR_GRAPHICS_ROW(GetOpenGLESGraphicsRequirementsKHR, GetOpenGlEsGraphicsRequirements, kOpenGlEsEnable),
    VELMOOR_ROW(GetVisibilityMaskKHR, kVisibilityMask),
    VELMOOR_ROW(ConvertTimespecTimeToTimeKHR, kConvertTimespec),
    VELMOOR_ROW(ConvertTimeToTimespecTimeKHR, kConvertTimespec),
    VELMOOR_ROW(CreateHandTrackerEXT, kHandTracking),
    VELMOOR_ROW(DestroyHandTrackerEXT, kHandTracking),
    VELMOOR_ROW(LocateHandJointsEXT, kHandTracking),
    VELMOOR_ROW(EnumerateDisplayRefreshRatesFB, kRefreshRate),
    VELMOOR_ROW(GetDisplayRefreshRateFB, kRefreshRate),
    VELMOOR_ROW(RequestDisplayRefreshRateFB, kRefreshRate),
    VELMOOR_ROW(SetInputDeviceActiveEXT, kConformanceAutomation),
    VELMOOR_ROW(SetInputDeviceStateBoolEXT, kConformanceAutomation),
    VELMOOR_ROW(SetInputDeviceStateFloatEXT, kConformanceAutomation),
    VELMOOR_ROW(SetInputDeviceStateVector2fEXT, kConformanceAutomation),
    VELMOOR_ROW(SetInputDeviceLocationEXT, kConformanceAutomation),
    VELMOOR_ROW(ChangeSimulatorFrameDemandKESTX1, kFrameDemand),
    VELMOOR_ROW(StartSimulatorCompositorOutputCaptureKESTX1, kCompositorCapture),
    VELMOOR_ROW(StopSimulatorCompositorOutputCaptureKESTX1, kCompositorCapture),
    VELMOOR_ROW(CaptureSimulatorCompositorOutputKESTX1, kCompositorCapture),
    VELMOOR_ROW(GetSpaceComponentStatusKS, kSpatialEntity),
    VELMOOR_ROW(SetSpaceComponentStatusKS, kSpatialEntity),
    VELMOOR_ROW(EnumerateSpaceSupportedComponentsKS, kSpatialEntity),
    VELMOOR_ROW(QuerySpacesKS, kSpatialEntityQuery),
    VELMOOR_ROW(RetrieveSpaceQueryResultsKS, kSpatialEntityQuery),
    VELMOOR_ROW(GetSpaceContainerKS, kSpatialEntityContainer),
    VELMOOR_ROW(GetSpaceBoundingBox2DKS, kScene),
    VELMOOR_ROW(GetSpaceBoundingBox3DKS, kScene),
    VELMOOR_ROW(GetSpaceSemanticLabelsKS, kScene),
};
constexpr std::size_t kWithoutInstance = 3;

#undef VELMOOR_GRAPHICS_ROW
#undef VELMOOR_CORE_11
#undef VELMOOR_CORE
#undef VELMOOR_ROW

const Function* FindFunction(const char* name) {
    const auto* const end = std::end(kFunctions);
    const auto* const found = std::find_if(std::begin(kFunctions), end,
                                           [&](const Function& row) { return std::strcmp(row.name, name) == 0; });
    return found == end ? nullptr : found;
}

bool IsRecord(XrLoaderInterfaceStructs type, std::uint32_t version, std::size_t size, XrLoaderInterfaceStructs wanted,
              std::size_t least_size) {
    return type == wanted && version == 1 && size >= least_size;
}

}  // namespace

XrResult GetInstanceProcAddr(XrInstance instance, const char* name, PFN_xrVoidFunction* function) {
    return Guarded([&](Runtime& runtime) {
        Require(name && function);
        *function = nullptr;
        const Function* row = FindFunction(name);
        if (instance == XR_NULL_HANDLE) {
            if (!row || row >= kFunctions + kWithoutInstance) Refuse(XR_ERROR_HANDLE_INVALID);
        } else {
            const auto owner = runtime.Get(instance);
            if (!row || !row->IsOffered(*owner)) Refuse(XR_ERROR_FUNCTION_UNSUPPORTED);
        }
        *function = row->function;
        return XR_SUCCESS;
    });
}

}  // namespace simulator

// The one name that the library shows.
extern "C" __attribute__((visibility("default"))) XRAPI_ATTR XrResult XRAPI_CALL
xrNegotiateLoaderRuntimeInterface(const XrNegotiateLoaderInfo* loader, XrNegotiateRuntimeRequest* request) {
    if (!loader || !request ||
        !simulator::IsRecord(loader->structType, loader->structVersion, loader->structSize,
                             XR_LOADER_INTERFACE_STRUCT_LOADER_INFO, sizeof(*loader)) ||
        !simulator::IsRecord(request->structType, request->structVersion, request->structSize,
                             XR_LOADER_INTERFACE_STRUCT_RUNTIME_REQUEST, sizeof(*request))) {
        return XR_ERROR_INITIALIZATION_FAILED;
    }
    const bool speaks_version = loader->minInterfaceVersion <= XR_CURRENT_LOADER_RUNTIME_VERSION &&
                                loader->maxInterfaceVersion >= XR_CURRENT_LOADER_RUNTIME_VERSION;
    const bool knows_api = loader->minApiVersion <= XR_API_VERSION_1_0 && loader->maxApiVersion >= XR_API_VERSION_1_0;
    if (!speaks_version || !knows_api) return XR_ERROR_INITIALIZATION_FAILED;
    request->runtimeInterfaceVersion = XR_CURRENT_LOADER_RUNTIME_VERSION;
    request->runtimeApiVersion = std::min<XrVersion>(XR_API_VERSION_1_1, loader->maxApiVersion);
    request->getInstanceProcAddr = simulator::GetInstanceProcAddr;
    return XR_SUCCESS;
}
