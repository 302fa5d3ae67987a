// What there is to see of the demo: everything is made of boxes. Metres in the stage.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <vector>

#include "examples/velmoor_demo/controls.h"
#include "examples/velmoor_demo/game.h"

namespace demo {

// As the graphics device takes them, one after the other.
struct Box {
    XrVector3f middle;
    XrQuaternionf turn;
    XrVector3f size;
    // Of light; what glows is not shaded.
    XrVector3f colour;
    float glow;
};

// `seconds` move what falls.
std::vector<Box> MakeScene(const Game::Standing& standing, const std::vector<Cube>& cubes,
                           const std::array<HandState, 2>& hands, double seconds);

}  // namespace demo
