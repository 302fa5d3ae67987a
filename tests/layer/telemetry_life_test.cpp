// The whole life of an application as telemetry hears it: one ordered list of events, from the instance's creation
// through a client's calls to the end.
#include <memory>
#include <string>
#include <vector>

#include "diagnostics/clock.h"
#include "diagnostics/machine_id.h"
#include "external/registration.h"
#include "layer/frame_hooks.h"
#include "layer/session_hooks.h"
#include "mcp/server_host.h"
#include "tests/fakes/listing_telemetry.h"
#include "tests/fakes/sse_client.h"
#include "tests/layer/instance_fixture.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;

XrResult XRAPI_CALL Refuse(char*, std::uint32_t, std::uint32_t*, const char*, void*) {
    return XR_ERROR_RUNTIME_FAILURE;
}

class TelemetryLife : public InstanceFixture {
 protected:
    TelemetryLife() { Telemetry::instance().set_implementation(std::make_unique<ListingTelemetry>(events_)); }
    ~TelemetryLife() override {
        Telemetry::instance().shutdown();
        Telemetry::instance().set_implementation(std::make_unique<NoopTelemetryImpl>());
    }

    Machineid::ScopedMachineId machine_id_{"00000000-0000-4000-8000-000000000000"};
    FakeClock clock_{0, 1};  // no call takes any time
    std::vector<std::string> events_;
};

TEST_F(TelemetryLife, IsToldInOrder) {
    create_info_.applicationInfo.apiVersion = 5;
    ASSERT_EQ(Create(), XR_SUCCESS);
    XrSession session = XR_NULL_HANDLE;
    ASSERT_EQ(OrvanicLayerXrCreateSession(instance_, nullptr, &session), XR_SUCCESS);
    OrvanicXR_RegisterExternalTool("game_tool", "Fails.", 0, nullptr, Refuse, 0, nullptr);

    const auto server = McpServerHost::instance().ipv4_server();
    ASSERT_TRUE(server && server->wait_until_listening(std::chrono::seconds(10)));
    {
        mcp::sse_client client(server->port());
        client.shake_hands();
        client.call_tool(2, "math_calc", R"({"expression":"1","reason":"to see","sentiment":"positive"})");
        client.call_tool(3, "game_tool", R"({"sentiment":"splendid"})");
        // A tool that throws tells its start only.
        client.call_tool(4, "openxr_set_head_pose", R"({"position":["x",0,0]})");
        OrvanicXR_RegisterExternalTool("", "Refused.", 0, nullptr, Refuse, 0, nullptr);
    }
    runtime_.throw_from("xrBeginFrame");
    EXPECT_EQ(OrvanicLayerXrBeginFrame(session, nullptr), XR_ERROR_RUNTIME_FAILURE);
    runtime_.answer("xrDestroySession", XR_ERROR_RUNTIME_FAILURE);
    EXPECT_EQ(OrvanicLayerXrDestroySession(session), XR_ERROR_RUNTIME_FAILURE) << "its end is told all the same";
    ASSERT_EQ(OrvanicLayerXrDestroyInstance(instance_), XR_SUCCESS);

    EXPECT_THAT(events_,
                ElementsAre("initialize Demo 7", "0 #0 | app=Demo,engine=Forge,engine_ver=9,api_ver=5",
                            "1 #4 | port=0,tools_registered=26,ipv4=true,ipv6=true", "2 #2",
                            "3 #8 client=sse_client | client_name=sse_client,client_version=1",
                            "4 #9 client=sse_client tool=math_calc | tool=math_calc,tool_category=openxr_builtin",
                            "5 #6 client=sse_client tool=math_calc reason=to see sentiment=positive | "
                            "tool=math_calc,tool_category=openxr_builtin",
                            "6 #7 client=sse_client tool=math_calc ok | "
                            "tool=math_calc,tool_category=openxr_builtin,latency_ms=0,success=true",
                            "7 #6 client=sse_client tool=game_tool | tool=game_tool,tool_category=external_unity",
                            "8 #7 client=sse_client tool=game_tool failed | "
                            "tool=game_tool,tool_category=external_unity,latency_ms=0,success=false,"
                            "error_reason=callback_failed: -2",
                            "9 #10 client=sse_client error=tool/error | "
                            "tool=game_tool,tool_category=external_unity,latency_ms=0,success=false,"
                            "error_reason=callback_failed: -2",
                            "10 #6 client=sse_client tool=openxr_set_head_pose | "
                            "tool=openxr_set_head_pose,tool_category=openxr_builtin",
                            "11 #10 client=sse_client error=layer/hook_exception", "12 #3 client=sse_client",
                            "13 #1 client=sse_client", "shutdown"));
}

}  // namespace
}  // namespace orvanic_xr
