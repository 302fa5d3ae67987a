// openxr_get_controller_pose tells where a controller is: from the runtime while the user holds it, from the
// mirror of the simulated poses once automation has taken over, because what the runtime then reports through
// the layer's action spaces is not what the agent set. openxr_set_controller_pose moves a simulated controller.
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "layer/dispatch/dispatch.h"
#include "tools/json_conversions.h"
#include "tools/session_lookup.h"
#include "tools/simulation/conformance_automation.h"
#include "tools/simulation/pose_animation_manager.h"
#include "tools/simulation/pose_moves.h"
#include "tools/simulation/simulation_arguments.h"
#include "tools/simulation/simulation_tools.h"
#include "tools/tool_results.h"
#include "xr/location.h"

namespace orvanic_xr {
namespace {

constexpr char kGetName[] = "openxr_get_controller_pose";
constexpr char kSetName[] = "openxr_set_controller_pose";

constexpr char kGetDescription[] =
    "Get the pose of a controller relative to a base reference space. Returns { position: [x, y, z], orientation: [x, "
    "y, z, w] }.\n\nWhen a controller is being simulated via the orvanic tools, this mirrors the simulated state: it "
    "returns the simulated pose as valid + tracked and active, with \"simulated\": true, matching what the running "
    "application observes.\n\nImportant: Since the controller poses are dynamic and change as the user moves the "
    "controllers, ALWAYS call this tool to get fresh pose data whenever:\n- The user asks about their controller "
    "position or orientation\n- The user asks about positions relative to their controller\n- You need controller "
    "pose data for any calculation or comparison\n- Any time has passed since the last call\n\nNEVER use cached "
    "controller pose data from previous tool calls, as the user may have moved their controllers.";

constexpr char kSetDescription[] =
    "Set the pose of a controller relative to a base reference space. At least one of 'position' or 'orientation' "
    "must be provided. If only one is given, the other retains its current value.";

// What a get or a set is about, once the arguments were read.
struct PoseInput {
    std::string hand;       // "left" or "right"
    std::string pose_type;  // "grip" or "aim"
};

XrAction PoseAction(const SessionContext& context, const PoseInput& input) {
    if (input.hand == "left") return input.pose_type == "grip" ? context.leftGripAction : context.leftAimAction;
    return input.pose_type == "grip" ? context.rightGripAction : context.rightAimAction;
}

XrSpace PoseSpace(const SessionContext& context, const PoseInput& input) {
    if (input.hand == "left") return input.pose_type == "grip" ? context.leftGripSpace : context.leftAimSpace;
    return input.pose_type == "grip" ? context.rightGripSpace : context.rightAimSpace;
}

bool IsPoseType(const std::string& pose_type) {
    return pose_type == "aim" || pose_type == "grip";
}

std::string InvalidPoseTypeText(const std::string& pose_type) {
    return "Invalid 'pose_type' parameter. Must be 'aim' or 'grip', got '" + ShownPeerText(pose_type) + "'.";
}

json ControllerPoseResult(const XrPosef& pose, XrSpaceLocationFlags flags, json is_active, bool simulated) {
    return make_json_tool_result({{"pose", pose_to_json(pose)},
                                  {"flags", space_location_flags_to_json(flags)},
                                  {"is_active", std::move(is_active)},
                                  {"simulated", simulated}});
}

json RuntimePose(const SessionContext& context, const PoseInput& input, XrSpace base_space, XrTime time) {
    const XrActionStateGetInfo info{XR_TYPE_ACTION_STATE_GET_INFO, nullptr, PoseAction(context, input), XR_NULL_PATH};
    XrActionStatePose state{XR_TYPE_ACTION_STATE_POSE, nullptr, XR_FALSE};
    XrResult result = context.Call(&NextDispatchTable::GetActionStatePose, context.session, &info, &state);
    if (XR_FAILED(result)) {
        const std::string number = std::to_string(static_cast<int>(result));
        return refuse(kGetName, Refusal{.log = "xrGetActionStatePose failed with result: " + number,
                                        .answer = "xrGetActionStatePose failed (error code: " + number + ")."});
    }
    if (!state.isActive) {
        LogWarning(kGetName, ": ", input.pose_type, " pose action is not active for ", input.hand, " controller");
    }
    LogInfo(kGetName, ": Calling xrLocateSpace with time=", time);
    XrSpaceLocation location{XR_TYPE_SPACE_LOCATION, nullptr, 0, {}};
    result = context.Locate(PoseSpace(context, input), base_space, time, &location);
    if (XR_FAILED(result)) {
        const std::string number = std::to_string(static_cast<int>(result));
        return refuse(kGetName, Refusal{.log = "xrLocateSpace failed with result: " + number,
                                        .answer = "xrLocateSpace failed (error code: " + number + ")."});
    }
    // On purpose: a number here, a boolean from the mirror.
    json answer = ControllerPoseResult(location.pose, location.locationFlags, state.isActive, false);
    LogInfo(kGetName, ": Successfully retrieved ", input.hand, " controller pose");
    return answer;
}

json MirrorPose(const SessionContext& context, const PoseInput& input, const XrPosef& mirrored, XrSpace base_space,
                XrTime time) {
    XrPosef pose = mirrored;
    if (context.stageSpace != XR_NULL_HANDLE && context.stageSpace != base_space) {
        const auto in_base = PoseInSpace(std::bind_front(&SessionContext::Locate, &context), context.stageSpace,
                                         base_space, time, mirrored);
        if (!in_base) {
            LogWarning(kGetName, ": could not transform simulated pose to base space; reporting STAGE-space pose");
        }
        pose = in_base.value_or(mirrored);
    }
    constexpr XrSpaceLocationFlags kAllFlags = 0xF;
    json answer = ControllerPoseResult(pose, kAllFlags, true, true);
    LogInfo(kGetName, ": reporting simulated ", input.hand, " controller pose");
    return answer;
}

json handle_get_controller_pose(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kGetName, " tool called");
    const HandArgument hand = read_hand_argument(arguments);
    if (!hand.hand) return refuse(kGetName, Refusal{.log = hand.log_error, .answer = hand.error});
    const std::string base_name = string_argument(arguments, "base_space", default_base_space());
    const PoseInput input{*hand.hand, string_argument(arguments, "pose_type", "grip")};
    if (!IsPoseType(input.pose_type)) {
        return refuse(kGetName, Refusal{.log = "Invalid pose_type value: " + ShownPeerText(input.pose_type),
                                        .answer = InvalidPoseTypeText(input.pose_type)});
    }
    LogInfo(kGetName, ": hand=", input.hand, ", pose_type=", input.pose_type, ", base_space=", PeerText{base_name});
    const SessionLookup found = find_session_context(arguments, kGetName);
    if (!found.context) return found.refusal;
    const SessionContext& context = *found.context;
    const XrSpace base_space = reference_space_for_name(base_name, context);
    if (base_space == XR_NULL_HANDLE) {
        return refuse(kGetName, Refusal{.log = "Invalid or unavailable base_space: " + ShownPeerText(base_name),
                                        .answer = invalid_base_space_text(base_name)});
    }
    if (PoseAction(context, input) == XR_NULL_HANDLE) {
        return refuse(
            kGetName,
            Refusal{.log = input.pose_type + " pose action is null for " + input.hand + " controller",
                    .answer = input.pose_type + " pose action is not available for " + input.hand + " controller."});
    }
    if (PoseSpace(context, input) == XR_NULL_HANDLE) {
        return refuse(kGetName,
                      Refusal{.log = input.pose_type + " pose action space is null for " + input.hand + " controller",
                              .answer = input.pose_type + " pose action space is not available for " + input.hand +
                                        " controller."});
    }
    const XrTime time = context.CurrentLocateTime();
    if (time == 0) {
        LogWarning(kGetName, ": No frame timing data available");
        return make_text_tool_result("Error: No frame timing data available. No frames have been rendered yet.");
    }
    if (context.conformance_automation_active) {
        const int kind = input.pose_type == "aim" ? kAimKind : kGripKind;
        const SimulatedPoseSlot slot = context.GetSimulatedControllerPose(hand_index(input.hand), kind);
        if (slot.valid) return MirrorPose(context, input, slot.pose, base_space, time);
    }
    return RuntimePose(context, input, base_space, time);
}

// One input of one controller, as the runtime names it.
struct InputTarget {
    std::shared_ptr<SessionContext> session;
    std::string top_level_path;
    std::string input_source_path;
    XrSpace base_space;
};

bool MoveController(const InputTarget& target, const XrPosef& pose) {
    const OperationResult moved =
        SetDeviceLocation(*target.session, target.top_level_path, target.input_source_path, target.base_space, pose);
    if (!moved.ok) LogWarning(kSetName, ": ", moved.error);
    return moved.ok;
}

json MoveControllerOverTime(const InputTarget& target, const PoseInput& input, const XrPosef& from, const XrPosef& to,
                            float duration_seconds) {
    ActiveAnimation animation;
    animation.name = target.top_level_path + "/" + input.pose_type;
    animation.start_pose = from;
    animation.end_pose = to;
    animation.duration_seconds = duration_seconds;
    animation.apply = [target](const XrPosef& pose) { return MoveController(target, pose); };
    return play_pose_animation(*target.session, std::move(animation), kSetName, input.hand + " controller",
                               "set_controller_pose");
}

json handle_set_controller_pose(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kSetName, " tool called");
    const HandArgument hand = read_hand_argument(arguments);
    if (!hand.hand) return refuse(kSetName, hand.error);
    const std::string base_name = string_argument(arguments, "base_space", default_base_space());
    const PoseInput input{*hand.hand, string_argument(arguments, "pose_type", "grip")};
    if (!IsPoseType(input.pose_type)) return refuse(kSetName, InvalidPoseTypeText(input.pose_type));
    const PoseArguments given = read_pose_arguments(arguments);
    if (!given.has_position() && !given.has_orientation()) {
        return refuse(kSetName, "At least one of 'position' or 'orientation' must be provided.");
    }
    LogInfo(kSetName, ": hand=", input.hand, ", pose_type=", input.pose_type, ", base_space=", PeerText{base_name},
            ", has_position=", int{given.has_position()}, ", has_orientation=", int{given.has_orientation()});
    const SessionLookup found = take_over_session(arguments, kSetName);
    if (!found.context) return found.refusal;
    const SessionContext& context = *found.context;

