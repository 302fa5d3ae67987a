#include "simulator/renderer/projection.h"

#include <algorithm>
#include <cmath>

namespace simulator {
namespace {

constexpr float kLeastDepth = 0.02f;
constexpr float kLargestDepth = 1000.0f;

Linear operator-(const Linear& a, const Linear& b) {
    return {a.origin - b.origin, a.per_x - b.per_x, a.per_y - b.per_y};
}

Linear operator*(const Linear& a, float factor) {
    return {a.origin * factor, a.per_x * factor, a.per_y * factor};
}

Linear operator+(const Linear& a, const Linear& b) {
    return {a.origin + b.origin, a.per_x + b.per_x, a.per_y + b.per_y};
}

// The part of the view's direction that goes along `axis`.
Linear Along(const Vec3& axis, const Camera& camera) {
    return {Dot(axis, camera.corner), Dot(axis, camera.right), Dot(axis, camera.down)};
}

// How much a quotient of two linear functions changes from one pixel to the next.
float ChangePerPixel(const Linear& numerator, const Linear& denominator, float quotient, float inverse) {
    const float along_x = numerator.per_x - quotient * denominator.per_x;
    const float along_y = numerator.per_y - quotient * denominator.per_y;
    return (std::abs(along_x) + std::abs(along_y)) * inverse;
}

}  // namespace

std::optional<Projection> Projection::Of(const Face& face, const Camera& camera) {
    const Vec3 from_corner = camera.position - face.corner;
    const float distance = Dot(face.normal, from_corner);
    if (!(distance > 1e-5f)) return std::nullopt;
    Projection seen;
    seen.inverse_depth = Along(face.normal, camera) * (-1.0f / distance);
    seen.u = Along(face.right, camera) + seen.inverse_depth * Dot(face.right, from_corner);
    seen.v = Along(face.up, camera) + seen.inverse_depth * Dot(face.up, from_corner);
    seen.bounds[0] = seen.u;
    seen.bounds[1] = seen.inverse_depth * face.width - seen.u;
    seen.bounds[2] = seen.v;
    seen.bounds[3] = seen.inverse_depth * face.height - seen.v;
    seen.bounds[4] = seen.inverse_depth - Linear{1.0f / kLargestDepth, 0.0f, 0.0f};
    seen.bounds[5] = Linear{1.0f / kLeastDepth, 0.0f, 0.0f} - seen.inverse_depth;
    return seen;
}

bool Projection::Covers(float x, float y) const {
    return std::all_of(std::begin(bounds), std::end(bounds), [&](const Linear& bound) { return bound.At(x, y) >= 0; });
}

Projection::Meeting Projection::MeetingAt(float x, float y) const {
    Meeting meeting;
    meeting.inverse_depth = inverse_depth.At(x, y);
    const float depth = 1.0f / meeting.inverse_depth;
    meeting.u = u.At(x, y) * depth;
    meeting.v = v.At(x, y) * depth;
    meeting.u_per_pixel = ChangePerPixel(u, inverse_depth, meeting.u, depth);
    meeting.v_per_pixel = ChangePerPixel(v, inverse_depth, meeting.v, depth);
    return meeting;
}

Projection::Span Projection::SpanOfRow(float y, std::uint32_t picture_width) const {
    float first = 0.0f;
    float end = static_cast<float>(picture_width);
    for (const Linear& bound : bounds) {
        const float at_first_middle = bound.At(0.5f, y);
        if (bound.per_x > 0.0f) first = std::max(first, std::ceil(-at_first_middle / bound.per_x));
        if (bound.per_x < 0.0f) end = std::min(end, std::floor(at_first_middle / -bound.per_x) + 1.0f);
        // Poses that leave the range of a float make something that is no number; nothing is seen of them.
        if (bound.per_x == 0.0f ? !(at_first_middle >= 0.0f) : !std::isfinite(at_first_middle)) return {0, 0};
    }
    if (!(first < end)) return {0, 0};
    return {static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(end)};
}

}  // namespace simulator
