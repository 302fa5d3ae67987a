// The application that the user gave with the bridge's command line, and what it has printed.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "command/launch/input_log.h"
#include "command/launch/keeper.h"
#include "mcp/client/descriptor.h"

namespace velmoor {

// One line of what the application and the layer printed, without colours.
struct output_line {
    std::string text;
    bool is_layers = false;
    int level = 1;  // 0 debug, 1 info, 2 warning, 3 error; what is not the layer's counts as 1
};
output_line parse_output_line(const std::string& text);

// Any thread may call; starts and ends go one after the other.
class started_application {
 public:
    started_application(std::vector<std::string> command, launch_options options);
    // Ends it.
    ~started_application() { stop(); }
    started_application(const started_application&) = delete;
    started_application& operator=(const started_application&) = delete;

    // Throws std::runtime_error if it runs already or no process can be had. Gives the number of this start.
    int start();
    // Gives its exit code, if it was running. Asks it to end, and ends it where it doesn't.
    std::optional<int> stop();
    // Both, with no start or end of others between them.
    int restart();

    bool is_running();
    int last_start() const { return starts_; }
    std::optional<int> exit_code();  // of the last that has ended by itself or by stop()
    // Whether that process is the application or one that it has started.
    bool is_part(pid_t process);
    const std::string& shown_command() const { return shown_command_; }

    // What it last read, since its start.
    std::map<std::string, input_log::action> inputs() const;
    // The last lines, oldest first.
    std::vector<output_line> output(std::size_t most, int level) const;

 private:
    int start_alone();
    std::optional<int> stop_alone();
    void read_output(int from);
    void take_line_locked(const std::string& line);
    void take_end_locked(int status);

    const std::vector<std::string> command_;
    const launch_options options_;
    const std::string shown_command_;

    std::mutex change_mutex_;  // held through a whole start or end; before the others
    std::mutex mutex_;         // all below but the output
    pid_t keeper_ = 0;
    mcp::descriptor channel_;
    mcp::descriptor input_;
    std::optional<int> exit_code_;
    std::thread reader_;
    std::atomic<int> starts_{0};
    std::atomic<bool> is_ended_{false};  // then nothing more is printed, but perhaps by somebody who was left behind

    mutable std::mutex output_mutex_;  // all below
    std::deque<output_line> lines_;
    input_log inputs_;
};

}  // namespace velmoor
