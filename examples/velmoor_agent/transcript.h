// How the agent shows a conversation to a person: what it asked, what was answered, and what the application saw of it.
#pragma once

#include <iosfwd>
#include <set>
#include <string>

#include "examples/velmoor_agent/tool_call.h"

namespace agent {

// `value` over as few lines of at most `width` columns as its structure allows: what fits stays on one line.
std::string FitJson(const json& value, std::size_t width);

// The tool's text as JSON, or as one JSON string where it is no JSON.
json ParseAnswer(const ToolAnswer& answer);

class Transcript {
 public:
    // With `colours` for a terminal. Without, the lines are the same and nothing but their text.
    Transcript(std::ostream& out, bool colours) : out_(out), colours_(colours) {}

    void Say(const std::string& text);
    // The same, set apart from what went before.
    void Heading(const std::string& text);
    void Tools(const std::set<std::string>& names);
    void Call(const std::string& tool, const json& arguments);
    // Long answers are cut, and say so.
    void Answer(const ToolAnswer& answer);
    void Remark(const std::string& text);
    void Failure(const std::string& text);
    // A line of the application's own.
    void Application(const std::string& line);

 private:
    void Lines(const char* colour, const char* sign, const std::string& text);

    std::ostream& out_;
    bool colours_;
};

}  // namespace agent
