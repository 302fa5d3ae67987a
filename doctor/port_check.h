// Whether the layer's server will have its port, or who has it. The verdict is pure work on what was found.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "doctor/finding.h"

namespace orvanic_xr {

struct PortSide {
    bool supported = true;                  // whether this machine has the address family
    bool taken = false;                     // somebody listens there, or keeps others from it
    std::optional<std::string> mcp_server;  // name and version, if an MCP server answers there
};

struct PortSituation {
    int port = 0;
    PortSide ipv4;
    PortSide ipv6;
    std::set<std::string> listeners;  // "name (pid 12)", as far as this user may see them
};

PortSituation LookAtPort(std::uint16_t port);
Finding JudgePort(const PortSituation& situation);

// Inodes of the sockets that listen at `port`, from the text of /proc/net/tcp or tcp6.
std::set<std::string> ListeningInodes(std::string_view table, std::uint16_t port);

}  // namespace orvanic_xr
