#include "diagnostics/telemetry_event.h"

#include <fmt/format.h>

#include <chrono>
#include <random>

namespace orvanic_xr {

std::string TelemetryTimestamp(std::int64_t system_ns) {
    using namespace std::chrono;
    const auto now = floor<seconds>(nanoseconds(system_ns));
    const auto today = floor<days>(now);
    const year_month_day date{sys_days(today)};
    const hh_mm_ss time(now - today);

    std::string text = "0000-00-00+00:00:00";
    const auto put = [&text](std::size_t last_digit, auto number) {
        for (std::size_t at = last_digit; number > 0; --at, number /= 10)
            text[at] = static_cast<char>('0' + number % 10);
    };
    put(3, static_cast<int>(date.year()));
    put(6, static_cast<unsigned>(date.month()));
    put(9, static_cast<unsigned>(date.day()));
    put(12, time.hours().count());
    put(15, time.minutes().count());
    put(18, time.seconds().count());
    return text;
}

std::string NewTelemetrySessionId() {
    std::random_device device("default");
    std::mt19937 twister(device());
    std::uniform_int_distribution<std::uint32_t> any;
    const std::uint32_t a = any(twister);
    const std::uint32_t b = any(twister);
    const std::uint32_t c = any(twister);
    const std::uint32_t d = any(twister);
    const std::uint32_t e = any(twister);
    return fmt::format("{:08x}-{:04x}-{:04x}-{:04x}-{:08x}{:04x}", a, b >> 16, (c & 0x0fff) | 0x4000,
                       (b & 0x3fff) | 0x8000, d, e & 0xffff);
}

void AppendJsonString(std::string& json, std::string_view text) {
    constexpr std::string_view kEscaped = "\"\\\b\f\n\r\t";
    constexpr std::string_view kLetters = "\"\\bfnrt";
    json += '"';
    for (const char c : text) {
        if (const std::size_t escape = kEscaped.find(c); escape != std::string_view::npos) {
            json += '\\';
            json += kLetters[escape];
        } else if (static_cast<unsigned char>(c) < 0x20) {
            json += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
        } else {
            json += c;
        }
    }
    json += '"';
}

}  // namespace orvanic_xr
