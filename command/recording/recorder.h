// Writes what passes the bridge, call by call, for later.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>

#include "command/bridge/tool_source.h"
#include "mcp/client/descriptor.h"

namespace velmoor {

struct recorder_settings {
    std::string directory;  // made if it is not there; an earlier recording in it is refused
    std::size_t limit = 0;  // bytes of lines and pictures together
    json header;            // what the first line tells beside the format and the time
};

// Any thread. Has to be owned by a shared_ptr: calls that are under way keep it.
class recorder : public std::enable_shared_from_this<recorder> {
 public:
    // Throws std::runtime_error if the directory can't be written.
    explicit recorder(recorder_settings settings);

    // The same call, whose outcome is written before the caller gets it. One that is cancelled leaves no line.
    tool_call watched(tool_call call);
    // Where the application is asked who it is, once, behind the first call that it answers well. Nobody waits for
    // that. To be set before the first call.
    void ask(tool_source& through) { through_ = &through; }

 private:
    using clock = std::chrono::steady_clock;

    void take(const std::string& tool, const json& arguments, clock::time_point begun, const json& outcome);
    void keep_picture_locked(json& item);
    void write_locked(const json& line);
    void ask_about();
    bool fits_locked(std::size_t bytes);

    const recorder_settings settings_;
    const clock::time_point begin_ = clock::now();
    tool_source* through_ = nullptr;

    std::mutex mutex_;  // all below
    mcp::descriptor file_;
    std::size_t written_ = 0;
    bool is_full_ = false;
    bool has_asked_ = false;
};

}  // namespace velmoor
