#include "command/bridge/arguments.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace velmoor {
namespace {

json argument(const json& arguments, const char* name) {
    return arguments.is_object() ? arguments.value(name, json()) : json();
}

// Written so that no limit passes what is no number.
bool lies_in(double value, double least, double most) {
    return value >= least && value <= most;
}

std::string range_text(double least, double most) {
    std::ostringstream text;
    text << "from " << least << " to " << most;
    return text.str();
}

}  // namespace

void refuse_unknown(const json& declaration, const json& arguments) {
    if (!arguments.is_object()) throw std::runtime_error("arguments must be an object");
    const json& known = declaration.at("inputSchema").at("properties");
    for (const auto& [name, value] : arguments.items()) {
        if (known.contains(name) || name == "app" || name == "reason" || name == "sentiment") continue;
        std::string text =
            declaration.at("name").get<std::string>() + " takes no argument \"" + name + "\"; it takes: ";
        for (const auto& [each, schema] : known.items()) text += each + ", ";
        throw std::runtime_error(text + (known.contains("app") ? "reason, sentiment" : "app, reason, sentiment"));
    }
}

double number_argument(const json& arguments, const char* name, double usual, double least, double most) {
    const json given = argument(arguments, name);
    if (given.is_null()) return usual;
    if (given.is_number() && lies_in(given.get<double>(), least, most)) return given.get<double>();
    throw std::runtime_error(std::string(name) + " must be a number " + range_text(least, most));
}

std::string text_argument(const json& arguments, const char* name) {
    const json given = argument(arguments, name);
    if (given.is_null()) return {};
    if (given.is_string()) return given;
    throw std::runtime_error(std::string(name) + " must be a text");
}

std::string choice_argument(const json& arguments, const char* name, const std::vector<std::string>& choices) {
    const json given = argument(arguments, name);
    if (given.is_null()) return choices.front();
    const auto is_given = [&](const std::string& choice) { return given == json(choice); };
    if (std::any_of(choices.begin(), choices.end(), is_given)) return given;
    std::string text = std::string(name) + " must be one of:";
    for (const std::string& each : choices) text += " " + each;
    throw std::runtime_error(text);
}

std::vector<double> numbers_argument(const json& arguments, const char* name, std::size_t count, double least,
                                     double most) {
    const json given = argument(arguments, name);
    if (given.is_null()) return {};
    const auto fits = [&](const json& each) { return each.is_number() && lies_in(each.get<double>(), least, most); };
    if (given.is_array() && given.size() == count && std::all_of(given.begin(), given.end(), fits)) return given;
    throw std::runtime_error(std::string(name) + " must be " + std::to_string(count) + " numbers " +
                             range_text(least, most));
}

json object_argument(const json& arguments, const char* name) {
    json given = argument(arguments, name);
    if (given.is_null()) return json::object();
    if (given.is_object()) return given;
    throw std::runtime_error(std::string(name) + " must be an object");
}

json app_of(const json& arguments) {
    const json app = argument(arguments, "app");
    return app.is_null() ? json::object() : json{{"app", app}};
}

std::string app_name(const json& arguments) {
    const json app = argument(arguments, "app");
    if (app.is_null()) return {};
    return app.is_string() ? app.get<std::string>() : mcp::dump_json(app);
}

json property(const char* type, const char* description) {
    return {{"type", type}, {"description", description}};
}

json choice_property(const std::vector<std::string>& choices, const char* description) {
    return {{"type", "string"}, {"enum", choices}, {"description", description}};
}

json numbers_property(std::size_t count, const char* description) {
    return {{"type", "array"},
            {"items", {{"type", "number"}}},
            {"minItems", count},
            {"maxItems", count},
            {"description", description}};
}

json own_declaration(const char* name, const char* description, json properties, bool is_read_only,
                     const std::vector<std::string>& required) {
    properties["app"] = property("string", "Name or pid of the application, where several run");
    json schema{{"type", "object"}, {"properties", std::move(properties)}};
    if (!required.empty()) schema["required"] = required;
    return {{"name", name},
            {"description", description},
            {"inputSchema", std::move(schema)},
            {"annotations", {{"readOnlyHint", is_read_only}}}};
}

}  // namespace velmoor
