// The hooks that watch which action spaces and actions the application uses, and let its own pose spaces follow
// the simulated controllers once the conformance automation is active for the session. With no simulation every
// call passes with its result unchanged.
#pragma once

#include <openxr/openxr.h>

namespace orvanic_xr {

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrCreateActionSpace(XrSession session,
                                                               const XrActionSpaceCreateInfo* createInfo,
                                                               XrSpace* space);

// Called many times a frame. Simulation takes the current session, not the space's own.
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrLocateSpace(XrSpace space, XrSpace baseSpace, XrTime time,
                                                         XrSpaceLocation* location);

// An application that draws its controllers only while `isActive` shows the simulated ones.
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrGetActionStatePose(XrSession session, const XrActionStateGetInfo* getInfo,
                                                                XrActionStatePose* state);

// Hooked only when verbose: they write each change of an action's state to the log.
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrGetActionStateFloat(XrSession session, const XrActionStateGetInfo* getInfo,
                                                                 XrActionStateFloat* state);
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrGetActionStateBoolean(XrSession session,
                                                                   const XrActionStateGetInfo* getInfo,
                                                                   XrActionStateBoolean* state);

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrDestroySpace(XrSpace space);

}  // namespace orvanic_xr
