// What the Streamable HTTP side takes, and what it refuses: requests and statuses as rows, over a real socket.
#include <gtest/gtest.h>

#include <thread>

#include "command/http_rules.h"
#include "command/http_transport.h"
#include "tests/fakes/sse_client.h"

namespace velmoor {
namespace {

using namespace std::chrono_literals;

constexpr const char* kModernMeta =
    R"("_meta":{"io.modelcontextprotocol/protocolVersion":"2026-07-28","io.modelcontextprotocol/clientCapabilities":{}})";

class Http : public testing::Test {
 protected:
    explicit Http(std::string token = {})
        : transport_(bridge_,
                     {.host = "127.0.0.1", .port = 0, .token = std::move(token), .server_info = {{"name", "v"}}}),
          port_(transport_.bind()),
          server_([this] { transport_.serve(); }) {}
    ~Http() override {
        transport_.stop();
        server_.join();
    }

    // The head of the answer and what follows, up to `end`. Headers that are not named are as a client's should be.
    std::string Ask(const std::string& method, const std::string& headers, const std::string& body,
                    const std::string& end = "") {
        mcp::raw_socket client(port_);
        std::string head = method + " HTTP/1.1\r\n" + headers;
        const auto add = [&](const char* name, const std::string& value) {
            if (headers.find(name) == std::string::npos) head += name + (": " + value) + "\r\n";
        };
        add("Host", "127.0.0.1:1");
        add("Accept", "application/json, text/event-stream");
        add("Content-Type", "application/json");
        if (!body.empty()) add("Content-Length", std::to_string(body.size()));
        client.send(head + "\r\n" + body);
        const std::string answer = client.read_until("\r\n\r\n", 10s);
        const std::size_t length = answer.find("Content-Length: ");
        if (!end.empty()) return answer + client.read_until(end, 10s);
        if (length == std::string::npos) return answer;
        const auto count = static_cast<std::size_t>(std::stoul(answer.substr(length + 16)));
        return answer + (count == 0 ? "" : client.read_bytes(count));
    }
    std::string Post(const std::string& headers, const std::string& body) { return Ask("POST /mcp", headers, body); }
    static void Expect(const std::string& answer, int status, const std::string& part) {
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 " + std::to_string(status) + " ")) << answer;
        EXPECT_NE(answer.find(part), std::string::npos) << answer << "\nlacks " << part;
    }
    std::string OpenSession() {
        const std::string answer =
            Post("", R"({"id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18"}})");
        Expect(answer, 200, R"("protocolVersion":"2025-06-18")");
        const std::size_t at = answer.find("Mcp-Session-Id: ");
        return "Mcp-Session-Id: " + answer.substr(at + 16, 32) + "\r\n";
    }

