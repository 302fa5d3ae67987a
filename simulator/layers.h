// The layers that an application submits with a frame: whether they are good, and what an eye sees of them.
#pragma once

#include <openxr/openxr.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "simulator/graphics/graphics.h"
#include "simulator/renderer/composition.h"

namespace simulator {

class Runtime;
struct Session;

// A layer whose image has yet to be read.
struct PlannedLayer {
    ComposedLayer layer;
    std::shared_ptr<ImageSet> images;
    std::uint32_t image = 0;
    std::uint32_t array_layer = 0;
};

// All need the runtime's mutex. Throws what xrEndFrame answers. Allocates nothing.
void CheckLayers(const Runtime& runtime, const std::shared_ptr<Session>& session, const XrFrameEndInfo& info);

// Of checked layers those that this eye, 0 or 1, is to see; layers in spaces that are nowhere are not.
std::vector<PlannedLayer> LayersFor(const Runtime& runtime, const XrFrameEndInfo& info, std::size_t eye);

}  // namespace simulator
