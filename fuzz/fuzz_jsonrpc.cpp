// Any bytes as the body of a POST, with all of the server but its sockets. What is to come back is read off the body:
// its acknowledgement, one answer with its id on the stream if it has one, and nothing for a notification.
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "diagnostics/mcp_logger.h"
#include "mcp/server.h"
#include "mcp/sse.h"

namespace {

using mcp::json;

// Longer than any answer takes on a machine with other things to do.
constexpr std::chrono::minutes kPatience{5};

// The server keeps a little of each session that shook hands.
constexpr int kInputsOfOneServer = 10000;

void Expect(bool holds) {
    if (!holds) std::abort();
}

mcp::server_config Config() {
    mcp::server_config config;
    config.host = "127.0.0.1";
    config.port = 0;
    config.threadpool_size = 1;  // so that answers come in the order of their requests
    config.timings.endpoint_delay = config.timings.stop_pause = std::chrono::milliseconds(0);
    config.timings.heartbeat_pause = std::chrono::hours(1000);
    config.timings.keepalive_after = kPatience;
    return config;
}

json TextContent(const std::string& text) {
    return json::array({{{"type", "text"}, {"text", text}}});
}

void AddTools(mcp::server& server) {
    mcp::tool tool;
    tool.input_schema = {{"type", "object"}};
    tool.name = "echo";
    server.register_tool(
        tool, [](const json& arguments, const std::string&) { return TextContent(mcp::dump_json(arguments)); });
    tool.name = "give";
    server.register_tool(tool, [](const json& arguments, const std::string&) { return arguments; });
    tool.name = "fail";
    server.register_tool(tool, [](const json& arguments, const std::string&) -> json {
        throw std::runtime_error(mcp::dump_json(arguments));
    });
    tool.name = "throw";
    server.register_tool(tool, [](const json&, const std::string&) -> json { throw 5; });
}

// The client's end of a session: its open stream, cut into frames.
class Session : private mcp::frame_sink {
 public:
    explicit Session(mcp::server& server) : server_(server) {
        stream_ = server.handle_sse({.method = "GET"}, [] {}).stream;
        const std::string endpoint = NextFrame();
        id_ = endpoint.substr(endpoint.find('=') + 1);
    }

    int Post(const std::string& body) { return Post(body, id_); }
    int Post(const std::string& body, const std::string& session_id) {
        mcp::http_request head{.method = "POST", .session_id = session_id, .headers = {{"user-agent", "fuzz"}}};
        mcp::http_body posted{.text = mcp::page_string(body)};
        return server_.handle_jsonrpc(head, posted).status;
    }

    json NextAnswer() {
        const std::string frame = NextFrame();
        Expect(frame.starts_with(mcp::kMessageFrameBegin));
        json answer = mcp::parse_json(frame.substr(mcp::kMessageFrameBegin.size()));
        Expect(answer.size() == 3 && answer.contains("jsonrpc") && answer.contains("id"));
        Expect(answer.contains("result") != answer.contains("error"));
        return answer;
    }

 private:
    // Without its end.
    std::string NextFrame() {
        std::size_t end;
        while ((end = unread_.find(mcp::kFrameEnd)) == std::string::npos) Expect(stream_(*this));
        std::string frame = unread_.substr(0, end);
        unread_.erase(0, end + mcp::kFrameEnd.size());
        Expect(!frame.starts_with(":"));  // a keepalive: nothing came for a long time
        return frame;
    }

    bool write(std::string_view bytes) override {
        unread_ += bytes;
        return true;
    }
    // So that nobody writes in the place of the thread that reads here, which would then not wake.
    bool has_room() override { return false; }

    mcp::server& server_;
    mcp::stream_source stream_;
    std::string unread_;
    std::string id_;
};

// A server with a session that has shaken hands. Its stream ends with the server.
struct World {
    World() {
        AddTools(server);
        server.start(false);
        ready = std::make_unique<Session>(server);
        ready->Post(R"({"id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18"}})");
        ready->Post(R"({"method":"notifications/initialized"})");
        Expect(ready->NextAnswer().contains("result"));
    }

    mcp::server server{Config()};
    std::unique_ptr<Session> ready;
    int inputs = 0;
};

struct Expected {
    int status = 400;
    json id = nullptr;  // null if nothing is to be answered
};

Expected Read(const std::string& body) {
    std::optional<json> request;
    try {
        request = mcp::parse_json(body);
    } catch (const std::exception&) {
        return {};
    }
    if (!request->is_object() || !request->contains("method") || !request->at("method").is_string()) return {};
    if (request->contains("jsonrpc") && !request->at("jsonrpc").is_string()) return {};
    return {202, request->value("id", json())};
}

void PostAndRead(Session& session, const std::string& body) {
    const Expected expected = Read(body);
    Expect(session.Post(body) == expected.status);
    session.Post(R"({"id":"the end","method":"ping"})");
    if (!expected.id.is_null()) Expect(session.NextAnswer().at("id") == expected.id);
    Expect(session.NextAnswer() == json({{"jsonrpc", "2.0"}, {"id", "the end"}, {"result", json::object()}}));
}

// To a session that there is not, where only a ping is acknowledged.
void PostToNobody(Session& any, const std::string& body) {
    const int status = any.Post(body, "nobody");
    Expect(status == 202 || status == 400 || status == 404);
    Expect(status != 202 || body.find("ping") != std::string::npos || body.find("\\u") != std::string::npos);
}

}  // namespace

// The first byte tells where the rest is posted to.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static std::unique_ptr<World> world;
    if (size == 0) return 0;
    if (!world || ++world->inputs > kInputsOfOneServer) {
        mcp::logger::instance().set_level(orvanic_xr::kLogError + 1);
        world.reset();
        world = std::make_unique<World>();
    }
    const std::string body(reinterpret_cast<const char*>(data + 1), size - 1);
    if (data[0] == 'f') {
        Session fresh(world->server);
        PostAndRead(fresh, body);
    } else if (data[0] == 'n') {
        PostToNobody(*world->ready, body);
    } else {
        PostAndRead(*world->ready, body);
    }
    return 0;
}
