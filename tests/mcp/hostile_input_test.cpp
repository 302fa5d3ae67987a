// Peers that break the rules, of the protocol or of good manners: whatever they send harms nobody else.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <map>
#include <random>
#include <thread>

#include "tests/mcp/server_fixture.h"

namespace mcp {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class HostileInput : public ServerTest {
 protected:
    void SetUp() override {
        auto config = local_config();
        config.timings.heartbeat_pause = 1h;  // nothing but answers on the streams
        Start(config);
        good_ = std::make_unique<sse_client>(Port());
        good_->shake_hands();
    }
    void TearDown() override {
        // Whatever happened, everybody else is served.
        EXPECT_THAT(good_->call_tool(99, "echo"), HasSubstr(R"("id":99,"result":{"isError":false)"));
    }

    std::unique_ptr<sse_client> good_;
};

std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

TEST_F(HostileInput, NestingIsLimited) {
    // The body adds two levels around the arguments.
    EXPECT_THAT(good_->call_tool(1, "echo", nested(254)), HasSubstr("isError\":false"));
    EXPECT_EQ(good_->post(R"({"id":1,"method":"tools/call","params":{"name":"echo","arguments":)" + nested(255) + "}}")
                  .status,
              400);
    EXPECT_EQ(good_->post(nested(100000)).status, 400);
    EXPECT_THAT(good_->call_tool(2, "echo", '"' + nested(256) + '"'), HasSubstr("isError\":false"));
    EXPECT_THAT(
        good_->call_tool(3, "echo", '"' + nested(257) + '"'),
        HasSubstr(R"("code":-32602,"message":"Invalid JSON arguments: JSON is nested deeper than 256 levels")"));
}

TEST_F(HostileInput, BodyIsLimited) {
    const std::string body(16u << 20, 'x');
    EXPECT_EQ(good_->post(body).status, 400);
    raw_socket socket(Port());
    const http_reply reply = http_exchange(socket, post_request(good_->session_uri(), body + "x"));
    EXPECT_EQ(reply.status, 413);
    EXPECT_EQ(reply.body, R"({"error":"Payload too large"})");
    EXPECT_EQ(reply.header("Access-Control-Allow-Origin"), "*");
    EXPECT_EQ(reply.header("Access-Control-Allow-Methods"), "POST, OPTIONS");
    EXPECT_EQ(reply.header("Access-Control-Allow-Headers"), "Content-Type");
    EXPECT_TRUE(log_.has("\"POST /message HTTP/1.1\" 413"));
}

TEST_F(HostileInput, BodiesInHandAreLimited) {
    auto config = local_config();
    config.all_bodies_limit = 50000;
    good_.reset();
    Start(config);
    good_ = std::make_unique<sse_client>(Port());
    good_->shake_hands();
    const std::string params = R"("params":{"arguments":[")" + std::string(30000, 'x') + R"("],"name":)";
    EXPECT_EQ(good_->post(R"({"id":1,"method":"tools/call",)" + params + "\"wait\"}}").status, 202);
    const http_reply refused = good_->post(R"({"id":2,"method":"tools/call",)" + params + "\"echo\"}}");
    EXPECT_EQ(refused.status, 503);
    EXPECT_EQ(refused.body, R"({"error":"Server busy"})");
    go_on_.set_value();
    EXPECT_THAT(good_->next_message(), HasSubstr("waited"));
}

TEST_F(HostileInput, NoUtf8ComesBackReplaced) {
    server_->register_tool(tool_named("latin1"),
                           [](const json&, const std::string&) { return text_content("caf\xe9"); });
    EXPECT_EQ(good_->call_tool(1, "latin1"),
              "{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":{\"isError\":false,\"content\":"
              "[{\"type\":\"text\",\"text\":\"caf\xEF\xBF\xBD\"}]}}");
    EXPECT_EQ(good_->post("{\"id\":1,\"method\":\"caf\xe9\"}").status, 400);
    EXPECT_EQ(good_->post(R"({"id":2,"method":"\udc00"})").status, 400);
}

TEST_F(HostileInput, RequestsThatAreNone) {
    const struct {
        const char* name;
        std::string bytes;
        int status;
    } rows[] = {
        {"noise", std::string("\x00\xff\x16\x03\x01 noise\r\n\r\n", 16), 400},
        {"no version", "GET /sse\r\n\r\n", 400},
        {"unknown method", "BREW /sse HTTP/1.1\r\n\r\n", 400},
        {"header without a colon", "GET /sse HTTP/1.1\r\nnothing\r\n\r\n", 400},
        {"length that is no number", "POST /message HTTP/1.1\r\nContent-Length: -5\r\n\r\n", 400},
        {"chunk that is none", "POST /message HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\n", 400},
        {"long path", "GET /" + std::string(20000, 'x') + " HTTP/1.1\r\n\r\n", 414},
        {"form with parts",
         "POST /message HTTP/1.1\r\nContent-Type: multipart/form-data; boundary=b\r\nContent-Length: 5\r\n\r\n--b\r\n",
         400},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        raw_socket socket(Port());
        EXPECT_EQ(http_exchange(socket, row.bytes).status, row.status);
    }
}

// Else a web page could write requests of its own choice, headers and all, into the body of such a one.
TEST_F(HostileInput, WhatFollowsAnUnreadableRequestIsNoRequest) {
    log_.take();
    for (const std::string& unreadable : {"X: " + std::string(9000, 'x') + "\r\n", std::string("nothing\r\n")}) {
        raw_socket socket(Port());
        socket.send("POST /message HTTP/1.1\r\n" + unreadable + "\r\nGET /sse HTTP/1.1\r\nHost: localhost\r\n\r\n");
        EXPECT_THAT(socket.read_until("\r\n\r\n"), testing::StartsWith("HTTP/1.1 400 "));
        EXPECT_TRUE(socket.ends_within(3s));  // before it would for its silence
    }
    EXPECT_FALSE(log_.has("\"GET /sse HTTP/1.1\" 200"));
}

TEST_F(HostileInput, ConnectionsThatIdleLeaveRoomToThoseThatWait) {
    good_.reset();
    rlimit usual{};
    getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit few{.rlim_cur = 100, .rlim_max = usual.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    Start();  // for 64 connections
    setrlimit(RLIMIT_NOFILE, &usual);
    good_ = std::make_unique<sse_client>(Port());
    good_->shake_hands();
    std::vector<raw_socket> kept;
    for (int i = 0; i < 100; ++i) {
        SCOPED_TRACE(i);
        kept.emplace_back(Port());
        kept.back().send("OPTIONS / HTTP/1.1\r\n\r\n");
        // Before the first of them has idled for too long.
        EXPECT_THAT(kept.back().read_until("\r\n\r\n", 3s), testing::StartsWith("HTTP/1.1 204 "));
    }
    EXPECT_TRUE(kept.front().is_open());
    EXPECT_TRUE(kept.back().ends_within(3s));
}

TEST_F(HostileInput, OneThatNeverReadsIsCutOffAndDelaysNobody) {
    server_->register_tool(tool_named("picture"),
                           [](const json&, const std::string&) { return text_content(std::string(4 << 20, 'x')); });
    sse_client deaf(Port());
    deaf.shake_hands();
    int accepted = 0;
    while (accepted < 100 && deaf.post(R"({"id":1,"method":"tools/call","params":{"name":"picture"}})").status == 202) {
        ++accepted;
        EXPECT_THAT(good_->call_tool(1, "echo"), HasSubstr("isError\":false"));
    }
    EXPECT_GE(accepted, 16);  // 64 MiB of answers, and what the system holds
    EXPECT_LT(accepted, 40);
    EXPECT_TRUE(log_.has("WARNING SSE session leaves more than 67108864 bytes of answers unread, closing: " +
                         deaf.session_id()));
    EXPECT_EQ(deaf.post(R"({"method":"x"})").status, 404);
    EXPECT_TRUE(deaf.stream().ends_within(5s));
}

// More than the sockets hold is on its way for as long as the reader takes his time.
TEST_F(HostileInput, OneThatReadsLateGetsTheWholeAndDelaysNobody) {
    std::string noise(6 << 20, ' ');
    std::minstd_rand random(7);
    for (char& byte : noise) byte = static_cast<char>('a' + random() % 26);
    server_->register_tool(tool_named("picture"), [&](const json&, const std::string&) { return text_content(noise); });
    sse_client late(Port());
    late.shake_hands();
    late.post(R"({"id":1,"method":"tools/call","params":{"name":"picture"}})");
    late.stream().read_until("\r\n");  // the length of the chunk is there, so it is being written
    for (int i = 0; i < 50; ++i) {
        const std::string text(static_cast<std::size_t>(i) * 1000, 'x');
        const std::string answer = good_->call_tool(i, "echo", R"({"a":"z)" + text + R"(z"})");
        EXPECT_TRUE(answer.find("z" + text + "z") != std::string::npos) << i;
    }
    EXPECT_TRUE(late.stream().read_until("\r\n\r\n").ends_with(noise + "\"}]}}\r\n\r\n"));
}

TEST_F(HostileInput, TenThousandRequestsAtOnceAreAllAnsweredOnce) {
    constexpr int kConnections = 50;
    constexpr int kRequests = 200;
    std::vector<std::thread> senders;
    for (int sender = 0; sender < kConnections; ++sender) {
        senders.emplace_back([this, sender] {
            // All requests of a connection are sent before the first acknowledgement is read.
            for (int half = 0; half < 2; ++half) {
                raw_socket socket(Port());
                std::string requests;
                for (int i = 0; i < kRequests / 2; ++i) {
                    const int id = sender * kRequests + half * kRequests / 2 + i;
                    requests +=
                        post_request(good_->session_uri(), R"({"method":"tools/call","params":{"name":"echo"},"id":)" +
                                                               std::to_string(id) + "}");
                }
                socket.send(requests);
                for (int i = 0; i < kRequests / 2; ++i) socket.read_until("\r\n\r\nAccepted");
            }
        });
    }
    std::map<int, int> answers;
    for (int i = 0; i < kConnections * kRequests; ++i) ++answers[json::parse(good_->next_message())["id"].get<int>()];
    for (std::thread& sender : senders) sender.join();
    EXPECT_EQ(answers.size(), 10000u);
}

}  // namespace
}  // namespace mcp
