// What the loader asks of the layer, and what it offers to a layer above.
#pragma once

#include <openxr/openxr.h>
#include <openxr/openxr_loader_negotiation.h>

namespace automation {

XRAPI_ATTR XrResult XRAPI_CALL CreateApiLayerInstance(const XrInstanceCreateInfo* info,
                                                      const XrApiLayerCreateInfo* layer_info, XrInstance* instance);
// Null as the instance asks for what can be called without one: the layer's own extensions. The layer does not know yet
// what lies below it, and the loader must not be asked from here.
XRAPI_ATTR XrResult XRAPI_CALL GetInstanceProcAddr(XrInstance instance, const char* name, PFN_xrVoidFunction* function);

}  // namespace automation

extern "C" XRAPI_ATTR XrResult XRAPI_CALL xrNegotiateLoaderApiLayerInterface(const XrNegotiateLoaderInfo* loader_info,
                                                                             const char* layer_name,
                                                                             XrNegotiateApiLayerRequest* request);
