// What colour a place on a face is: the paint on it, and the light that falls there.
#pragma once

#include "simulator/renderer/faces.h"
#include "simulator/renderer/lit_room.h"
#include "simulator/renderer/projection.h"

namespace simulator {

// In linear light, 1 being what a white wall gives back under a bright lamp. `light` is null for what moves.
Vec3 ColourOf(const Face& face, const LightMap* light, const Projection::Meeting& place);

// Where nothing is: outside the room.
Vec3 SkyColour(const Vec3& direction);

}  // namespace simulator
