// What is expected of a value in an answer. Pure.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "mcp/json.h"

namespace velmoor {

using mcp::json;

enum class check_kind { equal, near, contains, absent, matches };

struct value_check {
    std::string path;  // a JSON pointer into the answer; "text" for the whole of its text
    check_kind kind = check_kind::equal;
    json expected;
    double absolute = 0.001;  // of near: either may hold
    double relative = 0;
};

// What is wrong, with both values; nothing if it holds.
std::optional<std::string> fault_of(const value_check& check, const std::string& answer);

}  // namespace velmoor
