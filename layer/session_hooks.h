// The hooks that keep ContextManager in step with the application's session: which one is current, in which state,
// on which system. They make and drop the contexts of a session and tell the capture backend and the pose
// animations when one starts and ends. Each returns what the runtime returned.
#pragma once

#include <openxr/openxr.h>

#include <atomic>
#include <thread>

namespace orvanic_xr {

// The thread of the last successful xrBeginSession. Nothing depends on it: deferred callbacks run on whichever
// thread polls events or begins a frame.
extern std::atomic<std::thread::id> mainThreadId;

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrCreateSession(XrInstance instance, const XrSessionCreateInfo* createInfo,
                                                           XrSession* session);
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrBeginSession(XrSession session, const XrSessionBeginInfo* beginInfo);
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrEndSession(XrSession session);
// On purpose the end of any session marks the current one invalid, also if that is a newer one.
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrDestroySession(XrSession session);
// Only watches: the event reaches the application as it came.
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrPollEvent(XrInstance instance, XrEventDataBuffer* eventData);

}  // namespace orvanic_xr
