// Arguments of the bridge's own tools. One that is not as declared throws std::runtime_error, with a text that says
// what it has to be. One that is null counts as not given.
#pragma once

#include <string>
#include <vector>

#include "mcp/json.h"

namespace velmoor {

using mcp::json;

// Throws where there is one that the tool's declaration has no property for, or they are no object. What goes with any
// tool is always taken.
void refuse_unknown(const json& declaration, const json& arguments);

double number_argument(const json& arguments, const char* name, double usual, double least, double most);
// Empty if it is not given.
std::string text_argument(const json& arguments, const char* name);
// The first of the choices if it is not given.
std::string choice_argument(const json& arguments, const char* name, const std::vector<std::string>& choices);
// Such a list of numbers; empty if it is not given.
std::vector<double> numbers_argument(const json& arguments, const char* name, std::size_t count, double least,
                                     double most);

// Empty object if it is not given.
json object_argument(const json& arguments, const char* name);

// What names the application, for calls that a tool makes: `app` or nothing.
json app_of(const json& arguments);
// Its text; empty if it is not given.
std::string app_name(const json& arguments);

// Of a declaration.
json property(const char* type, const char* description);
json choice_property(const std::vector<std::string>& choices, const char* description);
json numbers_property(std::size_t count, const char* description);
// With `app` beside `properties`.
json own_declaration(const char* name, const char* description, json properties, bool is_read_only,
                     const std::vector<std::string>& required = {});

}  // namespace velmoor
