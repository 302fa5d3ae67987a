// Tools of the bridge's own that use those of the layer underneath.
#pragma once

#include <vector>

#include "command/bridge/own_tool.h"

namespace velmoor {

std::vector<own_tool> xr_tools();

}  // namespace velmoor
