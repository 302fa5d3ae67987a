// Vectors as the renderer uses them: points and directions in world coordinates, and colours in linear light.
#pragma once

#include <openxr/openxr.h>

#include <cmath>

#include "xr/pose_math.h"

namespace simulator {

struct Vec3 {
    constexpr Vec3() = default;
    constexpr Vec3(float x_, float y_, float z_) : x(x_), y(y_), z(z_) {}
    // NOLINTNEXTLINE(google-explicit-constructor): the same vector under the API's name
    constexpr Vec3(const XrVector3f& v) : x(v.x), y(v.y), z(v.z) {}

    float x = 0.0f;
    float y = 0.0f;
    float z = 0.0f;
};

constexpr Vec3 operator+(const Vec3& a, const Vec3& b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
constexpr Vec3 operator-(const Vec3& a, const Vec3& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
constexpr Vec3 operator*(const Vec3& v, float factor) {
    return {v.x * factor, v.y * factor, v.z * factor};
}
// Each part by its counterpart, as a colour in a coloured light.
constexpr Vec3 operator*(const Vec3& a, const Vec3& b) {
    return {a.x * b.x, a.y * b.y, a.z * b.z};
}
constexpr float Dot(const Vec3& a, const Vec3& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline float Length(const Vec3& v) {
    return std::sqrt(Dot(v, v));
}
constexpr Vec3 Mix(const Vec3& a, const Vec3& b, float share_of_b) {
    return a + (b - a) * share_of_b;
}
constexpr Vec3 Rotated(const XrQuaternionf& orientation, const Vec3& v) {
    return orvanic_xr::Rotate(orientation, {v.x, v.y, v.z});
}

}  // namespace simulator