    const XrSpace base_space = reference_space_for_name(base_name, context);
    if (base_space == XR_NULL_HANDLE) return refuse(kSetName, invalid_base_space_text(base_name));
    const XrSpace space = PoseSpace(context, input);
    if (space == XR_NULL_HANDLE) {
        return refuse(kSetName,
                      input.pose_type + " pose action space is not available for " + input.hand + " controller.");
    }
    const XrTime time = context.CurrentLocateTime();
    const std::string label = input.hand + " controller";
    XrPosef current = kIdentityPose;
    // What was not given stays as it is, or identity where that can't be told.
    if (!given.has_position() || !given.has_orientation())
        QueryDevicePose(context, space, base_space, time, label, current);
    const std::optional<MoveFrame> frame = find_move_frame(context, base_space, time);
    const XrPosef wanted = frame ? frame->resolved(given.applied_to(current)) : given.applied_to(current);
    const std::string top_level_path = "/user/hand/" + input.hand;
    const InputTarget target{found.context, top_level_path, top_level_path + "/input/" + input.pose_type + "/pose",
                             frame ? frame->space : base_space};
    const float duration_seconds = duration_argument(arguments);
    if (!(duration_seconds > 0.0f)) {
        if (MoveController(target, wanted)) return pose_set_result();
        return refuse(kSetName, "Failed to set " + label + " " + input.pose_type + " pose.");
    }
    XrPosef start = kIdentityPose;
    if (!frame || !QueryDevicePose(context, space, target.base_space, time, label, start)) {
        return refuse(kSetName, "Cannot query current " + label + " pose for animation start.");
    }
    return MoveControllerOverTime(target, input, start, wanted, duration_seconds);
}

}  // namespace

