// The game's own tools for agents, offered where the layer is on.
#pragma once

#include <openxr/openxr.h>

#include "examples/velmoor_demo/game.h"

namespace demo {

// Registers the tools with the layer's extension. `game` must outlive the instance. The number of tools that were
// registered: 0 where the instance has no such function.
int RegisterGameTools(XrInstance instance, Game& game);

}  // namespace demo
