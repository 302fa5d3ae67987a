#pragma once

// The log of the MCP server's code. While a log file is open its lines go there and nowhere else; without one
// they go to standard error.

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "diagnostics/log_line.h"

namespace mcp {

class logger {
 public:
    using sink = std::function<void(const std::string&)>;

    logger() = default;
    logger(const logger&) = delete;
    logger& operator=(const logger&) = delete;

    static logger& instance();

    std::int32_t level() const noexcept { return level_.load(std::memory_order_relaxed); }
    void set_level(std::int32_t level);

    // The sink gets each line without its newline, with no lock held. An empty sink means standard error.
    void set_sink(sink new_sink);

    template <typename... Parts>
    void log(std::int32_t line_level, const Parts&... parts) noexcept {
        if (!orvanic_xr::QuietLines::LetThrough(line_level, level())) return;
        try {
            write(orvanic_xr::LogLine("[cpp-mcp]   ", line_level, parts...));
        } catch (...) {  // no memory for the line
        }
    }

 private:
    void write(std::string line);

    std::mutex mutex_;  // sink_; also taken to change level_. Never held together with the log file's lock.
    sink sink_;
    std::atomic<std::int32_t> level_{orvanic_xr::kLogInfo};
};

template <typename... Parts>
void log_debug(const Parts&... parts) noexcept {
    logger::instance().log(orvanic_xr::kLogDebug, parts...);
}

template <typename... Parts>
void log_info(const Parts&... parts) noexcept {
    logger::instance().log(orvanic_xr::kLogInfo, parts...);
}

template <typename... Parts>
void log_warning(const Parts&... parts) noexcept {
    logger::instance().log(orvanic_xr::kLogWarning, parts...);
}

template <typename... Parts>
void log_error(const Parts&... parts) noexcept {
    logger::instance().log(orvanic_xr::kLogError, parts...);
}

}  // namespace mcp
