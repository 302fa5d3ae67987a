#include "command/bridge/own_tool.h"

#include <optional>
#include <stdexcept>
#include <utility>

#include "command/bridge/bridge.h"
#include "command/bridge/pending_call.h"
#include "mcp/client/blocking_client.h"

namespace velmoor {
namespace {

// Whether the run was cancelled, while it waits for an answer.
constexpr std::chrono::milliseconds kBetweenLooks{20};

// Throws what a failure says.
json result_in(json outcome) {
    if (const auto error = outcome.find("error"); error != outcome.end()) {
        throw std::runtime_error("Error: " + error->value("message", "the call failed"));
    }
    json result = std::move(outcome["result"]);
    if (result.is_object() && result.value("isError", false)) throw std::runtime_error(mcp::text_of(result));
    return result;
}

}  // namespace

json tool_run::call(const std::string& tool, json arguments) {
    return call_all({{tool, std::move(arguments)}}).front();
}

std::vector<json> tool_run::call_all(const std::vector<planned_call>& calls) {
    std::vector<pending_call> pending;
    pending.reserve(calls.size());
    for (const auto& [tool, arguments] : calls) {
        pending.emplace_back(
            through_,
            tool_call{.name = tool, .arguments = arguments, .done = nullptr, .report = nullptr, .is_inner = true});
    }
    std::vector<json> outcomes;
    while (outcomes.size() < pending.size()) {
        if (auto outcome = pending[outcomes.size()].wait_for(kBetweenLooks)) {
            outcomes.push_back(std::move(*outcome));
        } else if (is_cancelled()) {
            for (std::size_t i = outcomes.size(); i < pending.size(); ++i) {
                pending[i].cancel("the tool that called was cancelled");
            }
            throw cancelled();
        }
    }
    for (json& each : outcomes) each = result_in(std::move(each));
    return outcomes;
}

json tool_run::ask(const std::string& tool, json arguments) try {
    return mcp::parse_json(mcp::text_of(call(tool, std::move(arguments))));
} catch (const std::runtime_error&) {
    return nullptr;
} catch (const json::exception&) {
    return nullptr;
}

void tool_run::tell(const std::string& message) {
    if (report_) report_({{"progress", ++steps_}, {"message", message}});
}

void tool_run::wait_for(std::chrono::milliseconds time) {
    std::unique_lock lock(mutex_);
    if (changed_.wait_for(lock, time, [this] { return is_cancelled_; })) throw cancelled();
}

void tool_run::wait_for_frame(std::chrono::milliseconds time) {
    wait_for(through_.let_frame_pass() ? std::chrono::milliseconds(0) : time);
}

bool tool_run::is_cancelled() {
    const std::lock_guard lock(mutex_);
    return is_cancelled_;
}

void tool_run::cancel() {
    const std::lock_guard lock(mutex_);
    is_cancelled_ = true;
    changed_.notify_all();
}

}  // namespace velmoor
