#include "simulator/renderer/surfaces.h"

#include <algorithm>
#include <cmath>

namespace simulator {
namespace {

using Meeting = Projection::Meeting;

// How much of a pixel a stripe around `distance` 0 covers.
float Stripe(float distance, float half_width, float pixel) {
    const float inside = std::clamp((half_width - std::abs(distance)) / pixel + 0.5f, 0.0f, 1.0f);
    // A stripe that is thinner than a pixel is fainter instead.
    return inside * std::min(2.0f * half_width / pixel, 1.0f);
}

// The same for stripes at every multiple of `spacing`.
float Stripes(float place, float spacing, float half_width, float pixel) {
    return Stripe(place - spacing * std::round(place / spacing), half_width, pixel);
}

// 0 below `edge`, 1 above it.
float Step(float edge, float place, float pixel) {
    return std::clamp((place - edge) / pixel + 0.5f, 0.0f, 1.0f);
}

// A grid of half metres, stronger at whole ones, and the axes of the STAGE space: x red, z blue.
Vec3 FloorPaint(const Face& face, const Meeting& at) {
    const Vec3 point = face.PointAt(at.u, at.v);
    const float x_pixel = std::max(at.u_per_pixel, 1e-5f);
    const float z_pixel = std::max(at.v_per_pixel, 1e-5f);
    const float fine = std::max(Stripes(point.x, 0.5f, 0.004f, x_pixel), Stripes(point.z, 0.5f, 0.004f, z_pixel));
    const float coarse = std::max(Stripes(point.x, 1.0f, 0.009f, x_pixel), Stripes(point.z, 1.0f, 0.009f, z_pixel));
    Vec3 paint = Mix(face.colour, face.colour * 0.55f, fine);
    paint = Mix(paint, face.colour * 0.3f, coarse);
    const float x_axis = Stripe(point.z, 0.014f, z_pixel) * Step(0.0f, point.x, x_pixel);
    const float z_axis = Stripe(point.x, 0.014f, x_pixel) * Step(0.0f, point.z, z_pixel);
    paint = Mix(paint, {0.75f, 0.06f, 0.05f}, x_axis);
    return Mix(paint, {0.05f, 0.16f, 0.75f}, z_axis);
}

// A skirting board, and a darker coat up to a rail, so that up and down are plain to see.
Vec3 WallPaint(const Face& face, const Meeting& at) {
    const float pixel = std::max(at.v_per_pixel, 1e-5f);
    Vec3 paint = Mix(face.colour * 0.62f, face.colour, Step(0.9f, at.v, pixel));
    paint = Mix(paint, {0.75f, 0.73f, 0.70f}, Stripe(at.v - 0.9f, 0.018f, pixel));
    return Mix(Vec3{0.70f, 0.68f, 0.66f}, paint, Step(0.09f, at.v, pixel));
}

// Edges catch a little less light.
Vec3 PlainPaint(const Face& face, const Meeting& at) {
    const float u_edge = std::min(at.u, face.width - at.u);
    const float v_edge = std::min(at.v, face.height - at.v);
    const float bevel = std::min(0.008f, 0.08f * std::min(face.width, face.height));
    const float line = std::max(Stripe(u_edge, bevel, std::max(at.u_per_pixel, 1e-5f)),
                                Stripe(v_edge, bevel, std::max(at.v_per_pixel, 1e-5f)));
    return Mix(face.colour, face.colour * 0.55f, line);
}

Vec3 Paint(const Face& face, const Meeting& at) {
    switch (face.material) {
        case Material::kFloor:
            return FloorPaint(face, at);
        case Material::kWall:
            return WallPaint(face, at);
        default:
            return PlainPaint(face, at);
    }
}

}  // namespace

Vec3 ColourOf(const Face& face, const LightMap* light, const Meeting& place) {
    if (face.material == Material::kGlowing) return PlainPaint(face, place) * (1.0f + 0.2f * face.normal.y);
    const Vec3 paint = Paint(face, place);
    if (light) return paint * light->At(place.u / face.width, place.v / face.height);
    return paint * (0.75f + 0.35f * face.normal.y + 0.15f * face.normal.z);
}

Vec3 SkyColour(const Vec3& direction) {
    const float rise = direction.y / Length(direction);
    constexpr Vec3 kHorizon = {0.62f, 0.70f, 0.78f};
    constexpr Vec3 kZenith = {0.10f, 0.24f, 0.55f};
    constexpr Vec3 kGround = {0.10f, 0.11f, 0.12f};
    if (rise < 0.0f) return Mix(kHorizon * 0.6f, kGround, std::min(-rise * 5.0f, 1.0f));
    return Mix(kHorizon, kZenith, std::sqrt(rise));
}

}  // namespace simulator
