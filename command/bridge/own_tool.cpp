#include "command/bridge/own_tool.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "command/bridge/arguments.h"
#include "command/bridge/bridge.h"
#include "command/bridge/pending_call.h"
#include "command/bridge/results.h"
#include "mcp/client/blocking_client.h"

namespace velmoor {
namespace {

// Whether the run was cancelled, while it waits for an answer.
constexpr std::chrono::milliseconds kBetweenLooks{20};

// Where that many calls do not come together by then, their frames begin one after the other.
constexpr std::chrono::milliseconds kGathering{500};
constexpr std::chrono::milliseconds kBetweenCounts{1};

// Of an application that is held: calls that are begun at the same time find the same first frame.
class gathering {
 public:
    gathering(bridge& through, std::size_t calls) : through_(through), calls_(calls) {
        const auto wanted = calls > 1 ? through.gather(true) : std::nullopt;
        is_on_ = wanted.has_value();
        before_ = wanted.value_or(0);
    }
    ~gathering() { let_go(); }
    gathering(const gathering&) = delete;
    gathering& operator=(const gathering&) = delete;

    // Until all of them have been answered, or need frames.
    void await(const std::vector<pending_call>& pending) {
        if (!is_on_) return;
        const auto deadline = std::chrono::steady_clock::now() + kGathering;
        while (std::chrono::steady_clock::now() < deadline) {
            const auto is_answered = [](const pending_call& each) { return each.is_answered(); };
            const auto answered = std::count_if(pending.begin(), pending.end(), is_answered);
            const auto wanted = through_.gather(true);
            if (!wanted || *wanted + static_cast<std::size_t>(answered) >= before_ + calls_) break;
            std::this_thread::sleep_for(kBetweenCounts);
        }
        let_go();
    }

 private:
    void let_go() {
        if (std::exchange(is_on_, false)) through_.gather(false);
    }

    bridge& through_;
    const std::size_t calls_;
    bool is_on_ = false;
    std::uint64_t before_ = 0;
};

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

std::vector<json> tool_run::call_all(const std::vector<planned_call>& calls, const std::function<bool()>& can_answer) {
    gathering frames(through_, calls.size());
    std::vector<pending_call> pending;
    pending.reserve(calls.size());
    for (const auto& [tool, arguments] : calls) {
        pending.emplace_back(through_, tool_call{.name = tool,
                                                 .arguments = arguments,
                                                 .done = nullptr,
                                                 .report = nullptr,
                                                 .is_inner = true,
                                                 .process = process_});
    }
    frames.await(pending);
    std::vector<json> outcomes;
    while (outcomes.size() < pending.size()) {
        if (auto outcome = pending[outcomes.size()].wait_for(kBetweenLooks)) {
            outcomes.push_back(std::move(*outcome));
            continue;
        }
        const bool is_lost = can_answer && !can_answer();
        if (!is_lost && !is_cancelled()) continue;
        for (std::size_t i = outcomes.size(); i < pending.size(); ++i) {
            pending[i].cancel("the tool that called waits no more");
        }
        if (is_lost) throw std::runtime_error("Error: nobody is left to answer");
        throw cancelled();
    }
    for (json& each : outcomes) {
        if (is_failure(each)) look_for_application();
        each = result_in(std::move(each));
    }
    return outcomes;
}

void tool_run::stay_with(const json& arguments) {
    if (process_ != 0) return;  // the tool that called does
    try {
        call("openxr_get_session_info", app_of(arguments));
        stay_with_if_there(arguments);
    } catch (const std::runtime_error&) {
        // One that is there may have no session yet.
        stay_with_if_there(arguments);
        if (process_ == 0) throw;
    }
}

void tool_run::stay_with_if_there(const json& arguments) {
    if (process_ == 0) process_ = through_.process_for(app_name(arguments));
}

void tool_run::look_for_application() {
    if (process_ == 0 || through_.has_process(process_)) return;
    throw application_gone("the application (pid " + std::to_string(process_) +
                           ") is gone: it has ended, or has destroyed its OpenXR instance");
}

json tool_run::ask(const std::string& tool, json arguments) {
    return ask_while(nullptr, tool, std::move(arguments));
}

json tool_run::ask_while(const std::function<bool()>& can_answer, const std::string& tool, json arguments) try {
    return mcp::parse_json(mcp::text_of(call_all({{tool, std::move(arguments)}}, can_answer).front()));
} catch (const application_gone&) {
    throw;
} catch (const std::runtime_error&) {
    return nullptr;
} catch (const json::exception&) {
    return nullptr;
}

void tool_run::tell(const std::string& message) {
    if (report_) report_({{"progress", ++steps_}, {"message", message}});
}

void tool_run::wait_for(std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    do {
        look_for_application();
        const auto left = end - std::chrono::steady_clock::now();
        std::unique_lock lock(mutex_);
        if (changed_.wait_for(lock, std::min<std::chrono::nanoseconds>(left, kBetweenLooks),
                              [this] { return is_cancelled_; })) {
            throw cancelled();
        }
    } while (std::chrono::steady_clock::now() < end);
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
