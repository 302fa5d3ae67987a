// A PNG file as a decoder of other people's making reads it.
#pragma once

#include <gtest/gtest.h>
#include <png.h>

#include <cstdint>
#include <vector>

namespace orvanic_xr {

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
