// Orientations as quaternions [x, y, z, w] in 32-bit floats: built from directions, taken apart, multiplied.
#include <optional>
#include <string>

#include "diagnostics/logger.h"
#include "tools/arguments.h"
#include "tools/json_conversions.h"
#include "tools/math/math_tools.h"
#include "tools/math/quaternion_basis.h"
#include "tools/math/result_text.h"
#include "tools/tool_results.h"
#include "xr/pose_math.h"

namespace orvanic_xr {
namespace {

// A vector shorter than this has no direction; two whose cross product is shorter are parallel.
constexpr float kMinimumDirectionLength = 1e-6f;

constexpr char kBuildName[] = "math_build_quat";
constexpr char kDecomposeName[] = "math_decompose_quat";
constexpr char kMultiplyName[] = "math_multiply_quat";

constexpr char kBuildDescription[] =
    "Build a quaternion representing an orientation from direction vectors. This is useful for creating OpenXR pose "
    "orientations.\n\n"
    "The quaternion is built from:\n"
    "- front_direction: The direction the entity should face (required)\n"
    "- up_direction: The up direction (optional, defaults to [0, 1, 0] which is the standard up direction in "
    "OpenXR)\n\n"
    "The output quaternion represents the rotation that would align:\n"
    "- The negative Z axis (-Z) with the front_direction (OpenXR convention)\n"
    "- The positive Y axis (+Y) with the up_direction\n\n"
    "Example: To create a pose facing along the positive X axis:\n"
    "  front_direction: [1, 0, 0]\n"
    "  Result: quaternion representing 90-degree rotation around Y axis";

constexpr char kDecomposeDescription[] =
    "Decompose a quaternion into its basis direction vectors. This is the inverse operation of math_build_quat.\n\n"
    "Returns:\n"
    "- front_direction: The direction the orientation faces (where -Z points)\n"
    "- up_direction: The up direction (where +Y points)\n"
    "- right_direction: The right direction (where +X points)\n\n"
    "All returned vectors are unit vectors in world space.";

constexpr char kMultiplyDescription[] =
    "Multiply two quaternions using the standard Hamilton product.\n\n"
    "Computes: result = quaternion1 * quaternion2\n\n"
    "Note: Quaternion multiplication is NOT commutative (q1 * q2 != q2 * q1).\n\n"
    "Returns:\n"
    "- result: The resulting quaternion as [x, y, z, w]\n\n"
    "The returned quaternion is normalized.";

json handle_math_build_quat(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kBuildName, " tool called");
    const json* given_front = array_argument(arguments, "front_direction", 3);
    if (!given_front) {
        return refuse(kBuildName, Refusal{.log = "Missing or invalid 'front_direction' parameter",
                                          .answer = "'front_direction' must be an array of 3 numbers."});
    }
    if (!all_numbers(*given_front)) {
        return refuse(kBuildName, Refusal{.log = "front_direction components must be numbers",
                                          .answer = "front_direction components must be numbers."});
    }
    XrVector3f given_up = {0.0f, 1.0f, 0.0f};
    if (find_argument(arguments, "up_direction")) {
        const json* up_argument = array_argument(arguments, "up_direction", 3);
        if (!up_argument) {
            return refuse(kBuildName, Refusal{.log = "up_direction must be an array of 3 numbers",
                                              .answer = "up_direction must be an array of 3 numbers."});
        }
        if (!all_numbers(*up_argument)) {
            return refuse(kBuildName, Refusal{.log = "up_direction components must be numbers",
                                              .answer = "up_direction components must be numbers."});
        }
        given_up = vector3_from_json(*up_argument);
    }
    const XrVector3f front_argument = vector3_from_json(*given_front);
    if (Length(front_argument) < kMinimumDirectionLength) {
        return refuse(kBuildName, Refusal{.log = "front_direction cannot be zero-length",
                                          .answer = "front_direction cannot be zero-length."});
    }
    if (Length(given_up) < kMinimumDirectionLength) {
        return refuse(kBuildName, Refusal{.log = "up_direction cannot be zero-length",
                                          .answer = "up_direction cannot be zero-length."});
    }
    const XrVector3f front = safe_normalize(front_argument);
    const XrVector3f perpendicular = Cross(front, safe_normalize(given_up));
    if (Length(perpendicular) < kMinimumDirectionLength) {
        return refuse(
            kBuildName,
            Refusal{.log = "front_direction and up_direction are parallel",
                    .answer = "front_direction and up_direction are parallel or anti-parallel, cannot build basis."});
    }
    const XrVector3f right = safe_normalize(perpendicular);
    // The given up vector only sets the plane: the front stays as it was given, and up is made to fit.
    const XrVector3f up = safe_normalize(Cross(right, front));

