#include "simulator/head.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "xr/pose_math.h"

namespace simulator {
namespace {

constexpr double kTwoPi = 6.283185307179586;

// Metres for x, y and z, radians for yaw and pitch.
struct Motion {
    double amplitude;
    double cycles_per_second;
};
constexpr Motion kSway[] = {{0.020, 0.11}, {0.008, 0.23}, {0.015, 0.13}, {0.050, 0.07}, {0.030, 0.09}};

XrQuaternionf AroundAxis(const XrVector3f& axis, double angle) {
    const auto sine = static_cast<float>(std::sin(angle / 2));
    return {axis.x * sine, axis.y * sine, axis.z * sine, static_cast<float>(std::cos(angle / 2))};
}

}  // namespace

HeadSway::HeadSway(std::uint32_t seed) {
    // The generator's output is fixed by the standard; that of the library's distributions is not.
    std::mt19937 random(seed);
    for (double& phase : phases_) phase = kTwoPi * static_cast<double>(random()) / 4294967296.0;
}

XrPosef HeadSway::At(XrTime time) const {
    const double seconds = epoch_ == 0 ? 0.0 : static_cast<double>(std::max<XrTime>(time - epoch_, 0)) / 1e9;
    std::array<double, kMotions> offset;
    for (std::size_t i = 0; i < kMotions; ++i) {
        offset[i] = kSway[i].amplitude * std::sin(kTwoPi * kSway[i].cycles_per_second * seconds + phases_[i]);
    }
    const XrQuaternionf yaw = AroundAxis({0, 1, 0}, offset[3]);
    const XrQuaternionf pitch = AroundAxis({1, 0, 0}, offset[4]);
    const XrVector3f sway = {static_cast<float>(offset[0]), static_cast<float>(offset[1]),
                             static_cast<float>(offset[2])};
    return {orvanic_xr::Multiply(yaw, pitch), orvanic_xr::Add(kStartingPoint, sway)};
}

}  // namespace simulator
