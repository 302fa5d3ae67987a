#include "command/testing/check.h"

#include <algorithm>
#include <cmath>
#include <regex>

namespace velmoor {
namespace {

constexpr std::size_t kShown = 300;
// The library's matching recurses with the text's length.
constexpr std::size_t kMostMatched = 10000;

bool is_near(const json& value, const value_check& check, const json& expected) {
    if (expected.is_number()) {
        if (!value.is_number()) return false;
        const double wanted = expected.get<double>();
        const double far = std::abs(value.get<double>() - wanted);
        return far <= check.absolute || far <= check.relative * std::abs(wanted);
    }
    if (!expected.is_structured() || expected.type() != value.type() || expected.size() != value.size()) {
        return expected == value;
    }
    if (expected.is_array()) {
        for (std::size_t i = 0; i < expected.size(); ++i) {
            if (!is_near(value[i], check, expected[i])) return false;
        }
        return true;
    }
    return std::all_of(expected.items().begin(), expected.items().end(), [&](const auto& each) {
        return value.contains(each.key()) && is_near(value[each.key()], check, each.value());
    });
}

bool has_part(const json& value, const json& expected) {
    if (value.is_string() && expected.is_string()) {
        return value.get_ref<const std::string&>().find(expected.get_ref<const std::string&>()) != std::string::npos;
    }
    return value.is_array() && std::find(value.begin(), value.end(), expected) != value.end();
}

bool has_match(const json& value, const json& expected) {
    const std::string text = value.is_string() ? value.get<std::string>() : mcp::dump_json(value);
    return std::regex_search(text.substr(0, kMostMatched), std::regex(expected.get<std::string>()));
}

std::string shown(const json& value) {
    std::string text = mcp::dump_json(value);
    if (text.size() > kShown) text = text.substr(0, kShown) + "...";
    return text;
}

std::string shown_expectation(const value_check& check) {
    switch (check.kind) {
        case check_kind::near:
            return "near " + shown(check.expected) + " (absolute " + shown(check.absolute) + ", relative " +
                   shown(check.relative) + ")";
        case check_kind::contains:
            return "something with " + shown(check.expected) + " in it";
        case check_kind::matches:
            return "a match of " + shown(check.expected);
        default:
            return shown(check.expected);
    }
}

}  // namespace

std::optional<std::string> fault_of(const value_check& check, const std::string& answer) {
    json value = answer;
    bool is_there = true;
    if (check.path != "text") {
        is_there = false;
        try {
            const json whole = mcp::parse_json(answer);
            const json::json_pointer pointer(check.path);
            is_there = whole.is_structured() && whole.contains(pointer);
            if (is_there) value = whole[pointer];
        } catch (const std::exception&) {
            is_there = false;
        }
    }
    if (check.kind == check_kind::absent) {
        return is_there ? std::optional(check.path + " is " + shown(value) + ", and should be absent") : std::nullopt;
    }
    if (!is_there) {
        return check.path + " is absent, and should be " + shown_expectation(check) + "; the answer is " +
               shown(answer);
    }
    bool holds = false;
    if (check.kind == check_kind::equal) holds = value == check.expected;
    if (check.kind == check_kind::near) holds = is_near(value, check, check.expected);
    if (check.kind == check_kind::contains) holds = has_part(value, check.expected);
    if (check.kind == check_kind::matches) holds = has_match(value, check.expected);
    if (holds) return std::nullopt;
    return check.path + " is " + shown(value) + ", and should be " + shown_expectation(check);
}

}  // namespace velmoor
