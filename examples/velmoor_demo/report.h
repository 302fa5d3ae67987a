// What the demo tells its user: a picture of the state once a second, and the moment something is pressed.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "examples/velmoor_demo/controls.h"

namespace demo {

const char* StateName(XrSessionState state);

class Report {
 public:
    // A frame begins that the runtime shows for `period`. One that begins more than half a period late has missed
    // those that were due before it.
    void FrameBegins(XrDuration period);

    // Takes in one frame and prints what is new in it. `head` is empty while the head is not tracked.
    void Frame(const std::optional<XrPosef>& head, const std::array<HandState, 2>& hands);

    // Prints everything if a second went by since it did last. `seconds` count from the demo's start.
    void OnceASecond(double seconds, XrSessionState state);

    // Prints one line at once.
    static void Line(const std::string& text);

 private:
    void PrintChanges(std::size_t hand, const HandState& now) const;

    std::optional<XrPosef> head_;
    std::array<HandState, 2> hands_;
    int frames_ = 0;  // since the last report
    std::int64_t frames_due_ = 0;
    std::int64_t frames_missed_ = 0;
    std::optional<std::chrono::steady_clock::time_point> frame_began_;
    double last_report_ = 0.0;
};

}  // namespace demo
