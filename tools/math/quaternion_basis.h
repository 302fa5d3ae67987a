// From direction vectors to a quaternion, in 32-bit floats. -Z is forward, +Y is up, +X is right.
#pragma once

#include <openxr/openxr.h>

namespace orvanic_xr {

float Length(const XrVector3f& v);

// Scaled to unit length. What is so short that its squared length is no normal float comes back unchanged, so
// nothing is divided by zero.
XrVector3f safe_normalize(const XrVector3f& v);
XrQuaternionf safe_normalize(const XrQuaternionf& q);

// The rotation that takes +X to `right`, +Y to `up` and -Z to `front`, which are orthonormal. Not normalised.
XrQuaternionf quaternion_from_basis(const XrVector3f& right, const XrVector3f& up, const XrVector3f& front);

}  // namespace orvanic_xr
