// XR_EXT_hand_tracking: plain relaxed hands, which are where the controllers are, and nowhere while those are not held.
#pragma once

#include <openxr/openxr.h>

#include <cstddef>
#include <memory>

#include "simulator/paths.h"

namespace simulator {

struct Session;

struct HandTracker {
    std::shared_ptr<Session> session;
    TopLevel hand = TopLevel::kLeftHand;
};

XRAPI_ATTR XrResult XRAPI_CALL CreateHandTrackerEXT(XrSession session, const XrHandTrackerCreateInfoEXT* info,
                                                    XrHandTrackerEXT* tracker);
XRAPI_ATTR XrResult XRAPI_CALL DestroyHandTrackerEXT(XrHandTrackerEXT tracker);
XRAPI_ATTR XrResult XRAPI_CALL LocateHandJointsEXT(XrHandTrackerEXT tracker, const XrHandJointsLocateInfoEXT* info,
                                                   XrHandJointLocationsEXT* locations);

}  // namespace simulator
