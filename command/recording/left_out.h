// What of an answer differs from one run to the next, told by names and by looks: nobody can expect it of another run.
// Pure.
#pragma once

#include <string>
#include <string_view>

#include "mcp/json.h"

namespace velmoor {

using mcp::json;

// `key` names a time, a duration, a count of frames, a handle, a number of the system's, or what has happened by then.
bool is_named_as_fleeting(std::string_view key);

// `value` is a text that looks like a handle, or like a date.
bool looks_fleeting(const json& value);

}  // namespace velmoor
