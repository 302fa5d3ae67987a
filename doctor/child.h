// Runs foreign code, such as a runtime's, in a process of its own: what crashes or hangs there is a finding, and does
// not end the doctor.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace orvanic_xr {

struct ChildOutcome {
    std::string output;      // what `work` wrote, up to its end whatever that was
    std::string complaints;  // what the foreign code printed on standard error
    std::string accident;    // "crashed with signal 11", or "gave no answer in 10 seconds"; empty if all went well
};

// `work` writes to the descriptor that it is given. To be called while the process has one thread.
ChildOutcome RunInChild(const std::function<void(int output)>& work, std::chrono::seconds limit);

}  // namespace orvanic_xr
