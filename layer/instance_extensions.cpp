#include "layer/instance_extensions.h"

#include <cstring>

#include "diagnostics/logger.h"

namespace orvanic_xr {

ExtensionNames MergeWantedExtensions(std::span<const char* const> enabled, const std::set<std::string>& available) {
    ExtensionNames merged(enabled.begin(), enabled.end());
    std::set<std::string> present;
    for (const char* name : enabled) {
        if (name) present.insert(name);
    }
    for (const char* wanted : kWantedExtensions) {
        if (!available.contains(wanted)) {
            LogWarning("Extension not available: ", wanted);
        } else if (present.contains(wanted)) {
            LogDebug("Extension already enabled: ", wanted);
        } else {
            LogInfo("Adding extension to instance create info: ", wanted);
            merged.push_back(wanted);
        }
    }
    return merged;
}

ExtensionNames WithoutOwnExtension(std::span<const char* const> names) {
    ExtensionNames kept;
    for (const char* name : names) {
        if (name && std::strcmp(name, kExternalToolExtension) == 0) {
            LogInfo("Application enabled XR_KESTX1_orvanic_external_tool");
        } else {
            kept.push_back(name);
        }
    }
    return kept;
}

}  // namespace orvanic_xr
