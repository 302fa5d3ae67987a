// The application registers tools while clients are connected and list them.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "context/context_manager.h"
#include "external/registration.h"
#include "layer/dispatch/handles.h"
#include "mcp/server.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "tests/fakes/sse_client.h"
#include "tools/tool_registry.h"

namespace orvanic_xr {
namespace {

constexpr int kToolsOfOneThread = 40;

XrResult XRAPI_CALL AnswerOk(char* buffer, std::uint32_t, std::uint32_t* size, const char*, void*) {
    std::memcpy(buffer, "ok", 2);
    *size = 2;
    return XR_SUCCESS;
}

class RunningServer : public IToolRegistry {
 public:
    RunningServer() {
        server_.start(false);
        EXPECT_TRUE(server_.wait_until_listening(std::chrono::seconds(10)));
    }
    void registerTool(mcp::tool tool, ToolHandler handler) override { server_.register_tool(tool, std::move(handler)); }
    int port() const { return server_.port(); }

 private:
    static mcp::server_config Config() {
        mcp::server_config config;
        config.host = "127.0.0.1";
        config.port = 0;
        config.write_timeout_seconds = 30;
        config.timings.endpoint_delay = config.timings.stop_pause = std::chrono::milliseconds(5);
        return config;
    }
    mcp::server server_{Config()};
};

XrResult Register(const std::string& name) {
    XrOrvanicExternalToolRegisterInfoKESTX1 info{};
    info.type = XR_TYPE_ORVANIC_EXTERNAL_TOOL_REGISTER_INFO_KESTX1;
    name.copy(info.name, sizeof info.name - 1);
    std::strcpy(info.description, "Does it.");
    info.callback = AnswerOk;
    return OrvanicLayerXrOrvanicRegisterExternalToolKESTX1(HandleFromValue<XrInstance>(0x1001), &info);
}

std::set<std::string> ListedNames(mcp::sse_client& client) {
    const mcp::json answer = mcp::parse_json(client.call(R"({"jsonrpc":"2.0","id":3,"method":"tools/list"})"));
    std::set<std::string> names;
    for (const mcp::json& tool : answer.at("result").at("tools")) {
        EXPECT_EQ(tool.at("inputSchema").at("type"), "object");
        EXPECT_TRUE(names.insert(tool.at("name").get<std::string>()).second) << "listed twice";
    }
    return names;
}

TEST(ExternalRegistrationOnTheStream, ShowsEachToolFromItsRegistrationOnWhileAnotherClientLists) {
    LogCapture log;
    Renew(ContextManager::instance());
    RunningServer running;
    InstanceState state;
    state.valid = true;
    state.instance = HandleFromValue<XrInstance>(0x1001);
    state.toolRegistry = &running;
    ContextManager::instance().setInstanceState(state);
    ASSERT_EQ(Register("first"), XR_SUCCESS);  // a server without tools has no list

    // Lists all the time, and each list holds what the one before did.
    std::atomic<bool> done = false;
    auto lister = std::async(std::launch::async, [&] {
        mcp::sse_client client(running.port());
        client.shake_hands();
        std::set<std::string> before = {"first"};
        int lists = 0;
        for (; !done && lists < 20000; ++lists) {
            const std::set<std::string> now = ListedNames(client);
            EXPECT_TRUE(std::includes(now.begin(), now.end(), before.begin(), before.end()));
            before = now;
        }
        return lists;
    });
    const auto register_and_call = [&](const std::string& prefix) {
        mcp::sse_client client(running.port());
        client.shake_hands();
        for (int i = 0; i < kToolsOfOneThread; ++i) {
            const std::string name = prefix + std::to_string(i);
            EXPECT_EQ(Register(name), XR_SUCCESS);
            EXPECT_TRUE(ListedNames(client).contains(name)) << name;
            EXPECT_NE(client.call_tool(i, name).find(R"("text":"ok")"), std::string::npos) << name;
        }
    };
    auto other = std::async(std::launch::async, register_and_call, "other_");
    register_and_call("tool_");
    other.get();
    done = true;
    EXPECT_GT(lister.get(), 0);

    mcp::sse_client late(running.port());
    late.shake_hands();
    EXPECT_EQ(ListedNames(late).size(), 1u + 2 * kToolsOfOneThread);
    Renew(ContextManager::instance());
}

}  // namespace
}  // namespace orvanic_xr
