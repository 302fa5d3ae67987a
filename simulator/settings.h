// What the environment asks of the simulator, read once for each instance.
//
//   VELMOOR_SIM_HZ         frames a second, 1 to 1000; 72 when unset or no number
//   VELMOOR_SIM_CLOCK      "fixed": each frame moves the clock on by one period, and goes by as soon as the application
//                          waits for it; "stepped": likewise, and held from the start, for a controller to let it
//                          go on; "real" when unset or anything else
//   VELMOOR_SIM_CONTROL    path of a socket at which a controller steers the simulator; none when unset
//   VELMOOR_SIM_SEED       whole number that the head's sway depends on; 0 when unset
//   VELMOOR_SIM_SCENE      "none": the things of the room are in no container, so that nobody finds them
//   VELMOOR_SIM_EYE_SIZE   "<width>x<height>" of a captured picture, and of the images that an
//                          application is told to draw; in pixels, each 1 to 16384; 1024x1024 when unset
//                          or of another form
//   VELMOOR_SIM_WITHOUT    words with commas between: "automation" leaves out the extensions by which devices are
//                          simulated, "capture" the one for pictures, as other runtimes lack them
//   VELMOOR_SIM_STRICT     "1": a call with a destroyed handle, or with one whose parent was destroyed, ends
//                          the process with a line on standard error that names function and handle; refused
//                          when unset
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "simulator/clock.h"

namespace simulator {

enum class SceneMode : std::uint8_t {
    kFurnished,
    kNone,
};

struct Settings {
    struct EyeSize {
        std::uint32_t width;
        std::uint32_t height;
    };

    // That a swapchain may have: what any device can do, and more if a picture is to be larger.
    EyeSize LargestImage() const { return {std::max(eye_size.width, 4096u), std::max(eye_size.height, 4096u)}; }

    double frames_per_second = 72.0;
    ClockMode clock = ClockMode::kReal;
    std::string control;
    std::uint32_t seed = 0;
    SceneMode scene = SceneMode::kFurnished;
    EyeSize eye_size = {1024, 1024};
    bool without_automation = false;
    bool without_capture = false;
    bool strict = false;
};

Settings ReadSettings();

}  // namespace simulator
