#include "layer/instance_hooks.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <shared_mutex>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "capture/screen_capture_manager.h"
#include "diagnostics/clock.h"
#include "external/external_tool_manager.h"
#include "layer/action_maps.h"
#include "layer/binding_mirror.h"
#include "layer/dispatch/dispatch.h"
#include "layer/hooks.h"
#include "layer/instance_extensions.h"
#include "layer/space_hooks.h"
#include "mcp/server_host.h"
#include "tests/layer/instance_fixture.h"
#include "tools/simulation/pose_animation_manager.h"
#include "tools/tool_registry.h"
#include "tools/tool_registry_lifetime.h"
#include "xr/handles.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class InstanceHooks : public InstanceFixture {
 protected:
    void Enable(ExtensionNames names) {
        enabled_ = std::move(names);
        create_info_.enabledExtensionCount = static_cast<std::uint32_t>(enabled_.size());
        create_info_.enabledExtensionNames = enabled_.data();
    }
    std::vector<std::string> LinesWithoutTools() {
        std::vector<std::string> lines = log_.take();
        std::erase_if(lines, [](const std::string& line) {
            return line.starts_with("INFO Registered '") || line.starts_with("INFO Skipping '");
        });
        return lines;
    }
    std::string LogFile() const {
        const std::vector<std::string> files = FilesBelow(state_home_.path());
        return files.size() == 1 ? ReadFile(state_home_.path() + "/" + files[0]) : "not one file";
    }

    ExtensionNames enabled_;
};

TEST_F(InstanceHooks, CreationGoesThroughItsSteps) {
    FakeClock clock(1234, 0);
    layer_info_.structSize = next_info_.structSize = 1000;
    const char* const layers[] = {"XR_APILAYER_KESTX_velmoor", nullptr};
    create_info_.enabledApiLayerCount = 2;
    create_info_.enabledApiLayerNames = layers;
    Enable({"XR_MND_headless", "XR_KESTX1_orvanic_external_tool"});
    runtime_.extensions = {"XR_MND_headless", "XR_EXT_local_floor", "XR_EXT_conformance_automation"};
    ASSERT_EQ(Create(), XR_SUCCESS);
    EXPECT_EQ(runtime_.name_of(HandleValue(instance_)), "instance1");

    EXPECT_THAT(runtime_.take_calls(), ElementsAre("xrEnumerateInstanceExtensionProperties(null, 0)",
                                                   "xrEnumerateInstanceExtensionProperties(null, 3)",
                                                   "xrCreateApiLayerInstance(Demo, [XR_MND_headless XR_EXT_local_floor "
                                                   "XR_EXT_conformance_automation])"));
    const std::vector<std::string> lookups = runtime_.take_lookups();
    ASSERT_EQ(lookups.size(), 404u);
    EXPECT_EQ(lookups[0], "xrEnumerateInstanceExtensionProperties");
    EXPECT_EQ(lookups[1], "xrCreateInstance");
    EXPECT_EQ(lookups[403], "xrUnpersistSpatialEntityCompleteEXT");
    EXPECT_THAT(LinesWithoutTools(),
                ElementsAre("INFO Queried available extensions, count: 3",
                            "INFO Adding extension to instance create info: XR_EXT_local_floor",
                            "WARNING Extension not available: XR_KESTX1_simulator_compositor_output_capture",
                            "INFO Adding extension to instance create info: XR_EXT_conformance_automation",
                            "WARNING Extension not available: XR_KEST_pronto_controller_plus",
                            "INFO Application enabled XR_KESTX1_orvanic_external_tool",
                            "INFO Filtered out API layer extension, passing 3 extensions downstream",
                            "INFO Cached application info, data: Demo (v7), Engine: Forge (v9)",
                            "INFO Telemetry is disabled. Events will not be tracked.",
                            "INFO Telemetry initialized for: Demo", "INFO Initializing Orvanic MCP Server...",
                            "INFO MCP Server started successfully on port 0 (IPv4 and IPv6)"));
    EXPECT_THAT(LogFile(), HasSubstr("Queried available extensions, count: 3"));

    const InstanceState state = ContextManager::instance().getInstanceState();
    EXPECT_TRUE(state.valid);
    EXPECT_EQ(state.applicationName, "Demo");
    EXPECT_EQ(state.applicationVersion, 7u);
    EXPECT_EQ(state.engineName, "Forge");
    EXPECT_EQ(state.engineVersion, 9u);
    EXPECT_EQ(state.apiVersion, XR_MAKE_VERSION(1, 0, 34));
    EXPECT_EQ(state.createdAt, 1234);
    EXPECT_THAT(state.enabledApiLayers, ElementsAre("XR_APILAYER_KESTX_velmoor"));
    EXPECT_THAT(state.enabledExtensions,
                ElementsAre("XR_EXT_conformance_automation", "XR_EXT_local_floor", "XR_MND_headless"));
    EXPECT_THAT(state.availableExtensions, SizeIs(3));
    EXPECT_TRUE(state.externalToolExtensionEnabled);
    EXPECT_EQ(state.instance, instance_);
    EXPECT_NE(state.toolRegistry, nullptr);
    EXPECT_EQ(DispatchHolder::instance().xr_instance(), instance_);
}

