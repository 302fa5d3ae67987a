// Layers as applications describe them, turned into what is composed: all but the image, which somebody has to read.
#pragma once

#include <openxr/openxr.h>

#include <cstddef>
#include <optional>

#include "simulator/renderer/composition.h"

namespace simulator {

struct DescribedLayer {
    // With no image.
    ComposedLayer layer;
    XrSwapchainSubImage image;
};

// Whether layers of this type are composed.
bool IsComposed(XrStructureType layer);

// `space` is where the layer's space is, in world coordinates. Nothing where this eye, 0 or 1, is not to see the layer,
// where its pose is not good, and where it is of another type.
std::optional<DescribedLayer> DescribeLayer(const XrCompositionLayerBaseHeader& header, const XrPosef& space,
                                            std::size_t eye);

}  // namespace simulator
