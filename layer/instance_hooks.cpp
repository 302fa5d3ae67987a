#include "layer/instance_hooks.h"

#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "capture/screen_capture_manager.h"
#include "context/context_manager.h"
#include "diagnostics/clock.h"
#include "diagnostics/log_file_sink.h"
#include "diagnostics/logger.h"
#include "diagnostics/telemetry.h"
#include "external/external_tool_manager.h"
#include "external/fixed_text.h"
#include "layer/action_maps.h"
#include "layer/available_extensions.h"
#include "layer/binding_mirror.h"
#include "layer/dispatch/dispatch.h"
#include "layer/hook_support.h"
#include "layer/instance_extensions.h"
#include "layer/layer_chain.h"
#include "layer/mcp_server_lifecycle.h"
#include "scene/scene_context.h"
#include "tools/simulation/frame_clock.h"
#include "tools/simulation/pose_animation_manager.h"
#include "xr/simulator_frame_demand.h"

namespace orvanic_xr {
namespace {

std::span<const char* const> Names(std::uint32_t count, const char* const* names) {
    return names ? std::span(names, count) : std::span<const char* const>();
}

// What goes down in place of the application's create info: with the wanted extensions, without our own. The
// application's record as it came if nothing changes.
class DownstreamCreateInfo {
 public:
    DownstreamCreateInfo(const XrInstanceCreateInfo& application, const std::set<std::string>& available)
        : application_(application) {
        const auto enabled = Names(application.enabledExtensionCount, application.enabledExtensionNames);
        names_ = MergeWantedExtensions(enabled, available);
        // The application does not know it.
        if (FrameClock::instance().is_on() && available.contains(kSimulatorFrameDemandExtension)) {
            names_.push_back(kSimulatorFrameDemandExtension);
        }
        changed_ = names_.size() > enabled.size();
        ExtensionNames kept = WithoutOwnExtension(names_);
        if (kept.size() < names_.size()) {
            names_ = std::move(kept);
            changed_ = has_external_tool_extension_ = true;
            LogInfo("Filtered out API layer extension, passing ", names_.size(), " extensions downstream");
        }
        widened_ = application;
        widened_.enabledExtensionCount = static_cast<std::uint32_t>(names_.size());
        widened_.enabledExtensionNames = names_.data();
    }
    DownstreamCreateInfo(const DownstreamCreateInfo&) = delete;
    DownstreamCreateInfo& operator=(const DownstreamCreateInfo&) = delete;

    const XrInstanceCreateInfo& record() const { return changed_ ? widened_ : application_; }
    bool has_external_tool_extension() const { return has_external_tool_extension_; }

