// What counts as the same picture, and what doesn't.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "command/pictures/comparison.h"

namespace velmoor {
namespace {

constexpr int kEdge = 64;

// A white disc with smoothed edges on a dark ground, its centre `right` of the middle.
image disc(double right, int brighter = 0) {
    image made{kEdge, kEdge, {}};
    for (int i = 0; i < kEdge * kEdge; ++i) {
        const double far = std::hypot(i % kEdge - 32 - right, i / kEdge - 32);
        const double cover = std::clamp(20.5 - far, 0.0, 1.0);
        const auto value = static_cast<std::uint8_t>(40 + cover * 200 + brighter);
        made.pixels.insert(made.pixels.end(), {value, value, value, 255});
    }
    return made;
}

image with_square(image onto, int edge) {
    for (int i = 0; i < edge * edge; ++i) {
        onto.pixels[static_cast<std::size_t>(((i / edge) * kEdge + i % edge) * 4)] = 255;
    }
    return onto;
}

TEST(PictureComparison, PassesLowBitsAndSmoothedEdgesAndNoMore) {
    EXPECT_TRUE(compare(disc(0), disc(0, 3)).is_same) << "low bits";
    const comparison moved = compare(disc(0), disc(0.4));
    EXPECT_LT(moved.share, 0.004) << "an edge that is smoothed otherwise: " << moved.message;
    EXPECT_FALSE(compare(disc(0), disc(2)).is_same);
    const comparison four = compare(disc(0), with_square(disc(0), 2));
    EXPECT_TRUE(four.is_same) << four.message;
    const comparison nine = compare(disc(0), with_square(disc(0), 3));
    EXPECT_FALSE(nine.is_same);
    EXPECT_EQ(nine.message, "0.220 % of the pixels differ (9 of 4096), at most 0.100 % may; threshold 0.1");
    EXPECT_EQ(nine.difference.pixels[0], 255);
    EXPECT_EQ(nine.difference.pixels[1], 0) << "what differs is red";
}

TEST(PictureComparison, HeedsMasksSizeBlanknessAndBlur) {
    comparison_limits limits;
    limits.masks = {{0, 0, 3, 3}};
    EXPECT_TRUE(compare(disc(0), with_square(disc(0), 3), limits).is_same);
    EXPECT_FALSE(compare(disc(0), with_square(disc(0), 5), limits).is_same);
    limits = {.threshold = 0.1, .share = 0, .masks = {}, .blur = 8};
    EXPECT_TRUE(compare(disc(0), disc(0.7), limits).is_same);
    EXPECT_FALSE(compare(disc(0), with_square(disc(0), 12), limits).is_same);
    limits.masks = {{0, 0, 12, 12}};
    EXPECT_TRUE(compare(disc(0), with_square(disc(0), 12), limits).is_same);

    const image blank{kEdge, kEdge, std::vector<std::uint8_t>(kEdge * kEdge * 4, 7)};
    EXPECT_EQ(compare(disc(0), blank).message, "the picture is blank: all its pixels have one colour");
    EXPECT_EQ(compare(disc(0), image{1, 1, {0, 0, 0, 0}}).message,
              "the picture has 1x1 pixels, and 64x64 are expected");
}

}  // namespace
}  // namespace velmoor
