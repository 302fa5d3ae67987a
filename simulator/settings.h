// What the environment asks of the simulator, read once for each instance.
//
//   VELMOOR_SIM_HZ         frames a second, 1 to 1000; 72 when unset or no number
//   VELMOOR_SIM_SEED       whole number that the head's sway depends on; 0 when unset
//   VELMOOR_SIM_SCENE      what is wrong with the room, by the names below; nothing when unset
//   VELMOOR_SIM_EYE_SIZE   "<width>x<height>" of a captured picture, and of the images that an
//                          application is told to draw; in pixels, each 1 to 16384; 1024x1024 when unset
//                          or of another form
//   VELMOOR_SIM_CAPTURE    what is wrong with captures, by the names below; nothing when unset
//   VELMOOR_SIM_STRICT     "1": a call with a destroyed handle, or with one whose parent was destroyed, ends the
//   process
//                          with a line on standard error that names function and handle; refused when unset
#pragma once

#include <algorithm>
#include <cstdint>

namespace simulator {

enum class SceneMode : std::uint8_t {
    kFurnished,
    // "none": the things are there, but in no container.
    kNone,
    // "failed_status": asking for a locatable thing ends in an event that tells of a failure.
    kFailedStatus,
    // "never_locatable": asking for a locatable thing is never answered.
    kNeverLocatable,
    // "long_label": the couch has a label of over 4,000 characters.
    kLongLabel,
    // "many_containers": 130 of them, all but one holding a crate each.
    kManyContainers,
    // "foreign_event": each query also brings events of another session.
    kForeignEvent,
};

enum class CaptureMode : std::uint8_t {
    kTruthful,
    // "no_size": 0 by 0.
    kNoSize,
    // "too_large": 16385 by 1.
    kTooLarge,
    // "growing": the call for the pixels tells twice the width and height that the call for the size told, and writes
    // as many pixels as that one told.
    kGrowing,
};

struct Settings {
    struct EyeSize {
        std::uint32_t width;
        std::uint32_t height;
    };

    // That a swapchain may have: what any device can do, and more if a picture is to be larger.
    EyeSize LargestImage() const { return {std::max(eye_size.width, 4096u), std::max(eye_size.height, 4096u)}; }

    double frames_per_second = 72.0;
    std::uint32_t seed = 0;
    SceneMode scene = SceneMode::kFurnished;
    EyeSize eye_size = {1024, 1024};
    CaptureMode capture = CaptureMode::kTruthful;
    bool strict = false;
};

Settings ReadSettings();

}  // namespace simulator
