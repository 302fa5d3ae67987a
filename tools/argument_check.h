// Tools take what they can use of their arguments and leave the rest alone; the log says what that was.
#pragma once

#include "mcp/json.h"
#include "tools/tool_entry.h"

namespace orvanic_xr {

// `handler` after a warning for each argument that the schema of `tool` does not know, and for each that is of another
// kind or length than it says. An argument that is null counts as absent. The arguments go on as they are.
ToolHandler warn_of_unfit_arguments(const mcp::tool& tool, ToolHandler handler);

}  // namespace orvanic_xr
