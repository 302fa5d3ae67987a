// What a tool answers: a `content` array with one text item. Refusals are answers too, mostly beginning
// "Error: "; a tool that throws is the server's business.
#pragma once

#include <string>

#include "mcp/json.h"

namespace orvanic_xr {

using mcp::json;

json make_text_tool_result(const std::string& text);

// Why a tool does not do what it was asked to: what the log says, and what the agent reads.
struct Refusal {
    std::string log;
    std::string answer;
};

// Logs "<tool>: <log>" as an error and answers "Error: <answer>": a refusal as one statement. The second form says
// the same to both.
json refuse(const std::string& tool_name, const Refusal& refusal);
json refuse(const std::string& tool_name, const std::string& message);

// `value`, rounded to 4 decimals and dumped with an indent of 2, as the item's text.
json make_json_tool_result(json value);

// Rounds every finite floating-point number inside `value` to `decimals` decimals, half away from zero, and
// turns negative zero into 0.0. Integers, texts and non-finite numbers stay.
void round_json_numbers(json& value, int decimals);

}  // namespace orvanic_xr
