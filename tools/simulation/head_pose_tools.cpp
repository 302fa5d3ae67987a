// openxr_get_head_pose reads where the runtime says the view is. openxr_set_head_pose moves the simulated
// headset, at once or smoothly, and carries both controllers along as if the user's whole body moved.
#include <memory>
#include <optional>
#include <utility>

#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "tools/json_conversions.h"
#include "tools/session_lookup.h"
#include "tools/simulation/conformance_automation.h"
#include "tools/simulation/pose_animation_manager.h"
#include "tools/simulation/pose_moves.h"
#include "tools/simulation/simulation_arguments.h"
#include "tools/simulation/simulation_tools.h"
#include "tools/tool_results.h"
#include "xr/pose_math.h"

namespace orvanic_xr {
namespace {

constexpr char kGetName[] = "openxr_get_head_pose";
constexpr char kSetName[] = "openxr_set_head_pose";

constexpr char kGetDescription[] =
    "Get the pose of the VR headset relative to a base reference space. Returns { position: [x, y, z], orientation: "
    "[x, y, z, w] }.\n\nImportant: Since the headset pose is dynamic and changes as the user moves, ALWAYS call this "
    "tool to get fresh pose data whenever:\n- The user asks about their head/headset position or orientation\n- The "
    "user asks about positions relative to their head/view\n- You need head pose data for any calculation or "
    "comparison\n- Any time has passed since the last call\n\nNEVER use cached head pose data from previous tool "
    "calls, as the user may have moved.";

// On purpose without blanks behind the full stops, and with a line end at the end.
constexpr char kSetDescription[] =
    "Set the pose of the VR headset relative to a base reference space along with controllers/hands.At least one of "
    "'position' or 'orientation' must be provided.If only one is given, the other retains its current value.\n";

json handle_get_head_pose(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kGetName, " tool called");
    const std::string base_name = string_argument(arguments, "base_space", default_base_space());
    LogInfo(kGetName, ": base_space=", PeerText{base_name});
    const SessionLookup found = find_session_context(arguments, kGetName);
    if (!found.context) return found.refusal;
    const SessionContext& context = *found.context;
    const XrSpace base_space = reference_space_for_name(base_name, context);
    if (base_space == XR_NULL_HANDLE) {
        return refuse(kGetName, Refusal{.log = "Invalid or unavailable base_space: " + ShownPeerText(base_name),
                                        .answer = invalid_base_space_text(base_name)});
    }
    if (context.viewSpace == XR_NULL_HANDLE) {
        return refuse(kGetName, Refusal{.log = "View reference space is null",
                                        .answer = "View reference space is not available."});
    }
    const XrTime time = context.CurrentLocateTime();
    if (time == 0) {
        LogWarning(kGetName, ": No frame timing data available");
        return make_text_tool_result("Error: No frame timing data available. No frames have been rendered yet.");
    }
    LogInfo(kGetName, ": Calling xrLocateSpace with time=", time);
    XrSpaceLocation location{XR_TYPE_SPACE_LOCATION, nullptr, 0, {}};
    const XrResult result = context.Locate(context.viewSpace, base_space, time, &location);
    if (XR_FAILED(result)) {
        const std::string number = std::to_string(static_cast<int>(result));
        return refuse(kGetName, Refusal{.log = "xrLocateSpace failed with result: " + number,
                                        .answer = "xrLocateSpace failed (error code: " + number + ")."});
    }
    json output = {{"pose", pose_to_json(location.pose)},
                   {"flags", space_location_flags_to_json(location.locationFlags)}};
    LogInfo(kGetName, ": Successfully retrieved head pose");
    return make_json_tool_result(std::move(output));
}

// State of one head move: where everything was before it, in `base_space`, which stays where it is. An animation keeps
// a copy, so every step works from the start and the controllers keep their rigid relation to the head for the whole
// motion.
struct HeadMoveContext {
    std::shared_ptr<SessionContext> session;
    XrSpace base_space = XR_NULL_HANDLE;
    XrPosef old_head_pose = kIdentityPose;  // identity if it could not be located
    bool left_located = false;
    XrPosef left_pose = kIdentityPose;
    bool right_located = false;
    XrPosef right_pose = kIdentityPose;
};

// Only the aim input moves with the head: the grip input stays behind, on purpose.
void MoveControllerWithHead(const HeadMoveContext& move, const XrPosef& delta, const std::string& hand,
                            const XrPosef& pose) {
    const std::string top_level_path = "/user/hand/" + hand;
    const OperationResult moved = SetDeviceLocation(*move.session, top_level_path, top_level_path + "/input/aim/pose",
                                                    move.base_space, Compose(delta, pose));
    if (!moved.ok) LogWarning(kSetName, ": Failed to move ", hand, " controller: ", moved.error);
}

// The rigid motion that takes pose `from` to pose `to`.
XrPosef PoseDelta(const XrPosef& from, const XrPosef& to) {
    const XrQuaternionf back = Conjugate(from.orientation);
    return {Multiply(to.orientation, back),
            Add(to.position, Rotate(to.orientation, Rotate(back, Negate(from.position))))};
}

// False if the head did not move; a controller that could not follow does not fail the move.
bool ApplyHeadPose(const HeadMoveContext& move, const XrPosef& pose) {
    const OperationResult moved =
        SetDeviceLocation(*move.session, kHeadTopLevelPath, kHeadPosePath, move.base_space, pose);
    if (!moved.ok) {
        LogWarning(kSetName, ": ", moved.error);
        return false;
    }
    const XrPosef delta = PoseDelta(move.old_head_pose, pose);
    if (move.left_located) MoveControllerWithHead(move, delta, "left", move.left_pose);
    if (move.right_located) MoveControllerWithHead(move, delta, "right", move.right_pose);
    return true;
}

json MoveHeadOverTime(const HeadMoveContext& move, const XrPosef& target, float duration_seconds) {
    ActiveAnimation animation;
    animation.name = kHeadTopLevelPath;
    animation.start_pose = move.old_head_pose;
    animation.end_pose = target;
    animation.duration_seconds = duration_seconds;
    animation.apply = [move](const XrPosef& pose) { return ApplyHeadPose(move, pose); };
    return play_pose_animation(*move.session, std::move(animation), kSetName, "head", "set_head_pose");
}

json handle_set_head_pose(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kSetName, " tool called");
    const std::string base_name = string_argument(arguments, "base_space", default_base_space());
    const PoseArguments given = read_pose_arguments(arguments);
    if (!given.has_position() && !given.has_orientation()) {
        return refuse(kSetName, "At least one of 'position' or 'orientation' must be provided.");
    }
    LogInfo(kSetName, ": base_space=", PeerText{base_name}, ", has_position=", int{given.has_position()},
            ", has_orientation=", int{given.has_orientation()});
    const SessionLookup found = take_over_session(arguments, kSetName);
    if (!found.context) return found.refusal;
    const SessionContext& context = *found.context;