ToolEntry make_openxr_get_controller_pose_tool_entry() {
    ToolBuilder builder(kGetName, kGetDescription);
    builder.add_number_parameter("session_handle", kSessionHandleDescription, false)
        .add_string_parameter("hand", "Which hand's controller to get the pose for. Valid options: 'left' or 'right'",
                              true)
        .add_string_parameter("pose_type",
                              "Which pose to get. 'grip' returns the grip pose (where the user holds the controller). "
                              "'aim' returns the aim pose (pointing direction). Default: 'grip'",
                              false)
        .add_string_parameter("base_space", base_space_to_read_description(), false)
        .set_hints(true, false, false, true);
    return {builder.build(), handle_get_controller_pose, {}};
}

ToolEntry make_openxr_set_controller_pose_tool_entry() {
    ToolBuilder builder(kSetName, kSetDescription);
    builder.add_number_parameter("session_handle", kSessionHandleDescription, false)
        .add_string_parameter("hand", "Which hand's controller to set the pose for. Must be 'left' or 'right'.", true)
        .add_string_parameter("pose_type",
                              "Which pose to set. 'grip' sets the grip pose (where the user holds the controller). "
                              "'aim' sets the aim pose (pointing direction). Default: 'grip'",
                              false);
    add_pose_parameters(builder);
    builder.set_hints(false, false, true, true);
    return {builder.build(), handle_set_controller_pose, conformance_automation_enabled};
}

}  // namespace orvanic_xr
