// The loader's way in, and the lookup of every other function by its name.
#pragma once

#include <openxr/openxr.h>
#include <openxr/openxr_loader_negotiation.h>

namespace simulator {

XRAPI_ATTR XrResult XRAPI_CALL GetInstanceProcAddr(XrInstance instance, const char* name, PFN_xrVoidFunction* function);

}  // namespace simulator
