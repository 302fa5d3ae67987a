// The room that the wearer stands in: a box around the STAGE space, furnished, always the same. Things that
// have a surface alone are walls and the like; the others have a body, a surface on top, or both.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/settings.h"
#include "xr/spatial_entity_ks.h"

namespace simulator {

// Metres along x, z and y; the middle of the floor is the origin of the STAGE space.
inline constexpr float kRoomWidth = 5.0f;
inline constexpr float kRoomDepth = 4.0f;
inline constexpr float kRoomHeight = 2.6f;

struct Colour {
    std::uint8_t red;
    std::uint8_t green;
    std::uint8_t blue;
};

struct Thing {
    bool IsContainer() const { return !contents.empty(); }

    XrUuidEXT uuid = {};
    // Empty for what nobody named.
    std::string label;
    // In world coordinates; +z points away from the surface, into the room.
    XrPosef pose = {{0, 0, 0, 1}, {0, 0, 0}};
    // In the x-y plane of the pose, and in its axes.
    std::optional<XrRect2Df> surface;
    std::optional<XrRect3DfKS> body;
    Colour colour = {};
    // Of a container, which has no shape of its own: what lies in it.
    std::vector<XrUuidEXT> contents;
};

std::vector<Thing> Furnish(SceneMode mode);

}  // namespace simulator
