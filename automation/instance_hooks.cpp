// The chain of layers, as far as this one has to know it: what lies below offers decides what is left to do here.
#include <algorithm>
#include <cstring>
#include <set>
#include <span>
#include <string>

#include "automation/guard.h"
#include "automation/hooks.h"
#include "automation/negotiation.h"
#include "automation/session.h"
#include "diagnostics/log_file_sink.h"
#include "xr/input/extensions.h"
#include "xr/loader_chain.h"
#include "xr/pose_math.h"
#include "xr/simulator_capture_records.h"

namespace automation {
namespace {

using orvanic_xr::IsReadable;
using orvanic_xr::kSimulatorCompositorCaptureExtension;
using orvanic_xr::LogError;
using orvanic_xr::LogInfo;

constexpr char kConvertTimespec[] = "XR_KHR_convert_timespec_time";
constexpr std::string_view kVelmoorLayers = "XR_APILAYER_KESTX_";

struct OfferedExtension {
    const char* name;
    std::uint32_t version;
    // Which part it switches on.
    bool Parts::*part;
};

constexpr OfferedExtension kOffered[] = {
    {xr_input::kConformanceAutomation, 3, &Parts::input},
    {xr_input::kProntoProfile, 1, &Parts::controller_profile},
    {kSimulatorCompositorCaptureExtension, 1, &Parts::pictures},
};

const OfferedExtension* FindOffered(std::string_view name) {
    const auto* const found = std::ranges::find(kOffered, name, &OfferedExtension::name);
    return found == std::end(kOffered) ? nullptr : found;
}

XRAPI_ATTR XrResult XRAPI_CALL EnumerateInstanceExtensionProperties(const char* /*layer_name*/, std::uint32_t capacity,
                                                                    std::uint32_t* count,
                                                                    XrExtensionProperties* properties) {
    return Guarded([&] {
        constexpr std::uint32_t kCount = std::size(kOffered);
        if (!count || (!properties && capacity != 0)) return XR_ERROR_VALIDATION_FAILURE;
        *count = kCount;
        if (capacity == 0) return XR_SUCCESS;
        if (capacity < kCount) return XR_ERROR_SIZE_INSUFFICIENT;
        for (std::uint32_t i = 0; i < kCount; ++i) {
            std::strncpy(properties[i].extensionName, kOffered[i].name, XR_MAX_EXTENSION_NAME_SIZE - 1);
            properties[i].extensionName[XR_MAX_EXTENSION_NAME_SIZE - 1] = '\0';
            properties[i].extensionVersion = kOffered[i].version;
        }
        return XR_SUCCESS;
    });
}

bool IsGood(const XrApiLayerCreateInfo* info) {
    return info && info->structType == XR_LOADER_INTERFACE_STRUCT_API_LAYER_CREATE_INFO && info->structVersion != 0 &&
           info->structSize >= sizeof(XrApiLayerCreateInfo) && info->nextInfo && IsReadable(*info->nextInfo) &&
           info->nextInfo->nextGetInstanceProcAddr && info->nextInfo->nextCreateApiLayerInstance;
}

void AddExtensionsBehind(PFN_xrGetInstanceProcAddr next, std::set<std::string, std::less<>>& names) {
    PFN_xrEnumerateInstanceExtensionProperties enumerate = nullptr;
    next(XR_NULL_HANDLE, "xrEnumerateInstanceExtensionProperties", reinterpret_cast<PFN_xrVoidFunction*>(&enumerate));
    std::uint32_t count = 0;
    if (!enumerate || XR_FAILED(enumerate(nullptr, 0, &count, nullptr))) return;
    std::vector<XrExtensionProperties> properties(count, {XR_TYPE_EXTENSION_PROPERTIES, nullptr, {}, 0});
    if (count == 0 || XR_FAILED(enumerate(nullptr, count, &count, properties.data()))) return;
    for (const auto& one : properties) {
        names.emplace(one.extensionName, strnlen(one.extensionName, XR_MAX_EXTENSION_NAME_SIZE));
    }
}

// A layer can answer for itself alone, or not at all; the last entry leads to the runtime.
std::set<std::string, std::less<>> ExtensionsBelow(const XrApiLayerCreateInfo& info) {
    std::set<std::string, std::less<>> names;
    for (const auto* entry = info.nextInfo; entry && IsReadable(*entry); entry = entry->next) {
        if (entry->nextGetInstanceProcAddr) AddExtensionsBehind(entry->nextGetInstanceProcAddr, names);
    }
    return names;
}

bool HasVelmoorBelow(const XrApiLayerCreateInfo& info) {
    for (const auto* entry = info.nextInfo->next; entry && IsReadable(*entry); entry = entry->next) {
        const std::string_view name(entry->layerName, strnlen(entry->layerName, sizeof entry->layerName));
        if (name.starts_with(kVelmoorLayers)) return true;
    }
    return false;
}

// What goes down of the extensions that the application, or a layer above, enabled.
struct Enabled {
    Enabled(const XrInstanceCreateInfo& info, const std::set<std::string, std::less<>>& below) {
        bool has_timespec = false;
        for (const char* name : std::span(info.enabledExtensionNames, info.enabledExtensionCount)) {
            const OfferedExtension* const offered = name ? FindOffered(name) : nullptr;
            if (name) all.emplace(name);
            has_timespec = has_timespec || (name && std::string_view(name) == kConvertTimespec);
            if (offered && !below.contains(name)) {
                parts.*offered->part = true;
            } else {
                passed.push_back(name);
            }
        }
        // For a time before the first frame.
        if ((parts.input || parts.pictures) && !has_timespec && below.contains(kConvertTimespec)) {
            passed.push_back(kConvertTimespec);
        }
    }

