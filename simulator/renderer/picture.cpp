#include "simulator/renderer/picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "simulator/renderer/surfaces.h"

namespace simulator {
namespace {

// Rows are drawn in strips, so that the memory does not grow with the picture.
constexpr std::uint32_t kStripRows = 32;
constexpr std::uint32_t kNothing = 0;

struct SeenFace {
    Face face;
    const LightMap* light;
    Projection projection;
};

// Linear light as a level of a display, with bright light bending towards white.
class Exposure {
 public:
    Exposure() {
        for (std::size_t i = 0; i < kSteps; ++i) {
            const float light = static_cast<float>(i) / kStepsPerUnit;
            const float shown = 1.0f - std::exp(-1.15f * light);
            const float level = shown < 0.0031308f ? 12.92f * shown : 1.055f * std::pow(shown, 1 / 2.4f) - 0.055f;
            levels_[i] = static_cast<std::uint8_t>(std::lround(255.0f * level));
        }
    }

    void Store(const Vec3& colour, std::uint8_t* pixel) const {
        pixel[0] = Level(colour.x);
        pixel[1] = Level(colour.y);
        pixel[2] = Level(colour.z);
        pixel[3] = 255;
    }

 private:
    static constexpr std::size_t kSteps = 8192;
    static constexpr float kStepsPerUnit = 2048.0f;

    std::uint8_t Level(float light) const {
        const float step = std::clamp(light * kStepsPerUnit, 0.0f, static_cast<float>(kSteps - 1));
        return levels_[static_cast<std::size_t>(step)];
    }

    std::array<std::uint8_t, kSteps> levels_;
};

class Painter {
 public:
    Painter(const EyeView& eye, std::uint32_t width, std::uint32_t height)
        : camera_(eye, width, height), width_(width), height_(height) {}

    void Add(const Face& face, const LightMap* light) {
        if (const auto projection = Projection::Of(face, camera_)) seen_.push_back({face, light, *projection});
    }

    void Draw(std::uint8_t* pixels) {
        nearest_.resize(std::size_t{width_} * (kStripRows + 2));
        depths_.resize(width_);
        for (std::uint32_t row = 0; row < height_; row += kStripRows) {
            const std::uint32_t end = std::min(row + kStripRows, height_);
            FindNearest(row, end);
            for (std::uint32_t y = row; y < end; ++y) PaintRow(row, y, pixels + std::size_t{y} * width_ * 4);
        }
    }

 private:
    // Face numbers count from 1; kNothing is the sky. The strip has one more row above and below.
    std::uint32_t* RowOfStrip(std::uint32_t strip, std::uint32_t y) {
        return nearest_.data() + std::size_t{y + 1 - strip} * width_;
    }

    void FindNearest(std::uint32_t strip, std::uint32_t end) {
        for (std::uint32_t line = 0; line < end - strip + 2; ++line) {
            // In the picture's coordinates, the first line is the row above the strip.
            const float y = static_cast<float>(strip) + static_cast<float>(line) - 0.5f;
            std::uint32_t* const nearest = nearest_.data() + std::size_t{line} * width_;
            std::fill_n(nearest, width_, kNothing);
            std::fill(depths_.begin(), depths_.end(), 0.0f);
            for (std::uint32_t number = 1; number <= seen_.size(); ++number) {
                const Projection& projection = seen_[number - 1].projection;
                const Projection::Span span = projection.SpanOfRow(y, width_);
                const float start = projection.inverse_depth.At(0.5f, y);
                Keep(number, start, projection.inverse_depth.per_x, span, nearest);
            }
        }
    }

    // Face `number` where it is nearer than what was there. Without a branch, so that it runs in vectors.
    void Keep(std::uint32_t number, float start, float per_x, const Projection::Span& span, std::uint32_t* nearest) {
        float* const depths = depths_.data();
        for (std::uint32_t x = span.first; x < span.end; ++x) {
            const float inverse_depth = start + per_x * static_cast<float>(static_cast<std::int32_t>(x));
            const bool is_nearer = inverse_depth > depths[x];
            depths[x] = is_nearer ? inverse_depth : depths[x];
            nearest[x] = is_nearer ? number : nearest[x];
        }
    }

