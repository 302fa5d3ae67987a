#include "command/testing/baselines.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <system_error>
#include <utility>

namespace velmoor {
namespace {

namespace fs = std::filesystem;

// The first that an application enabled names how it renders.
constexpr std::array<std::pair<std::string_view, std::string_view>, 4> kGraphics{{
    {"XR_KHR_vulkan_enable2", "vulkan"},
    {"XR_KHR_vulkan_enable", "vulkan"},
    {"XR_KHR_opengl_es_enable", "opengles"},
    {"XR_KHR_opengl_enable", "opengl"},
}};

bool is_gpu(std::string_view device) {
    constexpr std::string_view kNvidia = "nvidia";  // and a number; others of that name are no GPUs
    if (device.starts_with(kNvidia)) return device.size() > kNvidia.size() && std::isdigit(device[kNvidia.size()]) != 0;
    return device.starts_with("renderD") || device == "dxg";
}

bool has_gpu(const fs::path& directory) {
    std::error_code error;
    for (fs::directory_iterator each(directory, error), end; !error && each != end; each.increment(error)) {
        if (is_gpu(each->path().filename().string())) return true;
    }
    return false;
}

bool may_stand_in_name(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '.' || c == '_' ||
           c == '-';
}

std::string file_name(std::string_view text) {
    std::string made;
    bool is_in_gap = false;
    for (const char each : text) {
        const bool is_gap = !may_stand_in_name(each);
        if (!is_gap || !is_in_gap) made += is_gap ? '-' : each;
        is_in_gap = is_gap;
    }
    return made;
}

}  // namespace

std::string renderer_name(std::span<const std::string> enabled_extensions, bool has_gpu) {
    const auto* const found = std::ranges::find_if(kGraphics, [&](const auto& each) {
        return std::ranges::find(enabled_extensions, each.first) != enabled_extensions.end();
    });
    const std::string_view graphics = found == kGraphics.end() ? "headless" : found->second;
    return std::string(graphics) + (has_gpu ? "-gpu" : "-software");
}

bool machine_has_gpu() {
    return has_gpu("/dev") || has_gpu("/dev/dri");
}

fs::path baseline_path(const fs::path& test, const baseline_key& key) {
    const std::string name = key.picture + "." + key.runtime + "." + key.renderer + "." + key.eye;
    return test.parent_path() / "baselines" / test.stem() / (file_name(name) + ".png");
}

}  // namespace velmoor
