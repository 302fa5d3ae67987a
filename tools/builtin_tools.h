// The one list of the layer's own tools.
#pragma once

#include "tools/tool_registry.h"

namespace orvanic_xr {

// Registers every built-in tool whose predicate lets it, in the list's order. Predicates look at the extensions
// of the cached instance, so this comes after the instance state was stored.
void register_builtin_tools(IToolRegistry& registry);

}  // namespace orvanic_xr
