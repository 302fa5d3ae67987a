// The tool that lists the things of the room.
#pragma once

#include "tools/tool_entry.h"

namespace orvanic_xr {

ToolEntry make_openxr_list_spatial_entities_tool_entry();

}  // namespace orvanic_xr
