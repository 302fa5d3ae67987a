// Who answers at a port of this machine, in MCP over HTTP and Server-Sent Events.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace orvanic_xr {

// Name and version of the MCP server at loopback of `family`, with a blank between them. Nothing if nobody
// introduces himself as one in two seconds.
std::optional<std::string> GreetMcpServer(int family, std::uint16_t port);

}  // namespace orvanic_xr
