#include "mcp/server.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <regex>

#include "mcp/http_server.h"
#include "tests/mcp/server_fixture.h"

namespace mcp {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

using Server = ServerTest;

TEST_F(Server, StreamBeginsWithItsHeadersInOrderAndEachOnce) {
    Start();
    for (const char* wish : {"", "Connection: close\r\n", "Range: bytes=0-9\r\n"}) {
        SCOPED_TRACE(wish);
        raw_socket socket(Port());
        socket.send(std::string("GET /sse HTTP/1.1\r\nHost: localhost\r\n") + wish + "\r\n");
        const std::string head = socket.read_until("\r\n\r\n");
        EXPECT_TRUE(
            head.starts_with("HTTP/1.1 200 OK\r\n"
                             "Content-Type: text/event-stream\r\n"
                             "Cache-Control: no-cache\r\n"
                             "Connection: keep-alive\r\n"
                             "Access-Control-Allow-Origin: *\r\n"))
            << head;
        EXPECT_THAT(head, HasSubstr("\r\nTransfer-Encoding: chunked\r\n"));
        EXPECT_EQ(head.find("Content-Type", 30), std::string::npos);
        EXPECT_EQ(head.find("Connection: close"), std::string::npos);
        EXPECT_EQ(socket.read_until("?session_id="), "53\r\nevent: endpoint\r\ndata: /message?session_id=");
        EXPECT_TRUE(std::regex_match(socket.read_until("\r\n\r\n\r\n"),
                                     std::regex("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}\r\n\r\n\r\n")));
    }
    EXPECT_TRUE(log_.has(" - \"GET /sse HTTP/1.1\" 200"));
}

TEST_F(Server, HeadOfTheStreamOpensNoSession) {
    Start();
    raw_socket socket(Port());
    socket.send("HEAD /sse HTTP/1.1\r\nHost: localhost\r\n\r\nOPTIONS / HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_THAT(socket.read_until("\r\n\r\n"), HasSubstr("Content-Type: text/event-stream\r\n"));
    EXPECT_THAT(socket.read_until("\r\n\r\n"), testing::StartsWith("HTTP/1.1 204 "));
    EXPECT_TRUE(log_.has(" - \"HEAD /sse HTTP/1.1\" 200"));
}

TEST_F(Server, BodyMayComeInChunksAndWaitToBeInvited) {
    Start();
    raw_socket socket(Port());
    const std::string ping = R"({"method":"ping","id":1})";
    socket.send("POST /message HTTP/1.1\r\nExpect: 100-continue\r\nTransfer-Encoding: Chunked\r\n\r\n");
    EXPECT_EQ(socket.read_until("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
    const std::string chunks =
        "A;x=y\r\n" + ping.substr(0, 10) + "\r\n00e\r\n" + ping.substr(10) + "\r\n0\r\nX: y\r\n\r\n";
    EXPECT_EQ(http_exchange(socket, chunks).status, 202);
    EXPECT_EQ(http_exchange(socket, post_request("/message", ping)).status, 202);
}

TEST_F(Server, ConnectionEndsBehindTheAnswerWhereThatIsAskedFor) {
    Start();
    sse_client client(Port());
    for (const char* body : {R"({"method":"ping"})", R"({"id":1,"method":"initialize"})"}) {
        std::string request = post_request(client.session_uri(), body);
        raw_socket socket(Port());
        socket.send(request.insert(request.find("\r\n") + 2, "Connection: close\r\n"));
        EXPECT_THAT(socket.read_to_end(), testing::EndsWith("\r\n\r\nAccepted"));
    }
}

TEST_F(Server, AnswersAtTheHttpLevel) {
    Start();
    sse_client client(Port());
    client.shake_hands();
    const std::string& live = client.session_uri();
    const std::string no_json = R"({"error":"Invalid JSON"})";
    const std::string no_request = R"({"error":"Invalid request format"})";
    const std::string no_session = R"({"error":"Session not found"})";
    const struct {
        const char* name;
        std::string target;
        std::string body;
        int status;
        std::string answer;
    } rows[] = {
        {"no JSON", live, "{", 400, no_json},
        {"no JSON and no session", "/message", "{", 400, no_json},
        {"text, unknown session", "/message?session_id=x", R"("ping")", 404, no_session},
        {"ping without a session", "/message", R"({"method":"ping","id":1})", 202, "Accepted"},
        {"array", live, "[]", 400, no_request},
        {"no method", live, R"({"jsonrpc":"2.0","id":1})", 400, no_request},
        {"jsonrpc is no text", live, R"({"jsonrpc":2,"method":"x"})", 400, no_request},
        {"no jsonrpc", live, R"({"method":"x"})", 202, "Accepted"},
        {"unknown notification", live, R"({"jsonrpc":"2.0","method":"x","id":null})", 202, "Accepted"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        raw_socket socket(Port());
        const http_reply reply = http_exchange(socket, post_request(row.target, row.body));
        EXPECT_EQ(reply.status, row.status);
        EXPECT_EQ(reply.header("Content-Type"), row.status == 202 ? "text/plain" : "application/json");
        EXPECT_EQ(reply.header("Access-Control-Allow-Origin"), "*");
        EXPECT_EQ(reply.header("Access-Control-Allow-Methods"), "POST, OPTIONS");
        EXPECT_EQ(reply.header("Access-Control-Allow-Headers"), "Content-Type");
        EXPECT_EQ(reply.body, row.answer);
    }
    // None of them was answered on the stream.
    EXPECT_EQ(client.call(R"({"id":1,"method":"ping"})"), R"({"jsonrpc":"2.0","id":1,"result":{}})");
}

TEST_F(Server, PreflightOnAnyPathAndPostsOnOne) {
    Start();
    for (const std::string& path : {std::string("/message"), std::string("/sse"), "/" + std::string(8000, 'x')}) {
        raw_socket socket(Port());
        const http_reply reply = http_exchange(socket, "OPTIONS " + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n");
        EXPECT_EQ(reply.status, 204);
        EXPECT_EQ(reply.header("Access-Control-Allow-Origin"), "*");
        EXPECT_EQ(reply.header("Content-Length"), "");
        EXPECT_EQ(reply.header("Access-Control-Allow-Methods"), "GET, POST, OPTIONS");
        EXPECT_EQ(reply.header("Access-Control-Allow-Headers"), "Content-Type");
        EXPECT_EQ(reply.body, "");
    }
    // Where nothing is posted to, a client finds that out by a bare refusal.
    raw_socket socket(Port());
    const http_reply reply =
        http_exchange(socket, post_request("/sse", R"({"jsonrpc":"2.0","id":1,"method":"initialize"})"));
    EXPECT_EQ(reply.status, 404);
    EXPECT_EQ(reply.body, "");
}

TEST_F(Server, SessionFromHandshakeToCall) {
    Start();
    sse_client client(Port());
    const struct {
        const char* name;
        const char* id;       // null for a notification
        const char* request;  // behind the id
        const char* outcome;  // the same of the answer
    } transcript[] = {
        {"ping comes before all", "0", R"("method":"ping")", R"("result":{})"},
        {"list comes too early", "1", R"("method":"tools/list")",
         R"("error":{"code":-32600,"message":"Session not initialized"})"},
        {"version is no text", "2", R"("method":"initialize","params":{"protocolVersion":1})",
         R"("error":{"code":-32602,"message":"Expected string for 'protocolVersion' parameter"})"},
        {"real but unsupported version", "3", R"("method":"initialize","params":{"protocolVersion":"2025-03-26"})",
         R"("error":{"code":-32602,"message":"Unsupported protocol version","data":)"
         R"({"supported":["2025-11-25","2025-06-18","2024-11-05"],"requested":"2025-03-26"}})"},
        {"name of the wrong type", "4",
         R"("method":"initialize","params":{"protocolVersion":"2024-11-05","clientInfo":{"name":1}})",
         R"("error":{"code":-32603,"message":)"
         R"("Internal error: [json.exception.type_error.302] type must be string, but is number"})"},
        {"initialize", R"("five")", R"("method":"initialize","params":{"protocolVersion":"2025-06-18"})",
         R"("result":{"protocolVersion":"2025-06-18","capabilities":{"tools":{}},)"
         R"("serverInfo":{"name":"Tested","version":"1.2"}})"},
        {"initialized as a request", "7", R"("method":"notifications/initialized")",
         R"("error":{"code":-32600,"message":"Session not initialized"})"},
        {"initialized", nullptr, R"("method":"notifications/initialized")", nullptr},
        {"unknown method", R"({"k":[1]})", R"("method":"no/such")",
         R"("error":{"code":-32601,"message":"Method not found: no/such"})"},
        {"second initialize", "8", R"("method":"initialize","params":{"protocolVersion":"2025-11-25"})",
         R"("result":{"protocolVersion":"2025-11-25","capabilities":{"tools":{}},)"
         R"("serverInfo":{"name":"Tested","version":"1.2"}})"},
        {"flag stays set", "9", R"("method":"tools/call","params":{"name":"echo","arguments":{"a":1}})",
         R"("result":{"isError":false,"content":[{"type":"text","text":"{\"a\":1}"}]})"},
    };
    const std::string begin = R"({"jsonrpc":"2.0",)";
    for (const auto& step : transcript) {
        SCOPED_TRACE(step.name);
        const std::string id = step.id ? std::string(R"("id":)") + step.id + "," : "";
        EXPECT_EQ(client.post(begin + id + step.request + "}").status, 202);
        if (step.outcome) {
            EXPECT_EQ(client.next_message(), begin + id + step.outcome + "}");
        } else {
            while (client.call(R"({"id":0,"method":"x"})").find("-32600") != std::string::npos) {
            }
        }
    }
    // Another session begins at the beginning.
    EXPECT_THAT(sse_client(Port()).call(R"({"id":1,"method":"tools/list"})"), HasSubstr("Session not initialized"));
}

TEST_F(Server, ToolCalls) {
    Start();
    sse_client client(Port());
    client.shake_hands();
    const struct {
        const char* name;
        const char* params;
        std::string outcome;  // the key behind the id, and its value
    } rows[] = {
        {"arguments null", R"({"name":"echo","arguments":null})",
         R"("result":{"isError":false,"content":[{"type":"text","text":"null"}]})"},
        {"arguments as text", R"({"name":"echo","arguments":"{\"x\":1}"})",
         R"("result":{"isError":false,"content":[{"type":"text","text":"{\"x\":1}"}]})"},
        {"text that is no JSON", R"({"name":"echo","arguments":"1 2"})",
         R"("error":{"code":-32602,"message":"Invalid JSON arguments: [json.exception.parse_error.101] parse error at )"
         R"(line 1, column 3: syntax error while parsing value - unexpected number literal; expected end of input"})"},
        {"tool that throws", R"({"name":"fail"})",
         R"("result":{"isError":true,"content":[{"type":"text","text":"it broke"}]})"},
        {"tool that throws no exception", R"({"name":"throw_int"})",
         R"("error":{"code":-32603,"message":"Unknown internal error"})"},
        {"unknown tool", R"({"name":"nope"})", R"("error":{"code":-32602,"message":"Tool not found: nope"})"},
        {"no name", R"({"arguments":{}})", R"("error":{"code":-32602,"message":"Missing 'name' parameter"})"},
        {"name is no text", R"({"name":1})",
         R"("error":{"code":-32603,"message":"Internal error: [json.exception.type_error.302] type must be string, )"
         R"(but is number"})"},
        {"session", R"({"name":"who"})",
         R"("result":{"isError":false,"content":[{"type":"text","text":")" + client.session_id() + R"("}]})"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(client.call(std::string(R"({"id":1,"method":"tools/call","params":)") + row.params + "}"),
                  R"({"jsonrpc":"2.0","id":1,)" + row.outcome + "}");
    }
}

