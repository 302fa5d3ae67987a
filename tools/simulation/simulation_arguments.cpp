#include "tools/simulation/simulation_arguments.h"

#include <algorithm>
#include <utility>

#include "diagnostics/log_line.h"
#include "tools/json_conversions.h"
#include "tools/session_lookup.h"

namespace orvanic_xr {

XrPosef PoseArguments::applied_to(XrPosef pose) const {
    if (position) pose.position = vector3_from_json(*position);
    if (orientation) pose.orientation = quaternion_from_json(*orientation);
    return pose;
}

PoseArguments read_pose_arguments(const json& arguments) {
    return {array_argument(arguments, "position", 3), array_argument(arguments, "orientation", 4)};
}

float duration_argument(const json& arguments) {
    const json* value = find_argument(arguments, "duration_seconds");
    return value && value->is_number() ? std::max(0.0f, clamped_float(*value)) : 0.0f;
}

HandArgument read_hand_argument(const json& arguments) {
    const json* value = find_argument(arguments, "hand");
    if (!value || !value->is_string()) {
        return {{},
                "Missing or invalid 'hand' parameter. Must be 'left' or 'right'.",
                "Missing or invalid 'hand' parameter"};
    }
    const std::string hand = value->get<std::string>();
    if (hand == "left" || hand == "right") return {hand, {}, {}};
    return {{},
            "Invalid 'hand' parameter. Must be 'left' or 'right', got '" + ShownPeerText(hand) + "'.",
            "Invalid hand value: " + ShownPeerText(hand)};
}

int hand_index(const std::string& hand) {
    return hand == "left" ? kLeftHand : kRightHand;
}

std::string base_space_to_write_description() {
    return "Reference space the pose is expressed in. Valid: 'local', 'stage', 'local_floor', 'view'. Default: '" +
           default_base_space() + "'";
}

void add_pose_parameters(ToolBuilder& builder) {
    builder
        .add_bounded_array_parameter("position", "Position [x, y, z] in meters relative to the base_space.", "number",
                                     3, 3, false)
        .add_bounded_array_parameter("orientation",
                                     "Orientation as unit quaternion [x, y, z, w] relative to the base_space.",
                                     "number", 4, 4, false)
        .add_string_parameter("base_space", base_space_to_write_description(), false)
        .add_number_parameter("duration_seconds",
                              "Optional duration in seconds for smooth movement. Position interpolates linearly; "
                              "orientation via normalized quaternion lerp. Default: 0 (instant).",
                              false);
}

}  // namespace orvanic_xr
