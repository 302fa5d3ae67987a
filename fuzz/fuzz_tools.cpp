// Every built-in tool with arguments made from its schema, over a next layer that lies: any pose, any size, any
// failure. Each call must come back with content that a client can read, or throw what the server answers with.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "capture/screen_capture_manager.h"
#include "context/context_manager.h"
#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "fuzz/schema_arguments.h"
#include "scene/scene_context.h"
#include "tests/fakes/fake_runtime.h"
#include "tools/builtin_tools.h"
#include "tools/simulation/pose_animation_manager.h"
#include "tools/tool_registry.h"
#include "xr/simulator_capture_records.h"
#include "xr/spatial_entity_ks.h"

namespace orvanic_xr {
namespace {

constexpr const char* kFailing[] = {
    "xrLocateSpace",
    "xrStringToPath",
    "xrPathToString",
    "xrGetCurrentInteractionProfile",
    "xrSetInputDeviceActiveEXT",
    "xrSetInputDeviceStateBoolEXT",
    "xrSetInputDeviceStateFloatEXT",
    "xrSetInputDeviceLocationEXT",
    "xrRequestExitSession",
    "xrCreateActionSpace",
    "xrCreateReferenceSpace",
};

class Tools : public IToolRegistry {
 public:
    void registerTool(mcp::tool tool, ToolHandler handler) override {
        all.emplace_back(std::move(tool), std::move(handler));
    }
    std::vector<std::pair<mcp::tool, ToolHandler>> all;
};

// What the next layer answers for the input at hand.
struct Lies {
    XrSpaceLocation location{XR_TYPE_SPACE_LOCATION, nullptr, 0, {}};
    std::uint32_t sizes[2][2] = {};  // width and height, first told and then
};

// One application with a running session in a room of two things; a thread stands for its frames.
class Application {
 public:
    Application() {
        Logger::instance().set_level(kLogError + 1);
        instance_.valid = true;
        instance_.instance = runtime_.instance();
        instance_.enabledExtensions = {"XR_EXT_conformance_automation", "XR_EXT_local_floor",
                                       kSimulatorCompositorCaptureExtension};
        manager_.setInstanceState(instance_);
        manager_.setSceneContextFactory(MakeSceneContext);
        Furnish();
        BeginSession();
        register_builtin_tools(tools_);
        std::thread([] {
            for (;;) {
                std::this_thread::sleep_for(std::chrono::microseconds(200));
                PoseAnimationManager::instance().Tick();
                PoseAnimationManager::instance().CancelAll("the test");
            }
        }).detach();
    }

    void CallATool(FuzzedDataProvider bytes) {
        const auto& [tool, handler] = tools_.all[bytes.ConsumeIntegralInRange<std::size_t>(0, tools_.all.size() - 1)];
        const std::uint8_t lacking = bytes.ConsumeIntegralInRange<std::uint8_t>(0, 7);
        manager_.setInstanceState(lacking == 7 ? InstanceState() : instance_);
        manager_.updateSessionState(lacking >= 6 ? SessionState() : session_);
        const char* failing = lacking >= 4 ? bytes.PickValueInArray(kFailing) : nullptr;
        if (failing) runtime_.answer(failing, static_cast<XrResult>(bytes.ConsumeIntegralInRange(-60, 10)));
        if (bytes.ConsumeBool()) context_->conformance_automation_active = false;
        const mcp::json arguments = ShortHold(MakeArguments(tool.input_schema, bytes));
        Lie(bytes);
        Check(handler, arguments);
        if (failing) runtime_.behave(failing);
        InstallLies();
        runtime_.take_calls();
        runtime_.take_lookups();
    }

 private:
    // A press that is let go later has a thread until then.
    static mcp::json ShortHold(mcp::json arguments) {
        if (arguments.is_object() && arguments.value("auto_release", mcp::json()) == true) {
            arguments["hold_duration"] = 1e-9;
        }
        return arguments;
    }

    static void Check(const ToolHandler& handler, const mcp::json& arguments) {
        mcp::json content;
        try {
            content = handler(arguments, "session");
        } catch (const std::exception&) {
            return;
        }
        if (!content.is_array() || content.empty()) std::abort();
        for (const mcp::json& item : content) {
            const bool text = item.at("type") == "text";
            if (!text && item.at("type") != "image") std::abort();
            if (!item.at(text ? "text" : "data").is_string()) std::abort();
        }
        if (mcp::parse_json(mcp::dump_json(content)).size() != content.size()) std::abort();
    }

