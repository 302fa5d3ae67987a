#include "command/bridge/results.h"

#include <utility>

#include "command/bridge/tool_list.h"

namespace velmoor {
namespace {

bool tells_of_failure(const json& result) {
    const auto content = result.find("content");
    if (content == result.end() || !content->is_array() || content->empty()) return false;
    const json& first = content->front();
    if (!first.is_object() || first.value("type", json()) != "text") return false;
    const auto text = first.find("text");
    return text != first.end() && text->is_string() && text->get_ref<const std::string&>().starts_with("Error:");
}

}  // namespace

json text_result(const std::string& text, bool is_error) {
    return {{"content", json::array({{{"type", "text"}, {"text", text}}})}, {"isError", is_error}};
}

json outcome_of(json result) {
    json outcome = json::object();
    outcome["result"] = std::move(result);
    return outcome;
}

bool is_failure(const json& outcome) {
    const auto result = outcome.find("result");
    return result == outcome.end() || (result->is_object() && result->value("isError", json()) == true);
}

json passed_on(json&& message, const std::string& tool) {
    json outcome = json::object();
    if (const auto error = message.find("error"); error != message.end()) {
        outcome["error"] = std::move(*error);
        return outcome;
    }
    json result = std::move(message["result"]);
    if (is_builtin(tool) && result.is_object() && tells_of_failure(result)) result["isError"] = true;
    return outcome_of(std::move(result));
}

json unanswered(const mcp::call_result& end, const std::string& label) {
    const auto error = [&](const std::string& text) { return outcome_of(text_result("Error: " + text, true)); };
    switch (end.how) {
        case mcp::call_end::not_sent:
            return error("The call was not run: " + label + " could not be reached (" + end.why + ").");
        case mcp::call_end::refused:
            return error("The call was not run: " + label + " did not take it (" + end.why + ").");
        case mcp::call_end::timed_out:
            return error(label + " did not answer in time. The outcome is unknown; the call was not repeated.");
        case mcp::call_end::cancelled:
            return error("The call was cancelled.");
        default:
            return error(label + " went away while the call ran (" + end.why +
                         "). The outcome is unknown; the call was not repeated.");
    }
}

}  // namespace velmoor
