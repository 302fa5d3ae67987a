// The one list of the layer's own tools.
#pragma once

#include <vector>

#include "mcp/tool.h"
#include "tools/tool_registry.h"

namespace orvanic_xr {

// Registers every built-in tool whose predicate lets it, in the list's order. Predicates look at the extensions
// of the cached instance, so this comes after the instance state was stored.
void register_builtin_tools(IToolRegistry& registry);

// What all of them declare of themselves, in the same order, without the two arguments by which an agent may say why it
// acts. No predicate is asked.
std::vector<mcp::tool> builtin_tool_declarations();

}  // namespace orvanic_xr
