#include "tools/math/quaternion_basis.h"

#include <cmath>

#include "xr/pose_math.h"

namespace orvanic_xr {

XrQuaternionf quaternion_from_basis(const XrVector3f& right, const XrVector3f& up, const XrVector3f& front) {
    // The columns of the rotation matrix are right, up and back.
    const auto [m00, m10, m20] = right;
    const auto [m01, m11, m21] = up;
    const auto [m02, m12, m22] = Negate(front);
    const float trace = m00 + m11 + m22;
    if (trace > 0.0f) {
        const float s = 0.5f / std::sqrt(trace + 1.0f);
        return {(m21 - m12) * s, (m02 - m20) * s, (m10 - m01) * s, 0.25f / s};
    }
    // The largest of x, y and z is computed first and divides; of two that are equal, the later one.
    if (m00 > m11 && m00 > m22) {
        const float s = 2.0f * std::sqrt(1.0f + m00 - m11 - m22);
        return {0.25f * s, (m01 + m10) / s, (m02 + m20) / s, (m21 - m12) / s};
    }
    if (m11 > m22) {
        const float s = 2.0f * std::sqrt(1.0f + m11 - m00 - m22);
        return {(m01 + m10) / s, 0.25f * s, (m12 + m21) / s, (m02 - m20) / s};
    }
    const float s = 2.0f * std::sqrt(1.0f + m22 - m00 - m11);
    return {(m02 + m20) / s, (m12 + m21) / s, 0.25f * s, (m10 - m01) / s};
}

}  // namespace orvanic_xr
