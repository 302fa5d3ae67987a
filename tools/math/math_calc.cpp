#include <exception>
#include <string>

#include "diagnostics/logger.h"
#include "diagnostics/number_text.h"
#include "tools/arguments.h"
#include "tools/math/expression.h"
#include "tools/math/math_tools.h"
#include "tools/tool_results.h"

namespace orvanic_xr {
namespace {

constexpr char kName[] = "math_calc";

// On purpose log10 and atan2 are announced here, although no expression reaches them.
constexpr char kDescription[] =
    "Evaluate a mathematical expression string and return the numerical result. The expression must use Python "
    "syntax. Supports basic arithmetic operations (+, -, *, /, **), parentheses, and common math functions (sqrt, sin, "
    "cos, tan, asin, acos, atan, atan2, log, log10, exp, abs, floor, ceil, round, pow, min, max). Also supports "
    "constants 'pi' and 'e'.\n\nIMPORTANT: The '^' operator is NOT supported for exponentiation. Use '**' or "
    "'pow(a, b)' instead. For example, use '2**3' or 'pow(2, 3)' to compute 2 to the power of 3.\n\nNOTE: The "
    "expression must evaluate to a single number. Vector calculations like '[1, 2, 3] - [4, 5, 6]' are NOT supported. "
    "For dot or cross products, use math_dot or math_cross. For other vector operations, calculate each component "
    "individually.";

constexpr char kExpressionDescription[] =
    "Mathematical expression to evaluate using Python syntax. Examples: '2 + 3 * 4', 'sqrt(16)', 'sin(pi/2)', "
    "'abs(-5)', '2**8' (exponentiation), 'pow(2, 8)'. Note: '^' is NOT supported for exponentiation - use '**' or "
    "'pow(a, b)' instead.";

json handle_math_calc(const json& arguments, const std::string& /*session_id*/) {
    LogInfo(kName, " tool called");
    const json* argument = find_argument(arguments, "expression");
    if (!argument || !argument->is_string()) {
        return refuse(kName, Refusal{.log = "Missing or invalid 'expression' parameter",
                                     .answer = "Missing or invalid 'expression' parameter. Must be a string."});
    }
    const auto& expression = argument->get_ref<const std::string&>();
    LogInfo(kName, ": expression=", PeerText{expression});
    try {
        const double result = EvaluateExpression(expression);
        LogInfo(kName, ": result=", FixedText(result));
        return make_json_tool_result({{"success", true}, {"expression", expression}, {"result", result}});
    } catch (const std::exception& failure) {
        LogError(kName, ": error: ", PeerText{failure.what(), kErrorTextBytes});
        return make_json_tool_result({{"success", false}, {"expression", expression}, {"error", failure.what()}});
    }
}

}  // namespace

ToolEntry make_math_calc_tool_entry() {
    ToolBuilder builder(kName, kDescription);
    builder.add_string_parameter("expression", kExpressionDescription, true).set_hints(true, false, true, false);
    return {builder.build(), handle_math_calc, {}};
}

}  // namespace orvanic_xr
