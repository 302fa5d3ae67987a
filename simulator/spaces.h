// Reference spaces, action spaces, spaces of things, and where they are at a given time.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "simulator/paths.h"
#include "xr/pose_math.h"

namespace simulator {

struct Action;
struct Session;

struct Space {
    enum class Kind : std::uint8_t { kReference, kAction, kThing };

    Kind kind = Kind::kReference;
    std::shared_ptr<Session> session;
    // Of the space in what it hangs on.
    XrPosef offset = {{0, 0, 0, 1}, {0, 0, 0}};
    XrReferenceSpaceType reference = XR_REFERENCE_SPACE_TYPE_STAGE;
    std::shared_ptr<const Action> action;
    // Of an action space; none stands for whichever hand the action is bound to.
    std::optional<TopLevel> top;
    // Of a thing in the room: its place in the scene.
    std::size_t thing = 0;
};

// In world coordinates; none while the space cannot be located.
std::optional<XrPosef> WorldPose(const Space& space, XrTime time);

// Throws XR_ERROR_POSE_INVALID for what is no pose; gives it with an orientation of length 1.
XrPosef CheckedPose(const XrPosef& pose);
using orvanic_xr::RelativePose;

XRAPI_ATTR XrResult XRAPI_CALL EnumerateReferenceSpaces(XrSession session, std::uint32_t capacity, std::uint32_t* count,
                                                        XrReferenceSpaceType* spaces);
XRAPI_ATTR XrResult XRAPI_CALL CreateReferenceSpace(XrSession session, const XrReferenceSpaceCreateInfo* info,
                                                    XrSpace* space);
XRAPI_ATTR XrResult XRAPI_CALL GetReferenceSpaceBoundsRect(XrSession session, XrReferenceSpaceType type,
                                                           XrExtent2Df* bounds);
XRAPI_ATTR XrResult XRAPI_CALL CreateActionSpace(XrSession session, const XrActionSpaceCreateInfo* info,
                                                 XrSpace* space);
XRAPI_ATTR XrResult XRAPI_CALL LocateSpace(XrSpace space, XrSpace base, XrTime time, XrSpaceLocation* location);
XRAPI_ATTR XrResult XRAPI_CALL LocateSpaces(XrSession session, const XrSpacesLocateInfo* info,
                                            XrSpaceLocations* locations);
XRAPI_ATTR XrResult XRAPI_CALL DestroySpace(XrSpace space);

}  // namespace simulator
