// Poses from one convention or one reference space to another. Only the last tool needs a running session and a
// frame; it locates on the thread that calls it.
#pragma once

#include "tools/tool_entry.h"

namespace orvanic_xr {

ToolEntry make_convert_unity_pose_to_openxr_tool_entry();
ToolEntry make_convert_openxr_pose_to_unity_tool_entry();
ToolEntry make_openxr_convert_pose_between_spaces_tool_entry();

}  // namespace orvanic_xr
