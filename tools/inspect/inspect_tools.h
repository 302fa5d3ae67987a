// The tools that show what the hooks learned of the application, and the one that asks its session to end.
#pragma once

#include "tools/tool_entry.h"

namespace orvanic_xr {

ToolEntry make_openxr_get_instance_info_tool_entry();
ToolEntry make_openxr_get_session_info_tool_entry();
ToolEntry make_openxr_get_system_info_tool_entry();
ToolEntry make_openxr_get_frame_info_tool_entry();
ToolEntry make_openxr_exit_session_tool_entry();

}  // namespace orvanic_xr