TEST_F(InstanceHooks, RecordsThatDoNotFitAreRefusedWithoutAWord) {
    const struct {
        const char* what;
        std::function<void()> change;
    } kRows[] = {
        {"create info's type", [&] { layer_info_.structType = XR_LOADER_INTERFACE_STRUCT_LOADER_INFO; }},
        {"create info's version", [&] { layer_info_.structVersion = 0; }},
        {"create info's size", [&] { layer_info_.structSize = 543; }},
        {"no next info", [&] { layer_info_.nextInfo = nullptr; }},
        {"next info's type", [&] { next_info_.structType = XR_LOADER_INTERFACE_STRUCT_API_LAYER_CREATE_INFO; }},
        {"next info's version", [&] { next_info_.structVersion = 0; }},
        {"next info's size", [&] { next_info_.structSize = 295; }},
        {"another layer's name", [&] { std::strcpy(next_info_.layerName, "XR_APILAYER_KESTX_velmoor_2"); }},
        {"a name without an end", [&] { std::memset(next_info_.layerName, 'x', sizeof next_info_.layerName); }},
        {"no lookup", [&] { next_info_.nextGetInstanceProcAddr = nullptr; }},
        {"no create function", [&] { next_info_.nextCreateApiLayerInstance = nullptr; }},
    };
    const XrApiLayerCreateInfo layer_info = layer_info_;
    const XrApiLayerNextInfo next_info = next_info_;
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.what);
        layer_info_ = layer_info;
        next_info_ = next_info;
        row.change();
        EXPECT_EQ(Create(), XR_ERROR_INITIALIZATION_FAILED);
    }
    EXPECT_EQ(OrvanicLayerXrCreateApiLayerInstance(&create_info_, nullptr, &instance_), XR_ERROR_INITIALIZATION_FAILED);
    EXPECT_EQ(OrvanicLayerXrCreateApiLayerInstance(nullptr, &layer_info, &instance_), XR_ERROR_INITIALIZATION_FAILED);
    EXPECT_THAT(runtime_.take_calls(), IsEmpty());
    EXPECT_THAT(runtime_.take_lookups(), IsEmpty());
    EXPECT_THAT(log_.take(), IsEmpty());
}

// A layer below can tell of its own extensions alone, or of none: it hides nothing of what lies below it.
TEST_F(InstanceHooks, EveryLayerBelowIsAskedForItsExtensions) {
    const auto mute = [](XrInstance, const char*, PFN_xrVoidFunction* function) {
        *function = nullptr;
        return XR_ERROR_HANDLE_INVALID;
    };
    const PFN_xrEnumerateInstanceExtensionProperties of_a_layer = [](const char*, std::uint32_t capacity,
                                                                     std::uint32_t* count, auto* properties) {
        *count = 1;
        if (capacity > 0) std::strcpy(properties->extensionName, "XR_OF_A_LAYER");
        return XR_SUCCESS;
    };
    static const auto enumerate = reinterpret_cast<PFN_xrVoidFunction>(of_a_layer);
    const auto telling = [](XrInstance, const char*, PFN_xrVoidFunction* function) {
        *function = enumerate;
        return XR_SUCCESS;
    };
    const auto create = FakeRuntime::next_create_api_layer_instance();
    XrApiLayerNextInfo unreadable = NextInfo("XR_APILAYER_D", mute, create);
    unreadable.structSize = 8;
    XrApiLayerNextInfo lowest =
        NextInfo("XR_APILAYER_C", FakeRuntime::next_get_instance_proc_addr(), create, &unreadable);
    XrApiLayerNextInfo lower = NextInfo("XR_APILAYER_B", telling, create, &lowest);
    XrApiLayerNextInfo low = NextInfo("XR_APILAYER_A", nullptr, create, &lower);
    next_info_ = NextInfo(kVelmoor, mute, create, &low);
    runtime_.extensions = {"XR_EXT_local_floor"};
    EXPECT_EQ(Create(), XR_SUCCESS);
    EXPECT_THAT(ContextManager::instance().getInstanceState().availableExtensions,
                ElementsAre("XR_EXT_local_floor", "XR_OF_A_LAYER"));
    EXPECT_TRUE(ContextManager::instance().isExtensionEnabled("XR_EXT_local_floor"));
    next_info_.nextGetInstanceProcAddr = telling;
    lower.nextGetInstanceProcAddr = mute;
    EXPECT_EQ(Create(), XR_SUCCESS);
    EXPECT_THAT(ContextManager::instance().getInstanceState().availableExtensions,
                ElementsAre("XR_EXT_local_floor", "XR_OF_A_LAYER"));
}

