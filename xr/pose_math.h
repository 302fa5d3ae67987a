// Quaternion and pose algebra in 32-bit floats, once for the hooks, the animations, the conversions and the
// scene. Quaternions multiply by the Hamilton product; nothing is normalised unasked, and conjugation stands for
// the inverse, so unit quaternions are assumed where a rotation is meant.
#pragma once

#include <openxr/openxr.h>

#include <cmath>
#include <limits>
#include <optional>

namespace orvanic_xr {

inline constexpr XrPosef kIdentityPose = {{0.0f, 0.0f, 0.0f, 1.0f}, {0.0f, 0.0f, 0.0f}};

constexpr XrVector3f Add(const XrVector3f& a, const XrVector3f& b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}

constexpr XrVector3f Negate(const XrVector3f& v) {
    return {-v.x, -v.y, -v.z};
}

constexpr XrVector3f Cross(const XrVector3f& a, const XrVector3f& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

constexpr float Dot(const XrVector3f& a, const XrVector3f& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

constexpr float Dot(const XrQuaternionf& a, const XrQuaternionf& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w;
}

inline float Length(const XrVector3f& v) {
    return std::sqrt(Dot(v, v));
}

// Scaled to unit length. What is so short that its squared length is no normal float comes back unchanged, so
// nothing is divided by zero.
inline XrVector3f safe_normalize(const XrVector3f& v) {
    const float squared_length = Dot(v, v);
    if (squared_length < std::numeric_limits<float>::min()) return v;
    const float scale = 1.0f / std::sqrt(squared_length);
    return {v.x * scale, v.y * scale, v.z * scale};
}

inline XrQuaternionf safe_normalize(const XrQuaternionf& q) {
    const float squared_length = Dot(q, q);
    if (squared_length < std::numeric_limits<float>::min()) return q;
    const float scale = 1.0f / std::sqrt(squared_length);
    return {q.x * scale, q.y * scale, q.z * scale, q.w * scale};
}

constexpr XrQuaternionf Multiply(const XrQuaternionf& a, const XrQuaternionf& b) {
    return {a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y,  //
            a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,  //
            a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w,  //
            a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

constexpr XrQuaternionf Conjugate(const XrQuaternionf& q) {
    return {-q.x, -q.y, -q.z, q.w};
}

// The vector part of q * (v, 0) * conjugate(q).
constexpr XrVector3f Rotate(const XrQuaternionf& q, const XrVector3f& v) {
    const XrQuaternionf rotated = Multiply(Multiply(q, {v.x, v.y, v.z, 0.0f}), Conjugate(q));
    return {rotated.x, rotated.y, rotated.z};
}

// Pose `b`, given in the space of which `a` is the pose, in the space in which `a` is given.
constexpr XrPosef Compose(const XrPosef& a, const XrPosef& b) {
    return {Multiply(a.orientation, b.orientation), Add(a.position, Rotate(a.orientation, b.position))};
}

// The pose `target` as seen from `base`, both given in one space.
constexpr XrPosef RelativePose(const XrPosef& target, const XrPosef& base) {
    const XrQuaternionf inverse = Conjugate(base.orientation);
    return {Multiply(inverse, target.orientation), Rotate(inverse, Add(target.position, Negate(base.position)))};
}

// With an orientation of length 1; nothing for what OpenXR refuses as XR_ERROR_POSE_INVALID.
inline std::optional<XrPosef> GoodPose(const XrPosef& pose) {
    const auto& [x, y, z, w] = pose.orientation;
    const float length = std::sqrt(x * x + y * y + z * z + w * w);
    const bool is_unit = std::fabs(length - 1.0f) <= 0.01f;
    const bool is_finite =
        std::isfinite(pose.position.x) && std::isfinite(pose.position.y) && std::isfinite(pose.position.z);
    // A length that is no number fails the first test.
    if (!is_unit || !is_finite) return std::nullopt;
    return XrPosef{{x / length, y / length, z / length, w / length}, pose.position};
}

// Number for number: -0 is 0, and NaN is nothing's equal.
constexpr bool SamePose(const XrPosef& a, const XrPosef& b) {
    return a.orientation.x == b.orientation.x && a.orientation.y == b.orientation.y &&
           a.orientation.z == b.orientation.z && a.orientation.w == b.orientation.w && a.position.x == b.position.x &&
           a.position.y == b.position.y && a.position.z == b.position.z;
}

}  // namespace orvanic_xr
