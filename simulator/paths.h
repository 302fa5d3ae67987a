// Paths of one instance.
#pragma once

#include <openxr/openxr.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "xr/input/paths.h"

namespace simulator {

using xr_input::BitOf;
using xr_input::kTopLevelCount;
using xr_input::kTopLevelPaths;
using xr_input::SplitPath;
using xr_input::SplitTopLevel;
using xr_input::TopLevel;
using xr_input::TopLevels;

// One level of a path: not empty, nothing but a-z, 0-9, '-', '_', '.', and not dots alone.
bool IsPathLevel(std::string_view text);
bool IsWellFormedPath(std::string_view text);

class PathTable {
 public:
    // XR_NULL_PATH when the table is full.
    XrPath Intern(std::string_view text);
    // Null for what is no path of this instance.
    const std::string* TextOf(XrPath path) const;

 private:
    std::map<std::string, XrPath, std::less<>> by_text_;
    std::vector<const std::string*> by_path_;
};

XRAPI_ATTR XrResult XRAPI_CALL StringToPath(XrInstance instance, const char* text, XrPath* path);
XRAPI_ATTR XrResult XRAPI_CALL PathToString(XrInstance instance, XrPath path, std::uint32_t capacity,
                                            std::uint32_t* count, char* buffer);

}  // namespace simulator