TEST_F(InstanceHooks, LastInstanceWins) {
    ASSERT_EQ(Create(), XR_SUCCESS);
    IToolRegistry* const first = ContextManager::instance().getInstanceState().toolRegistry;
    const auto server = McpServerHost::instance().ipv4_server();
    std::strcpy(create_info_.applicationInfo.applicationName, "Second");
    ASSERT_EQ(Create(), XR_SUCCESS);
    const InstanceState state = ContextManager::instance().getInstanceState();
    EXPECT_EQ(state.applicationName, "Second");
    EXPECT_EQ(runtime_.name_of(HandleValue(state.instance)), "instance2");
    EXPECT_EQ(DispatchHolder::instance().xr_instance(), state.instance);
    EXPECT_NE(state.toolRegistry, first);
    EXPECT_EQ(McpServerHost::instance().ipv4_server(), server);
    EXPECT_THAT(FilesBelow(state_home_.path()), SizeIs(1));
}

TEST_F(InstanceHooks, DestructionGoesThroughItsSteps) {
    ASSERT_EQ(Create(), XR_SUCCESS);
    runtime_.take_calls();
    log_.take();
    EXPECT_EQ(OrvanicLayerXrDestroyInstance(instance_), XR_SUCCESS);
    EXPECT_THAT(runtime_.take_calls(), ElementsAre("xrDestroyInstance(instance1)"));
    EXPECT_THAT(log_.take(),
                ElementsAre("INFO OrvanicLayerXrDestroyInstance called", "INFO Telemetry shut down",
                            "INFO Destroying Orvanic MCP Server...", "INFO MCP Server stopped successfully",
                            "INFO OrvanicLayerXrDestroyInstance succeeded"));
    EXPECT_THAT(LogFile(), HasSubstr("==== session ended at "));
    const InstanceState state = ContextManager::instance().getInstanceState();
    EXPECT_TRUE(state.valid);
    EXPECT_EQ(state.applicationName, "Demo");
    EXPECT_EQ(state.toolRegistry, nullptr);
    EXPECT_TRUE(DispatchHolder::instance().has_table());
    EXPECT_EQ(McpServerHost::instance().ipv4_server(), nullptr);
    EXPECT_EQ(InProcessToolRegistry::instance().invoke("math_calc", json::object()).error,
              "tool 'math_calc' is not registered");
}

TEST_F(InstanceHooks, HandlesGoWithTheirInstance) {
    ASSERT_EQ(Create(), XR_SUCCESS);
    const XrInstance first = instance_;
    ASSERT_EQ(Create(), XR_SUCCESS);
    const XrAction action = HandleFromValue<XrAction>(0x11);
    const XrSpace space = HandleFromValue<XrSpace>(0x12);
    ActionMaps::instance().AddSpace(space, {action, 0});
    const XrActionSuggestedBinding binding = {action, 5};
    BindingMirror::instance().Note("profile", std::span(&binding, 1), true);
    ContextManager::instance().updateSessionState({true, HandleFromValue<XrSession>(0x13), XR_SESSION_STATE_IDLE, 1});
    EXPECT_EQ(OrvanicLayerXrDestroyInstance(first), XR_SUCCESS);
    EXPECT_TRUE(ActionMaps::instance().FindSpace(space, false)) << "another instance's";
    EXPECT_TRUE(ContextManager::instance().getSessionState().valid);
    EXPECT_THAT(BindingMirror::instance().ToMirror(), SizeIs(1));
    EXPECT_EQ(OrvanicLayerXrDestroyInstance(instance_), XR_SUCCESS);
    EXPECT_FALSE(ActionMaps::instance().FindSpace(space, false));
    EXPECT_THAT(BindingMirror::instance().ToMirror(), IsEmpty());
    EXPECT_FALSE(ContextManager::instance().getSessionState().valid);
}

