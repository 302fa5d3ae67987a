#include "diagnostics/log_line.h"

#include <cstdio>

#include "diagnostics/local_time.h"

namespace orvanic_xr {

namespace {

constexpr std::string_view kLevelTags[] = {
    "\x1b[36m[DEBUG]\x1b[0m ",
    "\x1b[32m[INFO]\x1b[0m ",
    "\x1b[33m[WARNING]\x1b[0m ",
    "\x1b[31m[ERROR]\x1b[0m ",
};

constexpr std::size_t kUsualLineLength = 256;

void WriteThrough(std::FILE* stream, std::string_view text) noexcept {
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

}  // namespace

void AppendLogPart(std::string& line, const char* part) {
    line.append(part ? part : "(null)");
}

void AppendLogPart(std::string& line, const void* part) {
    char text[2 * sizeof part];
    const auto address = reinterpret_cast<std::uintptr_t>(part);
    if (address != 0) line.append("0x");
    line.append(text, std::to_chars(text, text + sizeof text, address, 16).ptr);
}

void AppendLogPart(std::string& line, double part) {
    constexpr int kSignificantDigits = 6;
    char text[32];
    line.append(text,
                std::to_chars(text, text + sizeof text, part, std::chars_format::general, kSignificantDigits).ptr);
}

std::string BeginLogLine(std::string_view prefix, std::int32_t level) {
    std::string line;
    line.reserve(kUsualLineLength);
    AppendLogTime(line);
    line.append(prefix);
    if (level >= kLogDebug && level <= kLogError) line.append(kLevelTags[level]);
    return line;
}

void WriteToStandardOutput(std::string_view text) noexcept {
    WriteThrough(stdout, text);
}

void WriteToStandardError(std::string_view text) noexcept {
    WriteThrough(stderr, text);
}

}  // namespace orvanic_xr
