#include "diagnostics/log_file_sink.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "diagnostics/clock.h"
#include "diagnostics/local_time.h"
#include "diagnostics/log_line.h"
#include "diagnostics/mcp_logger.h"

namespace orvanic_xr {

namespace {

struct EndSessionAtExit {
    ~EndSessionAtExit() { LogFileSink::instance().end_session(); }
};

constexpr bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

template <typename... Parts>
void TellConsole(const Parts&... parts) {
    std::string line = "[Velmoor] ";
    (AppendLogPart(line, parts), ...);
    line.push_back('\n');
    WriteToStandardError(line);
}

bool IsThere(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

// "2026-01-02_03-04-05-006_4242"
std::string SessionStem() {
    const std::int64_t now_ns = SystemNanoseconds();
    const std::string milliseconds = std::to_string(1000 + now_ns / 1'000'000 % 1000).substr(1);
    return LocalTimeText(now_ns, "%Y-%m-%d_%H-%M-%S") + "-" + milliseconds + "_" + std::to_string(getpid());
}

std::string LogFileName(std::string_view session_name) {
    if (session_name.empty()) return "orvanic_xr.log";
    std::string name(session_name);
    std::replace(name.begin(), name.end(), '-', '_');
    return name + ".log";
}

std::string ExecutablePath() {
    std::array<char, 1023> path;
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    return length < 0 ? std::string() : std::string(path.data(), static_cast<std::size_t>(length));
}

std::string SessionHeader() {
    return "==== orvanic_xr session ====\n"
           "  started: " +
           LocalTimeText(SystemNanoseconds(), kDateAndTime) +
           "\n"
           "  pid: " +
           std::to_string(getpid()) +
           "\n"
           "  platform: linux\n"
           "  executable: " +
           ExecutablePath() +
           "\n"
           "============================\n";
}

}  // namespace

LogFileSink& LogFileSink::instance() {
    static LogFileSink& the = *new LogFileSink;  // never destroyed: threads may log while static destructors run
    static const EndSessionAtExit footer;
    return the;
}

LogFileSink::~LogFileSink() {
    end_session();
}

void LogFileSink::begin_session(std::string_view name) noexcept try {
    // Before the lock, so that no line on its way here through that sink can wait for it.
    mcp::logger::instance().set_sink({});
    std::string path;
    {
        const std::lock_guard lock(mutex_);
        path = OpenSessionLocked(name);
    }
    if (path.empty()) return;
    mcp::logger::instance().set_sink([this](const std::string& line) { write_line(line); });
    TellConsole("file logging enabled: ", path);
} catch (...) {  // no memory: as without a file
}

std::string LogFileSink::OpenSessionLocked(std::string_view name) {
    if (active_.load(std::memory_order_relaxed)) {
        TellConsole("LogFileSink::begin_session called twice; ignoring (still writing to '", file_path_, ")");
        return {};
    }
    const std::string root = LogRoot();
    if (!CreateDirectories(root)) {
        TellConsole("LogFileSink: failed to create log root '", root, "' — file logging disabled");
        return {};
    }
    const std::string stem = SessionStem();
    const std::string directory = root + "/" + (name.empty() ? stem : std::string(name) + "_" + stem);
    if (!CreateDirectories(directory)) {
        TellConsole("LogFileSink: failed to create session dir '", directory, "' — file logging disabled");
        return {};
    }
    const std::string path = directory + "/" + LogFileName(name);
    if (!stream_.Open(path)) {
        TellConsole("LogFileSink: failed to open '", path, "' — file logging disabled");
        return {};
    }
    session_directory_ = directory;
    file_path_ = path;
    active_.store(true, std::memory_order_release);
    stream_.Write(SessionHeader());
    return path;
}

void LogFileSink::write_line(std::string_view text) noexcept try {
    if (!active_.load(std::memory_order_acquire)) return;
    const std::lock_guard lock(mutex_);
    if (!active_.load(std::memory_order_relaxed) || stream_.failed()) return;
    line_.clear();
    AppendWithoutAnsi(line_, text);
    if (!text.ends_with('\n')) line_.push_back('\n');
    stream_.Write(line_);
} catch (...) {  // no memory for the copy
}

void LogFileSink::end_session() noexcept try {
    if (!active_.load(std::memory_order_acquire)) return;
    mcp::logger::instance().set_sink({});  // before the lock, as in begin_session
    const std::lock_guard lock(mutex_);
    if (!active_.load(std::memory_order_relaxed)) return;
    stream_.Write("==== session ended at " + LocalTimeText(SystemNanoseconds(), kDateAndTime) + " ====\n");
    stream_.Close();
    active_.store(false, std::memory_order_release);
    session_directory_.clear();
    file_path_.clear();
} catch (...) {  // no memory for the footer
}

void AppendWithoutAnsi(std::string& plain, std::string_view text) {
    for (;;) {
        const std::size_t sequence = text.find("\x1b[");
        plain.append(text.substr(0, sequence));
        if (sequence == std::string_view::npos) return;
        text.remove_prefix(sequence + 2);
        text.remove_prefix(std::min<std::size_t>(
            text.size(),
            static_cast<std::size_t>(std::find_if(text.begin(), text.end(), IsLetter) - text.begin()) + 1));
    }
}

std::string LogRoot() {
    const char* state_home = std::getenv("XDG_STATE_HOME");
    if (state_home && *state_home) return std::string(state_home) + "/velmoor/logs";
    const char* home = std::getenv("HOME");
    if (home) return std::string(home) + "/.local/state/velmoor/logs";  // an empty HOME is used as it stands
    return "/tmp/velmoor/logs";
}

bool CreateDirectories(std::string_view path) {
    for (std::size_t end = 0; end <= path.size(); ++end) {
        if (end < path.size() && path[end] != '/' && path[end] != '\\') continue;
        const std::string part(path.substr(0, end));
        if (part.empty() || (part.size() == 2 && IsLetter(part[0]) && part[1] == ':')) continue;
        if (!IsThere(part) && mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
    }
    return IsThere(std::string(path));
}

}  // namespace orvanic_xr
