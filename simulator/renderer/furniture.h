// What the things of the room look like: each has a few solid parts that fill the box which the scene tells of.
#pragma once

#include <vector>

#include "simulator/renderer/vector.h"
#include "simulator/room.h"

namespace simulator {

enum class Material : std::uint8_t {
    kPlain,
    kFloor,
    kWall,
    // Lies in light of its own.
    kGlowing,
};

// A box with a corner and three edges that stand on each other.
struct Box {
    Vec3 corner;
    Vec3 axes[3];
    float size[3] = {};
};

struct Solid {
    Box box;
    Vec3 colour;
    Material material;
};

Box BoxAt(const XrPosef& pose, const Vec3& offset, const Vec3& size);
Vec3 LinearColour(const Colour& colour);

// Of a thing that has a body.
std::vector<Solid> SolidsOf(const Thing& thing);

}  // namespace simulator
