#include "simulator/renderer/composition.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "simulator/renderer/camera.h"
#include "simulator/renderer/texture.h"

namespace simulator {
namespace {

// Shares of a layer's width and height, 0 to 1 from its upper left corner.
struct Place {
    float u;
    float v;
};

// A layer as one eye sees it: all in the layer's own coordinates.
// From this radius on, in metres, a surface counts as infinite: no picture tells, and its square is still a number.
constexpr float kFarAway = 1e6f;

class SeenLayer {
 public:
    SeenLayer(const ComposedLayer& layer, const Camera& camera)
        : layer_(layer),
          texture_(*layer.image, layer.rect, layer.has_alpha, layer.is_premultiplied),
          origin_(ToLayer(camera.position - Vec3(layer.pose.position))),
          corner_(ToLayer(camera.corner)),
          right_(ToLayer(camera.right)),
          down_(ToLayer(camera.down)),
          left_(std::tan(layer.fov.angleLeft)),
          top_(std::tan(layer.fov.angleUp)),
          fov_width_(std::tan(layer.fov.angleRight) - left_),
          fov_height_(top_ - std::tan(layer.fov.angleDown)) {
        // On an infinite surface the eye stands in the middle.
        if (!(layer.radius > 0.0f) || !(layer.radius < kFarAway)) {
            radius_ = 1.0f;
            if (layer.shape == LayerShape::kCylinder || layer.shape == LayerShape::kEquirect) origin_ = {};
        } else {
            radius_ = layer.radius;
        }
    }

    // Each pixel of the picture shows one of the layer's own: that is so where an application draws for the very view
    // that is asked for.
    bool IsPixelForPixel(std::uint32_t width, std::uint32_t height) const {
        constexpr float kOff = 0.02f;
        const auto w = static_cast<float>(width);
        const auto h = static_cast<float>(height);
        if (layer_.shape != LayerShape::kProjection || texture_.width() != static_cast<std::int32_t>(width) ||
            texture_.height() != static_cast<std::int32_t>(height)) {
            return false;
        }
        for (const auto& [x, y] : {Place{0, 0}, Place{w, 0}, Place{0, h}, Place{w, h}}) {
            const auto place = PlaceAt(x, y);
            if (!place || !(std::abs(place->u * w - x) < kOff && std::abs(place->v * h - y) < kOff)) return false;
        }
        return true;
    }

    // Nothing where the layer is not met.
    std::optional<Light> LightAt(float x, float y) const {
        const auto place = PlaceAt(x, y);
        // What is no number is inside of nothing.
        if (!place || !(place->u >= 0.0f && place->u <= 1.0f && place->v >= 0.0f && place->v <= 1.0f)) {
            return std::nullopt;
        }
        return texture_.Between(place->u * static_cast<float>(texture_.width()),
                                place->v * static_cast<float>(texture_.height()));
    }

    const Texture& texture() const { return texture_; }

 private:
    Vec3 ToLayer(const Vec3& v) const {
        const XrQuaternionf& q = layer_.pose.orientation;
        return Rotated({-q.x, -q.y, -q.z, q.w}, v);
    }

    std::optional<Place> PlaceAt(float x, float y) const {
        const Vec3 direction = corner_ + right_ * x + down_ * y;
        switch (layer_.shape) {
            case LayerShape::kProjection:
                return OnProjection(direction);
            case LayerShape::kQuad:
                return OnQuad(direction);
            case LayerShape::kCylinder:
                return OnCylinder(direction);
            case LayerShape::kEquirect:
                return OnEquirect(direction);
        }
        return std::nullopt;
    }

    // Where the eye has moved since is not known to a picture: only which way it looks counts.
    std::optional<Place> OnProjection(const Vec3& direction) const {
        if (!(direction.z < 0.0f)) return std::nullopt;
        return Place{(direction.x / -direction.z - left_) / fov_width_,
                     (top_ - direction.y / -direction.z) / fov_height_};
    }

    // Seen from its front only.
    std::optional<Place> OnQuad(const Vec3& direction) const {
        if (!(origin_.z > 0.0f) || !(direction.z < 0.0f)) return std::nullopt;
        const Vec3 met = origin_ + direction * (origin_.z / -direction.z);
        return Place{met.x / layer_.size.width + 0.5f, 0.5f - met.y / layer_.size.height};
    }

