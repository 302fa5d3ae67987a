// An image as light: what colour it has at a place, in premultiplied linear light.
#pragma once

#include <openxr/openxr.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

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

// Between levels of sRGB and linear light, both ways without loss.
class Levels {
 public:
    // Worked out at the first call. Not for every pixel: each call asks whether it is the first.
    static const Levels& Shared();

    float LinearOf(std::uint8_t level) const { return linear_[level]; }
    std::uint8_t LevelOf(float light) const {
        // What is no number comes out as black.
        const float within = light > 0.0f ? std::min(light, 1.0f) : 0.0f;
        return level_[static_cast<std::size_t>(static_cast<std::int32_t>(within * (kSteps - 1)))];
    }

 private:
    // Fine enough that each of the 256 levels comes back as it was.
    static constexpr std::int32_t kSteps = 1 << 14;

    Levels();

    std::array<float, 256> linear_;
    std::array<std::uint8_t, kSteps> level_;
};

// A rectangle of an image, which has to outlive it. Rows count from the top, however the image is stored.
class Texture {
 public:
    Texture(const RawImage& image, const XrRect2Di& rect, bool has_alpha, bool is_premultiplied);

    std::int32_t width() const { return width_; }
    std::int32_t height() const { return height_; }

    Light At(std::int32_t x, std::int32_t y) const;
    // The pixels of a row, as far as `row` goes, each over what is there.
    void PutRowOver(std::int32_t y, std::span<Light> row) const;
    // Between the middles of pixels, which are at 0.5; beyond the outermost ones, these.
    Light Between(float x, float y) const;

    // A pixel as it is stored in half floats.
    struct Halves {
        Light light;
    };

 private:
    const std::uint8_t* PixelAt(std::int32_t x, std::int32_t y) const;
    // Ready to be blended.
    Light Decoded(const Light& bytes) const;
    Light Decoded(const Halves& halves) const;
    Light Blended(Light light) const;

    const Levels& levels_ = Levels::Shared();
    const RawImage& image_;
    std::int32_t left_;
    std::int32_t top_;
    std::int32_t width_;
    std::int32_t height_;
    bool has_alpha_;
    bool is_premultiplied_;
};

}  // namespace simulator
