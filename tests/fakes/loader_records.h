// What the loader hands to a layer's create function.
#pragma once

#include <openxr/openxr.h>
#include <openxr/openxr_loader_negotiation.h>

#include <cstring>

namespace orvanic_xr {

inline XrApiLayerNextInfo NextInfo(const char* layer, PFN_xrGetInstanceProcAddr get_instance_proc_addr,
                                   PFN_xrCreateApiLayerInstance create, XrApiLayerNextInfo* next = nullptr) {
    XrApiLayerNextInfo info = {
        XR_LOADER_INTERFACE_STRUCT_API_LAYER_NEXT_INFO, 1, 296, {}, get_instance_proc_addr, create, next};
    std::strcpy(info.layerName, layer);
    return info;
}

inline XrApiLayerCreateInfo LayerInfo(XrApiLayerNextInfo* next) {
    return {XR_LOADER_INTERFACE_STRUCT_API_LAYER_CREATE_INFO, 1, 544, nullptr, {}, next};
}

}  // namespace orvanic_xr
