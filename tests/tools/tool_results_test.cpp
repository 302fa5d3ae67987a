#include "tools/tool_results.h"

#include <gmock/gmock.h>

#include <limits>
#include <vector>

#include "tests/fakes/log_capture.h"

namespace orvanic_xr {
namespace {

TEST(RoundJsonNumbers, RoundsHalvesAwayFromZeroAndKeepsWhatHasNoDecimals) {
    const double infinity = std::numeric_limits<double>::infinity();
    struct Row {
        const char* name;
        json value;
        const char* dump;
    };
    const std::vector<Row> rows = {
        {"half", 0.12345, "0.1235"},
        {"negative half", -0.12345, "-0.1235"},
        {"negative number that vanishes", -0.00001, "0.0"},
        {"negative zero", -0.0, "0.0"},
        {"largest double", 1.7976931348623157e308, "1.7976931348623157e+308"},
        {"scaled beyond a double", -1e305, "-1e+305"},
        {"integer", 1234567890123456789, "1234567890123456789"},
        {"infinity, which JSON lacks", infinity, "null"},
        {"inside of arrays and objects",
         {{"a", {0.00005, {{"b", -2.71828}}}}, {"c", 1}},
         R"({"a":[0.0001,{"b":-2.7183}],"c":1})"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        json value = row.value;
        round_json_numbers(value, 4);
        EXPECT_EQ(mcp::dump_json(value), row.dump);
    }
}

TEST(ToolResult, OfJsonIsItsIndentedText) {
    const json content = make_json_tool_result({{"z", 1.00004}, {"a", {1, "\xff"}}});
    EXPECT_EQ(mcp::dump_json(content), R"([{"type":"text","text":"{\n  \"z\": 1.0,\n  \"a\": [\n    1,\n    \")"
                                       "\xEF\xBF\xBD"
                                       R"(\"\n  ]\n}"}])");
}

TEST(ToolResult, OfARefusalIsLoggedUnderTheToolsName) {
    LogCapture log;
    EXPECT_EQ(mcp::dump_json(refuse("some_tool", Refusal{.log = "for the log", .answer = "for the agent."})),
              R"([{"type":"text","text":"Error: for the agent."}])");
    EXPECT_THAT(log.take(), testing::ElementsAre("ERROR some_tool: for the log"));
}

}  // namespace
}  // namespace orvanic_xr
