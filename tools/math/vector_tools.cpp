// Arithmetic on vectors and scalars in 64-bit floats. math_dot and math_cross take two strict vectors; math_add,
// math_sub, math_mul and math_div take two operands, each a vector or a scalar.
#include <algorithm>
#include <array>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "diagnostics/logger.h"
#include "tools/arguments.h"
#include "tools/math/math_tools.h"
#include "tools/math/result_text.h"
#include "tools/tool_results.h"

namespace orvanic_xr {
namespace {

using Vector3d = std::array<double, 3>;

// What `body` throws is the refusal of the tool.
template <typename Body>
json answer_or_refuse(const char* tool_name, const Body& body) {
    try {
        return body();
    } catch (const std::exception& failure) {
        return refuse(tool_name, Refusal{.log = std::string("error: ") + failure.what(), .answer = failure.what()});
    }
}

// Two vectors.

struct VectorPairTool {
    const char* name;
    const char* description;
    json (*operation)(const Vector3d& a, const Vector3d& b);
};

constexpr VectorPairTool kMathDot = {
    "math_dot",
    "Compute the dot product of two 3D vectors. The dot product is useful for calculating the angle between vectors, "
    "projecting one vector onto another, and determining spatial relationships (e.g., how far left/right or "
    "above/below one point is relative to another along a direction).\n\nDISTANCE CALCULATION: To calculate the "
    "distance between two 3D positions A and B, first compute the offset vector (B - A), then use this tool to compute "
    "the dot product of the offset with itself to get the squared distance. Finally, use math_calc with sqrt() on the "
    "result to get the actual distance. Example: offset = [B.x - A.x, B.y - A.y, B.z - A.z], squared_distance = "
    "dot(offset, offset), distance = sqrt(squared_distance).",
    [](const Vector3d& a, const Vector3d& b) -> json { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; },
};

constexpr VectorPairTool kMathCross = {
    "math_cross",
    "Compute the cross product of two 3D vectors. The cross product produces a vector perpendicular to both input "
    "vectors, useful for computing normal vectors and determining orientation.",
    [](const Vector3d& a, const Vector3d& b) -> json {
        return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
    },
};

double vector_component(const json& vector, std::size_t index, const char* name) {
    const json& component = vector[index];
    if (!component.is_number()) throw std::runtime_error(std::string(name) + " components must be numbers");
    return component.get<double>();
}

json refuse_vector(const VectorPairTool& tool, const std::string& name) {
    return refuse(tool.name, Refusal{.log = "Missing or invalid '" + name + "' parameter",
                                     .answer = "'" + name + "' must be an array of 3 numbers."});
}

json compute_vector_pair(const VectorPairTool& tool, const json& arguments) {
    const json* given_a = array_argument(arguments, "vector_a", 3);
    if (!given_a) return refuse_vector(tool, "vector_a");
    const json* given_b = array_argument(arguments, "vector_b", 3);
    if (!given_b) return refuse_vector(tool, "vector_b");
    Vector3d a{};
    Vector3d b{};
    // By component, not by vector: the first bad one in this order is the one that is told.
    for (std::size_t i = 0; i < 3; ++i) {
        a[i] = vector_component(*given_a, i, "vector_a");
        b[i] = vector_component(*given_b, i, "vector_b");
    }
    json result = tool.operation(a, b);
    LogInfo(tool.name, ": result=", result_text(result));
    return make_json_tool_result({{"success", true}, {"vector_a", a}, {"vector_b", b}, {"result", std::move(result)}});
}

template <const VectorPairTool& kTool>
json handle_vector_pair_tool(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kTool.name, " tool called");
    return answer_or_refuse(kTool.name, [&] { return compute_vector_pair(kTool, arguments); });
}

template <const VectorPairTool& kTool>
ToolEntry vector_pair_tool_entry() {
    ToolBuilder builder(kTool.name, kTool.description);
    builder
        .add_bounded_array_parameter("vector_a", "First vector as array of 3 numbers [x, y, z]", "number", 3, 3, true)
        .add_bounded_array_parameter("vector_b", "Second vector as array of 3 numbers [x, y, z]", "number", 3, 3, true)
        .set_hints(true, false, true, false);
    return {builder.build(), handle_vector_pair_tool<kTool>, {}};
}

// Two operands, each a vector or a scalar.

struct VectorOperand {
    bool is_vector = false;
    Vector3d vector{};    // zero if this is a scalar
    double scalar = 0.0;  // zero if this is a vector

