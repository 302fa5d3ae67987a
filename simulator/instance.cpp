#include "simulator/instance.h"

#include <openxr/openxr_reflection.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "simulator/actions.h"
#include "simulator/extensions.h"
#include "simulator/runtime.h"
#include "simulator/session.h"
#include "simulator/spaces.h"
#include "xr/simulator_view.h"

namespace simulator {
namespace {

constexpr std::size_t kMaxInstances = 4;
constexpr const auto& kRuntimeName = orvanic_xr::kSimulatorSystemName;

bool IsLeftOut(std::string_view extension, const Settings& settings) {
    if (extension == kCompositorCapture) return settings.without_capture;
    return settings.without_automation && (extension == kConformanceAutomation || extension == kProntoProfile);
}

// What the environment lets the simulator offer.
std::vector<Extension> OfferedExtensions(const Settings& settings) {
    std::vector<Extension> offered;
    std::ranges::copy_if(kExtensions, std::back_inserter(offered),
                         [&](const Extension& row) { return !IsLeftOut(row.name, settings); });
    return offered;
}

std::set<std::string, std::less<>> EnabledExtensions(const XrInstanceCreateInfo& info, const Settings& settings) {
    const std::vector<Extension> offered = OfferedExtensions(settings);
    std::set<std::string, std::less<>> enabled;
    Require(info.enabledExtensionCount == 0 || info.enabledExtensionNames);
    for (std::uint32_t i = 0; i < info.enabledExtensionCount; ++i) {
        const char* name = info.enabledExtensionNames[i];
        Require(name);
        const auto is_it = [&](const Extension& row) { return std::strcmp(row.name, name) == 0; };
        if (std::none_of(offered.begin(), offered.end(), is_it)) {
            Refuse(XR_ERROR_EXTENSION_NOT_PRESENT);
        }
        enabled.insert(name);
    }
    for (const Extension& row : kExtensions) {
        if (row.needs && enabled.count(row.name) > 0 && enabled.count(row.needs) == 0) {
            Refuse(XR_ERROR_EXTENSION_DEPENDENCY_NOT_ENABLED);
        }
    }
    return enabled;
}

void CheckApplication(const XrApplicationInfo& application) {
    const auto is_terminated = [](const char* text, std::size_t size) { return std::memchr(text, '\0', size); };
    if (application.applicationName[0] == '\0' ||
        !is_terminated(application.applicationName, XR_MAX_APPLICATION_NAME_SIZE) ||
        !is_terminated(application.engineName, XR_MAX_ENGINE_NAME_SIZE)) {
        Refuse(XR_ERROR_NAME_INVALID);
    }
    const XrVersion version = application.apiVersion;
    if (XR_VERSION_MAJOR(version) != 1 || XR_VERSION_MINOR(version) > 1) Refuse(XR_ERROR_API_VERSION_UNSUPPORTED);
}

// Of the first instance.
void StartClock(Runtime& runtime, const Settings& settings) {
    runtime.clock = Clock(settings.clock);
    std::string why = "VELMOOR_SIM_CONTROL is not set";
    if (!settings.control.empty()) {
        why.clear();
        runtime.control = ControlServer::Open(settings.control, why);
        if (!runtime.control) {
            std::fprintf(stderr, "VELMOOR_SIM_CONTROL: %s: %s\n", settings.control.c_str(), why.c_str());
        }
    }
    if (runtime.control || settings.clock != ClockMode::kStepped) return;
    // Nobody could let the application go on.
    std::fprintf(stderr, "VELMOOR_SIM_CLOCK: stepped is taken for fixed: %s\n", why.c_str());
    runtime.clock = Clock(ClockMode::kFixed);
}

// The header's own lists, so that every name it knows is told.
std::string NameOf(XrResult value) {
    switch (value) {
#define VELMOOR_CASE(name, number) \
    case name:                     \
        return #name;
        XR_LIST_ENUM_XrResult(VELMOOR_CASE)
#undef VELMOOR_CASE
                default : return (value < 0 ? "XR_UNKNOWN_FAILURE_" : "XR_UNKNOWN_SUCCESS_") +
                          std::to_string(static_cast<std::int32_t>(value));
    }
}

std::string NameOf(XrStructureType value) {
    switch (value) {
#define VELMOOR_CASE(name, number) \
    case name:                     \
        return #name;
        XR_LIST_ENUM_XrStructureType(VELMOOR_CASE)
#undef VELMOOR_CASE
                default : return "XR_UNKNOWN_STRUCTURE_TYPE_" +
                          std::to_string(static_cast<std::uint32_t>(value));
    }
}

}  // namespace

void Instance::CheckSystem(XrSystemId system) const {
    if (!system_is_known || system != kSystemId) Refuse(XR_ERROR_SYSTEM_INVALID);
}

const std::string& Instance::PathText(XrPath path) const {
    const std::string* text = paths.TextOf(path);
    if (!text) Refuse(XR_ERROR_PATH_INVALID);
    return *text;
}

XrResult EnumerateInstanceExtensionProperties(const char* layer_name, std::uint32_t capacity, std::uint32_t* count,
                                              XrExtensionProperties* properties) {
    return WithoutThrowing([&]() -> XrResult {
        if (layer_name && *layer_name) return XR_ERROR_API_LAYER_NOT_PRESENT;
        const std::vector<Extension> offered = OfferedExtensions(ReadSettings());
        return WriteElements(offered.size(), capacity, count, properties, [&](std::size_t i) {
            RequireType(&properties[i], XR_TYPE_EXTENSION_PROPERTIES);
            CopyText(offered[i].name, properties[i].extensionName);
            properties[i].extensionVersion = offered[i].version;
        });
    });
}

XrResult CreateInstance(const XrInstanceCreateInfo* info, XrInstance* instance) {
    return Guarded([&](Runtime& runtime) {
        RequireType(info, XR_TYPE_INSTANCE_CREATE_INFO);
        Require(instance && info->createFlags == 0);
        CheckApplication(info->applicationInfo);
        auto created = std::make_shared<Instance>();
        created->settings = ReadSettings();
        created->extensions = EnabledExtensions(*info, created->settings);
        created->api_version = info->applicationInfo.apiVersion;
        runtime.strict = created->settings.strict;
        const std::size_t others = runtime.handles.CountIf<Instance>([](const Instance&) { return true; });
        if (others >= kMaxInstances) Refuse(XR_ERROR_LIMIT_REACHED);
        if (others == 0) StartClock(runtime, created->settings);
        created->handle = runtime.Add<XrInstance>(created);
        *instance = created->handle;
        return XR_SUCCESS;
    });
}

XrResult DestroyInstance(XrInstance instance) {
    std::vector<Remains> remains;
    // Ends with the mutex open.
    std::unique_ptr<ControlServer> ended;
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(instance);
        runtime.handles.RemoveIf<Space>([&](const Space& space) { return space.session->instance == owner; });
        runtime.handles.RemoveIf<Session>([&](Session& session) {
            if (session.instance != owner) return false;
            remains.push_back(session.Close(runtime));
            return true;
        });
        runtime.handles.RemoveIf<Action>([&](const Action& action) { return action.Set().instance == owner.get(); });
        runtime.handles.RemoveIf<ActionSet>([&](const ActionSet& set) { return set.instance == owner.get(); });
        runtime.Remove<Instance>(instance);
        runtime.frame_changed.notify_all();
        if (runtime.handles.CountIf<Instance>([](const Instance&) { return true; }) == 0) ended.swap(runtime.control);
        return XR_SUCCESS;
    });
}

