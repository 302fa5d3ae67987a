// What a tool is to the server: its declaration, and the function that runs it.
#pragma once

#include <functional>
#include <string>

#include "mcp/json.h"

namespace mcp {

struct tool {
    std::string name;
    std::string description;
    json input_schema;
    json output_schema;  // null if the tool declares none
    std::string title;   // may be empty
    bool read_only_hint = false;
    bool destructive_hint = true;
    bool idempotent_hint = false;
    bool open_world_hint = true;
    bool has_annotations = false;
};

// As it stands in the answer to tools/list.
json to_json(const tool& declaration);

// Takes the call's arguments (any JSON value: an empty array when the caller gave none) and the id of the
// session that calls (empty for a call from inside the process); returns the `content` array of the result.
// Runs on a server thread or on the caller of OrvanicXR_InvokeTool, with no lock held, and may throw.
using tool_handler = std::function<json(const json& arguments, const std::string& session_id)>;

}  // namespace mcp
