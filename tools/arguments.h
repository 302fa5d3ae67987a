// How tools look at their arguments: a key of the wrong kind mostly counts as not given, and that is said once.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

#include "mcp/json.h"

namespace orvanic_xr {

// The argument of that name, or null if it is absent or the arguments are no object.
inline const mcp::json* find_argument(const mcp::json& arguments, const char* name) {
    if (!arguments.is_object()) return nullptr;
    const auto found = arguments.find(name);
    return found == arguments.end() ? nullptr : &*found;
}

// A string argument, or `fallback` if it is absent or of another kind.
inline std::string string_argument(const mcp::json& arguments, const char* name, std::string fallback) {
    const mcp::json* value = find_argument(arguments, name);
    return value && value->is_string() ? value->get<std::string>() : std::move(fallback);
}

// A flag counts only if it is the boolean true.
inline bool flag_argument(const mcp::json& arguments, const char* name) {
    const mcp::json* value = find_argument(arguments, name);
    return value && value->is_boolean() && value->get<bool>();
}

// An array argument of that length, or null if it is absent, of another kind or of another length.
inline const mcp::json* array_argument(const mcp::json& arguments, const char* name, std::size_t length) {
    const mcp::json* value = find_argument(arguments, name);
    return value && value->is_array() && value->size() == length ? value : nullptr;
}

inline bool all_numbers(const mcp::json& array) {
    return std::all_of(array.begin(), array.end(), [](const mcp::json& element) { return element.is_number(); });
}

}  // namespace orvanic_xr
