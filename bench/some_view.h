// What there is to see in the simulator's room, for benchmarks that draw it.
#pragma once

#include "simulator/room.h"
#include "simulator/world.h"

namespace orvanic_xr {

inline simulator::WorldView SomeView() {
    simulator::WorldView world;
    for (const simulator::Thing& thing : simulator::Furnish(simulator::SceneMode::kFurnished)) {
        if (thing.surface || thing.body) world.things.push_back(thing);
    }
    const XrPosef head = {{-0.113f, -0.466f, -0.060f, 0.875f}, {0.0f, 1.6f, 0.5f}};
    const simulator::EyeView eye = {head, {-0.7854f, 0.7854f, 0.7854f, -0.7854f}};
    world.eyes = {eye, eye};
    world.controllers[0].grip = world.controllers[0].aim = XrPosef{{0, 0, 0, 1}, {0.2f, 1.2f, 0.3f}};
    return world;
}

}  // namespace orvanic_xr