    const XrSpace base_space = reference_space_for_name(base_name, context);
    if (base_space == XR_NULL_HANDLE) return refuse(kSetName, invalid_base_space_text(base_name));
    const XrTime time = context.CurrentLocateTime();
    const std::optional<MoveFrame> frame = find_move_frame(context, base_space, time);
    HeadMoveContext move;
    move.session = found.context;
    move.base_space = frame ? frame->space : base_space;
    const bool head_located =
        frame && QueryDevicePose(context, context.viewSpace, move.base_space, time, "head", move.old_head_pose);
    // In itself the view is at the identity.
    const XrPosef target =
        frame && frame->view ? frame->resolved(given.applied_to(kIdentityPose)) : given.applied_to(move.old_head_pose);
    const float duration_seconds = duration_argument(arguments);
    if (head_located) {
        move.left_located =
            QueryDevicePose(context, context.leftAimSpace, move.base_space, time, "left controller", move.left_pose);
        move.right_located =
            QueryDevicePose(context, context.rightAimSpace, move.base_space, time, "right controller", move.right_pose);
        if (duration_seconds > 0.0f) return MoveHeadOverTime(move, target, duration_seconds);
    }
    if (!ApplyHeadPose(move, target)) return refuse(kSetName, "Failed to set head pose.");
    if (!head_located) {
        LogWarning(kSetName, ": Could not query old head pose, controllers will not be moved with the head");
    }
    return pose_set_result();
}

}  // namespace

ToolEntry make_openxr_get_head_pose_tool_entry() {
    ToolBuilder builder(kGetName, kGetDescription);
    builder.add_number_parameter("session_handle", kSessionHandleDescription, false)
        .add_string_parameter("base_space", base_space_to_read_description(), false)
        .set_hints(true, false, false, true);
    return {builder.build(), handle_get_head_pose, {}};
}

ToolEntry make_openxr_set_head_pose_tool_entry() {
    ToolBuilder builder(kSetName, kSetDescription);
    builder.add_number_parameter("session_handle", kSessionHandleDescription, false);
    add_pose_parameters(builder);
    builder.set_hints(false, false, true, true);
    return {builder.build(), handle_set_head_pose, conformance_automation_enabled};
}

}  // namespace orvanic_xr