    const json quaternion = quaternion_to_json(safe_normalize(quaternion_from_basis(right, up, front)));
    json output = {{"success", true}, {"quaternion", quaternion}};
    if (flag_argument(arguments, "return_basis_vectors")) {
        output["front_direction"] = vector3_to_json(front);
        output["up_direction"] = vector3_to_json(up);
        output["right_direction"] = vector3_to_json(right);
    }
    LogInfo(kBuildName, ": result=", result_text(quaternion));
    return make_json_tool_result(std::move(output));
}

json handle_math_decompose_quat(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kDecomposeName, " tool called");
    const json* quaternion = array_argument(arguments, "quaternion", 4);
    if (!quaternion) {
        return refuse(kDecomposeName, Refusal{.log = "Missing or invalid 'quaternion' parameter",
                                              .answer = "'quaternion' must be an array of 4 numbers [x,y,z,w]."});
    }
    if (!all_numbers(*quaternion)) {
        return refuse(kDecomposeName, Refusal{.log = "quaternion components must be numbers",
                                              .answer = "quaternion components must be numbers."});
    }
    const XrQuaternionf q = safe_normalize(quaternion_from_json(*quaternion));
    const json front = vector3_to_json(Rotate(q, {0.0f, 0.0f, -1.0f}));
    LogInfo(kDecomposeName, ": front=", result_text(front));
    return make_json_tool_result({{"success", true},
                                  {"front_direction", front},
                                  {"up_direction", vector3_to_json(Rotate(q, {0.0f, 1.0f, 0.0f}))},
                                  {"right_direction", vector3_to_json(Rotate(q, {1.0f, 0.0f, 0.0f}))}});
}

std::optional<XrQuaternionf> read_quaternion_argument(const json& arguments, const char* name) {
    const json* quaternion = array_argument(arguments, name, 4);
    if (!quaternion || !all_numbers(*quaternion)) return std::nullopt;
    return quaternion_from_json(*quaternion);
}

json refuse_factor(const std::string& name) {
    return refuse(kMultiplyName, Refusal{.log = "Missing or invalid '" + name + "' parameter",
                                         .answer = "'" + name + "' must be an array of 4 numbers [x,y,z,w]."});
}

json handle_math_multiply_quat(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kMultiplyName, " tool called");
    const std::optional<XrQuaternionf> quaternion1 = read_quaternion_argument(arguments, "quaternion1");
    if (!quaternion1) return refuse_factor("quaternion1");
    const std::optional<XrQuaternionf> quaternion2 = read_quaternion_argument(arguments, "quaternion2");
    if (!quaternion2) return refuse_factor("quaternion2");
    const XrQuaternionf product = Multiply(safe_normalize(*quaternion1), safe_normalize(*quaternion2));
    const json result = quaternion_to_json(safe_normalize(product));
    LogInfo(kMultiplyName, ": result=", result_text(result));
    return make_json_tool_result({{"success", true}, {"result", result}});
}

}  // namespace

ToolEntry make_math_build_quat_tool_entry() {
    ToolBuilder builder(kBuildName, kBuildDescription);
    builder
        .add_bounded_array_parameter("front_direction",
                                     "The direction the entity should face, as [x, y, z]. Will be normalized.",
                                     "number", 3, 3, true)
        .add_bounded_array_parameter(
            "up_direction", "The up direction, as [x, y, z]. Will be normalized. Default: [0, 1, 0] (OpenXR up).",
            "number", 3, 3, false)
        .add_boolean_parameter("return_basis_vectors",
                               "Whether to include the orthonormalized basis vectors (front, up, right) in the output. "
                               "Default: false.",
                               false)
        .set_hints(true, false, true, false);
    return {builder.build(), handle_math_build_quat, {}};
}

ToolEntry make_math_decompose_quat_tool_entry() {
    ToolBuilder builder(kDecomposeName, kDecomposeDescription);
    builder
        .add_bounded_array_parameter("quaternion", "The quaternion to decompose, as [x, y, z, w].", "number", 4, 4,
                                     true)
        .set_hints(true, false, true, false);
    return {builder.build(), handle_math_decompose_quat, {}};
}

// On purpose "applied first" describes the left factor, although the right one acts first on a vector.
ToolEntry make_math_multiply_quat_tool_entry() {
    ToolBuilder builder(kMultiplyName, kMultiplyDescription);
    builder
        .add_bounded_array_parameter("quaternion1", "The first quaternion (applied first), as [x, y, z, w].", "number",
                                     4, 4, true)
        .add_bounded_array_parameter("quaternion2", "The second quaternion (applied second), as [x, y, z, w].",
                                     "number", 4, 4, true)
        .set_hints(true, false, true, false);
    return {builder.build(), handle_math_multiply_quat, {}};
}

}  // namespace orvanic_xr
