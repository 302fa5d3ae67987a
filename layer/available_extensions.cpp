#include "layer/available_extensions.h"

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "diagnostics/logger.h"
#include "external/fixed_text.h"

namespace orvanic_xr {
namespace {

// What the layer or runtime behind `get_instance_proc_addr` tells; nothing if it doesn't answer, which is logged.
std::optional<std::set<std::string>> AskForExtensions(PFN_xrGetInstanceProcAddr get_instance_proc_addr) {
    PFN_xrEnumerateInstanceExtensionProperties enumerate = nullptr;
    get_instance_proc_addr(XR_NULL_HANDLE, "xrEnumerateInstanceExtensionProperties",
                           reinterpret_cast<PFN_xrVoidFunction*>(&enumerate));
    if (!enumerate) {
        LogWarning("xrEnumerateInstanceExtensionProperties function is not available");
        return std::nullopt;
    }
    std::uint32_t count = 0;
    XrResult result = enumerate(nullptr, 0, &count, nullptr);
    if (XR_FAILED(result)) {
        LogWarning("Failed to enumerate instance extensions (first call), result: ", result);
        return std::nullopt;
    }
    std::set<std::string> names;
    if (count == 0) {
        LogInfo("No instance extensions available");
        return names;
    }
    std::vector<XrExtensionProperties> properties(count, {XR_TYPE_EXTENSION_PROPERTIES, nullptr, {}, 0});
    result = enumerate(nullptr, count, &count, properties.data());
    if (XR_FAILED(result)) {
        LogWarning("Failed to enumerate instance extensions (second call), result: ", result);
        return std::nullopt;
    }
    for (const XrExtensionProperties& extension : properties) {
        if (extension.extensionName[0] != '\0') names.emplace(TextOf(extension.extensionName));
    }
    LogInfo("Queried available extensions, count: ", names.size());
    return names;
}

}  // namespace

std::set<std::string> AvailableExtensions(const ChainBelow& chain) {
    // A layer can answer for itself alone: at this moment it does not know what lies below it. Some don't answer at
    // all. The last entry leads to the runtime.
    std::set<std::string> all;
    if (auto told = AskForExtensions(chain.next_get_instance_proc_addr)) all = *std::move(told);
    for (const XrApiLayerNextInfo* entry = chain.create_info.nextInfo; entry && IsReadable(*entry);
         entry = entry->next) {
        if (!entry->nextGetInstanceProcAddr) continue;
        LogInfo("Asking below ", TextOf(entry->layerName), " for instance extensions");
        if (auto told = AskForExtensions(entry->nextGetInstanceProcAddr)) all.merge(*told);
    }
    return all;
}

}  // namespace orvanic_xr
