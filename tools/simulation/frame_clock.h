// The clock of moves and holds. Usually CLOCK_MONOTONIC: a move takes its time, whatever the application shows. With
// ORVANICXR_FRAME_CLOCK=1 the display times of the application's frames: a move takes its frames, however long they
// take, for a runtime whose own time waits. Nanoseconds.
#pragma once

#include <openxr/openxr.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace orvanic_xr {

class FrameClock {
 public:
    static FrameClock& instance();

    // As the environment has it: at the creation of an instance. What waited is forgotten.
    void ReadSwitch();
    bool is_on() const { return is_on_.load(std::memory_order_relaxed); }

    // A time without a frame yet.
    static constexpr std::int64_t kNoFrame = 0;
    // The display time of the newest frame; kNoFrame until there is one.
    std::int64_t now() const { return shown_.load(std::memory_order_relaxed); }
    // Frames so far.
    std::uint64_t frames() const { return frames_.load(std::memory_order_relaxed); }
    // Whether `duration` has passed at `now` since `start`, to the nearest frame. One that begins with no frame begins
    // with the first.
    bool HasPassed(std::int64_t start, std::int64_t duration) const;

    // Once it has passed, `work` is done on the frame thread. It throws nothing. Any thread.
    void After(std::int64_t duration, std::function<void()> work);

    // A frame was released that will be shown at `shown`, for `period`. Frame thread only.
    void Advance(XrTime shown, XrDuration period);

 private:
    struct Hold {
        std::int64_t start;
        std::int64_t duration;
        std::function<void()> work;
    };

    std::atomic<bool> is_on_{false};
    std::atomic<std::int64_t> shown_{kNoFrame};
    std::atomic<std::int64_t> period_{0};
    std::atomic<std::uint64_t> frames_{0};
    std::mutex mutex_;  // guards the holds
    std::vector<Hold> holds_;
};

}  // namespace orvanic_xr
