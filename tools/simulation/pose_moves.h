// How a pose tool gets hold of a session that it may move things in, and how it moves one over time.
#pragma once

#include <string>

#include "mcp/json.h"
#include "tools/session_tools.h"
#include "tools/simulation/pose_animation_manager.h"

namespace orvanic_xr {

// The session of the call with the simulation switched on, or the logged refusal.
SessionLookup find_session_to_move(const json& arguments, const std::string& tool_name);

// Plays `animation` to its end on the frame thread and answers what became of it. `subject` is what moves, as
// "head"; `call` what takes it over, as "set_head_pose".
json play_pose_animation(ActiveAnimation animation, const std::string& tool_name, const std::string& subject,
                         const std::string& call);

}  // namespace orvanic_xr
