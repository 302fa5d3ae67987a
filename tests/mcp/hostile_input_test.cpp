// Peers that break the rules, of the protocol or of good manners: whatever they send harms nobody else.
#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>
#include <random>

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
        StartAgain(config);
    }
    void TearDown() override {
        // Whatever happened, everybody else is served.
        EXPECT_THAT(good_->call_tool(99, "echo"), HasSubstr(R"("id":99,"result":{"isError":false)"));
    }

    void StartAgain(const server_config& config) {
        good_.reset();
        Start(config);
        good_ = std::make_unique<sse_client>(Port());
        good_->shake_hands();
    }

    std::unique_ptr<sse_client> good_;
};

std::string Repeated(const std::string& text, int times) {
    std::string all;
    while (times-- > 0) all += text;
    return all;
}

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

std::string members(int count) {
    std::string object;
    for (int i = 0; i < count; ++i) object += (i == 0 ? R"({"k)" : R"(,"k)") + std::to_string(i) + "\": 1";
    return object + "}";
}

std::string values(int count) {
    std::string array = "[";
    for (int i = 0; i < count; ++i) array += i % 2 == 0 ? "[ ]," : R"(",:{",)";
    return array + "1]";
}

std::string quoted(const std::string& text) {
    return dump_json(text);
}

TEST_F(HostileInput, MembersAndValuesAreLimited) {
    const std::string call = R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"echo","arguments":)";
    EXPECT_THAT(good_->call_tool(1, "echo", members(4096)), HasSubstr("isError\":false"));
    EXPECT_EQ(good_->post(call + members(4097) + "}}").status, 400);
    EXPECT_THAT(good_->call_tool(1, "echo", quoted(members(4097))),
                HasSubstr(R"("message":"Invalid JSON arguments: JSON holds an object of more than 4096 members")"));
    // The body has seven values around those of the array, which are one more.
    EXPECT_THAT(good_->call_tool(1, "echo", values(199'992)), HasSubstr("isError\":false"));
    EXPECT_EQ(good_->post(call + values(199'993) + "}}").status, 400);
    EXPECT_THAT(good_->call_tool(1, "echo", quoted(values(200'000))),
                HasSubstr(R"("message":"Invalid JSON arguments: JSON holds more than 200000 values")"));
    EXPECT_EQ(good_->post(values(3'000'000)).status, 400);
}

TEST_F(HostileInput, WhatItSaysForgesNoLogLine) {
    const std::string lines = "x\n[ERROR]\x1b[2J" + std::string(100'000, 'x');
    good_->post(R"({"id":1,"method":)" + quoted(lines) + "}");
    good_->post("{" + lines);
    good_->call_tool(2, lines);
    raw_socket socket(Port());
    http_exchange(socket, post_request("/message?session_id=no%0Aone%0d", "{}"));
    EXPECT_TRUE(log_.has("ERROR Session not found: no\\x0aone\\x0d"));
    for (const std::string& line : log_.take()) {
        EXPECT_EQ(line.find_first_of("\n\r\x1b"), std::string::npos) << line;
        EXPECT_LT(line.size(), 600u);
    }
}

TEST_F(HostileInput, BodyIsLimited) {
    const std::string body(16u << 20, 'x');
    EXPECT_EQ(good_->post(body).status, 400);
    raw_socket socket(Port());
    const http_reply reply = http_exchange(socket, post_request(good_->session_uri(), body + "x"));
    EXPECT_EQ(reply.status, 413);
    EXPECT_EQ(reply.body, R"({"error":"Payload too large"})");
    EXPECT_EQ(reply.header("Access-Control-Allow-Origin"), "*");
}

TEST_F(HostileInput, BodiesInHandAreLimited) {
    auto config = local_config();
    config.all_bodies_limit = 80'000;
    StartAgain(config);
    const std::string params = R"("params":{"arguments":[")" + std::string(30000, 'x') + R"("],"name":)";
    EXPECT_EQ(good_->post(R"({"id":1,"method":"tools/call",)" + params + "\"wait\"}}").status, 202);
    const std::string small = values(500);  // takes of memory what the large one does
    for (const std::string& arguments : {"[\"" + std::string(30000, 'x') + "\"]", small, quoted(small)}) {
        const http_reply refused =
            good_->post(R"({"id":2,"method":"tools/call","params":{"name":"echo","arguments":)" + arguments + "}}");
        EXPECT_EQ(refused.status, 503);
        EXPECT_EQ(refused.body, R"({"error":"Server busy"})");
    }
    std::string initialize = post_request(good_->session_uri(), R"({"id":3,"method":"initialize"})");
    initialize.insert(initialize.find("\r\n") + 2, Repeated("X: " + std::string(8000, 'x') + "\r\n", 7));
    raw_socket socket(Port());
    EXPECT_EQ(http_exchange(socket, initialize).status, 503);
    go_on_.set_value();
    EXPECT_THAT(good_->next_message(), HasSubstr("waited"));
}

std::size_t resident_bytes() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST_F(HostileInput, LargeBodiesLeaveLittleMemoryBehind) {
    if (VELMOOR_SANITIZED) GTEST_SKIP() << "a sanitizer keeps memory for reasons of its own";
    const std::string request = post_request("/message", '"' + std::string(15u << 20, 'x') + '"');
    const std::size_t before = resident_bytes();
    std::vector<std::thread> senders;
    for (int i = 0; i < 12; ++i) {
        senders.emplace_back([&] {
            for (int times = 0; times < 3; ++times) {
                raw_socket socket(Port());
                http_exchange(socket, request);
            }
        });
    }
    for (std::thread& sender : senders) sender.join();
    EXPECT_LT(resident_bytes(), before + (100u << 20));
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

// Whatever is wrong with a request, it is answered at once and in full, and what follows it on its connection is no
// request: a web page could write one, headers and all, into the body of another.
TEST_F(HostileInput, RequestsThatAreNone) {
    auto config = local_config();
    config.body_limit = 1000;
    StartAgain(config);
    const std::string post = "POST /message HTTP/1.1\r\n";
    const std::string much(4 << 20, 'x');
    const struct {
        const char* name;
        std::string bytes;
        int status;
        const char* body = "";
    } rows[] = {
        {"noise", std::string("\x00\xff\x16\x03\x01 noise\r\n\r\n", 16), 400},
        {"no version", "GET /sse\r\n\r\n", 400},
        {"unknown method", "BREW /sse HTTP/1.1\r\n\r\n", 400},
        {"header without a colon", post + "nothing\r\n\r\n", 400},
        {"long header", post + "X: " + std::string(9000, 'x') + "\r\n\r\n", 400},
        {"many headers", post + Repeated("X: y\r\n", 101) + "\r\n", 400},
        {"long head", post + Repeated("X: " + std::string(8000, 'x') + "\r\n", 9) + "\r\n", 400},
        {"long path", "GET /" + std::string(20000, 'x') + " HTTP/1.1\r\n\r\n", 414},
        {"path that is none", "GET /elsewhere HTTP/1.1\r\n\r\n", 404},
        {"body for another path", "POST /elsewhere HTTP/1.1\r\nContent-Length: 5000000\r\n\r\n" + much, 404},
        {"another method", "PUT /message HTTP/1.1\r\nContent-Length: 1000\r\n\r\n", 404},
        {"stream with a body", "GET /sse HTTP/1.1\r\nContent-Length: 1000\r\n\r\n", 400},
        {"stream with chunks", "GET /sse HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n", 400},
        {"stream with a length that is none", "GET /sse HTTP/1.1\r\nContent-Length:\r\n\r\n", 400},
        {"head with a body", "HEAD /sse HTTP/1.1\r\nContent-Length: 1000\r\n\r\n", 400},
        {"preflight with a body", "OPTIONS / HTTP/1.1\r\nContent-Length: 1000\r\n\r\n", 204},
        {"no length", post + "\r\n", 400, R"({"error":"Invalid JSON"})"},
        {"length that is no number", post + "Content-Length: -5\r\n\r\n", 400, R"({"error":"Invalid JSON"})"},
        {"two lengths", post + "Content-Length: 2\r\nContent-Length: 2\r\n\r\n{}", 400, R"({"error":"Invalid JSON"})"},
        {"too long", post + "Content-Length: 1001\r\n\r\n", 413, R"({"error":"Payload too large"})"},
        {"chunk that is none", post + "Transfer-Encoding: chunked\r\n\r\nxyz\r\n", 400, R"({"error":"Invalid JSON"})"},
        {"chunk line half ended", post + "Transfer-Encoding: chunked\r\n\r\n2;\nx\r\n{}\r\n0\r\n\r\n", 400,
         R"({"error":"Invalid JSON"})"},
        {"trailer half ended", post + "Transfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n0\r\nX: y\rZ\r\n\r\n", 400,
         R"({"error":"Invalid JSON"})"},
        {"chunk of two sizes", post + "Transfer-Encoding: chunked\r\n\r\n2 3\r\n{}\r\n0\r\n\r\n", 400,
         R"({"error":"Invalid JSON"})"},
        {"chunks of a version without",
         "POST /message HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n0\r\n\r\n", 400,
         R"({"error":"Invalid JSON"})"},
        {"longer than its chunk", post + "Transfer-Encoding: chunked\r\n\r\n2\r\n{} \r\n0\r\n\r\n", 400,
         R"({"error":"Invalid JSON"})"},
        {"chunks too long",
         post + "Transfer-Encoding: chunked\r\n\r\n3e8\r\n" + std::string(1000, ' ') + "\r\n1\r\n" + much, 413,
         R"({"error":"Payload too large"})"},
        {"trailers without end",
         post + "Transfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n0\r\n" + Repeated("X: y\r\n", 2000), 400,
         R"({"error":"Invalid JSON"})"},
        {"unknown encoding", post + "Content-Encoding: nonsense\r\nContent-Length: 2\r\n\r\n{}", 415,
         R"({"error":"Unsupported encoding"})"},
        {"unknown transfer encoding", post + "Transfer-Encoding: gzip, chunked\r\n\r\n", 501,
         R"({"error":"Unsupported encoding"})"},
    };
    log_.take();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        raw_socket socket(Port());
        socket.send(row.bytes + "GET /sse HTTP/1.1\r\n\r\n");
        const std::string reply = socket.read_to_end();
        EXPECT_THAT(reply, testing::StartsWith("HTTP/1.1 " + std::to_string(row.status) + " "));
        EXPECT_EQ(reply.find("HTTP/1.1", 1), std::string::npos);
        EXPECT_EQ(reply.substr(reply.find("\r\n\r\n") + 4), row.body);
    }
    for (const std::string& line : log_.take()) EXPECT_EQ(line.find("GET /sse HTTP/1.1\" 200"), std::string::npos);
}

TEST_F(HostileInput, BodyThatDoesNotComeIsNotWaitedForLong) {
    for (const bool drips : {false, true}) {
        SCOPED_TRACE(drips);
        auto config = local_config();
        (drips ? config.timings.request_time : config.timings.silence) = 100ms;
        StartAgain(config);
        raw_socket socket(Port());
        socket.send("POST /message HTTP/1.1\r\nContent-Length: 1000000\r\n\r\n{");
        auto reply = std::async(std::launch::async, [&] { return socket.read_to_end(); });
        while (reply.wait_for(5ms) != std::future_status::ready) {
            if (drips) socket.send(" ");
        }
        EXPECT_THAT(reply.get(),
                    AllOf(testing::StartsWith("HTTP/1.1 408 "), testing::EndsWith("\"Request timeout\"}")));
        if (drips) continue;
        raw_socket silent(Port());
        EXPECT_EQ(silent.read_to_end(), "");
    }
}

TEST_F(HostileInput, StreamsLeaveRoomToRequests) {
    auto config = local_config();
    config.connections = {.kept_workers = 1, .workers = 6, .patience = 20s, .streams = 3};
    StartAgain(config);
    auto second = std::make_unique<sse_client>(Port());
    sse_client third(Port());
    const std::string get = "GET /sse HTTP/1.1\r\n\r\n";
    raw_socket refused(Port());
    const http_reply reply = http_exchange(refused, get);
    EXPECT_EQ(reply.status, 503);
    EXPECT_EQ(reply.body, R"({"error":"Server busy"})");
    EXPECT_EQ(reply.header("Access-Control-Allow-Origin"), "*");
    EXPECT_THAT(good_->call_tool(1, "echo"), HasSubstr("isError\":false"));
    EXPECT_EQ(third.post(R"({"method":"x"})").status, 202);
    second.reset();
    server_->close_session(third.session_id());
    EXPECT_TRUE(third.stream().ends_within(kClientPatience));
    for (int status = 503; status != 200;) {
        raw_socket next(Port());
        status = http_exchange(next, get).status;
    }
}

TEST_F(HostileInput, ConnectionsThatIdleLeaveRoomToThoseThatWait) {
    auto config = local_config();
    config.connections = {.kept_workers = 1, .workers = 8, .patience = 1h, .streams = 4};
    StartAgain(config);
    std::vector<raw_socket> kept;
    for (int i = 0; i < 12; ++i) {
        SCOPED_TRACE(i);
        kept.emplace_back(Port());
        kept.back().send("OPTIONS / HTTP/1.1\r\n\r\n");
        EXPECT_THAT(kept.back().read_until("\r\n\r\n"), testing::StartsWith("HTTP/1.1 204 "));
    }
    EXPECT_TRUE(kept.front().is_open());
    EXPECT_TRUE(kept.back().ends_within(kClientPatience));
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
    EXPECT_TRUE(deaf.stream().ends_within(kClientPatience));
}

TEST_F(HostileInput, OneThatDoesNotReadInTimeIsCutOff) {
    auto config = local_config();
    config.write_timeout_seconds = 1;
    StartAgain(config);
    server_->register_tool(tool_named("picture"),
                           [](const json&, const std::string&) { return text_content(std::string(8 << 20, 'x')); });
    sse_client deaf(Port());
    deaf.shake_hands();
    deaf.post(R"({"id":1,"method":"tools/call","params":{"name":"picture"}})");
    EXPECT_TRUE(log_.has("SSE session closed by dispatcher: " + deaf.session_id()));
    EXPECT_EQ(deaf.post(R"({"method":"x"})").status, 404);
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

}  // namespace
}  // namespace mcp
