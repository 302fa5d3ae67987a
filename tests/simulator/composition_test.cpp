// What layers look like to an eye, worked out by hand.
#include "simulator/renderer/composition.h"

#include <gmock/gmock.h>

#include <array>
#include <limits>

namespace simulator_test {
namespace {

using simulator::ComposedLayer;
using simulator::LayerShape;
using simulator::PixelKind;
using simulator::RawImage;

constexpr float kQuarterTurn = 0.7853982f;
constexpr simulator::EyeView kEye = {{{0, 0, 0, 1}, {0, 0, 0}},
                                     {-kQuarterTurn, kQuarterTurn, kQuarterTurn, -kQuarterTurn}};
constexpr std::uint32_t kSize = 8;
using Colour = std::array<int, 3>;
constexpr Colour kBlack = {0, 0, 0};
constexpr Colour kRed = {255, 0, 0};
constexpr Colour kGreen = {0, 255, 0};
// Behind the layers, in linear light about 0.2158 each.
constexpr std::uint8_t kWorld = 128;

// Two by two pixels of sRGB: the first row is red, the second green, and all have this alpha.
ComposedLayer TwoRows(LayerShape shape, int alpha = 255) {
    RawImage image;
    image.width = image.height = 2;
    const auto a = static_cast<std::uint8_t>(alpha);
    image.bytes = {255, 0, 0, a, 255, 0, 0, a, 0, 255, 0, a, 0, 255, 0, a};
    ComposedLayer layer;
    layer.shape = shape;
    layer.image = std::make_shared<RawImage>(image);
    layer.rect = {{0, 0}, {2, 2}};
    layer.fov = kEye.fov;
    return layer;
}

ComposedLayer Changed(ComposedLayer layer, void (*change)(RawImage&)) {
    auto image = std::make_shared<RawImage>(*layer.image);
    change(*image);
    layer.image = image;
    return layer;
}

// Pixel (x, y) of what the eye sees.
Colour Seen(const std::vector<ComposedLayer>& layers, std::size_t x, std::size_t y,
            XrEnvironmentBlendMode mode = XR_ENVIRONMENT_BLEND_MODE_OPAQUE) {
    std::vector<std::uint8_t> pixels(kSize * kSize * 4, kWorld);
    simulator::Compose(layers, kEye, mode, kSize, kSize, pixels.data());
    const std::uint8_t* pixel = &pixels[(y * kSize + x) * 4];
    return {pixel[0], pixel[1], pixel[2]};
}

TEST(Composition, ProjectionIsSeenWhereItWasDrawnFor) {
    const ComposedLayer straight = TwoRows(LayerShape::kProjection);
    EXPECT_EQ(Seen({straight}, 0, 0), kRed);
    EXPECT_EQ(Seen({straight}, 7, 7), kGreen);
    ComposedLayer raised = straight;
    raised.pose.orientation = {0.3826834f, 0, 0, 0.9238795f};
    EXPECT_EQ(Seen({raised}, 4, 3), kGreen) << "the eye looks 45 degrees lower than the picture does";
    EXPECT_EQ(Seen({raised}, 4, 4), kBlack);
    ComposedLayer behind = straight;
    behind.pose.orientation = {0, 1, 0, 0};
    EXPECT_EQ(Seen({behind}, 4, 0), kBlack);
    ComposedLayer flipped = straight;
    std::swap(flipped.fov.angleUp, flipped.fov.angleDown);
    EXPECT_EQ(Seen({flipped}, 0, 0), kGreen);
}

TEST(Composition, SurfacesStandInTheWorld) {
    ComposedLayer quad = TwoRows(LayerShape::kQuad);
    quad.pose.position = {0, 0, -2};
    quad.size = {2, 2};
    // Half as high as the picture: rows 2 to 5.
    EXPECT_EQ(Seen({quad}, 4, 1), kBlack);
    EXPECT_EQ(Seen({quad}, 4, 2), kRed);
    EXPECT_EQ(Seen({quad}, 4, 5), kGreen);
    quad.pose.orientation = {0, 1, 0, 0};
    EXPECT_EQ(Seen({quad}, 4, 2), kBlack) << "from behind";
    quad.pose = {{0, 0, 0, 1}, {0, 0, 2}};
    EXPECT_EQ(Seen({quad}, 4, 2), kBlack) << "behind the eye";

    ComposedLayer cylinder = TwoRows(LayerShape::kCylinder);
    cylinder.radius = 2;
    cylinder.horizontal_angle = kQuarterTurn;
    cylinder.aspect_ratio = kQuarterTurn;
    // Two metres high, and 45 degrees wide: columns 3 and 4, and most of 2 and 5.
    EXPECT_EQ(Seen({cylinder}, 4, 2), kRed);
    EXPECT_EQ(Seen({cylinder}, 4, 5), kGreen);
    EXPECT_EQ(Seen({cylinder}, 4, 1), kBlack);
    EXPECT_EQ(Seen({cylinder}, 6, 3), kBlack);

    ComposedLayer sphere = TwoRows(LayerShape::kEquirect);
    sphere.pose.position = {9, 9, 9};
    sphere.horizontal_angle = 8 * kQuarterTurn;
    sphere.upper_angle = kQuarterTurn;
    for (const float radius : {std::numeric_limits<float>::infinity(), std::numeric_limits<float>::max()}) {
        sphere.radius = radius;
        EXPECT_EQ(Seen({sphere}, 4, 0), kRed);
        EXPECT_EQ(Seen({sphere}, 4, 3), kGreen) << "its lower half ends at the horizon";
        EXPECT_EQ(Seen({sphere}, 4, 4), kBlack);
    }
}

TEST(Composition, LayersLieOverEachOtherInLinearLight) {
    // Half of full light is the level 188.
    ComposedLayer half = TwoRows(LayerShape::kProjection, 128);
    const ComposedLayer whole =
        Changed(TwoRows(LayerShape::kProjection), [](RawImage& i) { i.kind = PixelKind::kBgra8; });
    EXPECT_EQ(Seen({half}, 0, 0), kRed) << "its alpha is not meant";
    half.has_alpha = true;
    EXPECT_EQ(Seen({half}, 0, 0), kRed) << "premultiplied";
    EXPECT_EQ(Seen({whole, half}, 0, 0), (Colour{255, 0, 187}));
    half.is_premultiplied = false;
    EXPECT_EQ(Seen({whole, half}, 0, 0), (Colour{188, 0, 187}));
    EXPECT_EQ(Seen({half, whole}, 0, 0), (Colour{0, 0, 255})) << "the last one lies on top";
}

TEST(Composition, WorldIsSeenAsTheModeSays) {
    ComposedLayer half = TwoRows(LayerShape::kProjection, 128);
    half.has_alpha = true;
    half.is_premultiplied = false;
    EXPECT_EQ(Seen({half}, 0, 0), (Colour{188, 0, 0}));
    EXPECT_EQ(Seen({half}, 0, 0, XR_ENVIRONMENT_BLEND_MODE_ALPHA_BLEND), (Colour{205, 92, 92}));
    EXPECT_EQ(Seen({half}, 0, 0, XR_ENVIRONMENT_BLEND_MODE_ADDITIVE), (Colour{220, 128, 128}));
    EXPECT_EQ(Seen({}, 0, 0, XR_ENVIRONMENT_BLEND_MODE_ALPHA_BLEND), (Colour{128, 128, 128}));
    EXPECT_EQ(Seen({}, 0, 0), kBlack);
}

TEST(Composition, ImagesAreReadAsTheyAreStored) {
    const auto rows = TwoRows(LayerShape::kProjection);
    EXPECT_EQ(Seen({Changed(rows, [](RawImage& i) { i.bottom_up = true; })}, 0, 0), kGreen);
    ComposedLayer lower = Changed(rows, [](RawImage& i) { i.bottom_up = true; });
    lower.rect = {{0, 0}, {2, 1}};
    EXPECT_EQ(Seen({lower}, 0, 0), kRed) << "the rectangle counts from below too";
    const auto linear = Changed(rows, [](RawImage& i) {
        i.is_srgb = false;
        i.bytes.assign(16, 64);
    });
    EXPECT_EQ(Seen({linear}, 0, 0), (Colour{137, 137, 137}));
    EXPECT_EQ(Seen({Changed(rows, [](RawImage& i) { i.bytes.assign(16, 1); })}, 0, 0), (Colour{1, 1, 1}));
    // Halves: 2, 0.5, one that is no number, and 1.
    const auto half = Changed(rows, [](RawImage& i) {
        i.kind = PixelKind::kRgba16F;
        i.bytes.clear();
        for (int pixel = 0; pixel < 4; ++pixel) {
            i.bytes.insert(i.bytes.end(), {0x00, 0x40, 0x00, 0x38, 0x01, 0x7E, 0x00, 0x3C});
        }
    });
    EXPECT_EQ(Seen({half}, 0, 0), (Colour{255, 188, 0}));
    const auto shorts = Changed(rows, [](RawImage& i) {
        i.kind = PixelKind::kRgba16;
        i.bytes.clear();
        for (int pixel = 0; pixel < 4; ++pixel) {
            i.bytes.insert(i.bytes.end(), {0xFF, 0xFF, 0xFF, 0x7F, 0x00, 0x00, 0xFF, 0xFF});
        }
    });
    EXPECT_EQ(Seen({shorts}, 0, 0), (Colour{255, 188, 0}));
    // Ten bits each: all, half of them, and none.
    const auto tens = Changed(rows, [](RawImage& i) {
        i.kind = PixelKind::kRgb10A2;
        i.bytes.clear();
        for (int pixel = 0; pixel < 4; ++pixel) i.bytes.insert(i.bytes.end(), {0xFF, 0x03, 0x08, 0xC0});
    });
    EXPECT_EQ(Seen({tens}, 0, 0), (Colour{255, 188, 0}));
    ComposedLayer veil = TwoRows(LayerShape::kProjection, 128);
    veil.has_alpha = true;
    veil.is_premultiplied = false;
    EXPECT_EQ(Seen({half, veil}, 0, 7), (Colour{187, 225, 0})) << "no more than full light lies below";
}

}  // namespace
}  // namespace simulator_test
