// The tool that shows the agent what the user sees.
#pragma once

#include "tools/tool_entry.h"

namespace orvanic_xr {

ToolEntry make_openxr_capture_composited_image_tool_entry();

}  // namespace orvanic_xr
