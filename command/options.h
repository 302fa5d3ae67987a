// What the command line says, for all subcommands, and what several of them make of it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "command/bridge/bridge.h"
#include "command/launch/launch_environment.h"
#include "command/shell_commands.h"
#include "command/testing/test_command.h"

namespace velmoor {

struct options {
    double wait_seconds = 10;
    std::string pictures;
    std::string record;
    std::size_t record_limit = 1024;  // MiB
    std::string recording;
    test_request test;
    std::string shard;
    bool as_json = false;
    call_request call;
    bool no_simulator = false;
    bool shared_network = false;
    std::string host = "127.0.0.1";
    int port = 8730;
    std::string token;
    std::string control;
    bool watch = false;
    int watch_port = -1;                   // of mcp; below 0 for none
    std::vector<std::string> application;  // what stands behind "--"
};

// Without an application of our own.
bridge_settings settings_for(const options& given);
launch_options launch_options_of(const options& given);

}  // namespace velmoor
