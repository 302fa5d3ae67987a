#include "layer/path_translation.h"

#include <algorithm>
#include <iterator>

namespace orvanic_xr {
namespace {

constexpr std::string_view kLeftHandPrefix = "/user/hand/left/";
constexpr std::string_view kRightHandPrefix = "/user/hand/right/";
constexpr std::string_view kKeep = "keep";
constexpr std::string_view kDrop = "drop";

struct PathRow {
    std::string_view source;  // behind the hand
    std::string_view left;    // what stands there instead, kKeep or kDrop
    std::string_view right;
};

// A path that is not here is dropped.
constexpr PathRow kPaths[] = {
    {"output/haptic", kKeep, kKeep},
    {"input/grip/pose", kKeep, kKeep},
    {"input/aim/pose", kKeep, kKeep},
    {"input/palm_ext/pose", kDrop, kDrop},
    {"input/palm/pose", kDrop, kDrop},
    {"input/squeeze/value", kKeep, kKeep},
    {"input/squeeze/click", "input/squeeze/value", "input/squeeze/value"},
    {"input/squeeze/force", "input/squeeze/value", "input/squeeze/value"},
    {"input/trigger/value", kKeep, kKeep},
    {"input/trigger/click", "input/trigger/value", "input/trigger/value"},
    {"input/trigger/touch", kKeep, kKeep},
    {"input/trigger/proximity", kKeep, kKeep},
    {"input/trigger/force", kKeep, kKeep},
    {"input/trigger/curl_kest", kKeep, kKeep},
    {"input/trigger/slide_kest", kKeep, kKeep},
    {"input/thumbstick", kKeep, kKeep},
    {"input/thumbstick/x", kKeep, kKeep},
    {"input/thumbstick/y", kKeep, kKeep},
    {"input/thumbstick/click", kKeep, kKeep},
    {"input/thumbstick/touch", kKeep, kKeep},
    {"input/thumbrest/touch", kKeep, kKeep},
    {"input/thumbrest/force", kDrop, kDrop},
    {"input/select/click", "input/x/click", "input/a/click"},
    {"input/menu/click", kKeep, "input/system/click"},
    {"input/system/click", kDrop, kKeep},
    {"input/x/click", kKeep, kDrop},
    {"input/x/touch", kKeep, kDrop},
    {"input/y/click", kKeep, kDrop},
    {"input/y/touch", kKeep, kDrop},
    {"input/a/click", kDrop, kKeep},
    {"input/a/touch", kDrop, kKeep},
    {"input/b/click", kDrop, kKeep},
    {"input/b/touch", kDrop, kKeep},
};

}  // namespace

std::optional<std::string> ProntoControllerPlusPath(std::string_view path) {
    const bool left = path.starts_with(kLeftHandPrefix);
    if (!left && !path.starts_with(kRightHandPrefix)) return std::nullopt;
    const std::string_view prefix = left ? kLeftHandPrefix : kRightHandPrefix;
    const auto row = std::ranges::find(kPaths, path.substr(prefix.size()), &PathRow::source);
    if (row == std::end(kPaths)) return std::nullopt;
    const std::string_view target = left ? row->left : row->right;
    if (target == kDrop) return std::nullopt;
    return target == kKeep ? std::string(path) : std::string(prefix).append(target);
}

}  // namespace orvanic_xr
