// The tools by which an agent starts, ends and reads the application that the user gave.
#pragma once

#include <memory>
#include <vector>

#include "command/bridge/own_tool.h"
#include "command/launch/started_application.h"

namespace velmoor {

// `application` outlives the bridge that has these tools.
std::vector<own_tool> app_tools(started_application& application);

}  // namespace velmoor
