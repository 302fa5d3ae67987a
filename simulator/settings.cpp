#include "simulator/settings.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>

namespace simulator {
namespace {

std::string_view Environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

template <class Number>
Number NumberOr(std::string_view text, Number fallback) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? value : fallback;
}

constexpr struct {
    std::string_view name;
    SceneMode mode;
} kSceneModes[] = {
    {"none", SceneMode::kNone},
    {"failed_status", SceneMode::kFailedStatus},
    {"never_locatable", SceneMode::kNeverLocatable},
    {"long_label", SceneMode::kLongLabel},
    {"many_containers", SceneMode::kManyContainers},
    {"foreign_event", SceneMode::kForeignEvent},
};

SceneMode SceneModeOf(std::string_view name) {
    for (const auto& row : kSceneModes) {
        if (row.name == name) return row.mode;
    }
    return SceneMode::kFurnished;
}

}  // namespace

Settings ReadSettings() {
    Settings settings;
    const double rate = NumberOr(Environment("VELMOOR_SIM_HZ"), settings.frames_per_second);
    if (std::isfinite(rate)) settings.frames_per_second = std::clamp(rate, 1.0, 1000.0);
    settings.seed = NumberOr(Environment("VELMOOR_SIM_SEED"), settings.seed);
    settings.scene = SceneModeOf(Environment("VELMOOR_SIM_SCENE"));
    return settings;
}

}  // namespace simulator
