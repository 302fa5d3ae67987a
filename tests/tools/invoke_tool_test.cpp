#include "velmoor/invoke_tool.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/fakes/log_capture.h"
#include "tools/tool_registry.h"

namespace orvanic_xr {
namespace {

class InvokeTool : public testing::Test {
 protected:
    InvokeTool() {
        Register("echo", [](const json& arguments, const std::string&) { return arguments; });
        Register("bytes", [](const json&, const std::string&) { return json("\xfe"); });
        Register("throws", [](const json&, const std::string&) -> json { throw std::runtime_error("broken"); });
    }
    ~InvokeTool() override { InProcessToolRegistry::instance().clear(); }

    static void Register(const std::string& name, ToolHandler handler) {
        mcp::tool tool;
        tool.name = name;
        InProcessToolRegistry::instance().registerTool(tool, std::move(handler));
    }
};

TEST_F(InvokeTool, GivesCodesAndTexts) {
    struct Row {
        const char* tool;
        const char* params;
        std::int32_t code;
        std::string result;
        std::string error;
        const char* log;  // what stands before the error in the log; null if it is not logged
    };
    const std::string too_deep = std::string(257, '[') + std::string(257, ']');
    std::string too_wide = "{\"0\":0";
    std::string too_many = "[0";
    for (int i = 1; i < 200'001; ++i) {
        if (i < 4097) too_wide += ",\"" + std::to_string(i) + "\":0";
        too_many += ",0";
    }
    const std::vector<Row> rows = {
        {"echo", R"({ "a" : [1, 2.5] })", 0, R"({"a":[1,2.5]})", "", nullptr},
        {"echo", nullptr, 0, "{}", "", nullptr},
        {"echo", "[]", 0, "[]", "", nullptr},
        {"bytes", "null", 0, "\"\xEF\xBF\xBD\"", "", nullptr},
        {nullptr, "{}", -1, "", "toolName must not be null", nullptr},
        {"echo", too_deep.c_str(), -1, "",
         "failed to parse params for tool 'echo': JSON is nested deeper than 256 levels", ""},
        {"echo", too_wide.append("}").c_str(), -1, "",
         "failed to parse params for tool 'echo': JSON holds an object of more than 4096 members", ""},
        {"echo", too_many.append("]").c_str(), -1, "",
         "failed to parse params for tool 'echo': JSON holds more than 200000 values", ""},
        {"echo", "nul", -1, "",
         "failed to parse params for tool 'echo': [json.exception.parse_error.101] parse error at line 1, column 4: "
         "syntax error while parsing value - invalid literal; last read: 'nul'",
         ""},
        {"x", "{}", -2, "", "tool 'x' is not registered", "failed to invoke tool 'x': "},
        {"throws", "{}", -2, "", "broken", "failed to invoke tool 'throws': "},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows.data());
        LogCapture log;
        char result[200];
        char error[200];
        EXPECT_EQ(OrvanicXR_InvokeTool(row.tool, row.params, 200, nullptr, result, 200, nullptr, error), row.code);
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(error, row.error);
        std::vector<std::string> lines;
        if (row.log) lines.push_back(std::string("ERROR OrvanicXR_InvokeTool: ") + row.log + row.error);
        EXPECT_EQ(log.take(), lines);
    }
}

// A call that answers [1,2] and one that fails: what is written with each size of buffer.
TEST_F(InvokeTool, WritesIntoBuffersThatFit) {
    Register("list", [](const json&, const std::string&) { return json::array({1, 2}); });
    struct Row {
        const char* tool;
        std::uint32_t result_capacity;
        std::uint32_t error_capacity;
        std::int32_t code;
        std::string result_bytes;  // the first of the buffer, '#' where nothing was written
        std::string error_bytes;
        std::uint32_t result_count;
        std::uint32_t error_count;
    };
    const std::string nothing_written = "#######";
    const std::string empty = std::string(1, '\0') + "######";
    const std::string list = std::string("[1,2]") + '\0' + "#";
    const std::vector<Row> rows = {
        {"list", 0, 0, 0, nothing_written, nothing_written, 6, 1},
        {"list", 6, 1, 0, list, empty, 6, 1},
        {"list", 5, 1, -11, nothing_written, empty, 6, 1},
        {"list", 1, 0, -11, nothing_written, nothing_written, 6, 1},
        {"x", 64, 26, -11, empty, nothing_written, 1, 27},
        {"x", 1, 27, -2, empty, "tool 'x", 1, 27},
        {nullptr, 0, 25, -11, nothing_written, nothing_written, 1, 26},
        {nullptr, 0, 26, -1, nothing_written, "toolNam", 1, 26},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows.data());
        std::string result(64, '#');
        std::string error(64, '#');
        std::uint32_t result_count = 0;
        std::uint32_t error_count = 0;
        EXPECT_EQ(OrvanicXR_InvokeTool(row.tool, "", row.result_capacity, &result_count, result.data(),
                                       row.error_capacity, &error_count, error.data()),
                  row.code);
        EXPECT_EQ(result.substr(0, 7), row.result_bytes);
        EXPECT_EQ(error.substr(0, 7), row.error_bytes);
        EXPECT_EQ(result_count, row.result_count);
        EXPECT_EQ(error_count, row.error_count);
    }
}

}  // namespace
}  // namespace orvanic_xr
