#include "diagnostics/log_line.h"

#include <stdio_ext.h>

#include <cerrno>
#include <cstdio>

#include "diagnostics/local_time.h"
#include "diagnostics/write_signals.h"

namespace orvanic_xr {

namespace {

constexpr std::string_view kLevelTags[] = {
    "\x1b[36m[DEBUG]\x1b[0m ",
    "\x1b[32m[INFO]\x1b[0m ",
    "\x1b[33m[WARNING]\x1b[0m ",
    "\x1b[31m[ERROR]\x1b[0m ",
};

constexpr std::size_t kUsualLineLength = 256;

constinit thread_local bool lines_are_quiet = false;

// The second group of control characters is two bytes long in UTF-8.
bool IsControl(std::string_view text, std::size_t at) {
    const auto byte_at = [text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
    const unsigned byte = byte_at(at);
    return byte < 0x20 || byte == 0x7F || (byte == 0xC2 && byte_at(at + 1) >= 0x80 && byte_at(at + 1) < 0xA0);
}

// Where a text is cut, not inside of a character.
std::size_t CutAt(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return text.size();
    std::size_t end = limit;
    while (end > limit - 3 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return end;
}

void WriteThrough(std::FILE* stream, std::string_view text) noexcept {
    const HeldWriteSignals held;
    flockfile(stream);
    const bool nothing_of_host = __fpending(stream) == 0;
    const bool written = std::fwrite(text.data(), 1, text.size(), stream) == text.size() && std::fflush(stream) == 0;
    // What is left in the buffer would be written again at exit, and raise the signal there.
    if (!written && errno == EPIPE && nothing_of_host) __fpurge(stream);
    funlockfile(stream);
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

void AppendLogPart(std::string& line, PeerText part) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const std::string_view shown = part.text.substr(0, CutAt(part.text, part.limit));
    for (std::size_t i = 0; i < shown.size(); ++i) {
        if (IsControl(shown, i)) {
            const auto byte = static_cast<unsigned char>(shown[i]);
            line.append({'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]});
        } else {
            line.push_back(shown[i]);
        }
    }
    if (shown.size() == part.text.size()) return;
    line.append("...(");
    AppendLogPart(line, part.text.size());
    line.append(" bytes)");
}

std::string ShownPeerText(std::string_view text) {
    std::string shown;
    AppendLogPart(shown, PeerText{text});
    return shown;
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

QuietLines::QuietLines(bool is_on) noexcept : before_(lines_are_quiet) {
    lines_are_quiet = before_ || is_on;
}

QuietLines::~QuietLines() {
    lines_are_quiet = before_;
}

bool QuietLines::AreOn() noexcept {
    return lines_are_quiet;
}

}  // namespace orvanic_xr
