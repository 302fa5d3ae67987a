// The world as flat rectangles, each seen from one side only: from outside the room one looks in through the walls.
#pragma once

#include <vector>

#include "simulator/renderer/furniture.h"
#include "simulator/renderer/vector.h"
#include "simulator/world.h"

namespace simulator {

struct Face {
    Vec3 PointAt(float u, float v) const { return corner + right * u + up * v; }

    Vec3 corner;
    // Of length 1; seen from where the face can be seen, `up` is to the left of `right`.
    Vec3 right;
    Vec3 up;
    Vec3 normal;
    // Metres along `right` and `up`.
    float width = 0.0f;
    float height = 0.0f;
    Vec3 colour;
    Material material = Material::kPlain;
};

// The surface of a wall and the like, or the six sides of each part of a body.
std::vector<Face> FacesOf(const Thing& thing);
// Grip, head and trigger, and the ray that it points with.
std::vector<Face> FacesOf(const ControllerView& controller, bool is_left);

}  // namespace simulator
