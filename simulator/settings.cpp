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

constexpr struct {
    std::string_view name;
    CaptureMode mode;
} kCaptureModes[] = {
    {"no_size", CaptureMode::kNoSize},
    {"too_large", CaptureMode::kTooLarge},
    {"growing", CaptureMode::kGrowing},
};

template <class Rows, class Mode>
Mode ModeOf(const Rows& rows, std::string_view name, Mode otherwise) {
    for (const auto& row : rows) {
        if (row.name == name) return row.mode;
    }
    return otherwise;
}

Settings::EyeSize EyeSizeOr(std::string_view text, Settings::EyeSize fallback) {
    constexpr std::uint32_t kMost = 16384;
    const std::size_t cross = text.find('x');
    if (cross == std::string_view::npos) return fallback;
    const Settings::EyeSize size = {NumberOr(text.substr(0, cross), std::uint32_t{0}),
                                    NumberOr(text.substr(cross + 1), std::uint32_t{0})};
    const bool is_good = size.width >= 1 && size.width <= kMost && size.height >= 1 && size.height <= kMost;
    return is_good ? size : fallback;
}

}  // namespace

Settings ReadSettings() {
    Settings settings;
    const double rate = NumberOr(Environment("VELMOOR_SIM_HZ"), settings.frames_per_second);
    if (std::isfinite(rate)) settings.frames_per_second = std::clamp(rate, 1.0, 1000.0);
    settings.seed = NumberOr(Environment("VELMOOR_SIM_SEED"), settings.seed);
    settings.scene = ModeOf(kSceneModes, Environment("VELMOOR_SIM_SCENE"), settings.scene);
    settings.eye_size = EyeSizeOr(Environment("VELMOOR_SIM_EYE_SIZE"), settings.eye_size);
    settings.capture = ModeOf(kCaptureModes, Environment("VELMOOR_SIM_CAPTURE"), settings.capture);
    settings.strict = Environment("VELMOOR_SIM_STRICT") == "1";
    return settings;
}

}  // namespace simulator
