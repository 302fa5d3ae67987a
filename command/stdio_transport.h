// One client on standard input and output: a JSON-RPC message a line.
#pragma once

#include <chrono>
#include <string>

#include "command/bridge/bridge.h"

namespace velmoor {

// Serves until the input ends or the output is closed. Calls that are under way then have a moment to be answered.
void serve_stdio(bridge& through, const json& server_info, int input, int output);

}  // namespace velmoor
