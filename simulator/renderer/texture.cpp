#include "simulator/renderer/texture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace simulator {
namespace {

// Fine enough that each of the 256 levels comes back as it was.
constexpr std::size_t kSteps = 1 << 14;

struct Levels {
    Levels() {
        for (std::size_t i = 0; i < linear.size(); ++i) {
            const double shown = static_cast<double>(i) / 255.0;
            linear[i] = static_cast<float>(shown <= 0.04045 ? shown / 12.92 : std::pow((shown + 0.055) / 1.055, 2.4));
        }
        for (std::size_t i = 0; i < level.size(); ++i) {
            // In the middle of the step.
            const double light = std::min((static_cast<double>(i) + 0.5) / (kSteps - 1), 1.0);
            const double shown = light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
            level[i] = static_cast<std::uint8_t>(std::lround(255.0 * shown));
        }
    }

    std::array<float, 256> linear;
    std::array<std::uint8_t, kSteps> level;
};

const Levels& TheLevels() {
    static const Levels levels;
    return levels;
}

float FloatOf(std::uint16_t half) {
    const int exponent = half >> 10 & 0x1F;
    const auto fraction = static_cast<float>(half & 0x3FF);
    // What is not finite is no light that could be shown.
    if (exponent == 31) return fraction == 0.0f && (half & 0x8000) == 0 ? 65504.0f : 0.0f;
    const float size = exponent == 0 ? std::ldexp(fraction, -24) : std::ldexp(fraction + 1024.0f, exponent - 25);
    return (half & 0x8000) != 0 ? -size : size;
}

Light Decoded(const RawImage& image, const std::uint8_t* pixel) {
    if (image.kind == PixelKind::kRgba16F) {
        std::uint16_t halves[4];
        std::memcpy(halves, pixel, sizeof(halves));
        return {FloatOf(halves[0]), FloatOf(halves[1]), FloatOf(halves[2]), FloatOf(halves[3])};
    }
    const bool is_swapped = image.kind == PixelKind::kBgra8;
    const float alpha = static_cast<float>(pixel[3]) / 255.0f;
    const std::uint8_t red = pixel[is_swapped ? 2 : 0];
    const std::uint8_t blue = pixel[is_swapped ? 0 : 2];
    if (image.is_srgb) return {LinearOf(red), LinearOf(pixel[1]), LinearOf(blue), alpha};
    const auto share = [](std::uint8_t number) { return static_cast<float>(number) / 255.0f; };
    return {share(red), share(pixel[1]), share(blue), alpha};
}

}  // namespace

float LinearOf(std::uint8_t level) {
    static const Levels& levels = TheLevels();
    return levels.linear[level];
}

std::uint8_t LevelOf(float light) {
    static const Levels& levels = TheLevels();
    // What is no number comes out as black.
    const float within = light > 0.0f ? std::min(light, 1.0f) : 0.0f;
    return levels.level[static_cast<std::size_t>(within * (kSteps - 1))];
}

Texture::Texture(const RawImage& image, const XrRect2Di& rect, bool has_alpha, bool is_premultiplied)
    : image_(image),
      left_(rect.offset.x),
      top_(image.bottom_up ? static_cast<std::int32_t>(image.height) - rect.offset.y - rect.extent.height
                           : rect.offset.y),
      width_(rect.extent.width),
      height_(rect.extent.height),
      has_alpha_(has_alpha),
      is_premultiplied_(is_premultiplied) {}

Light Texture::At(std::int32_t x, std::int32_t y) const {
    const auto column = static_cast<std::size_t>(left_) + static_cast<std::size_t>(x);
    const auto row = static_cast<std::size_t>(top_) + static_cast<std::size_t>(y);
    const std::size_t stored_row = image_.bottom_up ? image_.height - 1 - row : row;
    const std::size_t place = stored_row * image_.width + column;
    Light light = Decoded(image_, image_.bytes.data() + place * BytesOfPixel(image_.kind));
    if (!has_alpha_) {
        light.alpha = 1.0f;
    } else if (!is_premultiplied_) {
        light = {light.red * light.alpha, light.green * light.alpha, light.blue * light.alpha, light.alpha};
    }
    return light;
}

Light Texture::Between(float x, float y) const {
    const float whole_x = std::floor(x - 0.5f);
    const float whole_y = std::floor(y - 0.5f);
    const float share_x = x - 0.5f - whole_x;
    const float share_y = y - 0.5f - whole_y;
    const auto column = [&](int step) { return std::clamp(static_cast<std::int32_t>(whole_x) + step, 0, width_ - 1); };
    const auto row = [&](int step) { return std::clamp(static_cast<std::int32_t>(whole_y) + step, 0, height_ - 1); };
    const Light above = At(column(0), row(0)) * (1.0f - share_x) + At(column(1), row(0)) * share_x;
    const Light below = At(column(0), row(1)) * (1.0f - share_x) + At(column(1), row(1)) * share_x;
    return above * (1.0f - share_y) + below * share_y;
}

}  // namespace simulator
