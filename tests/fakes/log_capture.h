// The lines of the layer's log while it lives, so that a test says which must come:
//
//     LogCapture log;
//     ...
//     EXPECT_THAT(log.take(), ElementsAre("ERROR Next xrWaitFrame is null"));
//
// A line is its level and its message. One at a time; lines may come from any thread.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics/logger.h"

namespace orvanic_xr {

class LogCapture final : private LogObserver {
 public:
    // Lines below `level` are not written and so not seen; the level before comes back in the end.
    explicit LogCapture(std::int32_t level = kLogInfo);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // The lines since the beginning or the last take.
    std::vector<std::string> take();
    std::vector<std::string> lines() const;
    // Those of one level, as "WARNING".
    std::vector<std::string> lines(std::string_view level) const;
    std::vector<std::string> messages(std::string_view level) const;  // without the level

 private:
    void OnLogLine(std::int32_t level, std::string_view line) override;

    const std::int32_t level_before_;
    // Guards lines_. Taken with the Logger's mutex held.
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

}  // namespace orvanic_xr
