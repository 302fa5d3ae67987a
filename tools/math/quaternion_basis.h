// From direction vectors to a quaternion, in 32-bit floats. -Z is forward, +Y is up, +X is right.
#pragma once

#include <openxr/openxr.h>

namespace orvanic_xr {

// The rotation that takes +X to `right`, +Y to `up` and -Z to `front`, which are orthonormal. Not normalised.
XrQuaternionf quaternion_from_basis(const XrVector3f& right, const XrVector3f& up, const XrVector3f& front);

}  // namespace orvanic_xr
