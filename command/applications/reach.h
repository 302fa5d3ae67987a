// Connects to one application and to no other that serves the same port.
#pragma once

#include <cstdint>

#include "command/applications/application.h"

namespace velmoor {

mcp::dialed reach(const application& to, std::uint16_t port);

// A TCP socket that is in the network of that process; none if it can't be entered.
mcp::descriptor socket_in_network_of(pid_t process, int family);

}  // namespace velmoor
