// The chain of API layers as the OpenXR loader describes it at creation.
#pragma once

#include <openxr/openxr.h>
#include <openxr/openxr_loader_negotiation.h>

namespace orvanic_xr {

// Whether an entry is the published record or a larger one; its `next` may be followed then.
constexpr bool IsReadable(const XrApiLayerNextInfo& entry) {
    static_assert(sizeof(XrApiLayerNextInfo) == 296);
    return entry.structType == XR_LOADER_INTERFACE_STRUCT_API_LAYER_NEXT_INFO && entry.structVersion != 0 &&
           entry.structSize >= sizeof(XrApiLayerNextInfo);
}

}  // namespace orvanic_xr
