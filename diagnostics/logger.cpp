#include "diagnostics/logger.h"

#include <string_view>
#include <type_traits>

#include "diagnostics/log_file_sink.h"

namespace orvanic_xr {

// Ready before any constructor runs, and there until the process is gone.
constinit Logger Logger::instance_;
static_assert(std::is_trivially_destructible_v<Logger>);

void Logger::set_level(std::int32_t level) {
    const std::lock_guard lock(mutex_);
    level_.store(level, std::memory_order_relaxed);
}

void Logger::set_observer(LogObserver* observer) {
    const std::lock_guard lock(mutex_);
    observer_ = observer;
}

void Logger::Write(std::int32_t line_level, std::string line) {
    const std::size_t length = line.size();
    line.push_back('\n');

    const std::lock_guard lock(mutex_);
    if (observer_) observer_->OnLogLine(line_level, std::string_view(line).substr(0, length));
    if (line_level == kLogError) {
        WriteToStandardError(line);
    } else {
        WriteToStandardOutput(line);
    }
    LogFileSink::instance().write_line(std::string_view(line).substr(0, length));
}

}  // namespace orvanic_xr
