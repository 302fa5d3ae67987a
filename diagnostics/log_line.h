#pragma once

// How a log line is made: the time, a logger's own prefix, a coloured tag for the level, and the parts of the
// message with nothing between them. Nothing in a message is a format: "%p" stays as it is.

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace orvanic_xr {

constexpr std::int32_t kLogDebug = 0;
constexpr std::int32_t kLogInfo = 1;
constexpr std::int32_t kLogWarning = 2;
constexpr std::int32_t kLogError = 3;

// The parts are written as a stream in the C locale writes them, by other means: the host may have set a global
// locale with decimal commas. A pointer is "0x" and lower-case digits, and null is "0".
inline void AppendLogPart(std::string& line, std::string_view part) {
    line.append(part);
}
inline void AppendLogPart(std::string& line, char part) {
    line.push_back(part);
}
void AppendLogPart(std::string& line, const char* part);  // null is "(null)"
void AppendLogPart(std::string& line, const void* part);
void AppendLogPart(std::string& line, double part);  // six significant digits

// Text of somebody on the network, wherever it enters a line: its control bytes are written as "\x0a", so that it
// can neither begin a line nor steer a terminal, and beyond the limit only its length is told.
struct PeerText {
    std::string_view text;
    std::size_t limit = 200;
};
inline constexpr std::size_t kErrorTextBytes = 400;  // the limit of an error's text, half of which may be the peer's
void AppendLogPart(std::string& line, PeerText part);
std::string ShownPeerText(std::string_view text);  // for a message that is put together before it is logged

// Bytes are numbers here, and a bool is 1 or 0.
template <std::integral Integer>
void AppendLogPart(std::string& line, Integer part) {
    char text[24];
    using Wide = std::conditional_t<std::is_signed_v<Integer>, std::int64_t, std::uint64_t>;
    line.append(text, std::to_chars(text, text + sizeof text, static_cast<Wide>(part)).ptr);
}

template <typename Enum>
requires std::is_enum_v<Enum>
void AppendLogPart(std::string& line, Enum part) {
    AppendLogPart(line, static_cast<std::underlying_type_t<Enum>>(part));
}

template <typename Function>
requires std::is_function_v<Function>
void AppendLogPart(std::string& line, Function* part) {
    AppendLogPart(line, reinterpret_cast<const void*>(part));
}

// The part of a line that is the same for all messages of one level. A level outside 0 to 3 has no tag.
std::string BeginLogLine(std::string_view prefix, std::int32_t level);

template <typename... Parts>
std::string LogLine(std::string_view prefix, std::int32_t level, const Parts&... parts) {
    std::string line = BeginLogLine(prefix, level);
    (AppendLogPart(line, parts), ...);
    return line;
}

// While one that is on lives, info lines of this thread count as debug lines, in the log of the layer and of its
// server.
class QuietLines {
 public:
    explicit QuietLines(bool is_on) noexcept;
    ~QuietLines();
    QuietLines(const QuietLines&) = delete;
    QuietLines& operator=(const QuietLines&) = delete;

    // Whether a line of that level is written where `lowest` is the lowest that is.
    static bool LetThrough(std::int32_t level, std::int32_t lowest) noexcept {
        return level >= lowest && (level >= kLogError || !AreOn());
    }

 private:
    static bool AreOn() noexcept;

    const bool before_;
};

// Both for the whole process's console: one write, complete with the host's own buffered output before it.
void WriteToStandardOutput(std::string_view text) noexcept;
void WriteToStandardError(std::string_view text) noexcept;

}  // namespace orvanic_xr
