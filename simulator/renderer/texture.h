// An image as light: what colour it has at a place, in premultiplied linear light.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>

#include "simulator/graphics/raw_image.h"

namespace simulator {

struct Light {
    float red = 0.0f;
    float green = 0.0f;
    float blue = 0.0f;
    float alpha = 0.0f;
};

constexpr Light operator+(const Light& a, const Light& b) {
    return {a.red + b.red, a.green + b.green, a.blue + b.blue, a.alpha + b.alpha};
}
constexpr Light operator*(const Light& light, float factor) {
    return {light.red * factor, light.green * factor, light.blue * factor, light.alpha * factor};
}
// `over` on top of `under`.
constexpr Light Over(const Light& over, const Light& under) {
    return over + under * (1.0f - over.alpha);
}

// Between a level of sRGB and linear light, both ways without loss.
float LinearOf(std::uint8_t level);
std::uint8_t LevelOf(float light);

// A rectangle of an image, which has to outlive it. Rows count from the top, however the image is stored.
class Texture {
 public:
    Texture(const RawImage& image, const XrRect2Di& rect, bool has_alpha, bool is_premultiplied);

    std::int32_t width() const { return width_; }
    std::int32_t height() const { return height_; }

    Light At(std::int32_t x, std::int32_t y) const;
    // Between the middles of pixels, which are at 0.5; beyond the outermost ones, these.
    Light Between(float x, float y) const;

 private:
    const RawImage& image_;
    std::int32_t left_;
    std::int32_t top_;
    std::int32_t width_;
    std::int32_t height_;
    bool has_alpha_;
    bool is_premultiplied_;
};

}  // namespace simulator
