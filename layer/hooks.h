// Which OpenXR functions the layer intercepts, and the lookup that hands them to the loader.
#pragma once

#include <openxr/openxr.h>

#include <string_view>

namespace orvanic_xr {

// The hook of an OpenXR function, or null. Exact and case sensitive; the same for every instance and for none.
PFN_xrVoidFunction FindHook(std::string_view name);

// The lookup that the loader and the layer above are given: hooks first, then the next layer's answer. Any
// thread, with or without an instance.
XRAPI_ATTR XrResult XRAPI_CALL OrvanicLayerXrGetInstanceProcAddr(XrInstance instance, const char* name,
                                                                 PFN_xrVoidFunction* function);

}  // namespace orvanic_xr