TEST_F(InstanceHooks, NobodyIsLeftWaitingAtTheEnd) {
    ASSERT_EQ(Create(), XR_SUCCESS);
    const auto start_long_animation = [] {
        ActiveAnimation animation;
        animation.name = "head";
        animation.duration_seconds = 1e6f;
        animation.apply = [](const XrPosef&) { return true; };
        return PoseAnimationManager::instance().StartAnimation(std::move(animation));
    };
    const auto enqueue_callback = [] {
        auto entry = std::make_shared<DeferredCallbackEntry>(ExternalTool{"tool", nullptr, 1, nullptr}, "{}");
        auto done = entry->completion.get_future();
        ExternalToolManager::instance().Enqueue(std::move(entry));
        return done;
    };
    std::future<AnimationResult> animations[2] = {start_long_animation(), {}};
    std::future<void> callbacks[2] = {enqueue_callback(), {}};
    // What calls that still run come up with while the server is being stopped.
    runtime_.on("xrDestroyInstance", [&](XrInstance) {
        animations[1] = start_long_animation();
        callbacks[1] = enqueue_callback();
        return XR_SUCCESS;
    });
    EXPECT_EQ(OrvanicLayerXrDestroyInstance(instance_), XR_SUCCESS);
    for (int i = 0; i < 2; ++i) {
        SCOPED_TRACE(i);
        ASSERT_EQ(animations[i].wait_for(std::chrono::seconds(0)), std::future_status::ready);
        EXPECT_EQ(animations[i].get(), AnimationSuperseded);
        EXPECT_EQ(callbacks[i].wait_for(std::chrono::seconds(0)), std::future_status::ready);
    }
}

// Permission that nobody gives: the tool would wait five seconds for it.
TEST_F(InstanceHooks, CaptureDoesNotWaitBeyondTheEnd) {
    runtime_.extensions.emplace_back("XR_KESTX1_simulator_compositor_output_capture");
    ASSERT_EQ(Create(), XR_SUCCESS);
    ContextManager::instance().updateSessionState({true, HandleFromValue<XrSession>(0x13), XR_SESSION_STATE_IDLE, 1});
    ASSERT_TRUE(ScreenCaptureManager::instance().initialize());
    auto call = std::async(std::launch::async, [] {
        return InProcessToolRegistry::instance().invoke("openxr_capture_composited_image", json::object());
    });
    const auto asks = [&] { return log_.messages("INFO").back().find("requesting permission") != std::string::npos; };
    while (!asks() && call.wait_for(std::chrono::milliseconds(1)) == std::future_status::timeout) {
    }
    EXPECT_EQ(OrvanicLayerXrDestroyInstance(instance_), XR_SUCCESS);
    EXPECT_EQ(call.wait_for(std::chrono::seconds(1)), std::future_status::ready);
    EXPECT_THAT(mcp::dump_json(call.get().result), HasSubstr("permission is pending"));
}

// The callback runs inside the application's xrPollEvent, with calls of its own and of another tool waiting.
TEST_F(InstanceHooks, DeferredCallbackMayEndItsInstance) {
    ASSERT_EQ(Create(), XR_SUCCESS);
    const auto destroy = [](char*, std::uint32_t, std::uint32_t*, const char*, void* instance) {
        return OrvanicLayerXrDestroyInstance(static_cast<XrInstance>(instance));
    };
    std::vector<std::future<json>> calls;
    for (const std::uint32_t flags : {2u, 1u, 1u}) {
        const ExternalTool tool = {"tool", destroy, flags, instance_};
        calls.push_back(std::async(std::launch::async, [tool] { return ExecuteExternalTool(tool, json::object()); }));
        while (std::ranges::count(log_.messages("INFO"), " ... waiting") < std::ssize(calls)) std::this_thread::yield();
    }
    // A caller may only be about to wait.
    while (runtime_.calls("xrDestroyInstance").empty()) ExternalToolManager::instance().ProcessDeferredCallbacks(1);
    for (auto& call : calls) {
        ASSERT_EQ(call.wait_for(std::chrono::seconds(3)), std::future_status::ready);
        EXPECT_EQ(call.get()[0]["text"], "Error: External tool callback timed out in processing queue");
    }
    EXPECT_THAT(runtime_.calls("xrDestroyInstance"), SizeIs(1));
}