    void Lie(FuzzedDataProvider& bytes) {
        bytes.ConsumeData(&lies_.location.pose, sizeof lies_.location.pose);
        lies_.location.locationFlags = bytes.ConsumeBool() ? 0xF : bytes.ConsumeIntegral<std::uint8_t>();
        for (auto& size : lies_.sizes) {
            for (std::uint32_t& length : size) {
                length = bytes.PickValueInArray<std::uint32_t>({0, 1, 2, 7, 64, 16385, 0xFFFFFFFF});
            }
        }
    }

    void InstallLies() {
        runtime_.on("xrLocateSpace", [this](XrSpace, XrSpace, XrTime, XrSpaceLocation* location) {
            *location = lies_.location;
            return XR_SUCCESS;
        });
    }

    void Furnish() {
        runtime_.offer_spatial_entities();
        InstallLies();
        runtime_.on("xrQuerySpacesKS", [](XrSession, const XrSpaceQueryInfoBaseHeaderKS*, XrAsyncRequestIdKS* request) {
            *request = 1;
            return XR_SUCCESS;
        });
        runtime_.on("xrRetrieveSpaceQueryResultsKS", [](XrSession, XrAsyncRequestIdKS, XrSpaceQueryResultsKS* results) {
            results->resultCountOutput = 2;
            for (std::uint32_t i = 0; results->results && i < results->resultCapacityInput; ++i) {
                results->results[i] = {reinterpret_cast<XrSpace>(0x9000 + std::uintptr_t{i}), {}};
                results->results[i].uuid.data[0] = static_cast<std::uint8_t>(i);
            }
            return XR_SUCCESS;
        });
        runtime_.on("xrGetSpaceBoundingBox3DKS", [](XrSession, XrSpace, XrRect3DfKS* box) {
            *box = {{-1, 0, -1}, {2, 1e38f, 2}};
            return XR_SUCCESS;
        });
        runtime_.on("xrCaptureSimulatorCompositorOutputKESTX1",
                    [this](XrSession, SimulatorCompositorCaptureInfo* info) {
                        const auto& size = lies_.sizes[info->pixels ? 1 : 0];
                        *info->width_output = size[0];
                        *info->height_output = size[1];
                        const auto& told = lies_.sizes[0];
                        if (info->pixels) std::memset(info->pixels, 0x55, std::size_t{told[0]} * told[1] * 4);
                        return XR_SUCCESS;
                    });
    }

    void BeginSession() {
        PFN_xrVoidFunction create = nullptr;
        FakeRuntime::next_get_instance_proc_addr()(runtime_.instance(), "xrCreateSession", &create);
        XrSessionCreateInfo info{XR_TYPE_SESSION_CREATE_INFO, nullptr, 0, 1};
        session_.valid = true;
        session_.state = XR_SESSION_STATE_FOCUSED;
        reinterpret_cast<PFN_xrCreateSession>(create)(runtime_.instance(), &info, &session_.session);
        manager_.updateSessionState(session_);
        manager_.createSessionContext(session_.session);
        manager_.createSceneContext(session_.session);
        context_ = manager_.getSessionContext(session_.session);
        context_->RecordFrameTime(1'000'000'000);
        XrEventDataBuffer event{};
        const XrEventDataSpaceQueryResultsAvailableKS results = {XR_TYPE_EVENT_DATA_SPACE_QUERY_RESULTS_AVAILABLE_KS,
                                                                 nullptr, 1};
        std::memcpy(&event, &results, sizeof results);
        manager_.getSceneContext(session_.session)->on_event(event);
        if (!manager_.getSceneContext(session_.session)->is_ready()) std::abort();
        SystemState system;
        system.valid = true;
        system.systemName = "\xff\xfe a name";
        manager_.setSystemState(system);
        FrameState frame;
        frame.valid = true;
        frame.session = session_.session;
        frame.layers = {{XR_TYPE_COMPOSITION_LAYER_PROJECTION, 3}, {static_cast<XrStructureType>(0x7FFFFFFE), 0}};
        for (int i = 0; i < 3; ++i) manager_.updateFrameState(frame);
        ScreenCaptureManager::instance().initialize();
        ScreenCaptureManager::instance().backend()->start(session_.session);
    }

    FakeRuntime runtime_;
    ContextManager& manager_ = ContextManager::instance();
    Tools tools_;
    InstanceState instance_;
    SessionState session_;
    std::shared_ptr<SessionContext> context_;
    Lies lies_;
};

}  // namespace
}  // namespace orvanic_xr

// What a short input leaves open is decided by noise, which stands in front of it since choices are read from the end.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static orvanic_xr::Application& application = *new orvanic_xr::Application;
    std::vector<std::uint8_t> bytes(512);
    std::generate(bytes.begin(), bytes.end(), std::minstd_rand());
    bytes.insert(bytes.end(), data, data + size);
    application.CallATool(FuzzedDataProvider(bytes.data(), bytes.size()));
    return 0;
}
