#include <gmock/gmock.h>

#include <string>
#include <utility>

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

TEST(MathCalc, AnswersAValueByteForByte) {
    LogCapture log;
    EXPECT_EQ(AnswerText(make_math_calc_tool_entry, R"({"expression": " 1 / 3 "})"),
              "{\n"
              "  \"success\": true,\n"
              "  \"expression\": \" 1 / 3 \",\n"
              "  \"result\": 0.3333\n"
              "}");
    EXPECT_THAT(log.take(), ElementsAre("INFO math_calc tool called", "INFO math_calc: expression= 1 / 3 ",
                                        "INFO math_calc: result=0.333333"));
}

TEST(MathCalc, AnswersAFailureAsAnObject) {
    LogCapture log;
    EXPECT_EQ(AnswerText(make_math_calc_tool_entry, R"({"expression": "1/0"})"),
              "{\n"
              "  \"success\": false,\n"
              "  \"expression\": \"1/0\",\n"
              "  \"error\": \"Division by zero\"\n"
              "}");
    EXPECT_THAT(log.take(), ElementsAre("INFO math_calc tool called", "INFO math_calc: expression=1/0",
                                        "ERROR math_calc: error: Division by zero"));
}

TEST(MathCalc, RefusesAnExpressionThatIsNoText) {
    for (const char* arguments : {R"({"expression": 5})", R"({"expression": null})", "{}", "[]", "\"1+1\"", "null"}) {
        SCOPED_TRACE(arguments);
        LogCapture log;
        EXPECT_EQ(Calc(arguments), "Error: Missing or invalid 'expression' parameter. Must be a string.");
        EXPECT_THAT(log.take(), ElementsAre("INFO math_calc tool called",
                                            "ERROR math_calc: Missing or invalid 'expression' parameter"));
    }
}

TEST(MathCalc, RoundsWhatItAnswers) {
    const std::pair<std::string, std::string> rows[] = {
        {"0.00001", "0.0"},  {"-0.00001", "0.0"},   {"-0", "0.0"},        {"2 + 3*4", "14.0"},
        {"-1/3", "-0.3333"}, {"10**300", "1e+300"}, {"sqrt(-1)", "null"}, {"log(0)", "null"},
    };
    for (const auto& [expression, result] : rows) {
        EXPECT_EQ(Calc("{\"expression\":\"" + expression + "\"}"),
                  "{\"success\":true,\"expression\":\"" + expression + "\",\"result\":" + result + "}");
    }
}

// The first byte of a longer character is no text of its own.
TEST(MathCalc, AnswersAStrayByteWithTheReplacementCharacter) {
    EXPECT_EQ(Calc(R"({"expression":"2*é"})"),
              R"({"success":false,"expression":"2*é","error":"Unexpected character: �"})");
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