TEST_F(InstanceHooks, RegistriesOutliveARegistrationThroughThem) {
    ASSERT_EQ(Create(), XR_SUCCESS);
    std::shared_lock registration(ToolRegistryLifetime());
    IToolRegistry* const registry = ContextManager::instance().getInstanceState().toolRegistry;
    auto destruction = std::async(std::launch::async, [&] { return OrvanicLayerXrDestroyInstance(instance_); });
    EXPECT_EQ(destruction.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    mcp::tool tool;
    tool.name = "late";
    registry->registerTool(tool, [](const json&, const std::string&) { return json(); });
    registration.unlock();
    EXPECT_EQ(destruction.get(), XR_SUCCESS);
    EXPECT_FALSE(InProcessToolRegistry::instance().invoke("late", json::object()).success);
}

// A layer between two copies of ours.
struct Middle {
    static inline std::vector<std::string> calls;
    static inline PFN_xrGetInstanceProcAddr next = nullptr;
    static inline PFN_xrDestroySpace next_destroy_space = nullptr;

    static XrResult Create(const XrInstanceCreateInfo* info, const XrApiLayerCreateInfo* layer_info,
                           XrInstance* instance) {
        calls.push_back("create as " + std::string(layer_info->nextInfo->layerName));
        const XrApiLayerNextInfo& own = *layer_info->nextInfo;
        XrApiLayerCreateInfo moved_on = *layer_info;
        moved_on.nextInfo = own.next;
        next = own.nextGetInstanceProcAddr;
        const XrResult result = own.nextCreateApiLayerInstance(info, &moved_on, instance);
        next(*instance, "xrDestroySpace", reinterpret_cast<PFN_xrVoidFunction*>(&next_destroy_space));
        return result;
    }
    static XrResult GetInstanceProcAddr(XrInstance instance, const char* name, PFN_xrVoidFunction* function) {
        *function = nullptr;
        if (!next) return XR_ERROR_HANDLE_INVALID;
        if (std::string(name) != "xrDestroySpace") return next(instance, name, function);
        *function = reinterpret_cast<PFN_xrVoidFunction>(DestroySpace);
        return XR_SUCCESS;
    }
    static XrResult DestroySpace(XrSpace space) {
        calls.push_back("xrDestroySpace");
        return next_destroy_space(space);
    }
};

class BothNames : public InstanceHooks {
 protected:
    void ExpectOneCopyAtWork() {
        const std::vector<XrApiLayerNextInfo> before = {next_info_, lower_};
        ASSERT_EQ(Create(), XR_SUCCESS);
        EXPECT_EQ(std::memcmp(&before[0], &next_info_, 296), 0) << "the loader's own records stay";
        EXPECT_EQ(std::memcmp(&before[1], &lower_, 296), 0);
        EXPECT_THAT(runtime_.calls("xrCreateApiLayerInstance"), SizeIs(1));
        EXPECT_THAT(log_.messages("INFO"), testing::Contains("Another copy of this layer lies below and is left out"));
        EXPECT_EQ(OrvanicLayerXrDestroySpace(HandleFromValue<XrSpace>(0x5)), XR_SUCCESS);
        EXPECT_THAT(runtime_.calls("xrDestroySpace"), ElementsAre("xrDestroySpace(0x5)"));
        EXPECT_EQ(OrvanicLayerXrDestroyInstance(instance_), XR_SUCCESS);
        EXPECT_THAT(runtime_.calls("xrDestroyInstance"), ElementsAre("xrDestroyInstance(instance1)"));
    }

    XrApiLayerNextInfo lower_ =
        NextInfo(kOrvanic, FakeRuntime::next_get_instance_proc_addr(), FakeRuntime::next_create_api_layer_instance());
};

TEST_F(BothNames, WithAnotherLayerBetweenThem) {
    Middle::calls.clear();
    Middle::next = nullptr;
    XrApiLayerNextInfo middle =
        NextInfo("XR_APILAYER_OTHER", OrvanicLayerXrGetInstanceProcAddr, OrvanicLayerXrCreateApiLayerInstance, &lower_);
    next_info_ = NextInfo(kVelmoor, Middle::GetInstanceProcAddr, Middle::Create, &middle);
    ExpectOneCopyAtWork();
    EXPECT_THAT(Middle::calls, ElementsAre("create as XR_APILAYER_OTHER", "xrDestroySpace"));
}

}  // namespace
}  // namespace orvanic_xr
