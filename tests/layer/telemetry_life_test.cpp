// The whole life of an application as telemetry hears it: one ordered list of events, from the instance's creation
// through a client's calls to the end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "context/context_manager.h"
#include "diagnostics/clock.h"
#include "diagnostics/log_file_sink.h"
#include "diagnostics/machine_id.h"
#include "diagnostics/telemetry.h"
#include "external/registration.h"
#include "layer/frame_hooks.h"
#include "layer/instance_hooks.h"
#include "layer/mcp_server_lifecycle.h"
#include "layer/session_hooks.h"
#include "mcp/server_host.h"
#include "tests/fakes/fake_runtime.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "tests/fakes/scratch.h"
#include "tests/fakes/sse_client.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;

// An event as "<number> <id> <fields that are filled> | <text>".
class ListingTelemetry final : public ITelemetry {
 public:
    explicit ListingTelemetry(std::vector<std::string>& events) : events_(events) {}
    void initialize(const std::string& name, const std::string& version, int) override {
        events_.push_back("initialize " + name + " " + version);
    }
    void shutdown() override { events_.push_back("shutdown"); }
    void track(TelemetryEventId id, const TelemetryEvent& event, const std::string& text) override {
        std::string line = std::to_string(event.sequence) + " #" + std::to_string(static_cast<int>(id));
        const auto add = [&line](const char* key, const std::string& value) {
            if (!value.empty()) line += std::string(" ") + key + "=" + value;
        };
        add("client", event.client_name);
        add("tool", event.tool_name);
        add("reason", event.reason);
        add("sentiment", event.sentiment);
        add("error", event.error_category.empty() ? "" : event.error_category + "/" + event.error_code);
        if (id == TelemetryEventId::kToolFinish) line += event.success ? " ok" : " failed";
        events_.push_back(text.empty() ? line : line + " | " + text);
    }

 private:
    std::vector<std::string>& events_;
};

XrResult XRAPI_CALL Refuse(char*, std::uint32_t, std::uint32_t*, const char*, void*) {
    return XR_ERROR_RUNTIME_FAILURE;
}

class TelemetryLife : public testing::Test {
 protected:
    TelemetryLife() {
        Renew(ContextManager::instance());
        Telemetry::instance().set_implementation(std::make_unique<ListingTelemetry>(events_));
        next_info_ = {XR_LOADER_INTERFACE_STRUCT_API_LAYER_NEXT_INFO,
                      1,
                      sizeof(XrApiLayerNextInfo),
                      {},
                      FakeRuntime::next_get_instance_proc_addr(),
                      FakeRuntime::next_create_api_layer_instance(),
                      nullptr};
        std::strcpy(next_info_.layerName, "XR_APILAYER_KESTX_velmoor");
        layer_info_ = {XR_LOADER_INTERFACE_STRUCT_API_LAYER_CREATE_INFO,
                       1,
                       sizeof(XrApiLayerCreateInfo),
                       nullptr,
                       {},
                       &next_info_};
        std::strcpy(create_info_.applicationInfo.applicationName, "Demo");
        create_info_.applicationInfo.applicationVersion = 7;
        std::strcpy(create_info_.applicationInfo.engineName, "Forge");
        create_info_.applicationInfo.engineVersion = 9;
        create_info_.applicationInfo.apiVersion = 5;
    }
    ~TelemetryLife() override {
        DestroyOrvanicMcpServer();
        LogFileSink::instance().end_session();
        Telemetry::instance().shutdown();
        Telemetry::instance().set_implementation(std::make_unique<NoopTelemetryImpl>());
        Renew(ContextManager::instance());
    }

    ScratchDirectory state_home_;
    ScopedVariable log_home_{"XDG_STATE_HOME", state_home_.path()};
    Machineid::ScopedMachineId machine_id_{"00000000-0000-4000-8000-000000000000"};
    ScopedMcpServerPort any_port_{0};
    FakeClock clock_{0, 1};  // no call takes any time
    LogCapture log_;
    FakeRuntime runtime_{FakeRuntime::Installed::kNo};
    std::vector<std::string> events_;  // touched under Telemetry's mutex, read when nobody is at work
    XrApiLayerNextInfo next_info_{};
    XrApiLayerCreateInfo layer_info_{};
    XrInstanceCreateInfo create_info_{XR_TYPE_INSTANCE_CREATE_INFO, nullptr, 0, {}, 0, nullptr, 0, nullptr};
};

