// The bridge's connection to the simulator of the application that it started: one line of JSON each way.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "mcp/client/descriptor.h"
#include "mcp/json.h"

namespace velmoor {

// A path for the simulator's socket: what VELMOOR_SIM_CONTROL says, or one in a directory of our own, which goes with
// this.
class control_path {
 public:
    control_path();
    static control_path of_our_own() { return control_path(""); }
    ~control_path();
    control_path(const control_path&) = delete;
    control_path& operator=(const control_path&) = delete;
    // Empty if none can be had.
    const std::string& text() const { return text_; }

 private:
    // `given`, unless it is empty.
    explicit control_path(const char* given);

    std::string directory_;
    std::string text_;
};

// An application that is held runs on. Waits for nothing, and does nothing where nobody listens.
void let_run_on(const std::string& path);
// What goes by stops at the next frame. Likewise.
void stop_steps(const std::string& path);

// Any thread; one request after the other. What it held runs on when it goes.
class simulator_link {
 public:
    explicit simulator_link(std::string path) : path_(std::move(path)) {}

    // The answer. Calls `look` now and then while it waits, which may throw to end that. Throws std::runtime_error with
    // the error's text where the simulator refuses, or isn't there. Frames that go by then stop.
    mcp::json ask(const mcp::json& request, const std::function<void()>& look);

    // Lets so many frames go by if the application is held. False if it isn't.
    bool let_frames_pass(std::uint64_t frames = 1);

    // Of an application that is held: whether frames that calls need wait for more that need them. Tells how many do;
    // nothing if it isn't held.
    std::optional<std::uint64_t> gather(bool is_wanted);

 private:
    void connect_locked();
    std::string read_line_locked(const std::function<void()>& look);

    const std::string path_;
    std::mutex mutex_;  // all below
    mcp::descriptor socket_;
    std::string read_;
    int unread_ = 0;  // answers that nobody waits for any more
};

}  // namespace velmoor
