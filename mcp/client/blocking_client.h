// A client for programs that call and wait.
//
//     blocking_client client("http://127.0.0.1:8720", {{"name", "my-program"}, {"version", "1"}});
//     client.await_ready(std::chrono::seconds(10));
//     const json result = client.call_tool("openxr_get_frame_info", {{"include_history", true}});
//
// Calls may come from several threads at once. What fails throws client_error. When the server goes, the next call
// waits for it to come again, as long as its limits let it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "mcp/client/client_link.h"
#include "mcp/json.h"

namespace mcp {

struct client_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The server answered with an error.
struct call_error : client_error {
    using client_error::client_error;
};

class blocking_client {
 public:
    // The path behind the host is not looked at: the stream is at /sse.
    blocking_client(const std::string& url, json client_info);
    explicit blocking_client(link_config config);  // of which `begin_again` tells whether the first failure is the last

    // Until the server has introduced itself: protocolVersion, capabilities, serverInfo.
    json await_introduction(std::chrono::milliseconds limit);
    // Until it takes calls. Gives the declarations of its tools. A server that is not there yet is tried again.
    std::vector<json> await_ready(std::chrono::milliseconds limit);

    // Any method: gives the result.
    json request(const std::string& method, json params, call_limits limits = {});
    json call_tool(const std::string& name, json arguments, call_limits limits = {});

 private:
    link_events make_events(bool begins_again);

    std::mutex mutex_;  // all below but the link
    std::condition_variable changed_;
    std::optional<json> introduction_;
    std::optional<std::vector<json>> tools_;
    std::string problem_ = "no server answered";
    bool has_ended_ = false;

    std::unique_ptr<client_link> link_;  // ends before what its callbacks use
};

// All text items of a tool's result, one after the other.
std::string text_of(const json& result);

}  // namespace mcp