TEST_F(Server, ListsToolsByNameWithWhatTheyDeclare) {
    auto config = local_config();
    server_ = std::make_unique<server>(config);
    server_->start(false);
    ASSERT_TRUE(server_->wait_until_listening(10s));
    sse_client client(Port());
    client.shake_hands();
    EXPECT_EQ(client.call(R"({"id":1,"method":"tools/list"})"),
              R"({"jsonrpc":"2.0","id":1,"error":{"code":-32601,"message":"Method not found: tools/list"}})");

    const tool_handler unused = [](const json&, const std::string&) { return json(); };
    tool zebra = tool_named("zebra");
    zebra.output_schema = {{"type", "array"}};
    zebra.title = "Zebra";
    zebra.has_annotations = true;
    server_->register_tool(zebra, unused);
    tool ant = tool_named("ant");
    ant.output_schema = json::object();
    ant.has_annotations = true;
    ant.read_only_hint = ant.idempotent_hint = true;
    ant.destructive_hint = ant.open_world_hint = false;
    server_->register_tool(tool_named("ant"), unused);
    server_->register_tool(ant, unused);
    server_->register_tool(tool_named("Zoo"), unused);
    EXPECT_EQ(
        client.call(R"({"id":2,"method":"tools/list","params":{"cursor":"x"}})"),
        R"({"jsonrpc":"2.0","id":2,"result":{"tools":[)"
        R"({"name":"Zoo","description":"Does Zoo","inputSchema":{"type":"object"}},)"
        R"({"name":"ant","description":"Does ant","inputSchema":{"type":"object"},"annotations":{"readOnlyHint":true,)"
        R"("destructiveHint":false,"idempotentHint":true,"openWorldHint":false}},)"
        R"({"name":"zebra","description":"Does zebra","inputSchema":{"type":"object"},"outputSchema":{"type":"array"},)"
        R"("annotations":{"title":"Zebra","readOnlyHint":false,"destructiveHint":true,"idempotentHint":false,)"
        R"("openWorldHint":true}}]}})");
    EXPECT_EQ(server_->get_tools().size(), 3u);
}

