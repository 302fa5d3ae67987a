// The application's frame loop, which is the layer's heartbeat: each frame is measured and kept for the frame tool,
// its predicted time goes to the session's context, and its thread is lent to the pose animations (after
// xrWaitFrame returned) and to deferred callbacks (after xrBeginFrame returned). Nothing that the application
// submits is changed.
#pragma once

#include <openxr/openxr.h>

namespace orvanic_xr {

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrWaitFrame(XrSession session, const XrFrameWaitInfo* frameWaitInfo,
                                                       XrFrameState* frameState);
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrBeginFrame(XrSession session, const XrFrameBeginInfo* frameBeginInfo);
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrEndFrame(XrSession session, const XrFrameEndInfo* frameEndInfo);

}  // namespace orvanic_xr