    // Seen from inside only: where the line of sight leaves the surface.
    std::optional<Place> OnCylinder(const Vec3& direction) const {
        const auto met = Leaving({direction.x, 0, direction.z}, {origin_.x, 0, origin_.z}, direction);
        if (!met) return std::nullopt;
        const float height = radius_ * layer_.horizontal_angle / layer_.aspect_ratio;
        return Place{std::atan2(met->x, -met->z) / layer_.horizontal_angle + 0.5f, 0.5f - met->y / height};
    }

    std::optional<Place> OnEquirect(const Vec3& direction) const {
        const auto met = Leaving(direction, origin_, direction);
        if (!met) return std::nullopt;
        const float elevation = std::asin(std::clamp(met->y / radius_, -1.0f, 1.0f));
        return Place{std::atan2(met->x, -met->z) / layer_.horizontal_angle + 0.5f,
                     (layer_.upper_angle - elevation) / (layer_.upper_angle - layer_.lower_angle)};
    }

    // The farther of the two places at which `origin + t * way` is at the radius, on the line of `direction`.
    std::optional<Vec3> Leaving(const Vec3& way, const Vec3& origin, const Vec3& direction) const {
        const float a = Dot(way, way);
        const float b = Dot(way, origin);
        const float root = b * b - a * (Dot(origin, origin) - radius_ * radius_);
        if (!(a > 0.0f) || !(root >= 0.0f)) return std::nullopt;
        const float t = (std::sqrt(root) - b) / a;
        if (!(t > 0.0f)) return std::nullopt;
        return origin_ + direction * t;
    }

    const ComposedLayer& layer_;
    const Texture texture_;
    Vec3 origin_;
    Vec3 corner_;
    Vec3 right_;
    Vec3 down_;
    float left_;
    float top_;
    float fov_width_;
    float fov_height_;
    float radius_ = 1.0f;
};

void AddRow(const SeenLayer& layer, bool pixel_for_pixel, std::uint32_t y, std::vector<Light>& row) {
    if (pixel_for_pixel) return layer.texture().PutRowOver(static_cast<std::int32_t>(y), row);
    for (std::size_t x = 0; x < row.size(); ++x) {
        if (const auto light = layer.LightAt(static_cast<float>(x) + 0.5f, static_cast<float>(y) + 0.5f)) {
            row[x] = Over(*light, row[x]);
        }
    }
}

// `world(light)` is how much of the world behind it is seen.
template <class World>
void StoreRow(const Levels& levels, const std::vector<Light>& row, std::uint8_t* pixel, World world) {
    for (const Light& light : row) {
        const float share = world(light);
        pixel[0] = levels.LevelOf(light.red + levels.LinearOf(pixel[0]) * share);
        pixel[1] = levels.LevelOf(light.green + levels.LinearOf(pixel[1]) * share);
        pixel[2] = levels.LevelOf(light.blue + levels.LinearOf(pixel[2]) * share);
        pixel[3] = 255;
        pixel += 4;
    }
}

void StoreRow(const std::vector<Light>& row, XrEnvironmentBlendMode mode, std::uint8_t* pixel) {
    const Levels& levels = Levels::Shared();
    switch (mode) {
        case XR_ENVIRONMENT_BLEND_MODE_ADDITIVE:
            return StoreRow(levels, row, pixel, [](const Light&) { return 1.0f; });
        case XR_ENVIRONMENT_BLEND_MODE_ALPHA_BLEND:
            return StoreRow(levels, row, pixel, [](const Light& light) { return 1.0f - light.alpha; });
        default:
            return StoreRow(levels, row, pixel, [](const Light&) { return 0.0f; });
    }
}

}  // namespace

void Compose(const std::vector<ComposedLayer>& layers, const EyeView& eye, XrEnvironmentBlendMode mode,
             std::uint32_t width, std::uint32_t height, std::uint8_t* pixels) {
    const Camera camera(eye, width, height);
    std::vector<SeenLayer> seen;
    std::vector<bool> pixel_for_pixel;
    seen.reserve(layers.size());
    for (const ComposedLayer& layer : layers) {
        seen.emplace_back(layer, camera);
        pixel_for_pixel.push_back(seen.back().IsPixelForPixel(width, height));
    }
    std::vector<Light> row(width);
    for (std::uint32_t y = 0; y < height; ++y) {
        std::fill(row.begin(), row.end(), Light{});
        for (std::size_t i = 0; i < seen.size(); ++i) AddRow(seen[i], pixel_for_pixel[i], y, row);
        StoreRow(row, mode, pixels + std::size_t{y} * width * 4);
    }
}

}  // namespace simulator
