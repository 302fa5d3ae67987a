// The simulated world at one moment, for whoever wants to draw it: a copy in world coordinates (those of the
// STAGE space: metres, y up, the floor at 0), so that it can be looked at with no lock held.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <optional>
#include <vector>

#include "simulator/room.h"
#include "simulator/views.h"

namespace simulator {

struct Session;

struct ControllerView {
    bool IsPresent() const { return grip || aim; }

    // Either may be known alone.
    std::optional<XrPosef> grip;
    std::optional<XrPosef> aim;
    // 0 at rest to 1.
    float trigger = 0.0f;
};

struct WorldView {
    // Left and right; none while the head is nowhere.
    std::optional<std::array<EyeView, 2>> eyes;
    std::array<ControllerView, 2> controllers;
    // Everything in the room that has a surface or a body.
    std::vector<Thing> things;
};

// Needs the runtime's mutex.
WorldView LookAtWorld(const Session& session, XrTime time);

}  // namespace simulator
