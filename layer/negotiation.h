// The library's one entry point for the OpenXR loader.
#pragma once

#include <openxr/openxr.h>
#include <openxr/openxr_loader_negotiation.h>

#include <cstdint>

namespace orvanic_xr {

inline constexpr std::uint32_t kLoaderInterfaceVersion = 1;
inline constexpr XrVersion kLayerApiVersion = XR_MAKE_VERSION(1, 1, 59);

}  // namespace orvanic_xr

// Compares what the loader offers with what the layer speaks, and hands over the lookup and the create function.
// XR_ERROR_INITIALIZATION_FAILED, with an error line, if they don't fit. `layerName` plays no part yet.
extern "C" __attribute__((visibility("default"))) XrResult XRAPI_CALL xrNegotiateLoaderApiLayerInterface(
    const XrNegotiateLoaderInfo* loaderInfo, const char* layerName, XrNegotiateApiLayerRequest* apiLayerRequest);
