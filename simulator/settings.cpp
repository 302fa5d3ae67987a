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

Settings::EyeSize EyeSizeOr(std::string_view text, Settings::EyeSize fallback) {
    constexpr std::uint32_t kMost = 16384;
    const std::size_t cross = text.find('x');
    if (cross == std::string_view::npos) return fallback;
    const Settings::EyeSize size = {NumberOr(text.substr(0, cross), std::uint32_t{0}),
                                    NumberOr(text.substr(cross + 1), std::uint32_t{0})};
    const bool is_good = size.width >= 1 && size.width <= kMost && size.height >= 1 && size.height <= kMost;
    return is_good ? size : fallback;
}

bool HasWord(std::string_view words, std::string_view wanted) {
    while (!words.empty()) {
        const std::size_t end = std::min(words.find(','), words.size());
        if (words.substr(0, end) == wanted) return true;
        words.remove_prefix(std::min(end + 1, words.size()));
    }
    return false;
}

ClockMode ClockOf(std::string_view name) {
    if (name == "stepped") return ClockMode::kStepped;
    return name == "fixed" ? ClockMode::kFixed : ClockMode::kReal;
}

}  // namespace

Settings ReadSettings() {
    Settings settings;
    const double rate = NumberOr(Environment("VELMOOR_SIM_HZ"), settings.frames_per_second);
    if (std::isfinite(rate)) settings.frames_per_second = std::clamp(rate, 1.0, 1000.0);
    settings.clock = ClockOf(Environment("VELMOOR_SIM_CLOCK"));
    settings.control = Environment("VELMOOR_SIM_CONTROL");
    settings.seed = NumberOr(Environment("VELMOOR_SIM_SEED"), settings.seed);
    if (Environment("VELMOOR_SIM_SCENE") == "none") settings.scene = SceneMode::kNone;
    settings.eye_size = EyeSizeOr(Environment("VELMOOR_SIM_EYE_SIZE"), settings.eye_size);
    settings.without_automation = HasWord(Environment("VELMOOR_SIM_WITHOUT"), "automation");
    settings.without_capture = HasWord(Environment("VELMOOR_SIM_WITHOUT"), "capture");
    settings.strict = Environment("VELMOOR_SIM_STRICT") == "1";
    return settings;
}

}  // namespace simulator
