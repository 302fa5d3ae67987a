// Tools of the bridge's own: each call runs on a thread of its own, and may wait.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
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
    // Of the application that the run stays with.
    struct application_gone : std::runtime_error {
        using std::runtime_error::runtime_error;
    };

    // With a `process`, as after stay_with().
    tool_run(bridge& through, std::function<void(json&&)> report, pid_t process = 0)
        : through_(through), report_(std::move(report)), process_(process) {}

    bridge& through() { return through_; }

    // Waits for the application that `arguments` name. From then on all calls go to that process; they, and what waits
    // here, throw application_gone as soon as it is gone.
    void stay_with(const json& arguments);
    // Likewise, where it is there already.
    void stay_with_if_there(const json& arguments);
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
    void look_for_application();

    bridge& through_;
    const std::function<void(json&&)> report_;
    pid_t process_;  // that it stays with; 0 if none
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
