#pragma once

// The layer's own log. A line goes to the host's console (errors to standard error, the rest to standard
// output) and, while a session of LogFileSink is open, to its file. Any thread, at any time, static
// destructors included; a failure to log never leaves the call.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "diagnostics/log_line.h"

namespace orvanic_xr {

// Sees every line that is written, whole, before the console and the file do. It is called under the Logger's
// mutex, so it must not log. For tests.
class LogObserver {
 public:
    virtual void OnLogLine(std::int32_t level, std::string_view line) = 0;

 protected:
    ~LogObserver() = default;
};

// Lock order: `mutex_` of Logger, then the mutex of LogFileSink.
class Logger {
 public:
    constexpr Logger() = default;
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    static Logger& instance() noexcept { return instance_; }

    // The lowest level that is written.
    std::int32_t level() const noexcept { return level_.load(std::memory_order_relaxed); }
    void set_level(std::int32_t level);

    // One at a time; null for none. Once it returns the one before is not called any more.
    void set_observer(LogObserver* observer);

    // A filtered call costs the comparison and builds nothing.
    template <typename... Parts>
    void Log(std::int32_t line_level, const Parts&... parts) noexcept {
        if (!QuietLines::LetThrough(line_level, level())) return;
        try {
            Write(line_level, LogLine("[Velmoor] ", line_level, parts...));
        } catch (...) {  // no memory for the line
        }
    }

 private:
    void Write(std::int32_t line_level, std::string line);

    std::mutex mutex_;  // one line at a time to the sinks; also taken to change the two below
    std::atomic<std::int32_t> level_{kLogInfo};
    LogObserver* observer_ = nullptr;

    static Logger instance_;
};

template <typename... Parts>
void Log(std::int32_t level, const Parts&... parts) noexcept {
    Logger::instance().Log(level, parts...);
}

template <typename... Parts>
void LogDebug(const Parts&... parts) noexcept {
    Logger::instance().Log(kLogDebug, parts...);
}

template <typename... Parts>
void LogInfo(const Parts&... parts) noexcept {
    Logger::instance().Log(kLogInfo, parts...);
}

template <typename... Parts>
void LogWarning(const Parts&... parts) noexcept {
    Logger::instance().Log(kLogWarning, parts...);
}

template <typename... Parts>
void LogError(const Parts&... parts) noexcept {
    Logger::instance().Log(kLogError, parts...);
}

}  // namespace orvanic_xr
