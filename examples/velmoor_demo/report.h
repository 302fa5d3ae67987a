// What the demo tells its user: the whole state once a second, and at once what is pressed, what has moved to
// another place, and what happens in the game.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "examples/velmoor_demo/controls.h"
#include "examples/velmoor_demo/game.h"

namespace demo {

const char* StateName(XrSessionState state);

// Notices when something has come to rest at another place. A head that sways stays where it is.
class Mover {
 public:
    // Takes in one frame. True if the news are to be told.
    bool Take(const std::optional<XrPosef>& pose);

 private:
    std::optional<XrPosef> before_;
    std::optional<XrPosef> told_;
    int still_frames_ = 0;
};

class Report {
 public:
    // A frame begins that the runtime will show at `shown`, for `period`. Those are missed that would have been shown
    // between the one before and this one.
    void FrameBegins(XrTime shown, XrDuration period);

    // Take in one frame and print what is new in it. `head` is empty while the head is not tracked.
    void Frame(const std::optional<XrPosef>& head, const std::array<HandState, 2>& hands);
    void Play(const Game::Standing& standing);

    // Prints everything if a second went by since it did last. `seconds` count from the first frame.
    void OnceASecond(double seconds, XrSessionState state);

    // Prints one line at once.
    static void Line(const std::string& text);

 private:
    void PrintChanges(std::size_t hand, const HandState& now) const;

    std::optional<XrPosef> head_;
    std::array<HandState, 2> hands_;
    Mover head_mover_;
    std::array<Mover, 2> hand_movers_;
    Game::Standing standing_;
    int frames_ = 0;  // since the last report
    std::int64_t frames_due_ = 0;
    std::int64_t frames_missed_ = 0;
    std::optional<XrTime> frame_before_;  // when it is shown
    // Of the report before; of the first frame until there is one.
    std::optional<double> last_report_;
};

}  // namespace demo
