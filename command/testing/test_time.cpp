#include "command/testing/test_time.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <thread>
#include <utility>

#include "command/applications/proc.h"
#include "command/bridge/pending_call.h"
#include "command/launch/simulator_link.h"

namespace velmoor {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kBetweenLooks{20};
// Longer than the pauses of a thread that polls.
constexpr milliseconds kRest{2};
// An application that never rests gets its frames all the same, and two runs of it may differ.
constexpr milliseconds kLongestUnrest{200};
// Frames may take long to be drawn.
constexpr double kMostRealSeconds = 60;
constexpr double kUsualPeriod = 1.0 / 72;
// The looks come less often as it goes on: frames between two of them, as a part of those that have passed.
constexpr std::uint64_t kThinning = 8;

test_time::clock::duration duration_of(double seconds) {
    return std::chrono::duration_cast<test_time::clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

// The answer of whoever has ended its work before the application came to rest arrives before the second one to us.
std::optional<mcp::json> test_time::outcome_of(pending_call& call, milliseconds limit) const {
    const auto deadline = clock::now() + limit;
    for (;;) {
        if (auto outcome = call.wait_for(kRest)) return outcome;
        if (clock::now() >= deadline) return std::nullopt;
        ask_();  // the call has arrived before that
        const auto unrest_ends = clock::now() + kLongestUnrest;
        while (!is_at_rest() && clock::now() < unrest_ends) continue;
        ask_();
        if (auto outcome = call.wait_for(milliseconds(0))) return outcome;
        simulator_->let_frames_pass();
    }
}

bool test_time::is_at_rest() const {
    const pid_t process = process_();
    const auto before = switches_asleep(process);
    std::this_thread::sleep_for(kRest);
    return before && before == switches_asleep(process);
}

double test_time::period_seconds() const try {
    return simulator_->ask({{"do", "state"}}, [] {}).value("period", kUsualPeriod * 1e9) / 1e9;
} catch (const std::runtime_error&) {
    return kUsualPeriod;
}

test_time::span::span(const test_time& time, double seconds)
    : time_(time),
      real_end_(clock::now() + duration_of(time.stands() ? std::max(seconds, kMostRealSeconds) : seconds)) {
    if (time.stands()) frames_left_ = static_cast<std::uint64_t>(std::ceil(seconds / time.period_seconds()));
}

bool test_time::span::is_over() const {
    return (time_.stands() && frames_left_ == 0) || clock::now() >= real_end_;
}

void test_time::span::pass() {
    const std::uint64_t frames = std::min(frames_left_, std::max<std::uint64_t>(1, frames_passed_ / kThinning));
    if (!time_.stands() || !time_.simulator_->let_frames_pass(frames)) {
        std::this_thread::sleep_for(kBetweenLooks);
        return;
    }
    frames_left_ -= frames;
    frames_passed_ += frames;
}

}  // namespace velmoor
