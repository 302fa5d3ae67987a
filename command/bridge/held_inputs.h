// What calls have pressed in applications and not let go of, and which poses they have set. Any thread.
#pragma once

#include <sys/types.h>

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "mcp/json.h"

namespace velmoor {

using mcp::json;

class held_inputs {
 public:
    // A call that the application `process` has run, or may have run.
    void note(pid_t process, const std::string& tool, const json& arguments);

    struct of_process {
        std::vector<json> releases;   // arguments of openxr_set_controller_input, each of which lets go of one
        std::set<std::string> posed;  // such as "head" and "left grip"
    };
    std::map<pid_t, of_process> all() const;
    void forget(pid_t process);

 private:
    mutable std::mutex mutex_;  // processes_
    std::map<pid_t, of_process> processes_;
};

}  // namespace velmoor
