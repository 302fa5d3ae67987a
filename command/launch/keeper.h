// Runs an application and stays with it: nothing that it starts outlives it, or whoever started it.
//
// That is done by `velmoor keep`, a process with one thread. Whoever starts it holds a channel to it: the channel's
// end, for whatever reason, is the end of the application.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "command/launch/launch_environment.h"
#include "mcp/client/descriptor.h"

namespace velmoor {

// The exit code where the application could not be started, as shells have it.
inline constexpr int kNotStarted = 127;

struct keeper {
    pid_t process = 0;
    mcp::descriptor channel;
    mcp::descriptor input;
};

// A keeper of that command. With an `output`, what is printed goes there, and nothing comes from the input, which ends
// with `input`: some applications end when it does. Otherwise both are this process's. Throws std::runtime_error.
keeper start_keeper(const std::vector<std::string>& command, const launch_options& options, int output);

// Has it end the application, and itself: gives its status, as of waitpid(). One that does not follow is killed, with
// all below it.
int end_keeper(const keeper& which);

// Until the application has ended, or this process is told to end: gives the application's exit code, or 128 and the
// number of the signal that ended it. To be called while the process has one thread.
int run_application(const std::vector<std::string>& command, const launch_options& options);

// What a keeper does: the same, until the channel ends.
int keep_application(const std::vector<std::string>& command, const launch_options& options);

}  // namespace velmoor
