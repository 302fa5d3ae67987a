#include "layer/dispatch/paths.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "layer/dispatch/dispatch.h"

namespace orvanic_xr {

XrResult StringToPath(XrInstance instance, const std::string& text, XrPath& path) {
    path = XR_NULL_PATH;
    const auto string_to_path = DispatchHolder::instance().Slot(&NextDispatchTable::StringToPath);
    if (!string_to_path) return XR_ERROR_FUNCTION_UNSUPPORTED;
    XrPath found = XR_NULL_PATH;
    const XrResult result = string_to_path(instance, text.c_str(), &found);
    if (XR_SUCCEEDED(result)) path = found;
    return result;
}

XrPath PathFromText(XrInstance instance, const std::string& text) {
    XrPath path = XR_NULL_PATH;
    StringToPath(instance, text, path);
    return path;
}

std::string TextFromPath(XrInstance instance, XrPath path) {
    const auto path_to_string = DispatchHolder::instance().Slot(&NextDispatchTable::PathToString);
    if (!path_to_string) return {};
    std::array<char, XR_MAX_PATH_LENGTH> buffer{};
    std::uint32_t count = 0;
    if (XR_FAILED(path_to_string(instance, path, static_cast<std::uint32_t>(buffer.size()), &count, buffer.data()))) {
        return {};
    }
    return std::string(buffer.data(), strnlen(buffer.data(), buffer.size()));
}

}  // namespace orvanic_xr
