// Moves a pose from one reference space of the running session to another, as the runtime sees them at the time
// that is displayed next. 32-bit floats, metres.
#include <string>

#include "context/session_context.h"
#include "diagnostics/logger.h"
#include "tools/arguments.h"
#include "tools/convert/convert_tools.h"
#include "tools/json_conversions.h"
#include "tools/session_lookup.h"
#include "tools/tool_results.h"
#include "xr/location.h"

namespace orvanic_xr {
namespace {

constexpr char kName[] = "openxr_convert_pose_between_spaces";

constexpr char kDescription[] =
    "Convert a pose from one OpenXR reference space to another using xrLocateSpace.\n\n"
    "Use this when you have a pose expressed in one reference space and need to know where it is in a different "
    "reference space. For example, converting a pose from 'local' space to 'stage' space, or from 'view' space to "
    "'local_floor' space.\n\n"
    "The tool calls xrLocateSpace to get the transform between the two spaces at the current predicted display time, "
    "then applies it to transform the input pose.\n\n"
    "If no pose is provided, the tool returns the raw transform between the two spaces (i.e., the origin of the source "
    "space expressed in the target space).";

constexpr char kTargetDescription[] =
    "The reference space to convert the pose into. Valid options: 'local', 'stage', 'local_floor', 'view'. Default: "
    "'stage'";

constexpr char kPositionDescription[] =
    "Position in the source space as [x, y, z]. If omitted, uses [0, 0, 0] (the origin of the source space).";

constexpr char kOrientationDescription[] =
    "Orientation quaternion in the source space as [x, y, z, w]. If omitted, uses [0, 0, 0, 1] (identity "
    "orientation).";

json refuse_space(const std::string& parameter, const std::string& space_name) {
    const std::string message = "Invalid or unavailable " + parameter;
    return refuse(kName, Refusal{.log = message + ": " + ShownPeerText(space_name),
                                 .answer = message + " '" + space_name +
                                           "'. Valid options: 'local', 'stage', 'local_floor', 'view'."});
}

// An array of the right length replaces the default; what is no number in it throws JSON's type error.
XrPosef read_input_pose(const json& arguments) {
    XrPosef pose = kIdentityPose;
    if (const json* position = array_argument(arguments, "position", 3)) pose.position = vector3_from_json(*position);
    if (const json* orientation = array_argument(arguments, "orientation", 4)) {
        pose.orientation = quaternion_from_json(*orientation);
    }
    return pose;
}

json handle_convert_pose_between_spaces(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kName, " tool called");
    const std::string source_name = string_argument(arguments, "source_space", default_base_space());
    const std::string target_name = string_argument(arguments, "target_space", "stage");
    LogInfo(kName, ": source_space=", PeerText{source_name}, ", target_space=", PeerText{target_name});
    const SessionLookup found = find_session_context(arguments, kName);
    if (!found.context) return found.refusal;
    const SessionContext& context = *found.context;
    const XrSpace source = reference_space_for_name(source_name, context);
    if (source == XR_NULL_HANDLE) return refuse_space("source_space", source_name);
    const XrSpace target = reference_space_for_name(target_name, context);
    if (target == XR_NULL_HANDLE) return refuse_space("target_space", target_name);
    const XrTime time = context.CurrentLocateTime();
    if (time == 0) {
        LogWarning(kName, ": No frame timing data available");
        return make_text_tool_result("Error: No frame timing data available. No frames have been rendered yet.");
    }

    XrSpaceLocation location{XR_TYPE_SPACE_LOCATION, nullptr, 0, {}};
    const XrResult result = context.Locate(source, target, time, &location);
    if (XR_FAILED(result)) {
        const std::string code = xr_result_to_string(result);
        return refuse(kName, Refusal{.log = "xrLocateSpace failed with result: " + code,
                                     .answer = "xrLocateSpace failed (error code: " + code + ")."});
    }
    if (!HasValidPose(location.locationFlags)) {
        LogWarning(kName, ": Space location does not have valid position and orientation");
        return make_text_tool_result("Error: The runtime could not determine a valid transform between '" +
                                     source_name + "' and '" + target_name +
                                     "' at the current time. One or both spaces may not be locatable.");
    }

    const XrPosef input = read_input_pose(arguments);
    const XrPosef output = Compose(location.pose, input);
    LogInfo(kName, ": Successfully converted pose");
    return make_json_tool_result({{"source_space", source_name},
                                  {"target_space", target_name},
                                  {"input_pose", pose_to_json(input)},
                                  {"output_pose", pose_to_json(output)},
                                  {"flags", space_location_flags_to_json(location.locationFlags)}});
}

}  // namespace

ToolEntry make_openxr_convert_pose_between_spaces_tool_entry() {
    const std::string source_description =
        "The reference space the input pose is expressed in. Valid options: 'local' (local reference space), 'stage' "
        "(stage reference space), 'local_floor' (local floor reference space), 'view' (view reference space). Default: "
        "'" +
        default_base_space() + "'";
    ToolBuilder builder(kName, kDescription);
    builder.add_string_parameter("source_space", source_description, false)
        .add_string_parameter("target_space", kTargetDescription, false)
        .add_bounded_array_parameter("position", kPositionDescription, "number", 3, 3, false)
        .add_bounded_array_parameter("orientation", kOrientationDescription, "number", 4, 4, false)
        .add_number_parameter("session_handle", kSessionHandleDescription, false)
        .set_hints(true, false, false, true);
    return {builder.build(), handle_convert_pose_between_spaces, {}};
}

}  // namespace orvanic_xr
