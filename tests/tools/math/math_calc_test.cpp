#include <gmock/gmock.h>

#include <string>

#include "tests/fakes/comma_locale.h"
#include "tests/fakes/log_capture.h"
#include "tests/tools/tool_answer.h"
#include "tools/math/math_tools.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;

std::string Calc(const std::string& arguments) {
    return Answer(make_math_calc_tool_entry, arguments);
}

TEST(MathCalc, AnswersAValue) {
    LogCapture log;
    EXPECT_EQ(Calc(R"({"expression":" 1 / 3 "})"), R"({"success":true,"expression":" 1 / 3 ","result":0.3333})");
    EXPECT_THAT(log.take(), ElementsAre("INFO math_calc tool called", "INFO math_calc: expression= 1 / 3 ",
                                        "INFO math_calc: result=0.333333"));
}

TEST(MathCalc, AnswersAFailureAsAnObject) {
    LogCapture log;
    EXPECT_EQ(Calc(R"({"expression":"1/0"})"), R"({"success":false,"expression":"1/0","error":"Division by zero"})");
    EXPECT_EQ(log.take().back(), "ERROR math_calc: error: Division by zero");
    // The first byte of a longer character is no text of its own.
    EXPECT_EQ(Calc(R"({"expression":"2*é"})"),
              R"({"success":false,"expression":"2*é","error":"Unexpected character: �"})");
}

TEST(MathCalc, RefusesAnExpressionThatIsNoText) {
    const std::string text = "Missing or invalid 'expression' parameter. Must be a string.";
    const std::string line = "Missing or invalid 'expression' parameter";
    ExpectRefusals({{make_math_calc_tool_entry, R"({"expression": 5})", text, line},
                    {make_math_calc_tool_entry, "[]", text, line},
                    {make_math_calc_tool_entry, "null", text, line}});
}

TEST(MathCalc, WritesAndReadsPointsUnderAHostWithCommas) {
    const CommaLocale host;
    if (!host.active()) GTEST_SKIP() << "no locale with a comma can be made here";
    LogCapture log;
    EXPECT_EQ(Calc(R"({"expression":"1234567*1.5"})"),
              R"({"success":true,"expression":"1234567*1.5","result":1851850.5})");
    EXPECT_EQ(log.lines().back(), "INFO math_calc: result=1851850.500000");
}

}  // namespace
}  // namespace orvanic_xr
