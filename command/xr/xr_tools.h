// Tools of the bridge's own that use those of the layer underneath.
//
// One file for each: xr_wait (wait_tool), xr_picture (picture_tool), xr_release_all (release_tool), xr_inputs
// (inputs_tool).
#pragma once

#include <vector>

#include "command/bridge/own_tool.h"

namespace velmoor {

class started_application;

// `application` is the one that the user gave, which outlives the tools; null if none was given.
std::vector<own_tool> xr_tools(started_application* application);

own_tool make_wait_tool();
own_tool make_picture_tool();
own_tool make_release_tool();
own_tool make_inputs_tool(started_application* application);

}  // namespace velmoor
