// The chain of layers, as far as this one has to know it: what lies below offers decides what is left to do here.
#include <algorithm>
#include <cstring>
#include <set>
#include <span>
#include <string>

#include "automation/guard.h"
#include "automation/hooks.h"
#include "automation/negotiation.h"
#include "automation/offered_extensions.h"
#include "automation/session.h"
#include "diagnostics/log_file_sink.h"
#include "xr/loader_chain.h"
#include "xr/pose_math.h"

namespace automation {
namespace {

using orvanic_xr::IsReadable;
using orvanic_xr::LogError;
using orvanic_xr::LogInfo;
using orvanic_xr::LogWarning;

constexpr char kConvertTimespec[] = "XR_KHR_convert_timespec_time";
constexpr std::string_view kVelmoorLayers = "XR_APILAYER_KESTX_";

bool IsGood(const XrApiLayerCreateInfo* info) {
    return info && info->structType == XR_LOADER_INTERFACE_STRUCT_API_LAYER_CREATE_INFO && info->structVersion != 0 &&
           info->structSize >= sizeof(XrApiLayerCreateInfo) && info->nextInfo && IsReadable(*info->nextInfo) &&
           info->nextInfo->nextGetInstanceProcAddr && info->nextInfo->nextCreateApiLayerInstance;
}

std::set<std::string> ExtensionsBelow(const XrApiLayerCreateInfo& info) {
    std::set<std::string> names;
    for (const auto* entry = info.nextInfo; entry && IsReadable(*entry); entry = entry->next) {
        if (entry->nextGetInstanceProcAddr) {
            names.merge(orvanic_xr::AskForExtensions(entry->nextGetInstanceProcAddr).names);
        }
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
    Enabled(const XrInstanceCreateInfo& info, const std::set<std::string>& below) {
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

// One file serves all instances that live at a time.
void OpenLog() {
    if (!Registry::instance().HasInstances()) orvanic_xr::LogFileSink::instance().begin_session("automation_layer");
}

void CloseLog() {
    if (!Registry::instance().HasInstances()) orvanic_xr::LogFileSink::instance().end_session();
}

void TellOfParts(const Enabled& enabled, bool is_upside_down) {
    const bool does_anything = enabled.parts.input || enabled.parts.pictures || enabled.parts.controller_profile;
    if (!does_anything && !is_upside_down) return;
    OpenLog();
    if (is_upside_down) {
        LogError(
            "Automation: Velmoor's layer lies below this one and sees nothing of it. Name it first: "
            "XR_ENABLE_API_LAYERS=XR_APILAYER_KESTX_velmoor:XR_APILAYER_VELMOOR_automation");
    }
    for (const OfferedExtension& offered : OfferedExtensions()) {
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
    if (XR_FAILED(result)) {
        LogWarning("Automation: the instance was not created, result: ", result);
        CloseLog();
        return result;
    }
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
    if (!session || !change.poseValid || change.referenceSpaceType != session->world_type) return;
    const XrTime now = session->LatestTime();
    const std::lock_guard lock(session->mutex);
    // Nobody else does while nothing is simulated.
    session->FollowRecentresLocked(now);
    session->recentres.push_back(
        {change.changeTime, orvanic_xr::RelativePose(orvanic_xr::kIdentityPose, change.poseInPreviousSpace)});
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
        CloseLog();
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
