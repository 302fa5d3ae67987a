// Connects to one application and to no other that serves the same port.
#pragma once

#include <cstdint>
#include <memory>

#include "command/applications/application.h"

namespace velmoor {

mcp::dialed reach(const application& to, std::uint16_t port);

// Tells of the sockets in the network of that process; null if it can't be entered.
std::shared_ptr<mcp::socket_diagnosis> diagnosis_in_network_of(pid_t process);

}  // namespace velmoor