TEST_F(Server, LogsNoReadingCallThatIsMadeAside) {
    tool reading = tool_named("reading");
    reading.read_only_hint = true;
    Start();
    server_->register_tool(reading, [](const json&, const std::string&) { return text_content("read"); });
    sse_client client(Port());
    client.shake_hands();
    log_.take();
    const auto call = [&](const std::string& id, const std::string& name) {
        client.call(R"({"id":)" + id + R"(,"method":"tools/call","params":{"name":")" + name +
                    R"(","_meta":{"velmoor/aside":true}}})");
    };
    call("1", "reading");
    call("2", "echo");
    EXPECT_TRUE(log_.has("Method call successful: tools/call name=echo")) << "one that may change something is logged";
    for (const std::string& line : log_.take()) EXPECT_EQ(line.find("name=reading"), std::string::npos) << line;
}

TEST_F(Server, LogsACallFromPostToAnswer) {
    Start();
    sse_client client(Port());
    client.shake_hands();
    const std::string session = client.session_id();
    log_.take();
    client.call_tool(1, "echo", "\"" + std::string(300, ' ') + "7\"");
    EXPECT_TRUE(log_.has("\"POST /message HTTP/1.1\" 202"));
    std::vector<std::string> lines = log_.take();
    // The acknowledgement is logged by another thread than the rest.
    const auto access = std::find_if(
        lines.begin(), lines.end(), [](const std::string& line) { return line.find("HTTP/1.1") != std::string::npos; });
    EXPECT_TRUE(std::regex_match(*access, std::regex(R"(INFO 127\.0\.0\.1:\d+ - "POST /message HTTP/1\.1" 202)")));
    lines.erase(access);
    lines.back() = std::regex_replace(lines.back(), std::regex("duration_ms=[0-9]+"), "duration_ms=0");
    EXPECT_THAT(lines, ElementsAre("INFO POST /message accepted: method=tools/call name=echo session=" + session +
                                       " body_bytes=387",
                                   "INFO Processing method call: tools/call name=echo args=\"" + std::string(199, ' ') +
                                       "...(303 bytes)",
                                   "INFO Calling method handler: tools/call name=echo",
                                   "INFO Method call successful: tools/call name=echo duration_ms=0 result_bytes=56"));
    log_.take();
    client.call(R"({"id":1,"method":"ping"})");
    EXPECT_TRUE(log_.has("\"POST /message HTTP/1.1\" 202"));
    EXPECT_EQ(log_.take().size(), 1u);
}

TEST_F(Server, HeartbeatsCountFromZeroAndSilenceGetsAComment) {
    auto config = local_config();
    config.timings.heartbeat_pause = 200ms;
    config.timings.heartbeat_spread = 1ms;
    Start(config);
    sse_client beats(Port());
    for (const char* count : {"0", "1", "2"}) {
        const sse_event event = beats.next_event();
        EXPECT_EQ(event.type, "heartbeat");
        EXPECT_EQ(event.data, count);
    }
    config.timings.heartbeat_pause = 20s;
    config.timings.keepalive_after = 30ms;
    Start(config);
    sse_client silence(Port());
    const sse_event event = silence.next_event();
    EXPECT_EQ(event.type, "comment");
    EXPECT_EQ(event.data, "keepalive");
}

}  // namespace
}  // namespace mcp