 private:
    const XrInstanceCreateInfo& application_;
    XrInstanceCreateInfo widened_{};
    ExtensionNames names_;
    bool changed_ = false;
    bool has_external_tool_extension_ = false;
};

InstanceState DescribeApplication(const XrInstanceCreateInfo& record) {
    InstanceState state;
    state.valid = true;
    state.applicationName = TextOf(record.applicationInfo.applicationName);
    state.applicationVersion = record.applicationInfo.applicationVersion;
    state.engineName = TextOf(record.applicationInfo.engineName);
    state.engineVersion = record.applicationInfo.engineVersion;
    state.apiVersion = record.applicationInfo.apiVersion;
    for (const char* name : Names(record.enabledApiLayerCount, record.enabledApiLayerNames)) {
        if (name) state.enabledApiLayers.emplace_back(name);
    }
    for (const char* name : Names(record.enabledExtensionCount, record.enabledExtensionNames)) {
        if (name) state.enabledExtensions.emplace(name);
    }
    return state;
}

void CacheApplication(const InstanceState& state) {
    ContextManager::instance().setInstanceState(state);
    LogInfo("Cached application info, data: ", state.applicationName, " (v", state.applicationVersion,
            "), Engine: ", state.engineName, " (v", state.engineVersion, ")");
    Telemetry::instance().set_application_info(state.applicationName, state.applicationVersion, state.engineName,
                                               state.engineVersion, state.apiVersion);
}

XrResult CreateInstance(const XrInstanceCreateInfo& info, const XrApiLayerCreateInfo& layer_info,
                        XrInstance& instance) {
    const ChainBelow chain(layer_info);
    const PFN_xrGetInstanceProcAddr next = chain.next_get_instance_proc_addr;
    LogFileSink::instance().begin_session("api_layer");
    if (chain.left_out_a_copy) LogInfo("Another copy of this layer lies below and is left out");

    FrameClock::instance().ReadSwitch();
    std::set<std::string> available = AvailableExtensions(chain);
    const DownstreamCreateInfo downstream(info, available);
    XrInstance handle = instance;
    const XrResult result = chain.next_create_api_layer_instance(&downstream.record(), &chain.create_info, &handle);
    instance = handle;

    auto table = std::make_unique<NextDispatchTable>();
    PopulateDispatchTable(*table, handle, next);
    DispatchHolder::instance().Replace(std::move(table), handle, next);

    InstanceState state = DescribeApplication(downstream.record());
    state.createdAt = SystemNanoseconds();
    state.availableExtensions = std::move(available);
    state.externalToolExtensionEnabled = downstream.has_external_tool_extension();
    state.instance = handle;
    CacheApplication(state);

    ContextManager::instance().setSceneContextFactory(MakeSceneContext);
    ExternalToolManager::instance().Open();
    PoseAnimationManager::instance().Open();
    ScreenCaptureManager::instance().open();
    InitializeOrvanicMcpServer();
    return result;
}

// Another instance's handles may have the same numbers.
void ForgetHandles() {
    ActionMaps::instance().Clear();
    BindingMirror::instance().ForgetBindings();
    ContextManager::instance().forgetSessions();
}

XrResult DestroyInstance(XrInstance instance) {
    LogInfo("OrvanicLayerXrDestroyInstance called");
    // The server waits for running tools, and these for callbacks and animations, which nobody moves on any more, or
    // for a capture.
    ExternalToolManager::instance().Close();
    Telemetry::instance().close();
    PoseAnimationManager::instance().Close();
    ScreenCaptureManager::instance().close();
    DestroyOrvanicMcpServer();
    ScreenCaptureManager::instance().shutdown();

    const auto destroy_instance = NextFunction(&NextDispatchTable::DestroyInstance, "xrDestroyInstance");
    // On purpose the log file stays open here.
    if (!destroy_instance) return XR_ERROR_HANDLE_INVALID;
    // Tools that the application calls in the process, and releases that still wait, are not the server's to end.
    ContextManager::instance().closeSessions(instance);
    const bool is_current = DispatchHolder::instance().xr_instance() == instance;
    XrResult result = XR_SUCCESS;
    try {
        result = destroy_instance(instance);
    } catch (...) {
        if (is_current) ForgetHandles();  // nobody can tell what is left of it
        throw;
    }
    if (XR_FAILED(result)) {
        LogError("OrvanicLayerXrDestroyInstance failed");
    } else {
        if (is_current) ForgetHandles();
        LogInfo("OrvanicLayerXrDestroyInstance succeeded");
    }
    LogFileSink::instance().end_session();
    return result;
}

}  // namespace

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrCreateApiLayerInstance(const XrInstanceCreateInfo* info,
                                                                    const XrApiLayerCreateInfo* layerInfo,
                                                                    XrInstance* instance) {
    const HookGuard guard = {"OrvanicLayerXrCreateApiLayerInstance", XR_ERROR_RUNTIME_FAILURE, false};
    return GuardHook(guard, [&] {
        if (!ValidCreateInfo(layerInfo) || !info || !instance) return XR_ERROR_INITIALIZATION_FAILED;
        return CreateInstance(*info, *layerInfo, *instance);
    });
}

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrDestroyInstance(XrInstance instance) {
    const HookGuard guard = {"OrvanicLayerXrDestroyInstance", XR_ERROR_HANDLE_INVALID, true,
                             []() noexcept { LogFileSink::instance().end_session(); }};
    return GuardHook(guard, [&] { return DestroyInstance(instance); });
}

}  // namespace orvanic_xr
