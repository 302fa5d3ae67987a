#include "diagnostics/local_time.h"

#include <cstddef>
#include <ctime>
#include <limits>
#include <string_view>

#include "diagnostics/clock.h"

namespace orvanic_xr {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

std::size_t FormatLocalTime(std::int64_t seconds, const char* format, char* text, std::size_t size) noexcept {
    const std::time_t time = seconds;
    std::tm local{};
    localtime_r(&time, &local);
    return std::strftime(text, size, format, &local);
}

// Needs no constructor and no destructor, so a thread can still log while its other thread-locals go.
struct TimeOfThisSecond {
    std::int64_t second;
    std::size_t length;
    char text[40];
};

constinit thread_local TimeOfThisSecond last_time{std::numeric_limits<std::int64_t>::min(), 0, {}};

}  // namespace

std::string LocalTimeText(std::int64_t system_ns, const char* format) {
    char text[64];
    return {text, FormatLocalTime(system_ns / kNanosecondsPerSecond, format, text, sizeof text)};
}

void AppendLogTime(std::string& line) {
    const std::int64_t second = SystemNanoseconds() / kNanosecondsPerSecond;
    TimeOfThisSecond& last = last_time;
    if (last.second != second) {
        last.length = FormatLocalTime(second, "\x1b[90m%Y-%m-%d %H:%M:%S\x1b[0m ", last.text, sizeof last.text);
        last.second = second;
    }
    line.append(last.text, last.length);
}

}  // namespace orvanic_xr
