// Tools for the time of an application on the simulator, and for what happens to its headset.
#pragma once

#include <vector>

#include "command/bridge/own_tool.h"

namespace velmoor {

class simulator_link;

// `link` outlives them.
std::vector<own_tool> sim_tools(simulator_link& link);

}  // namespace velmoor