    bridge bridge_{bridge_settings{.around = {.find = [] { return std::vector<application>(); }, .dial = nullptr},
                                   .version = "1",
                                   .wait = 1000ms,
                                   .pictures = {},
                                   .tools_file = {},
                                   .own_tools = {},
                                   .hint = nullptr}};
    http_transport transport_;
    const int port_;
    std::thread server_;
};

class HttpWithToken : public Http {
 protected:
    HttpWithToken() : Http("secret") {}
};

TEST_F(Http, RefusesStrangersAndWhatIsNoRequest) {
    const std::string ping = R"({"id":1,"method":"ping"})";
    Expect(Post("Host: evil.example\r\n", ping), 403,
           R"(the header Host is \"evil.example\", and must name localhost)");
    Expect(Post("Origin: http://evil.example\r\n", ping), 403, "the header Origin");
    Expect(Ask("POST /other", "", ping), 404, "");
    Expect(Ask("PUT /mcp", "", ping), 405, "Allow: GET, POST, DELETE");
    Expect(Ask("OPTIONS /mcp", "", ""), 405, "Allow");
    Expect(Ask("GET /mcp", "", ""), 405, "Allow: POST");
    Expect(Post("Content-Type: text/plain\r\n", ping), 415, "application/json");
    Expect(Post("Accept: text/html\r\n", ping), 406, "event-stream");
    Expect(Post("", "{"), 400, "-32700");
    Expect(Post("", ping), 400, "No Mcp-Session-Id");
    Expect(Post("Mcp-Session-Id: x\r\n", ping), 404, "Session not found");
}

TEST_F(Http, KeepsSessionsUntilTheyAreEnded) {
    const std::string session = OpenSession();
    Expect(Post(session, R"({"method":"notifications/initialized"})"), 202, "Content-Length: 0");
    Expect(Post(session, R"({"id":2,"method":"ping"})"), 200, R"({"jsonrpc":"2.0","id":2,"result":{}})");
    Expect(Post(session, R"({"id":3,"method":"tools/list"})"), 200, "\"app_list\"");
    Expect(
        Post(session + "Content-Type: Application/JSON\r\nAccept: Application/Json\r\n", R"({"id":2,"method":"ping"})"),
        200, "result");
    Expect(Post(session + "MCP-Protocol-Version: 1999\r\n", R"({"id":2,"method":"ping"})"), 400, "1999");
    Expect(Post(session + "MCP-Protocol-Version: 2025-03-26\r\n", R"({"id":2,"method":"ping"})"), 200, "result");
    // The answer takes longer than a client should wait without a stream.
    const std::string call =
        R"({"id":4,"method":"tools/call","params":{"name":"math_add","_meta":{"progressToken":"p"}}})";
    const std::string streamed = Ask("POST /mcp", session, call, "\"id\":4");
    Expect(streamed, 200, "Content-Type: text/event-stream");
    EXPECT_NE(
        streamed.find(R"(data: {"jsonrpc":"2.0","method":"notifications/progress","params":{"progressToken":"p")"),
        std::string::npos);
    const std::string plain = Post(session + "Accept: application/json\r\n", call);
    Expect(plain, 200, "Content-Type: application/json");
    EXPECT_NE(plain.find("\"isError\":true"), std::string::npos);

    mcp::raw_socket stream(port_);
    stream.send("GET /mcp HTTP/1.1\r\nHost: localhost\r\nAccept: text/event-stream\r\n" + session + "\r\n");
    stream.read_until("\r\n\r\n", 10s);
    for (int i = 0; i < 3; ++i) {
        // Told to this session alone, on its stream.
        transport_.tell_of_tools();
        EXPECT_NE(stream.read_until("list_changed\"}\n\n", 10s).find("event: message\ndata: "), std::string::npos);
    }
    for (const char* const other : {"GET /mcp", "DELETE /mcp"})
        Expect(Ask(other, session + "MCP-Protocol-Version: 1999\r\n", ""), 400, "1999");
    Expect(Ask("DELETE /mcp", session, ""), 204, "");
    stream.read_until("0\r\n\r\n", 10s);
    // It was announced that the connection stays: a client may use it again.
    stream.send("GET /mcp HTTP/1.1\r\nHost: localhost\r\n\r\n");
    Expect(stream.read_until("\r\n\r\n", 10s), 405, "Allow: POST");
    Expect(Post(session, R"({"id":2,"method":"ping"})"), 404, "Session not found");
}

TEST_F(Http, ChecksTheHeadOfARequestThatStandsAlone) {
    const auto body = [](const std::string& method, const std::string& more = "") {
        return R"({"id":1,"method":")" + method + R"(","params":{)" + kModernMeta + more + "}}";
    };
    const std::string version = "MCP-Protocol-Version: 2026-07-28\r\n";
    const std::string list = version + "Mcp-Method: tools/list\r\n";
    Expect(Post(list, body("tools/list")), 200, "\"resultType\":\"complete\"");
    EXPECT_EQ(Post(list, body("tools/list")).find("Mcp-Session-Id"), std::string::npos);
    Expect(Post(version, body("tools/list")), 400, "-32020");
    Expect(Post("Mcp-Method: tools/list\r\n", body("tools/list")), 400, "-32020");
    Expect(Post("MCP-Protocol-Version: 2025-11-25\r\nMcp-Method: tools/list\r\n", body("tools/list")), 400, "-32020");
    Expect(Post(list, body("tools/call")), 400, "-32020");
    Expect(Post(version, R"({"id":1,"method":"tools/list"})"), 400, "-32602");
    Expect(Post(version + "Mcp-Method: initialize\r\n", body("initialize")), 404, "-32601");
    Expect(Post(version + "Mcp-Method: x/y\r\n", body("x/y")), 404, "-32601");
    Expect(
        Post(
            "MCP-Protocol-Version: 2030-01-01\r\nMcp-Method: tools/list\r\n",
            R"({"id":1,"method":"tools/list","params":{"_meta":{"io.modelcontextprotocol/protocolVersion":"2030-01-01"}}})"),
        400, "-32022");
    const std::string call = version + "Mcp-Method: tools/call\r\n";
    Expect(Post(call + "Mcp-Name: app_list\r\n", body("tools/call", R"(,"name":"app_list")")), 200, "applications");
    Expect(Post(call + "Mcp-Name: =?base64?YXBwX2xpc3Q=?=\r\n", body("tools/call", R"(,"name":"app_list")")), 200,
           "applications");
    for (const char* const name : {"other", "=?base64?YXBwX2xpc3Q=!?=", "=?base64?b3RoZXI=?="})
        Expect(Post(call + "Mcp-Name: " + name + "\r\n", body("tools/call", R"(,"name":"app_list")")), 400, "mcp-name");
    Expect(Post(version + "Mcp-Method: =?base64?dG9vbHMvbGlzdA==?=\r\n", body("tools/list")), 400, "mcp-method");
    Expect(Ask("GET /mcp", version, ""), 405, "Allow: POST");
    Expect(Ask("DELETE /mcp", version, ""), 405, "Allow: POST");
}

TEST_F(HttpWithToken, ServesWhoeverHasIt) {
    const std::string initialize = R"({"id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18"}})";
    Expect(Post("", initialize), 401, "WWW-Authenticate: Bearer");
    Expect(Post("Authorization: Bearer secreT\r\n", initialize), 401, "");
    Expect(Post("Authorization: Basic secret\r\n", initialize), 401, "");
    Expect(Post("Authorization: bearer  secret\r\nHost: elsewhere.example\r\n", initialize), 200, "Mcp-Session-Id: ");
}

}  // namespace
}  // namespace velmoor
