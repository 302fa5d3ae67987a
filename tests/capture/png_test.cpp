#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "capture/image_encoding.h"
#include "tests/capture/decoded_png.h"
#include "tests/capture/little_memory.h"

namespace orvanic_xr {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Noise(std::size_t size) {
    std::mt19937 random(1);
    Bytes bytes(size);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    return bytes;
}

// Smooth in places, hard edges in others, and never opaque throughout.
Bytes Gradient(std::uint32_t width, std::uint32_t height) {
    Bytes pixels;
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < width; ++x) {
            const std::uint32_t values[] = {x + y, y, (x / 16 + y / 16) % 2 * 200, 255 - x};
            for (const std::uint32_t value : values) pixels.push_back(static_cast<std::uint8_t>(value));
        }
    }
    return pixels;
}

TEST(Png, AnotherDecoderReadsTheSamePixels) {
    const struct {
        const char* name;
        std::uint32_t width, height;
        Bytes pixels;
    } rows[] = {
        {"one pixel", 1, 1, {1, 2, 3, 4}},
        {"one row", 5, 1, Gradient(5, 1)},
        {"one column", 1, 5, Gradient(1, 5)},
        {"gradient", 300, 200, Gradient(300, 200)},
        {"one colour", 128, 128, Bytes(128 * 128 * 4, 200)},
        {"noise, which is stored as it is", 200, 300, Noise(200 * 300 * 4)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto file = encode_png(row.pixels, row.width, row.height);
        ASSERT_TRUE(file);
        const DecodedPng decoded(*file);
        EXPECT_EQ(decoded.width, row.width);
        EXPECT_EQ(decoded.height, row.height);
        EXPECT_TRUE(decoded.pixels == row.pixels);
        for (const PngPath& path : png_paths()) {
            if (!path.is_supported()) continue;
            EXPECT_EQ(encode_png(path, row.pixels, row.width, row.height), file) << path.name;
        }
    }
}

TEST(Png, FileIsLaidOutAsTold) {
    const auto file = encode_png(Gradient(40, 30), 40, 30);
    ASSERT_TRUE(file);
    const Bytes head = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0,  0, 0, 13, 'I', 'H', 'D',
                        'R',  0,   0,   0,   40,   0,    0,    0,    30, 8, 6, 0,  0,   0};
    EXPECT_TRUE(std::equal(head.begin(), head.end(), file->begin()));
    // Behind the checksum of IHDR and the length of the one IDAT.
    EXPECT_EQ(std::memcmp(file->data() + 37, "IDAT\x78\x5E", 6), 0);
    const std::uint32_t data_length = std::uint32_t{(*file)[33]} << 24 | std::uint32_t{(*file)[34]} << 16 |
                                      std::uint32_t{(*file)[35]} << 8 | (*file)[36];
    ASSERT_EQ(file->size(), 41 + data_length + 4 + 12);
    EXPECT_EQ(std::memcmp(file->data() + 41 + data_length + 8, "IEND", 4), 0);
}

TEST(Png, SizesThatDoNotFitGiveNothing) {
    const Bytes few(64);
    const struct {
        std::uint32_t width, height;
    } rows[] = {{0, 1},        {1, 0},          {0, 0},          {4, 5},
                {16384, 1},    {0x40000000, 1}, {0x40000001, 1}, {0xFFFFFFFF, 0xFFFFFFFF},
                {30000, 30000}};
    for (const auto& row : rows) {
        EXPECT_FALSE(encode_png(few, row.width, row.height)) << row.width << "x" << row.height;
    }
    EXPECT_TRUE(encode_png(few, 4, 4));
}

TEST(Png, WhereverMemoryRunsOutNothingIsGivenAndNothingLeaks) {
    if (!kMemoryCanBeLimited) GTEST_SKIP() << "a sanitizer needs its address space";
    enum Outcome { kEncoded, kRefused, kLeaked };
    const Bytes pixels = Noise(300 * 300 * 4);
    int encoded = 0;
    int refused = 0;
    for (const std::size_t spare : {0u, 200'000u, 400'000u, 600'000u, 800'000u, 1'000'000u, 1'400'000u, 30'000'000u}) {
        const int outcome = WithLittleMemory(spare, [&] {
            const auto in_use = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
            const std::size_t before = in_use();
            const auto file = encode_png(pixels, 300, 300);
            if (file) return kEncoded;
            // The allocator itself keeps a few small blocks back; what stb holds is hundreds of kilobytes.
            return in_use() < before + 32'000 ? kRefused : kLeaked;
        });
        EXPECT_TRUE(outcome == kEncoded || outcome == kRefused) << spare << " bytes to spare: " << outcome;
        encoded += outcome == kEncoded;
        refused += outcome == kRefused;
    }
    EXPECT_GE(encoded, 1);
    EXPECT_GE(refused, 3);
}

}  // namespace
}  // namespace orvanic_xr