TEST_F(TelemetryLife, IsToldInOrder) {
    XrInstance instance = XR_NULL_HANDLE;
    ASSERT_EQ(OrvanicLayerXrCreateApiLayerInstance(&create_info_, &layer_info_, &instance), XR_SUCCESS);
    XrSession session = XR_NULL_HANDLE;
    ASSERT_EQ(OrvanicLayerXrCreateSession(instance, nullptr, &session), XR_SUCCESS);
    OrvanicXR_RegisterExternalTool("game_tool", "Fails.", 0, nullptr, Refuse, 0, nullptr);

    const auto server = McpServerHost::instance().ipv4_server();
    ASSERT_TRUE(server && server->wait_until_listening(std::chrono::seconds(10)));
    {
        mcp::sse_client client(server->port());
        client.call(R"({"id":1,"method":"initialize","params":{"protocolVersion":"2025-11-25",)"
                    R"("clientInfo":{"name":"probe","version":"3"}}})");
        client.post(R"({"method":"notifications/initialized"})");
        // Nobody answers a notification; once the list is served it was taken in.
        int tries = 0;
        while (client.call(R"({"id":0,"method":"tools/list"})").find("-32600") != std::string::npos) {
            ASSERT_LT(++tries, 1000);
        }
        client.call_tool(2, "math_calc", R"({"expression":"1","reason":"to see","sentiment":"positive"})");
        client.call_tool(3, "game_tool", R"({"sentiment":"splendid"})");
        // A tool that throws tells its start only.
        client.call_tool(4, "openxr_set_head_pose", R"({"position":["x",0,0]})");
        OrvanicXR_RegisterExternalTool("", "Refused.", 0, nullptr, Refuse, 0, nullptr);
    }
    runtime_.throw_from("xrBeginFrame");
    EXPECT_EQ(OrvanicLayerXrBeginFrame(session, nullptr), XR_ERROR_RUNTIME_FAILURE);
    ASSERT_EQ(OrvanicLayerXrDestroySession(session), XR_SUCCESS);
    ASSERT_EQ(OrvanicLayerXrDestroyInstance(instance), XR_SUCCESS);

    EXPECT_THAT(events_, ElementsAre("initialize Demo 7", "0 #0 | app=Demo,engine=Forge,engine_ver=9,api_ver=5",
                                     "1 #4 | port=0,tools_registered=26,ipv4=true,ipv6=true", "2 #2",
                                     "3 #8 client=probe | client_name=probe,client_version=3",
                                     "4 #9 client=probe tool=math_calc | tool=math_calc,tool_category=openxr_builtin",
                                     "5 #6 client=probe tool=math_calc reason=to see sentiment=positive | "
                                     "tool=math_calc,tool_category=openxr_builtin",
                                     "6 #7 client=probe tool=math_calc ok | "
                                     "tool=math_calc,tool_category=openxr_builtin,latency_ms=0,success=true",
                                     "7 #6 client=probe tool=game_tool | tool=game_tool,tool_category=external_unity",
                                     "8 #7 client=probe tool=game_tool failed | "
                                     "tool=game_tool,tool_category=external_unity,latency_ms=0,success=false,"
                                     "error_reason=callback_failed: -2",
                                     "9 #10 client=probe error=tool/error | "
                                     "tool=game_tool,tool_category=external_unity,latency_ms=0,success=false,"
                                     "error_reason=callback_failed: -2",
                                     "10 #6 client=probe tool=openxr_set_head_pose | "
                                     "tool=openxr_set_head_pose,tool_category=openxr_builtin",
                                     "11 #10 client=probe error=layer/hook_exception", "12 #3 client=probe",
                                     "13 #1 client=probe", "shutdown"));
}

}  // namespace
}  // namespace orvanic_xr
