#include "tests/fakes/log_capture.h"

#include <utility>

namespace orvanic_xr {
namespace {

constexpr const char* kLevelNames[] = {"DEBUG ", "INFO ", "WARNING ", "ERROR "};
constexpr std::string_view kEndOfTag = "]\x1b[0m ";

}  // namespace

LogCapture::LogCapture(std::int32_t level) : level_before_(Logger::instance().level()) {
    Logger::instance().set_level(level);
    Logger::instance().set_observer(this);
}

LogCapture::~LogCapture() {
    Logger::instance().set_observer(nullptr);
    Logger::instance().set_level(level_before_);
}

std::vector<std::string> LogCapture::take() {
    std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
}

std::vector<std::string> LogCapture::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

std::vector<std::string> LogCapture::lines(std::string_view level) const {
    std::vector<std::string> found = lines();
    std::erase_if(found, [&](const std::string& line) { return !line.starts_with(level); });
    return found;
}

std::vector<std::string> LogCapture::messages(std::string_view level) const {
    std::vector<std::string> found = lines(level);
    for (std::string& message : found) message.erase(0, level.size() + 1);
    return found;
}

void LogCapture::OnLogLine(std::int32_t level, std::string_view line) {
    const std::string_view message = line.substr(line.find(kEndOfTag) + kEndOfTag.size());
    std::lock_guard lock(mutex_);
    lines_.push_back(std::string(kLevelNames[level]).append(message));
}

}  // namespace orvanic_xr
