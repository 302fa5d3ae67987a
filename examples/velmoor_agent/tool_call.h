// The calls of tools that a tour makes, over the client that mcp/client offers to any program:
//
//     mcp::blocking_client client("http://127.0.0.1:8720", {{"name", "my-agent"}, {"version", "1.0"}});
//     client.await_ready(std::chrono::seconds(10));
//     const mcp::json result = client.call_tool("openxr_get_frame_info", {{"include_history", true}});
#pragma once

#include <string>
#include <vector>

#include "mcp/client/blocking_client.h"
#include "mcp/json.h"

namespace agent {

using mcp::json;

struct ToolAnswer {
    bool is_error = false;            // the tool broke down; a refusal is an ordinary text
    std::string text;                 // all text items, one after the other
    std::vector<std::string> images;  // all image items, base64 as they came
};

// Several threads may call at once. What fails throws mcp::client_error.
ToolAnswer CallTool(mcp::blocking_client& client, const std::string& name, const json& arguments);

}  // namespace agent
