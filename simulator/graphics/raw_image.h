// An image of the application's as it was read: plain memory, which outlives the image and can be looked at by any
// thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace simulator {

enum class PixelKind : std::uint8_t {
    kRgba8,
    kBgra8,
    // Half floats.
    kRgba16F,
    // The rest are shares of the most that there is.
    kRgba16,
    // From the lowest bit upwards.
    kRgb10A2,
};

constexpr std::size_t BytesOfPixel(PixelKind kind) {
    return kind == PixelKind::kRgba16F || kind == PixelKind::kRgba16 ? 8 : 4;
}

struct RawImage {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    PixelKind kind = PixelKind::kRgba8;
    // Whether the numbers are sRGB levels; they are linear light otherwise.
    bool is_srgb = true;
    // Whether the first row is the lowest one, which rectangles in the image then count from as well.
    bool bottom_up = false;
    // Rows packed.
    std::vector<std::uint8_t> bytes;
};

}  // namespace simulator
