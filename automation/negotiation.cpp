#include "automation/negotiation.h"

#include <cstdint>

namespace {

constexpr std::uint32_t kInterfaceVersion = 1;
constexpr XrVersion kApiVersion = XR_MAKE_VERSION(1, 1, 59);

bool IsGood(const XrNegotiateLoaderInfo* info) {
    return info && info->structType == XR_LOADER_INTERFACE_STRUCT_LOADER_INFO &&
           info->structVersion == XR_LOADER_INFO_STRUCT_VERSION && info->structSize == sizeof(XrNegotiateLoaderInfo) &&
           info->minInterfaceVersion <= kInterfaceVersion && info->maxInterfaceVersion >= kInterfaceVersion &&
           info->minApiVersion <= kApiVersion && info->maxApiVersion >= kApiVersion;
}

bool IsGood(const XrNegotiateApiLayerRequest* request) {
    return request && request->structType == XR_LOADER_INTERFACE_STRUCT_API_LAYER_REQUEST &&
           request->structVersion == XR_API_LAYER_INFO_STRUCT_VERSION &&
           request->structSize == sizeof(XrNegotiateApiLayerRequest);
}

}  // namespace

__attribute__((visibility("default"))) XrResult XRAPI_CALL xrNegotiateLoaderApiLayerInterface(
    const XrNegotiateLoaderInfo* loader_info, const char* /*layer_name*/, XrNegotiateApiLayerRequest* request) {
    if (!IsGood(loader_info) || !IsGood(request)) return XR_ERROR_INITIALIZATION_FAILED;
    request->layerInterfaceVersion = kInterfaceVersion;
    request->layerApiVersion = kApiVersion;
    request->getInstanceProcAddr = automation::GetInstanceProcAddr;
    request->createApiLayerInstance = automation::CreateApiLayerInstance;
    return XR_SUCCESS;
}