    // A scalar stands for a vector of three equal components.
    double component(std::size_t i) const { return is_vector ? vector[i] : scalar; }
};

void refuse_zero_divisor(const VectorOperand& b) {
    if (!b.is_vector && b.scalar == 0.0) throw std::runtime_error("Division by zero");
    if (b.is_vector && std::count(b.vector.begin(), b.vector.end(), 0.0) > 0) {
        throw std::runtime_error("Division by zero in vector component");
    }
}

struct OperandTool {
    const char* name;
    const char* description;
    const char* a_prefix;
    const char* b_prefix;
    double (*operation)(double a, double b);
    void (*check_right)(const VectorOperand& b) = nullptr;  // null: any operand will do
};

constexpr OperandTool kMathAdd = {
    "math_add",
    "Add two values together. Supports vector-vector, vector-scalar, and scalar-scalar operations.\n\n"
    "Examples:\n"
    "- [1, 2, 3] + [4, 5, 6] = [5, 7, 9] (vector + vector)\n"
    "- [1, 2, 3] + 10 = [11, 12, 13] (vector + scalar)\n"
    "- 5 + 3 = 8 (scalar + scalar)",
    "First operand. ",
    "Second operand. ",
    [](double a, double b) { return a + b; },
};

constexpr OperandTool kMathSub = {
    "math_sub",
    "Subtract the second value from the first. Supports vector-vector, vector-scalar, and scalar-scalar operations.\n\n"
    "Examples:\n"
    "- [4, 5, 6] - [1, 2, 3] = [3, 3, 3] (vector - vector)\n"
    "- [10, 20, 30] - 5 = [5, 15, 25] (vector - scalar)\n"
    "- 10 - 3 = 7 (scalar - scalar)",
    "First operand (minuend). ",
    "Second operand (subtrahend). ",
    [](double a, double b) { return a - b; },
};

constexpr OperandTool kMathMul = {
    "math_mul",
    "Multiply two values together. Supports vector-vector (component-wise), vector-scalar, and scalar-scalar "
    "operations.\n\n"
    "Examples:\n"
    "- [1, 2, 3] * [4, 5, 6] = [4, 10, 18] (component-wise multiplication)\n"
    "- [1, 2, 3] * 2 = [2, 4, 6] (vector scaled by scalar)\n"
    "- 5 * 3 = 15 (scalar * scalar)",
    "First operand. ",
    "Second operand. ",
    [](double a, double b) { return a * b; },
};

constexpr OperandTool kMathDiv = {
    "math_div",
    "Divide the first value by the second. Supports vector-vector (component-wise), vector-scalar, and scalar-scalar "
    "operations.\n\n"
    "Examples:\n"
    "- [4, 10, 18] / [4, 5, 6] = [1, 2, 3] (component-wise division)\n"
    "- [2, 4, 6] / 2 = [1, 2, 3] (vector divided by scalar)\n"
    "- 15 / 3 = 5 (scalar / scalar)",
    "First operand (dividend). ",
    "Second operand (divisor). ",
    [](double a, double b) { return a / b; },
    refuse_zero_divisor,
};

VectorOperand parse_vector_operand(const json& value, const std::string& name) {
    VectorOperand operand;
    if (value.is_number()) {
        operand.scalar = value.get<double>();
        return operand;
    }
    if (!value.is_array()) {
        throw std::runtime_error("'" + name + "' must be either a 3D vector (array of 3 numbers) or a scalar (number)");
    }
    if (value.size() != 3) {
        throw std::runtime_error("'" + name + "' as a vector must have exactly 3 components, got " +
                                 std::to_string(value.size()));
    }
    if (!all_numbers(value)) throw std::runtime_error("'" + name + "' vector components must be numbers");
    operand.is_vector = true;
    operand.vector = value.get<Vector3d>();
    return operand;
}

json vector_operand_to_json(const VectorOperand& operand) {
    return operand.is_vector ? json(operand.vector) : json(operand.scalar);
}

VectorOperand Combine(const OperandTool& tool, const VectorOperand& a, const VectorOperand& b) {
    VectorOperand result;
    result.is_vector = a.is_vector || b.is_vector;
    if (result.is_vector) {
        for (std::size_t i = 0; i < 3; ++i) result.vector[i] = tool.operation(a.component(i), b.component(i));
    } else {
        result.scalar = tool.operation(a.scalar, b.scalar);
    }
    return result;
}

json compute_operands(const OperandTool& tool, const json& arguments) {
    const json* given_a = find_argument(arguments, "a");
    if (!given_a)
        return refuse(tool.name, Refusal{.log = "Missing 'a' parameter", .answer = "Parameter 'a' is required."});
    const json* given_b = find_argument(arguments, "b");
    if (!given_b)
        return refuse(tool.name, Refusal{.log = "Missing 'b' parameter", .answer = "Parameter 'b' is required."});
    const VectorOperand a = parse_vector_operand(*given_a, "a");
    const VectorOperand b = parse_vector_operand(*given_b, "b");
    if (tool.check_right) tool.check_right(b);
    const VectorOperand result = Combine(tool, a, b);
    LogInfo(tool.name, ": completed");
    return make_json_tool_result({{"success", true},
                                  {"a", vector_operand_to_json(a)},
                                  {"b", vector_operand_to_json(b)},
                                  {"result", vector_operand_to_json(result)}});
}

template <const OperandTool& kTool>
json handle_operand_tool(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kTool.name, " tool called");
    return answer_or_refuse(kTool.name, [&] { return compute_operands(kTool, arguments); });
}

template <const OperandTool& kTool>
ToolEntry operand_tool_entry() {
    const std::string either =
        "Can be either a 3D vector (array of 3 numbers [x, y, z]) or a scalar (single number). When one parameter is a "
        "vector and the other is a scalar, the operation is applied to each component of the vector.";
    const json scalar = {{"type", "number"}};
    const json vector = {{"type", "array"}, {"items", scalar}, {"minItems", 3}, {"maxItems", 3}};
    const json schema = {{"oneOf", json::array({scalar, vector})}};
    ToolBuilder builder(kTool.name, kTool.description);
    builder.add_schema_parameter("a", kTool.a_prefix + either, schema, true)
        .add_schema_parameter("b", kTool.b_prefix + either, schema, true)
        .set_hints(true, false, true, false);
    return {builder.build(), handle_operand_tool<kTool>, {}};
}

}  // namespace

ToolEntry make_math_dot_tool_entry() {
    return vector_pair_tool_entry<kMathDot>();
}
ToolEntry make_math_cross_tool_entry() {
    return vector_pair_tool_entry<kMathCross>();
}

ToolEntry make_math_add_tool_entry() {
    return operand_tool_entry<kMathAdd>();
}
ToolEntry make_math_sub_tool_entry() {
    return operand_tool_entry<kMathSub>();
}
ToolEntry make_math_mul_tool_entry() {
    return operand_tool_entry<kMathMul>();
}
ToolEntry make_math_div_tool_entry() {
    return operand_tool_entry<kMathDiv>();
}

}  // namespace orvanic_xr
