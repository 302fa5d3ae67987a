// From what a callback wrote to what the agent reads. Pure.
#pragma once

#include <string>

#include "mcp/json.h"

namespace orvanic_xr {

// The content array for a callback's result text: its own content items if it wrote some, else one text item.
// Throws nothing but what running out of memory throws.
mcp::json ShapeExternalToolResult(const std::string& text);

}  // namespace orvanic_xr
