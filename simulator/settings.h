// What the environment asks of the simulator, read once for each instance.
//
//   VELMOOR_SIM_HZ     frames a second, 1 to 1000; 72 when unset or no number
//   VELMOOR_SIM_SEED   whole number that the head's sway depends on; 0 when unset
#pragma once

#include <cstdint>

namespace simulator {

struct Settings {
    double frames_per_second = 72.0;
    std::uint32_t seed = 0;
};

Settings ReadSettings();

}  // namespace simulator
