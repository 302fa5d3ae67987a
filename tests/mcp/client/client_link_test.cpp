#include "mcp/client/client_link.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>

#include "mcp/client/blocking_client.h"
#include "mcp/server.h"

namespace mcp {
namespace {

using namespace std::chrono_literals;

// A server with the tools "count", which tells how often it was called, and "block", which waits for `release`.
struct counting_server {
    explicit counting_server(int port = 0) : served(config(port)) {
        tool declaration{
            .name = "count", .description = "", .input_schema = {{"type", "object"}}, .output_schema = {}, .title = {}};
        served.register_tool(declaration, [this](const json&, const std::string&) {
            return json::array({{{"type", "text"}, {"text", std::to_string(++count)}}});
        });
        declaration.name = "block";
        served.register_tool(declaration, [this](const json&, const std::string&) {
            blocked = true;
            release.get_future().wait();
            return json::array();
        });
        served.start(false);
        EXPECT_TRUE(served.wait_until_listening(5s));
    }
    static server_config config(int port) {
        server_config made;
        made.host = "127.0.0.1";
        made.port = port;
        made.threadpool_size = 2;
        made.timings.endpoint_delay = 10ms;
        return made;
    }

    std::atomic<int> count{0};
    std::atomic<bool> blocked{false};
    std::promise<void> release;
    server served;
};

link_config to(int port) {
    const server_address address{"127.0.0.1", static_cast<std::uint16_t>(port)};
    link_config config;
    config.dial = [address] { return dial(address, 1s); };
    config.host = host_header(address);
    config.client_info = {{"name", "test"}, {"version", "1"}};
    config.first_pause = 10ms;
    return config;
}

constexpr call_limits kPatient{20s, 20s};

// The end of a call that is made now.
std::future<call_result> begin(client_link& link, const std::string& tool, call_limits limits = kPatient) {
    auto end = std::make_shared<std::promise<call_result>>();
    link.call("tools/call", {{"name", tool}}, limits,
              [end](call_result&& result) { end->set_value(std::move(result)); });
    return end->get_future();
}

TEST(ClientLink, EachOfManyCallsIsRunAndAnsweredOnce) {
    counting_server server;
    client_link link(to(server.served.port()), {});
    constexpr int kCalls = 2000;
    std::vector<std::future<call_result>> ends;
    for (int i = 0; i < kCalls; ++i) ends.push_back(begin(link, "count"));
    std::set<std::string> texts;
    for (auto& end : ends) {
        const call_result result = end.get();
        ASSERT_EQ(result.how, call_end::answered) << result.why;
        texts.insert(text_of(result.message.at("result")));
    }
    EXPECT_EQ(texts.size(), kCalls);
    EXPECT_EQ(server.count, kCalls);
}

TEST(ClientLink, GoesOnWithTheNextServerAndRepeatsNothing) {
    auto first = std::make_unique<counting_server>();
    const int port = first->served.port();
    client_link link(to(port), {});
    auto in_flight = begin(link, "block");
    while (!first->blocked) std::this_thread::sleep_for(1ms);
    first->served.stop();
    EXPECT_EQ(in_flight.get().how, call_end::outcome_unknown);
    EXPECT_EQ(begin(link, "count", {50ms, 1s}).get().how, call_end::not_sent);

    auto waiting = begin(link, "count");
    first->release.set_value();
    first.reset();
    counting_server second(port);
    const call_result result = waiting.get();
    ASSERT_EQ(result.how, call_end::answered) << result.why;
    EXPECT_EQ(text_of(result.message.at("result")), "1");
    EXPECT_FALSE(second.blocked);
}

TEST(ClientLink, ACancelledCallEndsAtOnceAndOthersGoOn) {
    counting_server server;
    client_link link(to(server.served.port()), {});
    std::promise<call_end> end;
    const auto id = link.call("tools/call", {{"name", "block"}}, kPatient,
                              [&](call_result&& result) { end.set_value(result.how); });
    while (!server.blocked) std::this_thread::sleep_for(1ms);
    link.cancel(id, "no more");
    EXPECT_EQ(end.get_future().get(), call_end::cancelled);
    EXPECT_EQ(begin(link, "count").get().how, call_end::answered);
    server.release.set_value();
}

TEST(BlockingClient, TellsWhyThereIsNoServer) {
    int port = 0;
    {
        counting_server gone;
        port = gone.served.port();
    }
    link_config config = to(port);
    config.begin_again = false;
    blocking_client client(std::move(config));
    try {
        client.await_ready(20s);
        FAIL() << "there is no server";
    } catch (const client_error& problem) {
        EXPECT_THAT(problem.what(), testing::HasSubstr("Connection refused"));
    }
}

}  // namespace
}  // namespace mcp
