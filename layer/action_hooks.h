// The hooks that watch the application's actions come and go, so that none is used past its end.
#pragma once

#include <openxr/openxr.h>

namespace orvanic_xr {

XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrCreateAction(XrActionSet actionSet, const XrActionCreateInfo* createInfo,
                                                          XrAction* action);
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrDestroyAction(XrAction action);
// Its actions go with it.
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrDestroyActionSet(XrActionSet actionSet);

}  // namespace orvanic_xr
