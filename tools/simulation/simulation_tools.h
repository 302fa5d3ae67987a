// The tools that read, move and press the head and the controllers.
#pragma once

#include "tools/tool_entry.h"

namespace orvanic_xr {

ToolEntry make_openxr_get_head_pose_tool_entry();
ToolEntry make_openxr_set_head_pose_tool_entry();
ToolEntry make_openxr_get_controller_pose_tool_entry();
ToolEntry make_openxr_set_controller_pose_tool_entry();
ToolEntry make_openxr_set_controller_input_tool_entry();
ToolEntry make_openxr_get_active_interaction_profile_tool_entry();

}  // namespace orvanic_xr
