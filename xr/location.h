// What xrLocateSpace tells, read in one way everywhere.
#pragma once

#include <openxr/openxr.h>

#include <optional>

#include "xr/pose_math.h"

namespace orvanic_xr {

inline constexpr XrSpaceLocationFlags kPoseValid =
    XR_SPACE_LOCATION_ORIENTATION_VALID_BIT | XR_SPACE_LOCATION_POSITION_VALID_BIT;
inline constexpr XrSpaceLocationFlags kPoseValidAndTracked =
    kPoseValid | XR_SPACE_LOCATION_ORIENTATION_TRACKED_BIT | XR_SPACE_LOCATION_POSITION_TRACKED_BIT;

// A pose counts only as a whole: with one of the two bits the other half is undefined.
constexpr bool HasValidPose(XrSpaceLocationFlags flags) {
    return (flags & kPoseValid) == kPoseValid;
}

// `pose`, given in `space`, as seen from `base_space` at `time` (metres); nothing where the runtime can't tell.
// `locate_space` takes what xrLocateSpace takes.
template <typename LocateSpace>
std::optional<XrPosef> PoseInSpace(const LocateSpace& locate_space, XrSpace space, XrSpace base_space, XrTime time,
                                   const XrPosef& pose) {
    XrSpaceLocation location{XR_TYPE_SPACE_LOCATION, nullptr, 0, {}};
    if (XR_FAILED(locate_space(space, base_space, time, &location))) return std::nullopt;
    if (!HasValidPose(location.locationFlags)) return std::nullopt;
    return Compose(location.pose, pose);
}

}  // namespace orvanic_xr
