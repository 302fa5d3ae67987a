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

}  // namespace

json tool_run::call(const std::string& tool, json arguments) {
    pending_call pending(
        through_,
        {.name = tool, .arguments = std::move(arguments), .done = nullptr, .report = nullptr, .is_inner = true});
    std::optional<json> outcome;
    while (!(outcome = pending.wait_for(kBetweenLooks))) {
        if (!is_cancelled()) continue;
        pending.cancel("the tool that called was cancelled");
        throw cancelled();
    }
    if (const auto error = outcome->find("error"); error != outcome->end()) {
        throw std::runtime_error("Error: " + error->value("message", "the call failed"));
    }
    json result = std::move((*outcome)["result"]);
    if (result.is_object() && result.value("isError", false)) throw std::runtime_error(mcp::text_of(result));
    return result;
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
