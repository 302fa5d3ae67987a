// Arguments that the tools of simulation share, read the way all of them read them: what is not of the expected kind
// counts as not given.
#pragma once

#include <openxr/openxr.h>

#include <optional>
#include <string>

#include "context/session_context.h"
#include "mcp/json.h"
#include "tools/arguments.h"
#include "tools/tool_entry.h"

namespace orvanic_xr {

using mcp::json;

// What a set tool was asked to change: an array of another length counts as not given.
struct PoseArguments {
    const json* position = nullptr;     // three elements
    const json* orientation = nullptr;  // four elements

    bool has_position() const { return position != nullptr; }
    bool has_orientation() const { return orientation != nullptr; }
    // `pose` with what was given in its place. Throws the JSON library's type error for an element that is no
    // number.
    XrPosef applied_to(XrPosef pose) const;
};
PoseArguments read_pose_arguments(const json& arguments);

// Seconds to move for; 0 if absent, of another kind or negative.
float duration_argument(const json& arguments);

// The hand of a controller tool: "left" or "right", or why there is none.
struct HandArgument {
    std::optional<std::string> hand;
    std::string error;      // without "Error: "
    std::string log_error;  // what a get tool writes to the log for it
};
HandArgument read_hand_argument(const json& arguments);

int hand_index(const std::string& hand);

// The schema's `base_space` of tools that move something.
std::string base_space_to_write_description();
// position, orientation, base_space and duration_seconds of a set tool, in this order.
void add_pose_parameters(ToolBuilder& builder);

}  // namespace orvanic_xr
