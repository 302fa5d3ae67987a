// Arithmetic for the agent: expressions, vectors and quaternions. The tools keep no state and know no session;
// they run on whichever thread calls them.
#pragma once

#include "tools/tool_entry.h"

namespace orvanic_xr {

ToolEntry make_math_calc_tool_entry();

ToolEntry make_math_dot_tool_entry();
ToolEntry make_math_cross_tool_entry();

ToolEntry make_math_add_tool_entry();
ToolEntry make_math_sub_tool_entry();
ToolEntry make_math_mul_tool_entry();
ToolEntry make_math_div_tool_entry();

ToolEntry make_math_build_quat_tool_entry();
ToolEntry make_math_decompose_quat_tool_entry();
ToolEntry make_math_multiply_quat_tool_entry();

}  // namespace orvanic_xr
