// Tools of the bridge's own: each call runs on a thread of its own, and may wait.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "command/bridge/tool_source.h"

namespace velmoor {

class bridge;

struct planned_call {
    std::string tool;
    json arguments;
};

// One call while it runs. Ends early, with `cancelled` thrown, once nobody waits for its answer any more.
class tool_run {
 public:
    struct cancelled {};

    tool_run(bridge& through, std::function<void(json&&)> report) : through_(through), report_(std::move(report)) {}

    bridge& through() { return through_; }

    // Calls a tool of an application, and gives its result. Throws std::runtime_error with the error's text, also where
    // the result says that it is one.
    json call(const std::string& tool, json arguments);
    // Several at the same time, begun in that order. Throws of the first that failed, once all have ended; or as soon
    // as `can_answer` gives false.
    std::vector<json> call_all(const std::vector<planned_call>& calls,
                               const std::function<bool()>& can_answer = nullptr);
    // The JSON that such a tool answers with; null if it refuses, or answers with something else.
    json ask(const std::string& tool, json arguments);
    // Likewise, and null as soon as `can_answer` gives false: a call waits for an application else.
    json ask_while(const std::function<bool()>& can_answer, const std::string& tool, json arguments);
    // Tells the caller what is waited for.
    void tell(const std::string& message);
    void wait_for(std::chrono::milliseconds time);
    // Likewise, and an application that is held gets one frame in its place.
    void wait_for_frame(std::chrono::milliseconds time);

    void cancel();  // any thread

 private:
    bool is_cancelled();

    bridge& through_;
    const std::function<void(json&&)> report_;
    int steps_ = 0;

    std::mutex mutex_;  // all below
    std::condition_variable changed_;
    bool is_cancelled_ = false;
};

struct own_tool {
    json declaration;
    // Gives the result: `content`, and perhaps `isError`. What it throws becomes the text of an error.
    std::function<json(const json& arguments, tool_run& run)> handler;
};

}  // namespace velmoor
