// Base64, and the ways in which it is computed, for those who compare them: all give the same text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace orvanic_xr {

// Standard alphabet, padded with "=", no line breaks.
std::string encode_base64(const std::uint8_t* bytes, std::size_t length);

struct Base64Path {
    const char* name;
    // Whether this processor can run it.
    bool (*is_supported)();
    // Writes base64_length(length) characters.
    void (*encode)(const std::uint8_t* bytes, std::size_t length, char* text);
};

constexpr std::size_t base64_length(std::size_t length) {
    return (length + 2) / 3 * 4;
}

// From the slowest, which runs everywhere, to the fastest.
std::span<const Base64Path> base64_paths();

}  // namespace orvanic_xr
