#include "layer/negotiation.h"

#include "diagnostics/logger.h"
#include "layer/hooks.h"
#include "layer/instance_hooks.h"

namespace orvanic_xr {
namespace {

static_assert(kLayerApiVersion == 0x000100010000003B);

// On purpose: the sizes must match exactly, while the creation that follows accepts larger records.
bool ValidLoaderInfo(const XrNegotiateLoaderInfo* info) {
    static_assert(sizeof(XrNegotiateLoaderInfo) == 40);
    return info && info->structType == XR_LOADER_INTERFACE_STRUCT_LOADER_INFO &&
           info->structVersion == XR_LOADER_INFO_STRUCT_VERSION && info->structSize == sizeof(XrNegotiateLoaderInfo);
}

bool ValidRequest(const XrNegotiateApiLayerRequest* request) {
    static_assert(sizeof(XrNegotiateApiLayerRequest) == 48);
    return request && request->structType == XR_LOADER_INTERFACE_STRUCT_API_LAYER_REQUEST &&
           request->structVersion == XR_API_LAYER_INFO_STRUCT_VERSION &&
           request->structSize == sizeof(XrNegotiateApiLayerRequest);
}

XrResult Refuse(const char* reason) {
    LogError(reason);
    return XR_ERROR_INITIALIZATION_FAILED;
}

}  // namespace
}  // namespace orvanic_xr

using namespace orvanic_xr;

XrResult XRAPI_CALL xrNegotiateLoaderApiLayerInterface(const XrNegotiateLoaderInfo* loaderInfo,
                                                       const char* /*layerName*/,
                                                       XrNegotiateApiLayerRequest* apiLayerRequest) {
    LogInfo("Orvanic XR API layer negotiation started");
    if (!ValidLoaderInfo(loaderInfo)) return Refuse("loaderInfo struct is not valid");
    if (loaderInfo->minInterfaceVersion > kLoaderInterfaceVersion ||
        loaderInfo->maxInterfaceVersion < kLoaderInterfaceVersion) {
        return Refuse("loader interface version is not in the range [minInterfaceVersion, maxInterfaceVersion]");
    }
    if (loaderInfo->minApiVersion > kLayerApiVersion || loaderInfo->maxApiVersion < kLayerApiVersion) {
        return Refuse("loader api version is not in the range [minApiVersion, maxApiVersion]");
    }
    if (!ValidRequest(apiLayerRequest)) return Refuse("apiLayerRequest is not valid");
    apiLayerRequest->layerInterfaceVersion = kLoaderInterfaceVersion;
    apiLayerRequest->layerApiVersion = kLayerApiVersion;
    apiLayerRequest->getInstanceProcAddr = OrvanicLayerXrGetInstanceProcAddr;
    apiLayerRequest->createApiLayerInstance = OrvanicLayerXrCreateApiLayerInstance;
    LogInfo("Orvanic XR API layer initialized");
    return XR_SUCCESS;
}
