#include "tests/soak/tool_calls.h"

#include <algorithm>
#include <cstddef>

namespace soak {
namespace {

constexpr double kWrong = 0.05;

// What a parameter takes is told to people, in its description; here for a machine, by its name.
const json& Vocabulary() {
    static const json& words = *new json{
        {"hand", {"left", "right"}},
        {"eye", {"left", "right"}},
        {"pose_type", {"grip", "aim"}},
        {"base_space", {"local", "stage", "local_floor", "view"}},
        {"source_space", {"local", "stage", "local_floor", "view"}},
        {"target_space", {"local", "stage", "local_floor", "view"}},
        {"component", {"A", "B", "X", "Y", "Menu", "System", "Trigger", "Grip", "Thumbstick", "ThumbstickClick"}},
        {"sub_component", {"X", "Y"}},
        {"expression", {"sqrt(3**2+4**2)*2-1", "2 + 3 * 4", "1 / 0", "((((1", "sin(pi / 2)"}},
        {"weather", {"sun", "rain", "snow"}},
        {"condition", {"weather_settled", "score_is_good", "cube_is_there"}},
        {"color", {"white", "red", "gr\u00fcn"}},
        {"sentiment", {"positive", "neutral", "negative"}},
    };
    return words;
}

// A tool of the application that tells of no shape is given this.
const json& Steps() {
    static const json& steps = *new json{
        {{"at_ms", 0}, {"action", "add_score"}, {"amount", 1}},
        {{"at_ms", 100}, {"action", "set_weather"}, {"weather", "rain"}},
        {{"at_ms", 150}, {"action", "add_score"}},
    };
    return steps;
}

const json& WrongValues() {
    static const json& values = *new json{nullptr,
                                          true,
                                          -1,
                                          0.25,
                                          "",
                                          "no such thing",
                                          json::array(),
                                          json::object(),
                                          {{"nested", {1, {2, {3}}}}},
                                          {1, "two", nullptr},
                                          std::string(5000, 'x')};
    return values;
}

bool IsDuration(const std::string& name) {
    return name.find("duration") != std::string::npos || name.find("timeout") != std::string::npos;
}

}  // namespace

ToolCalls::ToolCalls(const json& tools, unsigned seed) : random_(seed) {
    for (const json& tool : tools) {
        if (tool.at("name") != "openxr_exit_session") tools_.push_back(tool);
    }
}

bool ToolCalls::Happens(double probability) {
    return std::bernoulli_distribution(probability)(random_);
}

double ToolCalls::Number(double lowest, double highest) {
    return std::uniform_real_distribution(lowest, highest)(random_);
}

const json& ToolCalls::OneOf(const json& choices) {
    return choices.at(std::uniform_int_distribution<std::size_t>(0, choices.size() - 1)(random_));
}

Call ToolCalls::Next() {
    if (Happens(0.02)) return {"tools/list", json::object()};
    if (Happens(0.02)) return {"ping", nullptr};
    if (Happens(0.01)) return {"no/such", json::array()};
    if (Happens(0.01)) return {"tools/call", {{"name", "no_such"}}};
    const json& tool = tools_[std::uniform_int_distribution<std::size_t>(0, tools_.size() - 1)(random_)];
    const std::string name = tool.at("name");
    if (Happens(0.01)) return {"tools/call", {{"name", name}, {"arguments", "{\"cut\": "}}};
    return {"tools/call", {{"name", name}, {"arguments", ArgumentsFor(tool.at("inputSchema"))}}};
}

json ToolCalls::ArgumentsFor(const json& schema) {
    json arguments = json::object();
    const json required = schema.value("required", json::array());
    const json properties = schema.value("properties", json::object());
    for (const auto& [name, property] : properties.items()) {
        const bool is_required = std::find(required.begin(), required.end(), name) != required.end();
        // Without a duration some tools take their own time.
        if (!IsDuration(name) && Happens(is_required ? kWrong / 2 : 0.5)) continue;
        arguments[name] = Happens(kWrong) ? OneOf(WrongValues()) : ValueFor(name, property);
    }
    return arguments;
}

json ToolCalls::ValueFor(const std::string& name, const json& schema) {
    for (const char* choice : {"oneOf", "anyOf"}) {
        if (schema.contains(choice)) return ValueFor(name, OneOf(schema.at(choice)));
    }
    if (Vocabulary().contains(name)) return OneOf(Vocabulary().at(name));
    const std::string type = schema.value("type", "string");
    // A session that there isn't is an argument like others, but most calls are to find theirs.
    if (name == "session_handle") return Happens(kWrong) ? json(12345) : json(nullptr);
    if (type == "number" || type == "integer") {
        // Whoever moves something holds a worker of the server for as long.
        if (IsDuration(name)) return Happens(0.7) ? 0.0 : Number(0.0, 0.5);
        return Number(-2.0, 2.0);
    }
    if (type == "boolean") return Happens(0.5);
    if (type == "array") return ArrayFor(name, schema);
    if (type == "object") return ArgumentsFor(schema);
    return "because it is there";
}

json ToolCalls::ArrayFor(const std::string& name, const json& schema) {
    const json item = schema.value("items", json::object());
    if (item.value("type", "") == "object") return Steps();
    json array = json::array();
    const int count = schema.value("minItems", 3) + (Happens(kWrong) ? 1 : 0);
    for (int i = 0; i < count; ++i) array.push_back(ValueFor(name, item));
    return array;
}

}  // namespace soak
