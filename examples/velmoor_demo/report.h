// What the demo tells its user: a picture of the state once a second, and the moment something is pressed.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <optional>
#include <string>

#include "examples/velmoor_demo/controls.h"

namespace demo {

const char* StateName(XrSessionState state);

class Report {
 public:
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
    int frames_ = 0;
    double last_report_ = 0.0;
};

}  // namespace demo
