#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/fakes/log_capture.h"

namespace orvanic_xr {

// The lines of one level, as "WARNING", without it.
inline std::vector<std::string> MessagesOf(const LogCapture& log, std::string_view level) {
    std::vector<std::string> messages = log.lines(level);
    for (std::string& message : messages) message.erase(0, level.size() + 1);
    return messages;
}

}  // namespace orvanic_xr
