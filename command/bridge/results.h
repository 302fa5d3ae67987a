// What becomes of an application's answer on its way to the client.
#pragma once

#include <string>

#include "mcp/client/call_ledger.h"
#include "mcp/json.h"

namespace velmoor {

using mcp::json;

// The result of a tool that says `text`.
json text_result(const std::string& text, bool is_error);

// An outcome for tool_call::done of that result.
json outcome_of(json result);

// Whether it is an error, or a result that says that it is one.
bool is_failure(const json& outcome);

// An application's answer as an outcome. The layer's own tools tell of a failure in their text: there `isError` is set.
// Nothing else is changed.
json passed_on(json&& message, const std::string& tool);

// In place of an answer that did not come from the application `label`.
json unanswered(const mcp::call_result& end, const std::string& label);

}  // namespace velmoor
