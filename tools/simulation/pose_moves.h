// How a pose tool gets hold of a session that it may move things in, and how it moves one over time.
#pragma once

#include <optional>
#include <string>

#include "context/session_context.h"
#include "mcp/json.h"
#include "tools/session_lookup.h"
#include "tools/simulation/pose_animation_manager.h"
#include "xr/pose_math.h"

namespace orvanic_xr {

// The session of the call with the simulation switched on, or the logged refusal.
SessionLookup take_over_session(const json& arguments, const std::string& tool_name);

// Where a move is written. The view moves with the head: a move relative to it is resolved once, and carried out in a
// space that stays where it is.
struct MoveFrame {
    XrSpace space = XR_NULL_HANDLE;
    // The view in `space`; nothing for a move relative to another space, which is `space` itself.
    std::optional<XrPosef> view;

    // `pose`, given relative to the base space of the move, in `space`.
    XrPosef resolved(const XrPosef& pose) const { return view ? Compose(*view, pose) : pose; }
};
// Nothing if `base_space` is the view and nobody knows where that is.
std::optional<MoveFrame> find_move_frame(const SessionContext& context, XrSpace base_space, XrTime time);

// {"success": true}, and a `note` if there is one, as every set tool answers.
json pose_set_result(const std::string& note = {});

// Plays `animation`, which moves something of `context`, to its end on the frame thread and answers what became of it.
// `subject` is what moves, as "head"; `call` what takes it over, as "set_head_pose".
json play_pose_animation(const SessionContext& context, ActiveAnimation animation, const std::string& tool_name,
                         const std::string& subject, const std::string& call);

}  // namespace orvanic_xr
