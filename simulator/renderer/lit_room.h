// The room's faces and the light on them: from a panel under the ceiling, from the lamp, and from all around, with
// soft shadows of the furniture. The room does not change, so this is worked out once and looked up for each picture.
#pragma once

#include <cstddef>
#include <vector>

#include "simulator/renderer/faces.h"
#include "simulator/renderer/vector.h"

namespace simulator {

// The light on one face, sampled in cells.
class LightMap {
 public:
    LightMap(std::size_t columns, std::size_t rows, std::vector<Vec3> cells);

    // Places as shares of the face's width and height, 0 to 1; smooth from the middle of a cell to the next.
    Vec3 At(float u_share, float v_share) const;

 private:
    std::size_t columns_;
    std::size_t rows_;
    std::vector<Vec3> cells_;
};

struct LitRoom {
    explicit LitRoom(const std::vector<Thing>& things);

    std::vector<Face> faces;
    // One for each face.
    std::vector<LightMap> light;
};

}  // namespace simulator
