// Paths of one instance, and the top level paths that devices sit on.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

enum class TopLevel : std::uint8_t { kLeftHand, kRightHand, kHead, kGamepad, kTreadmill };
inline constexpr std::array<std::string_view, 5> kTopLevelPaths = {"/user/hand/left", "/user/hand/right", "/user/head",
                                                                   "/user/gamepad", "/user/treadmill"};
inline constexpr std::size_t kTopLevelCount = kTopLevelPaths.size();

// The top level path that `path` is or lies below, and what follows it without the slash between.
struct SplitPath {
    TopLevel top;
    std::string_view rest;
};
std::optional<SplitPath> SplitTopLevel(std::string_view path);

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
