// An ordinary OpenXR application: it draws a small game over the room, and says once a second where head and hands are
// and what is pressed.
//
//   velmoor_demo [--headless] [--seconds N] [--fault colour|pose|score]
//
// It draws with OpenGL ES by EGL, with no window. --headless draws nothing, as the demo also does where there is no
// EGL. It ends after N seconds, on SIGINT or SIGTERM, or when the runtime or somebody else asks the session to exit.
// --fault has it do something wrong, to try whether a test of it fails: cubes are purple, hands are drawn too high, or
// a score counts one too many. The exit code is 0 when it ended as asked, 1 when OpenXR failed, 2 when the command line
// is wrong.
#include <atomic>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <string_view>

#include "examples/velmoor_demo/application.h"

namespace {

std::atomic<bool> g_stop = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

void StopOnSignal(int) {
    g_stop = true;
}

std::optional<double> PositiveNumber(std::string_view text) {
    double number = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || !(number > 0.0)) return std::nullopt;
    return number;
}

std::optional<demo::Fault> FaultNamed(std::string_view name) {
    if (name == "colour") return demo::Fault::kColour;
    if (name == "pose") return demo::Fault::kPose;
    if (name == "score") return demo::Fault::kScore;
    return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
    std::optional<double> seconds;
    bool headless = false;
    demo::Fault fault = demo::Fault::kNone;
    bool is_good = true;
    for (int i = 1; i < argc && is_good; ++i) {
        const std::string_view option = argv[i];
        if (option == "--headless") {
            headless = true;
        } else if (option == "--fault") {
            const auto named = i + 1 < argc ? FaultNamed(argv[++i]) : std::nullopt;
            is_good = named.has_value();
            fault = named.value_or(fault);
        } else {
            if (option == "--seconds" && i + 1 < argc) seconds = PositiveNumber(argv[++i]);
            is_good = seconds.has_value();
        }
    }
    if (!is_good) {
        std::fprintf(stderr, "usage: velmoor_demo [--headless] [--seconds N] [--fault colour|pose|score]\n");
        return 2;
    }
    std::signal(SIGINT, StopOnSignal);
    std::signal(SIGTERM, StopOnSignal);
    try {
        demo::Application application(headless, fault);
        application.Run(seconds, g_stop);
        demo::Report::Line("Goodbye");
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "velmoor_demo: %s\n", error.what());
        return 1;
    }
}
