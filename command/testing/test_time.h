// How time goes on in a test. By itself; or, where the simulator's clock stands, frame by frame as the test needs them,
// so that two runs see the same frames however long a call takes.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "mcp/json.h"

namespace velmoor {

class pending_call;
class simulator_link;

inline std::chrono::milliseconds from_seconds(double seconds) {
    return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

class test_time {
 public:
    using clock = std::chrono::steady_clock;

    // `simulator` is null where time goes on by itself. `process` is the application's, and `ask` asks it for anything
    // that needs no frame, and comes back with the answer.
    test_time(simulator_link* simulator, std::function<pid_t()> process, std::function<void()> ask)
        : simulator_(simulator), process_(std::move(process)), ask_(std::move(ask)) {}

    bool stands() const { return simulator_ != nullptr; }

    // The outcome of a call of a tool of the application's own, which gets the frames that it waits for; nothing if it
    // takes longer than `limit`.
    std::optional<mcp::json> outcome_of(pending_call& call, std::chrono::milliseconds limit) const;

    // A while in which something is looked at again and again.
    class span {
     public:
        span(const test_time& time, double seconds);
        bool is_over() const;
        // Until the next look.
        void pass();

     private:
        const test_time& time_;
        const clock::time_point real_end_;
        std::uint64_t frames_left_ = 0;
        std::uint64_t frames_passed_ = 0;
    };

 private:
    bool is_at_rest() const;
    double period_seconds() const;

    simulator_link* const simulator_;
    const std::function<pid_t()> process_;
    const std::function<void()> ask_;
};

}  // namespace velmoor