    void PaintRow(std::uint32_t strip, std::uint32_t y, std::uint8_t* pixels) {
        const std::uint32_t* const row = RowOfStrip(strip, y);
        for (std::uint32_t x = 0; x < width_; ++x, pixels += 4) {
            const float middle_x = static_cast<float>(x) + 0.5f;
            const float middle_y = static_cast<float>(y) + 0.5f;
            const std::uint32_t* const pixel = row + x;
            exposure_.Store(
                IsInside(pixel, x) ? ColourAt(*pixel, middle_x, middle_y) : SmoothColour(pixel, x, middle_x, middle_y),
                pixels);
        }
    }

    // All neighbours show the same face.
    bool IsInside(const std::uint32_t* pixel, std::uint32_t x) const {
        const std::uint32_t face = *pixel;
        const std::uint32_t* const left = x > 0 ? pixel - 1 : pixel;
        const std::uint32_t* const right = x + 1 < width_ ? pixel + 1 : pixel;
        return *left == face && *right == face && *(pixel - width_) == face && *(pixel + width_) == face;
    }

    Vec3 ColourAt(std::uint32_t number, float x, float y) const {
        if (number == kNothing) return SkyColour(camera_.DirectionAt(x, y));
        const SeenFace& seen = seen_[number - 1];
        return ColourOf(seen.face, seen.light, seen.projection.MeetingAt(x, y));
    }

    // The mean of four places in the pixel, each of which may show any face that the neighbourhood shows.
    Vec3 SmoothColour(const std::uint32_t* pixel, std::uint32_t x, float middle_x, float middle_y) const {
        constexpr float kOffsets[4][2] = {{-0.375f, -0.125f}, {0.125f, -0.375f}, {0.375f, 0.125f}, {-0.125f, 0.375f}};
        const std::uint32_t* const left = x > 0 ? pixel - 1 : pixel;
        const std::uint32_t* const right = x + 1 < width_ ? pixel + 1 : pixel;
        const std::uint32_t candidates[] = {*pixel, *left, *right, *(pixel - width_), *(pixel + width_)};
        Vec3 sum;
        for (const auto& offset : kOffsets) {
            const float place_x = middle_x + offset[0];
            const float place_y = middle_y + offset[1];
            std::uint32_t nearest = kNothing;
            float nearest_depth = 0.0f;
            for (const std::uint32_t number : candidates) {
                if (number == kNothing || number == nearest) continue;
                const Projection& projection = seen_[number - 1].projection;
                const float inverse_depth = projection.inverse_depth.At(place_x, place_y);
                if (inverse_depth <= nearest_depth || !projection.Covers(place_x, place_y)) continue;
                nearest_depth = inverse_depth;
                nearest = number;
            }
            sum = sum + ColourAt(nearest, place_x, place_y);
        }
        return sum * 0.25f;
    }

    const Camera camera_;
    const std::uint32_t width_;
    const std::uint32_t height_;
    const Exposure exposure_;
    std::vector<SeenFace> seen_;
    std::vector<std::uint32_t> nearest_;
    // Inverse depths of the row that is looked at.
    std::vector<float> depths_;
};

void DrawDarkness(std::size_t pixel_count, std::uint8_t* pixels) {
    constexpr std::uint8_t kDark[] = {10, 11, 14, 255};
    for (std::size_t i = 0; i < pixel_count; ++i) std::copy_n(kDark, 4, pixels + 4 * i);
}

}  // namespace

void DrawPicture(const WorldView& world, const LitRoom& room, std::size_t eye, std::uint32_t width,
                 std::uint32_t height, std::uint8_t* pixels) {
    if (!world.eyes) return DrawDarkness(std::size_t{width} * height, pixels);
    Painter painter((*world.eyes)[eye], width, height);
    for (std::size_t i = 0; i < room.faces.size(); ++i) painter.Add(room.faces[i], &room.light[i]);
    for (std::size_t hand = 0; hand < world.controllers.size(); ++hand) {
        for (const Face& face : FacesOf(world.controllers[hand], hand == 0)) painter.Add(face, nullptr);
    }
    painter.Draw(pixels);
}

}  // namespace simulator
