#include "diagnostics/telemetry_event.h"

#include <fmt/format.h>

#include <chrono>
#include <random>

namespace orvanic_xr {

std::string TelemetryTimestamp(std::int64_t system_ns) {
    using namespace std::chrono;
    const sys_seconds now{floor<seconds>(nanoseconds(system_ns))};
    const sys_days today = floor<days>(now);
    const year_month_day date(today);
    const hh_mm_ss time(now - today);
    return fmt::format("{:04}-{:02}-{:02}+{:02}:{:02}:{:02}", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), time.hours().count(),
                       time.minutes().count(), time.seconds().count());
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

std::string JsonString(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        switch (c) {
            case '"':
                quoted += "\\\"";
                break;
            case '\\':
                quoted += "\\\\";
                break;
            case '\b':
                quoted += "\\b";
                break;
            case '\f':
                quoted += "\\f";
                break;
            case '\n':
                quoted += "\\n";
                break;
            case '\r':
                quoted += "\\r";
                break;
            case '\t':
                quoted += "\\t";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    quoted += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
                } else {
                    quoted += c;
                }
        }
    }
    quoted += '"';
    return quoted;
}

}  // namespace orvanic_xr
