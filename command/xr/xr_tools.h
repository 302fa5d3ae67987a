// Tools of the bridge's own that use those of the layer underneath.
//
// One file for each: xr_wait (wait_tool), xr_picture (picture_tool), xr_release_all (release_tool), xr_inputs
// (inputs_tool), xr_move, xr_look_at and xr_point_at (move_tools, with their maths in aim), xr_act
// (act_tool), openxr_exit_session (exit_tool).
#pragma once

#include <memory>
#include <vector>

#include "command/bridge/own_tool.h"

namespace velmoor {

class picture_memory;
class started_application;

// `application` is the one that the user gave, which outlives the tools; null if none was given.
std::vector<own_tool> xr_tools(started_application* application);

own_tool make_wait_tool();
own_tool make_picture_tool(const std::shared_ptr<picture_memory>& memory);
own_tool make_move_tool();
own_tool make_look_tool(const std::shared_ptr<picture_memory>& memory);
own_tool make_point_tool(const std::shared_ptr<picture_memory>& memory);
own_tool make_act_tool();
// In the place of the layer's own: tells what followed.
own_tool make_exit_tool(started_application* application);
own_tool make_release_tool();
own_tool make_inputs_tool(started_application* application);

}  // namespace velmoor