    Parts parts;
    std::set<std::string, std::less<>> all;
    std::vector<const char*> passed;
};

void TellOfParts(const Enabled& enabled, bool is_upside_down) {
    const bool does_anything = enabled.parts.input || enabled.parts.pictures || enabled.parts.controller_profile;
    if (!does_anything && !is_upside_down) return;
    // One file serves all instances that live at a time.
    if (!Registry::instance().HasInstances()) orvanic_xr::LogFileSink::instance().begin_session("automation_layer");
    if (is_upside_down) {
        LogError(
            "Automation: Velmoor's layer lies below this one and sees nothing of it. Name it first: "
            "XR_ENABLE_API_LAYERS=XR_APILAYER_KESTX_velmoor:XR_APILAYER_VELMOOR_automation");
    }
    for (const OfferedExtension& offered : kOffered) {
        if (enabled.parts.*offered.part) LogInfo("Automation: ", offered.name, " is offered by this layer");
    }
}

XrResult CreateInstance(const XrInstanceCreateInfo& info, const XrApiLayerCreateInfo& layer_info,
                        XrInstance& instance) {
    const Enabled enabled(info, ExtensionsBelow(layer_info));
    TellOfParts(enabled, HasVelmoorBelow(layer_info));
    XrInstanceCreateInfo passed = info;
    passed.enabledExtensionCount = static_cast<std::uint32_t>(enabled.passed.size());
    passed.enabledExtensionNames = enabled.passed.data();
    XrApiLayerCreateInfo below = layer_info;
    below.structSize = sizeof below;
    below.nextInfo = layer_info.nextInfo->next;
    const XrResult result = layer_info.nextInfo->nextCreateApiLayerInstance(&passed, &below, &instance);
    if (XR_FAILED(result)) return result;
    auto made = std::make_shared<Instance>();
    made->handle = instance;
    made->next = NextFunctions(layer_info.nextInfo->nextGetInstanceProcAddr, instance);
    made->parts = enabled.parts;
    made->offer = {info.applicationInfo.apiVersion, enabled.all};
    std::ranges::transform(xr_input::kTopLevelPaths, made->top_level_paths.begin(),
                           [&](std::string_view text) { return made->PathOf(text); });
    Registry::instance().Add(instance, std::move(made));
    return result;
}

// A profile of the simulated controllers has changed.
bool TakeProfileEvent(Instance& instance, XrEventDataBuffer& event) {
    const std::lock_guard lock(instance.mutex);
    if (instance.profile_events.empty()) return false;
    const XrEventDataInteractionProfileChanged changed = {XR_TYPE_EVENT_DATA_INTERACTION_PROFILE_CHANGED, nullptr,
                                                          instance.profile_events.front()};
    instance.profile_events.pop_front();
    std::memcpy(&event, &changed, sizeof changed);
    return true;
}

// Simulated devices stay where they are in the room when the runtime centres the world anew.
void NoteRecentre(const XrEventDataReferenceSpaceChangePending& change) {
    const auto session = Registry::instance().Find(change.session);
    if (!session || !change.poseValid) return;
    const std::lock_guard lock(session->mutex);
    if (change.referenceSpaceType != session->world_type) return;
    session->recentres.push_back(
        {change.changeTime, orvanic_xr::RelativePose(orvanic_xr::kIdentityPose, change.poseInPreviousSpace)});
}

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

XrResult CreateApiLayerInstance(const XrInstanceCreateInfo* info, const XrApiLayerCreateInfo* layer_info,
                                XrInstance* instance) {
    return Guarded([&] {
        const bool is_good =
            info && instance && IsGood(layer_info) && (info->enabledExtensionCount == 0 || info->enabledExtensionNames);
        if (!is_good) return XR_ERROR_INITIALIZATION_FAILED;
        return CreateInstance(*info, *layer_info, *instance);
    });
}

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

XrResult DestroyInstance(XrInstance instance) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(instance);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        // Sessions go with it, and what was made with their devices before them.
        for (const auto& session : Registry::instance().SessionsOf(owner)) {
            if (session->pictures) session->pictures->DestroySession();
        }
        const XrResult result = owner->next.DestroyInstance(instance);
        if (XR_FAILED(result)) return result;
        Registry::instance().Remove(instance, owner);
        owner->ForgetSuggestions();
        if (!Registry::instance().HasInstances()) orvanic_xr::LogFileSink::instance().end_session();
        return result;
    });
}

XrResult PollEvent(XrInstance instance, XrEventDataBuffer* event) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(instance);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = owner->next.PollEvent(instance, event);
        if (result == XR_EVENT_UNAVAILABLE && TakeProfileEvent(*owner, *event)) return XR_SUCCESS;
        if (result == XR_SUCCESS && event->type == XR_TYPE_EVENT_DATA_REFERENCE_SPACE_CHANGE_PENDING) {
            NoteRecentre(reinterpret_cast<const XrEventDataReferenceSpaceChangePending&>(*event));
        }
        return result;
    });
}

}  // namespace automation
