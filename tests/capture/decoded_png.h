// Base64 decoded by the book, and a PNG file as a decoder of other people's making reads it.
#pragma once

#include <gtest/gtest.h>
#include <png.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvanic_xr {

inline std::vector<std::uint8_t> Base64Decoded(const std::string& text) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<std::uint8_t> bytes;
    std::uint32_t bits = 0;
    int count = 0;
    EXPECT_EQ(text.size() % 4, 0u);
    for (const char character : text) {
        if (character == '=') break;
        EXPECT_NE(alphabet.find(character), std::string::npos) << character;
        bits = bits << 6 | static_cast<std::uint32_t>(alphabet.find(character));
        count += 6;
        if (count >= 8) bytes.push_back(static_cast<std::uint8_t>(bits >> (count -= 8)));
    }
    return bytes;
}

struct DecodedPng {
    explicit DecodedPng(const std::vector<std::uint8_t>& file) {
        png_image image = {};
        image.version = PNG_IMAGE_VERSION;
        if (!png_image_begin_read_from_memory(&image, file.data(), file.size())) {
            ADD_FAILURE() << image.message;
            return;
        }
        EXPECT_EQ(image.format, static_cast<png_uint_32>(PNG_FORMAT_RGBA));
        width = image.width;
        height = image.height;
        image.format = PNG_FORMAT_RGBA;
        pixels.resize(PNG_IMAGE_SIZE(image));
        EXPECT_TRUE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr)) << image.message;
    }

    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> pixels;
};

}  // namespace orvanic_xr
