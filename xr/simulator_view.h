// What the simulator's wearer sees through: for the simulator, and for those who compute with its pictures.
#pragma once

#include <openxr/openxr.h>

#include "xr/pose_math.h"

namespace orvanic_xr {

inline constexpr char kSimulatorSystemName[] = "Velmoor Simulator";
inline constexpr XrFovf kSimulatorFieldOfView = {-0.7854f, 0.7854f, 0.7854f, -0.7854f};
inline constexpr float kSimulatorHalfEyeDistance = 0.0315f;

// Of the left eye (0) or the right (1), for a head at `head`.
constexpr XrPosef SimulatorEye(const XrPosef& head, int eye) {
    const float right = eye == 0 ? -kSimulatorHalfEyeDistance : kSimulatorHalfEyeDistance;
    return Compose(head, {kIdentityPose.orientation, {right, 0, 0}});
}

}  // namespace orvanic_xr