XrResult GetInstanceProperties(XrInstance instance, XrInstanceProperties* properties) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(instance);
        RequireType(properties, XR_TYPE_INSTANCE_PROPERTIES);
        properties->runtimeVersion = XR_MAKE_VERSION(1, 0, 0);
        CopyText(kRuntimeName, properties->runtimeName);
        return XR_SUCCESS;
    });
}

XrResult ResultToString(XrInstance instance, XrResult value, char buffer[XR_MAX_RESULT_STRING_SIZE]) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(instance);
        Require(buffer);
        CopyText(NameOf(value), *reinterpret_cast<char(*)[XR_MAX_RESULT_STRING_SIZE]>(buffer));
        return XR_SUCCESS;
    });
}

XrResult StructureTypeToString(XrInstance instance, XrStructureType value, char buffer[XR_MAX_STRUCTURE_NAME_SIZE]) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(instance);
        Require(buffer);
        CopyText(NameOf(value), *reinterpret_cast<char(*)[XR_MAX_STRUCTURE_NAME_SIZE]>(buffer));
        return XR_SUCCESS;
    });
}

XrResult GetSystem(XrInstance instance, const XrSystemGetInfo* info, XrSystemId* system) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(instance);
        RequireType(info, XR_TYPE_SYSTEM_GET_INFO);
        Require(system);
        if (info->formFactor != XR_FORM_FACTOR_HEAD_MOUNTED_DISPLAY) Refuse(XR_ERROR_FORM_FACTOR_UNSUPPORTED);
        *system = kSystemId;
        owner->system_is_known = true;
        return XR_SUCCESS;
    });
}

XrResult GetSystemProperties(XrInstance instance, XrSystemId system, XrSystemProperties* properties) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(instance);
        owner->CheckSystem(system);
        RequireType(properties, XR_TYPE_SYSTEM_PROPERTIES);
        properties->systemId = kSystemId;
        properties->vendorId = 0x10001;
        CopyText(kRuntimeName, properties->systemName);
        const auto [width, height] = owner->settings.LargestImage();
        properties->graphicsProperties = {height, width, XR_MIN_COMPOSITION_LAYERS_SUPPORTED};
        properties->trackingProperties = {XR_TRUE, XR_TRUE};
        for (auto* link = static_cast<XrBaseOutStructure*>(properties->next); link; link = link->next) {
            if (link->type != XR_TYPE_SYSTEM_HAND_TRACKING_PROPERTIES_EXT) continue;
            auto& hands = *reinterpret_cast<XrSystemHandTrackingPropertiesEXT*>(link);
            hands.supportsHandTracking = owner->HasExtension(kHandTracking);
        }
        return XR_SUCCESS;
    });
}

}  // namespace simulator
