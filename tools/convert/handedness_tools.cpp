// Poses between the left-handed convention of Unity and the right-handed one of OpenXR, in 64-bit floats. The mapping
// is its own inverse, so both tools do the same.
#include <string>
#include <utility>

#include "diagnostics/logger.h"
#include "tools/arguments.h"
#include "tools/convert/convert_tools.h"
#include "tools/tool_results.h"

namespace orvanic_xr {
namespace {

struct HandednessTool {
    const char* name;
    const char* description;
    const char* position_description;
    const char* orientation_description;
};

constexpr HandednessTool kUnityToOpenXr = {
    "convert_unity_pose_to_openxr",
    "Convert a pose from Unity's coordinate system to OpenXR's coordinate system.\n\n"
    "Unity uses a left-handed coordinate system (X right, Y up, Z forward).\n"
    "OpenXR uses a right-handed coordinate system (X right, Y up, -Z forward).\n\n"
    "Conversion:\n"
    "- Position: Z component is negated\n"
    "- Orientation quaternion: X and Y components are negated\n\n"
    "At least one of 'position' or 'orientation' must be provided.",
    "Position in Unity coordinates as [x, y, z].",
    "Orientation quaternion in Unity convention as [x, y, z, w].",
};

constexpr HandednessTool kOpenXrToUnity = {
    "convert_openxr_pose_to_unity",
    "Convert a pose from OpenXR's coordinate system to Unity's coordinate system.\n\n"
    "OpenXR uses a right-handed coordinate system (X right, Y up, -Z forward).\n"
    "Unity uses a left-handed coordinate system (X right, Y up, Z forward).\n\n"
    "Conversion:\n"
    "- Position: Z component is negated\n"
    "- Orientation quaternion: X and Y components are negated\n\n"
    "At least one of 'position' or 'orientation' must be provided.",
    "Position in OpenXR coordinates as [x, y, z].",
    "Orientation quaternion in OpenXR convention as [x, y, z, w].",
};

// The array of that name, of whatever length; null if it is absent or of another kind.
const json* any_array_argument(const json& arguments, const char* name) {
    const json* value = find_argument(arguments, name);
    return value && value->is_array() ? value : nullptr;
}

json mirrored_position(const json& position) {
    return {position[0].get<double>(), position[1].get<double>(), -position[2].get<double>()};
}

json mirrored_orientation(const json& orientation) {
    return {-orientation[0].get<double>(), -orientation[1].get<double>(), orientation[2].get<double>(),
            orientation[3].get<double>()};
}

template <const HandednessTool& kTool>
json handle_handedness_tool(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kTool.name, " tool called");
    const json* position = any_array_argument(arguments, "position");
    const json* orientation = any_array_argument(arguments, "orientation");
    if (!position && !orientation) {
        return refuse(
            kTool.name,
            Refusal{.log = "at least one of 'position' or 'orientation' must be provided",
                    .answer =
                        "At least one of 'position' (array of 3 numbers) or 'orientation' (array of 4 numbers) must be "
                        "provided."});
    }
    json output = {{"success", true}};
    if (position) {
        if (position->size() != 3)
            return make_text_tool_result("Error: 'position' must be an array of 3 numbers [x,y,z].");
        if (!all_numbers(*position)) return make_text_tool_result("Error: position components must be numbers.");
        output["position"] = mirrored_position(*position);
    }
    if (orientation) {
        if (orientation->size() != 4) {
            return make_text_tool_result("Error: 'orientation' must be an array of 4 numbers [x,y,z,w].");
        }
        if (!all_numbers(*orientation)) return make_text_tool_result("Error: orientation components must be numbers.");
        output["orientation"] = mirrored_orientation(*orientation);
    }
    return make_json_tool_result(std::move(output));
}

template <const HandednessTool& kTool>
ToolEntry handedness_tool_entry() {
    ToolBuilder builder(kTool.name, kTool.description);
    builder.add_bounded_array_parameter("position", kTool.position_description, "number", 3, 3, false)
        .add_bounded_array_parameter("orientation", kTool.orientation_description, "number", 4, 4, false)
        .set_hints(true, false, true, false);
    return {builder.build(), handle_handedness_tool<kTool>, {}};
}

}  // namespace

ToolEntry make_convert_unity_pose_to_openxr_tool_entry() {
    return handedness_tool_entry<kUnityToOpenXr>();
}

ToolEntry make_convert_openxr_pose_to_unity_tool_entry() {
    return handedness_tool_entry<kOpenXrToUnity>();
}

}  // namespace orvanic_xr
