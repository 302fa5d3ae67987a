// Starting and stopping, on good days and on bad ones.
#include <gmock/gmock.h>
#include <signal.h>

#include "diagnostics/clock.h"
#include "diagnostics/telemetry.h"
#include "mcp/server_host.h"
#include "tests/mcp/server_fixture.h"

namespace mcp {
namespace {

using namespace std::chrono_literals;
using orvanic_xr::McpServerHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;

using Lifecycle = ServerTest;

std::chrono::milliseconds time_of(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

TEST_F(Lifecycle, StopEndsStreamsAndIdleConnectionsAtOnce) {
    Start();
    sse_client client(Port());
    client.shake_hands();
    raw_socket idle(Port());
    raw_socket half_a_request(Port());
    half_a_request.send("POST /message HTTP/1.1\r\nContent-Length: 100\r\n\r\n{");
    log_.take();
    EXPECT_LT(time_of([&] { server_->stop(); }), 20s);
    EXPECT_FALSE(server_->is_running());
    EXPECT_TRUE(client.stream().ends_within(kClientPatience));
    EXPECT_TRUE(idle.ends_within(kClientPatience));
    std::vector<std::string> lines = log_.take();
    std::erase_if(lines, [](const std::string& line) { return line.find("HTTP/1.1") != std::string::npos; });
    EXPECT_THAT(lines, ElementsAre("INFO Stopping MCP server on 127.0.0.1:0", "INFO Maintenance thread exiting",
                                   "INFO MCP server stopped"));
    server_.reset();
    EXPECT_THAT(log_.take(), ElementsAre());
}

TEST_F(Lifecycle, DestructorWaitsForTheRunningCall) {
    Start();
    sse_client client(Port());
    client.shake_hands();
    client.post(R"({"id":1,"method":"tools/call","params":{"name":"wait"}})");
    waiting_.get_future().wait();
    EXPECT_LT(time_of([&] { server_->stop(); }), 20s);
    auto destroyed = std::async(std::launch::async, [&] { server_.reset(); });
    EXPECT_EQ(destroyed.wait_for(50ms), std::future_status::timeout);
    go_on_.set_value();
    EXPECT_EQ(destroyed.wait_for(10s), std::future_status::ready);
}

TEST_F(Lifecycle, CallThatEndsDuringTheStopIsStillAnswered) {
    auto config = local_config();
    config.timings.stop_pause = 1s;
    Start(config);
    sse_client client(Port());
    client.shake_hands();
    client.post(R"({"id":1,"method":"tools/call","params":{"name":"wait"}})");
    waiting_.get_future().wait();
    auto stopped = std::async(std::launch::async, [&] { server_->stop(); });
    ASSERT_TRUE(log_.has("Stopping MCP server"));
    go_on_.set_value();
    EXPECT_THAT(client.next_message(), HasSubstr("waited"));
    stopped.get();
}

TEST_F(Lifecycle, StopIsNotHeldUpByAClientThatDoesNotRead) {
    Start();
    server_->register_tool(tool_named("big"),
                           [](const json&, const std::string&) { return text_content(std::string(8 << 20, 'x')); });
    sse_client client(Port());
    client.shake_hands();
    client.post(R"({"id":1,"method":"tools/call","params":{"name":"big"}})");
    ASSERT_TRUE(log_.has("Method call successful: tools/call name=big"));
    std::this_thread::sleep_for(100ms);  // the stream's worker is in the middle of its write now
    EXPECT_LT(time_of([&] { server_->stop(); }), 20s);
}

TEST_F(Lifecycle, StopRightAfterStart) {
    for (int i = 0; i < 20; ++i) {
        server one(local_config());
        one.start(false);
        one.stop();
    }
}

TEST_F(Lifecycle, SweepClosesSessionsIdleForMoreThanAnHour) {
    Start();
    sse_client client(Port());
    const std::int64_t now_ns = orvanic_xr::MonotonicNanoseconds();
    {
        const orvanic_xr::FakeClock clock(0, now_ns + 3'590'000'000'000);
        server_->sweep_inactive_sessions();
        EXPECT_EQ(client.post(R"({"method":"x"})").status, 202);  // touches it, an hour later
        server_->sweep_inactive_sessions();
        EXPECT_EQ(client.post(R"({"method":"x"})").status, 202);
    }
    log_.take();
    const orvanic_xr::FakeClock clock(0, now_ns + 3'590'000'000'000 + 3'601'000'000'000);
    server_->sweep_inactive_sessions();
    EXPECT_TRUE(client.stream().ends_within(kClientPatience));
    EXPECT_TRUE(log_.has("INFO Closing inactive session: " + client.session_id()));
    EXPECT_EQ(client.post(R"({"method":"x"})").status, 404);
}

TEST_F(Lifecycle, MaintenanceSweepsByItself) {
    auto config = local_config();
    config.timings.sweep_interval = 10ms;
    config.timings.inactive_after = 100ms;
    Start(config);
    raw_socket stream(Port());
    stream.send("GET /sse HTTP/1.1\r\n\r\n");
    EXPECT_TRUE(stream.ends_within(kClientPatience));
}

// A guest leaves signals as the host has them, and what it writes to a client that is gone raises none.
TEST_F(Lifecycle, SigpipeStaysWithTheHost) {
    for (const auto disposition : {SIG_DFL, SIG_IGN}) {
        signal(SIGPIPE, disposition);
        auto config = local_config();
        config.timings.heartbeat_pause = 5ms;
        config.timings.heartbeat_spread = 1ms;
        Start(config);
        sse_client client(Port());
        struct sigaction now {};
        sigaction(SIGPIPE, nullptr, &now);
        EXPECT_EQ(now.sa_handler, disposition);
        const std::string session_id = client.session_id();
        client.stream().vanish();
        for (int tries = 0; tries < 1000 && client.post(R"({"method":"x"})").status != 404; ++tries) {
            std::this_thread::sleep_for(5ms);
        }
        EXPECT_EQ(client.post(R"({"method":"x"})").status, 404);
        server_.reset();
    }
    signal(SIGPIPE, SIG_DFL);
}

class Host : public testing::Test {
 protected:
    log_lines log_;
    McpServerHost host_{short_timings()};
};

TEST_F(Host, ServesBothFamiliesWithTheSameTools) {
    host_.register_tool(tool_named("early"), {});
    EXPECT_TRUE(host_.start(0));
    // It has to be there before the other one, whose socket takes IPv4 as well.
    EXPECT_TRUE(host_.ipv4_server()->wait_until_listening(0ms));
    EXPECT_TRUE(host_.start(0));
    EXPECT_THAT(log_.take(), IsSupersetOf({"WARNING Cannot register tool: no server initialized",
                                           "INFO MCP server IPv4 started successfully at 0.0.0.0:0",
                                           "INFO MCP server IPv6 started successfully at [::]:0",
                                           "INFO MCP server singleton started on port 0",
                                           "WARNING MCP server singleton already started"}));
    host_.register_tool(tool_named("late"), [](const json&, const std::string&) { return text_content("hi"); });
    EXPECT_THAT(log_.take(), IsSupersetOf({"INFO Tool registered: late",
                                           "INFO Tools list changed - clients should refresh via tools/list"}));
    ASSERT_TRUE(host_.ipv4_server()->wait_until_listening(10s));
    ASSERT_TRUE(host_.ipv6_server()->wait_until_listening(10s));
    sse_client ipv4(host_.ipv4_server()->port(), "127.0.0.1");
    sse_client ipv6(host_.ipv6_server()->port(), "::1");
    for (sse_client* client : {&ipv4, &ipv6}) {
        client->shake_hands();
        EXPECT_THAT(client->call_tool(1, "late"), HasSubstr("hi"));
    }
    EXPECT_THAT(
        ipv4.call(R"({"id":1,"method":"initialize","params":{"protocolVersion":"2025-11-25"}})"),
        HasSubstr(R"("capabilities":{"tools":{}},"serverInfo":{"name":"OrvanicXR_MCP_Server","version":"1.0.0"})"));
    log_.take();
    host_.stop();
    EXPECT_THAT(log_.take(), IsSupersetOf({"INFO MCP server IPv4 stopped", "INFO MCP server IPv6 stopped"}));
    EXPECT_EQ(host_.ipv4_server(), nullptr);
    host_.stop();
    EXPECT_THAT(log_.take(), ElementsAre());
}

TEST_F(Host, ToolThatCallsTheHostDoesNotBlockItsStop) {
    host_.start(0);
    std::promise<void> running;
    host_.register_tool(tool_named("registrar"), [&](const json&, const std::string&) {
        running.set_value();
        log_.has("MCP server IPv6 stopped");
        host_.register_tool(tool_named("late"), {});
        return json();
    });
    ASSERT_TRUE(host_.ipv4_server()->wait_until_listening(10s));
    sse_client client(host_.ipv4_server()->port());
    client.shake_hands();
    client.post(R"({"id":1,"method":"tools/call","params":{"name":"registrar"}})");
    running.get_future().wait();
    auto stopped = std::async(std::launch::async, [&] { host_.stop(); });
    ASSERT_EQ(stopped.wait_for(10s), std::future_status::ready);
    EXPECT_TRUE(log_.has("WARNING Cannot register tool: no server initialized"));
}

class TelemetryRecord final : public orvanic_xr::ITelemetry {
 public:
    void initialize(const std::string&, const std::string&, int) override {}
    void shutdown() override {}
    void track(orvanic_xr::TelemetryEventId, const orvanic_xr::TelemetryEvent& event, const std::string&) override {
        client_name = event.client_name;
        is_proxy_used = event.annotations.find(R"("proxy_used":true)") != std::string::npos;
    }
    std::string client_name;
    bool is_proxy_used = false;
};

TEST_F(Host, InitializeTellsTelemetryOfClientAndProxy) {
    auto& telemetry = orvanic_xr::Telemetry::instance();
    auto record = std::make_unique<TelemetryRecord>();
    const TelemetryRecord& seen = *record;
    auto before = telemetry.set_implementation(std::move(record));
    telemetry.initialize("test", "1");
    std::string connected;
    host_.set_client_connected_callback(
        [&](const std::string& name, const std::string& version) { connected += name + " " + version + "; "; });
    ASSERT_TRUE(host_.start(0));
    ASSERT_TRUE(host_.ipv4_server()->wait_until_listening(10s));
    sse_client client(host_.ipv4_server()->port());
    for (const auto& [name, header] :
         {std::pair("Claire", ""), {"OrvanicXR_MCP_Proxy", "X-OrvanicXR-Proxy:\r\n"}, {"", ""}}) {
        SCOPED_TRACE(name);
        std::string request = post_request(client.session_uri(),
                                           R"({"id":1,"method":"initialize","params":{"protocolVersion":"2025-11-25",)"
                                           R"("clientInfo":{"version":"2","name":")" +
                                               std::string(name) + R"("}}})");
        raw_socket socket(host_.ipv4_server()->port());
        http_exchange(socket, request.insert(request.find("\r\n") + 2, header));
        client.next_message();
        telemetry.session_created();
        EXPECT_EQ(seen.client_name, "Claire");
        EXPECT_EQ(seen.is_proxy_used, std::string(name) != "Claire");
    }
    EXPECT_EQ(connected, "Claire 2; OrvanicXR_MCP_Proxy 2;  2; ");
    telemetry.set_proxy_used(false);
    telemetry.set_client_name("");
    telemetry.shutdown();
    telemetry.set_implementation(std::move(before));
}

}  // namespace
}  // namespace mcp
