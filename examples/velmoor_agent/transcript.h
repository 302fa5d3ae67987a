// How the agent shows a conversation to a person.
#pragma once

#include <iosfwd>
#include <set>
#include <string>

#include "examples/velmoor_agent/mcp_client.h"

namespace agent {

// `value` over as few lines of at most `width` columns as its structure allows: what fits stays on one line.
std::string FitJson(const json& value, std::size_t width);

// The tool's text as JSON, or as one JSON string where it is no JSON.
json ParseAnswer(const ToolAnswer& answer);

void PrintTools(std::ostream& out, const std::set<std::string>& names);
void PrintCall(std::ostream& out, const std::string& tool, const json& arguments);
// Long answers are cut, and say so.
void PrintAnswer(std::ostream& out, const ToolAnswer& answer);

}  // namespace agent
