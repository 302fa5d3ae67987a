// Lays what an application submitted over each other, as an eye sees it. In linear light, on one thread, nothing kept.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "simulator/graphics/raw_image.h"
#include "simulator/renderer/eye_view.h"

namespace simulator {

enum class LayerShape : std::uint8_t { kProjection, kQuad, kCylinder, kEquirect };

struct ComposedLayer {
    LayerShape shape = LayerShape::kProjection;
    // Covers by its alpha; covers all that it reaches otherwise.
    bool has_alpha = false;
    bool is_premultiplied = true;
    std::shared_ptr<const RawImage> image;
    // Within the image. The rectangle's own first row counts from where the image's does.
    XrRect2Di rect = {};
    // In world coordinates: where the picture was drawn from, or where the surface stands.
    XrPosef pose = {{0, 0, 0, 1}, {0, 0, 0}};
    // Of a projection.
    XrFovf fov = {};
    // Of a quad; metres.
    XrExtent2Df size = {};
    // Of the other two; 0 and infinity stand for a surface at infinity.
    float radius = 0.0f;
    // Radians; those of an equirect, of which a cylinder has the first.
    float horizontal_angle = 0.0f;
    float upper_angle = 0.0f;
    float lower_angle = 0.0f;
    // Of a cylinder: its width by its height.
    float aspect_ratio = 1.0f;
};

// The first layer lies lowest. `pixels` holds the world behind the layers where the mode lets it be seen, and the whole
// picture afterwards: width times height times 4 bytes, RGBA, sRGB, opaque, first row at the top.
void Compose(const std::vector<ComposedLayer>& layers, const EyeView& eye, XrEnvironmentBlendMode mode,
             std::uint32_t width, std::uint32_t height, std::uint8_t* pixels);

}  // namespace simulator
