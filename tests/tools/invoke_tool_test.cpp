#include "velmoor/invoke_tool.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/fakes/log_capture.h"
#include "tools/tool_registry.h"

extern "C" std::int32_t invoke_tool_from_c(PFN_OrvanicXR_InvokeTool invoke, char* result, std::uint32_t capacity);

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A text as it comes back through the C boundary, with untouched bytes behind it.
struct OutText {
    explicit OutText(std::uint32_t room) : capacity(room), bytes(64, '#') {}
    std::uint32_t capacity;
    std::uint32_t count = 0;
    std::string bytes;

    std::string text() const { return bytes.substr(0, bytes.find_first_of('#')); }
};

class InvokeTool : public testing::Test {
 protected:
    InvokeTool() {
        Register("echo", [this](const json& arguments, const std::string&) {
            ++runs_;
            return arguments;
        });
        Register("throws", [](const json&, const std::string&) -> json { throw std::runtime_error("broken"); });
    }
    ~InvokeTool() override { InProcessToolRegistry::instance().clear(); }

    static void Register(const std::string& name, ToolHandler handler) {
        mcp::tool tool;
        tool.name = name;
        InProcessToolRegistry::instance().registerTool(tool, std::move(handler));
    }

    int runs_ = 0;
};

TEST_F(InvokeTool, GivesCodesAndTexts) {
    struct Row {
        const char* tool;
        const char* params;
        std::int32_t code;
        std::string result;
        std::string error;
        std::vector<std::string> log = {};
    };
    const std::string too_deep = std::string(257, '[') + std::string(257, ']');
    const std::vector<Row> rows = {
        {"echo", R"({ "a" : [1, 2.5] })", 0, R"({"a":[1,2.5]})", ""},
        {"echo", nullptr, 0, "{}", ""},
        {"echo", "", 0, "{}", ""},
        {"echo", "[]", 0, "[]", ""},
        {"echo", "null", 0, "null", ""},
        {nullptr, "{}", -1, "", "toolName must not be null"},
        {"echo",
         too_deep.c_str(),
         -1,
         "",
         "failed to parse params for tool 'echo': JSON is nested deeper than 256 levels",
         {"ERROR OrvanicXR_InvokeTool: failed to parse params for tool 'echo': JSON is nested deeper than 256 levels"}},
        {"x",
         "{}",
         -2,
         "",
         "tool 'x' is not registered",
         {"ERROR OrvanicXR_InvokeTool: failed to invoke tool 'x': tool 'x' is not registered"}},
        {"",
         "{}",
         -2,
         "",
         "tool '' is not registered",
         {"ERROR OrvanicXR_InvokeTool: failed to invoke tool '': tool '' is not registered"}},
        {"throws", "{}", -2, "", "broken", {"ERROR OrvanicXR_InvokeTool: failed to invoke tool 'throws': broken"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.tool ? row.tool : "null") + " " + (row.params ? row.params : "null"));
        LogCapture log;
        std::string result(200, '#');
        std::string error(200, '#');
        std::uint32_t result_size = 0;
        std::uint32_t error_size = 0;
        EXPECT_EQ(OrvanicXR_InvokeTool(row.tool, row.params, 200, &result_size, result.data(), 200, &error_size,
                                       error.data()),
                  row.code);
        EXPECT_EQ(result.substr(0, result_size), row.result + '\0');
        EXPECT_EQ(error.substr(0, error_size), row.error + '\0');
        EXPECT_EQ(log.take(), row.log);
    }
}

TEST_F(InvokeTool, RefusesParamsThatDoNotParse) {
    for (const char* params : {"{", "1 2", "nul", "{\"a\":1,}", "\xff", "[1e999]", "'a'"}) {
        SCOPED_TRACE(params);
        std::string error(1000, '#');
        EXPECT_EQ(OrvanicXR_InvokeTool("echo", params, 0, nullptr, nullptr, 1000, nullptr, error.data()), -1);
        EXPECT_THAT(error, HasSubstr("failed to parse params for tool 'echo': [json.exception."));
    }
    EXPECT_EQ(runs_, 0);
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
    const std::string nothing_written = "######";
    const std::vector<Row> rows = {
        {"list", 0, 0, 0, nothing_written, nothing_written, 6, 1},
        {"list", 6, 1, 0, std::string("[1,2]") + '\0', std::string(1, '\0') + "#####", 6, 1},
        {"list", 5, 1, -11, nothing_written, std::string(1, '\0') + "#####", 6, 1},
        {"list", 1, 0, -11, nothing_written, nothing_written, 6, 1},
        {"x", 64, 26, -11, std::string(1, '\0') + "#####", nothing_written, 1, 27},
        {"x", 1, 27, -2, std::string(1, '\0') + "#####", "tool '", 1, 27},
        {nullptr, 0, 25, -11, nothing_written, nothing_written, 1, 26},
        {nullptr, 0, 26, -1, nothing_written, "toolNa", 1, 26},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.tool ? row.tool : "null") + " " + std::to_string(row.result_capacity) + " " +
                     std::to_string(row.error_capacity));
        OutText result(row.result_capacity);
        OutText error(row.error_capacity);
        EXPECT_EQ(OrvanicXR_InvokeTool(row.tool, "", result.capacity, &result.count, result.bytes.data(),
                                       error.capacity, &error.count, error.bytes.data()),
                  row.code);
        EXPECT_EQ(result.bytes.substr(0, 6), row.result_bytes);
        EXPECT_EQ(error.bytes.substr(0, 6), row.error_bytes);
        EXPECT_EQ(result.count, row.result_count);
        EXPECT_EQ(error.count, row.error_count);
    }
}

TEST_F(InvokeTool, TakesNullForBuffersAndCounts) {
    EXPECT_EQ(OrvanicXR_InvokeTool("echo", "", 1, nullptr, nullptr, 1, nullptr, nullptr), 0);
    EXPECT_EQ(OrvanicXR_InvokeTool("x", "", 1, nullptr, nullptr, 1, nullptr, nullptr), -2);
    EXPECT_EQ(OrvanicXR_InvokeTool(nullptr, nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr), -1);
}

TEST_F(InvokeTool, RunsTheToolForItsSizeToo) {
    std::uint32_t size = 0;
    EXPECT_EQ(OrvanicXR_InvokeTool("echo", "", 0, &size, nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(OrvanicXR_InvokeTool("echo", "", 0, &size, nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(runs_, 2);
}

TEST_F(InvokeTool, ReplacesBytesThatAreNoText) {
    Register("bytes", [](const json&, const std::string&) { return json("\xfe"); });
    char result[16];
    EXPECT_EQ(OrvanicXR_InvokeTool("bytes", "", 16, nullptr, result, 0, nullptr, nullptr), 0);
    EXPECT_STREQ(result, "\"\xEF\xBF\xBD\"");
}

TEST_F(InvokeTool, CanBeCalledFromC) {
    char result[64];
    EXPECT_EQ(invoke_tool_from_c(&OrvanicXR_InvokeTool, result, sizeof result), 0);
    EXPECT_STREQ(result, R"({"from":"C"})");
}

}  // namespace
}  // namespace orvanic_xr
