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

}  // namespace

Settings ReadSettings() {
    Settings settings;
    const double rate = NumberOr(Environment("VELMOOR_SIM_HZ"), settings.frames_per_second);
    if (std::isfinite(rate)) settings.frames_per_second = std::clamp(rate, 1.0, 1000.0);
    settings.seed = NumberOr(Environment("VELMOOR_SIM_SEED"), settings.seed);
    return settings;
}

}  // namespace simulator
