// A tool's answer as a test compares it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mcp/json.h"
#include "tests/fakes/log_capture.h"
#include "tools/tool_entry.h"

namespace orvanic_xr {

// The text of the one content item.
inline std::string AnswerText(ToolEntry (*make)(), const std::string& arguments) {
    const mcp::json content = make().handler(mcp::parse_json(arguments), "");
    EXPECT_EQ(content.size(), 1u);
    EXPECT_EQ(content.at(0).at("type"), "text");
    return content.at(0).at("text").get<std::string>();
}

// The same on one line, if it is an object.
inline std::string Answer(ToolEntry (*make)(), const std::string& arguments) {
    const std::string text = AnswerText(make, arguments);
    return text.starts_with("{") ? mcp::dump_json(mcp::parse_json(text)) : text;
}

// A call, and its answer: an object on one line, or what stands behind "Error: ".
struct ToolRow {
    ToolEntry (*make)();
    std::string arguments;
    std::string answer;
    std::string error_line = {};  // behind "<tool>: "; empty if the refusal is not logged
};

inline void ExpectAnswers(const std::vector<ToolRow>& rows) {
    for (const ToolRow& row : rows) {
        SCOPED_TRACE(row.make().tool.name + " " + row.arguments);
        EXPECT_EQ(Answer(row.make, row.arguments), row.answer);
    }
}

// Also that the log tells of the call, then of the refusal, and of nothing else.
inline void ExpectRefusals(const std::vector<ToolRow>& rows) {
    for (const ToolRow& row : rows) {
        const std::string name = row.make().tool.name;
        SCOPED_TRACE(name + " " + row.arguments);
        LogCapture log;
        EXPECT_EQ(AnswerText(row.make, row.arguments), "Error: " + row.answer);
        std::vector<std::string> lines = {"INFO " + name + " tool called"};
        if (!row.error_line.empty()) lines.push_back("ERROR " + name + ": " + row.error_line);
        EXPECT_EQ(log.take(), lines);
    }
}

}  // namespace orvanic_xr
