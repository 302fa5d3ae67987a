// What the environment asks of the simulator, read once for each instance.
//
//   VELMOOR_SIM_HZ     frames a second, 1 to 1000; 72 when unset or no number
//   VELMOOR_SIM_SEED   whole number that the head's sway depends on; 0 when unset
//   VELMOOR_SIM_SCENE  what is wrong with the room, by the names below; nothing when unset
#pragma once

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

struct Settings {
    double frames_per_second = 72.0;
    std::uint32_t seed = 0;
    SceneMode scene = SceneMode::kFurnished;
};

Settings ReadSettings();

}  // namespace simulator
