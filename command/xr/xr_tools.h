// Tools of the bridge's own that use those of the layer underneath.
//
// One file for each: xr_wait (wait_tool), xr_picture (picture_tool), xr_release_all (release_tool).
#pragma once

#include <vector>

#include "command/bridge/own_tool.h"

namespace velmoor {

std::vector<own_tool> xr_tools();

own_tool make_wait_tool();
own_tool make_picture_tool();
own_tool make_release_tool();

}  // namespace velmoor
