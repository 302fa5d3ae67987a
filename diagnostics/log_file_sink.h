#pragma once

// The log file of one session: <state home>/velmoor/logs/<name>_<time>-<ms>_<pid>/<name>.log. Problems with the
// file are told once on standard error, straight and not through a logger, and the file is left out.

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>

#include "diagnostics/append_file.h"

namespace orvanic_xr {

// Any thread. Taken last: nothing is locked and nobody is called while `mutex_` is held.
class LogFileSink {
 public:
    LogFileSink() = default;
    ~LogFileSink();
    LogFileSink(const LogFileSink&) = delete;
    LogFileSink& operator=(const LogFileSink&) = delete;

    // Its open session ends with a footer when the process exits normally.
    static LogFileSink& instance();

    // Opens a new file and takes the lines of mcp::logger into it. While a session is open another one is
    // refused with a warning. On purpose mcp::logger has lost its sink by then and writes to standard error.
    void begin_session(std::string_view name) noexcept;
    void end_session() noexcept;

    // One line without its escape sequences; a newline is added unless there is one. Without an open session
    // it costs one atomic read.
    void write_line(std::string_view text) noexcept;

 private:
    std::string OpenSessionLocked(std::string_view name);  // the path of the file, empty on failure

    std::mutex mutex_;  // everything below; active_ is also read without it
    std::string session_directory_;
    std::string file_path_;
    AppendFile stream_;
    std::string line_;  // the line being written; kept for its memory
    std::atomic<bool> active_{false};
};

// Appends `text` to `plain` without sequences of escape, "[" and everything up to the next letter.
void AppendWithoutAnsi(std::string& plain, std::string_view text);

// The directory of all sessions' directories, from XDG_STATE_HOME or HOME. It need not be there.
std::string LogRoot();

// Creates `path` with its parents; false if it is not there in the end. An empty path is a failure.
bool CreateDirectories(std::string_view path);

}  // namespace orvanic_xr
