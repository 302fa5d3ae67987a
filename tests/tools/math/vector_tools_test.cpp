#include <gmock/gmock.h>

#include <string>

#include "tests/fakes/log_capture.h"
#include "tests/tools/tool_answer.h"
#include "tools/math/math_tools.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;

constexpr auto kDot = make_math_dot_tool_entry;
constexpr auto kCross = make_math_cross_tool_entry;
constexpr auto kAdd = make_math_add_tool_entry;
constexpr auto kSub = make_math_sub_tool_entry;
constexpr auto kMul = make_math_mul_tool_entry;
constexpr auto kDiv = make_math_div_tool_entry;

TEST(VectorPairTools, Compute) {
    ExpectAnswers({
        {kDot, R"({"vector_a":[1,2,3],"vector_b":[4,5,6]})",
         R"({"success":true,"vector_a":[1.0,2.0,3.0],"vector_b":[4.0,5.0,6.0],"result":32.0})"},
        {kCross, R"({"vector_a":[1,2,3],"vector_b":[4,5,7]})",
         R"({"success":true,"vector_a":[1.0,2.0,3.0],"vector_b":[4.0,5.0,7.0],"result":[-1.0,5.0,-3.0]})"},
    });
}

TEST(VectorPairTools, TellTheFirstFault) {
    const std::string a_text = "'vector_a' must be an array of 3 numbers.";
    const std::string b_text = "'vector_b' must be an array of 3 numbers.";
    const std::string a_line = "Missing or invalid 'vector_a' parameter";
    ExpectRefusals({
        {kDot, "[]", a_text, a_line},
        {kDot, R"({"vector_a":[1,2,3,"x"],"vector_b":[1,2,3]})", a_text, a_line},
        {kCross, R"({"vector_a":["x",2,3],"vector_b":[1,2]})", b_text, "Missing or invalid 'vector_b' parameter"},
        {kDot, R"({"vector_a":[1,"x",3],"vector_b":["y",2,3]})", "vector_b components must be numbers",
         "error: vector_b components must be numbers"},
        {kCross, R"({"vector_a":[1,true,3],"vector_b":[1,null,3]})", "vector_a components must be numbers",
         "error: vector_a components must be numbers"},
    });
}

TEST(OperandTools, ApplyTheOperatorToEachComponent) {
    ExpectAnswers({
        {kAdd, R"({"a":[1,2,3],"b":[4,5,6]})",
         R"({"success":true,"a":[1.0,2.0,3.0],"b":[4.0,5.0,6.0],"result":[5.0,7.0,9.0]})"},
        {kAdd, R"({"a":[1,2,3],"b":10})", R"({"success":true,"a":[1.0,2.0,3.0],"b":10.0,"result":[11.0,12.0,13.0]})"},
        {kSub, R"({"a":10,"b":[1,2,3]})", R"({"success":true,"a":10.0,"b":[1.0,2.0,3.0],"result":[9.0,8.0,7.0]})"},
        {kSub, R"({"a":10,"b":3})", R"({"success":true,"a":10.0,"b":3.0,"result":7.0})"},
        {kMul, R"({"a":[1,2,3],"b":[4,5,6]})",
         R"({"success":true,"a":[1.0,2.0,3.0],"b":[4.0,5.0,6.0],"result":[4.0,10.0,18.0]})"},
        {kDiv, R"({"a":12,"b":[1,2,-3]})", R"({"success":true,"a":12.0,"b":[1.0,2.0,-3.0],"result":[12.0,6.0,-4.0]})"},
        {kDiv, R"({"a":1,"b":3})", R"({"success":true,"a":1.0,"b":3.0,"result":0.3333})"},
        {kMul, R"({"a":1e300,"b":-1e300})", R"({"success":true,"a":1e+300,"b":-1e+300,"result":null})"},
        {kAdd, R"({"a":18446744073709551615,"b":1})",
         R"({"success":true,"a":1.8446744073709552e+19,"b":1.0,"result":1.8446744073709552e+19})"},
    });
    LogCapture log;
    Answer(kSub, R"({"a":10,"b":3})");
    EXPECT_THAT(log.take(), ElementsAre("INFO math_sub tool called", "INFO math_sub: completed"));
}

TEST(OperandTools, TellTheFirstFault) {
    const std::string neither = "must be either a 3D vector (array of 3 numbers) or a scalar (number)";
    const std::string length = "as a vector must have exactly 3 components, got ";
    const auto fault = [](ToolEntry (*make)(), const char* arguments, const std::string& text) {
        return ToolRow{make, arguments, text, "error: " + text};
    };
    ExpectRefusals({
        {kAdd, "{}", "Parameter 'a' is required.", "Missing 'a' parameter"},
        {kSub, "[1,2]", "Parameter 'a' is required.", "Missing 'a' parameter"},
        {kMul, R"({"a":"x"})", "Parameter 'b' is required.", "Missing 'b' parameter"},
        fault(kMul, R"({"a":"x","b":[]})", "'a' " + neither),
        fault(kSub, R"({"a":1,"b":null})", "'b' " + neither),
        fault(kAdd, R"({"a":[1,2],"b":1})", "'a' " + length + "2"),
        fault(kAdd, R"({"a":1,"b":[1,2,"3"]})", "'b' vector components must be numbers"),
        fault(kDiv, R"({"a":[1,2,3],"b":0})", "Division by zero"),
        fault(kDiv, R"({"a":1,"b":-0.0})", "Division by zero"),
        fault(kDiv, R"({"a":[1,2,3],"b":[1,1,0.0]})", "Division by zero in vector component"),
    });
}

}  // namespace
}  // namespace orvanic_xr
