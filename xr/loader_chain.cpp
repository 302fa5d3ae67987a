#include "xr/loader_chain.h"

#include <cstring>
#include <vector>

namespace orvanic_xr {

ToldExtensions AskForExtensions(PFN_xrGetInstanceProcAddr get_instance_proc_addr) {
    using Failure = ToldExtensions::Failure;
    PFN_xrEnumerateInstanceExtensionProperties enumerate = nullptr;
    get_instance_proc_addr(XR_NULL_HANDLE, "xrEnumerateInstanceExtensionProperties",
                           reinterpret_cast<PFN_xrVoidFunction*>(&enumerate));
    if (!enumerate) return {Failure::kNoFunction, XR_ERROR_FUNCTION_UNSUPPORTED, {}};
    std::uint32_t count = 0;
    XrResult result = enumerate(nullptr, 0, &count, nullptr);
    if (XR_FAILED(result)) return {Failure::kFirstCall, result, {}};
    if (count == 0) return {};
    std::vector<XrExtensionProperties> properties(count, {XR_TYPE_EXTENSION_PROPERTIES, nullptr, {}, 0});
    result = enumerate(nullptr, count, &count, properties.data());
    if (XR_FAILED(result)) return {Failure::kSecondCall, result, {}};
    ToldExtensions told;
    for (const XrExtensionProperties& extension : properties) {
        const std::size_t length = strnlen(extension.extensionName, sizeof extension.extensionName);
        if (length > 0) told.names.emplace(extension.extensionName, length);
    }
    return told;
}

}  // namespace orvanic_xr
