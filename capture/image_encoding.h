// A captured picture as text: PNG by stb_image_write, its filters chosen as by default, with libdeflate
// behind it; then base64. Pure; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvanic_xr {

// The PNG file of `pixels`, width times height times 4 bytes, RGBA, first row at the top. Nothing if memory
// runs out, if there are no pixels or fewer than told, or above some 350 million of them.
std::optional<std::vector<std::uint8_t>> encode_png(const std::vector<std::uint8_t>& pixels, std::uint32_t width,
                                                    std::uint32_t height);

// Standard alphabet, padded with "=", no line breaks.
std::string encode_base64(const std::uint8_t* bytes, std::size_t length);

}  // namespace orvanic_xr
