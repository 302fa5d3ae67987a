// A captured picture as a PNG file, by stb_image_write, its filters chosen as by default, with libdeflate behind it.
// Pure; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "capture/stb_png.h"

namespace orvanic_xr {

// The PNG file of `pixels`, width times height times 4 bytes, RGBA, first row at the top. Nothing if memory
// runs out, if there are no pixels or fewer than told, or above some 350 million of them.
std::optional<std::vector<std::uint8_t>> encode_png(const std::vector<std::uint8_t>& pixels, std::uint32_t width,
                                                    std::uint32_t height);

// The ways in which encode_png works, from the one that runs on every processor to the fastest: all give the same file.
struct PngPath {
    const char* name;
    // Whether this processor can run it.
    bool (*is_supported)();
    VelmoorPngWriter* write;
};
std::span<const PngPath> png_paths();
std::optional<std::vector<std::uint8_t>> encode_png(const PngPath& path, const std::vector<std::uint8_t>& pixels,
                                                    std::uint32_t width, std::uint32_t height);

}  // namespace orvanic_xr
