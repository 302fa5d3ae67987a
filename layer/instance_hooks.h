// Where the layer comes alive and where it is taken down again: the creation and destruction of the instance.
#pragma once

#include <openxr/openxr.h>
#include <openxr/openxr_loader_negotiation.h>

namespace orvanic_xr {

// Handed to the loader by negotiation. Refuses records that it can't work with; for the rest the result is the
// next layer's. On purpose that result decides nothing here: a refused instance still leaves a table, the cached
// application and a running server.
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrCreateApiLayerInstance(const XrInstanceCreateInfo* info,
                                                                    const XrApiLayerCreateInfo* layerInfo,
                                                                    XrInstance* instance);

// The server is stopped before the instance goes, so no tool reaches a dead one through it. The dispatch table
// and the cached application stay.
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrDestroyInstance(XrInstance instance);

}  // namespace orvanic_xr
