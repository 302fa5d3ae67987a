// How a client reaches its server: every connection that it needs is dialled anew.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "mcp/client/descriptor.h"

namespace mcp {

struct dialed {
    descriptor socket;    // connected, and set not to block; none if it failed
    std::string problem;  // why, for a person to read
};

// Called on the client's own thread; returns within a second or two.
using dialer = std::function<dialed()>;

struct server_address {
    std::string host;  // a name or an address, without brackets
    std::uint16_t port = 0;
};

// Of http://HOST[:PORT][/...]; the port is 80 where none is given. Throws std::invalid_argument.
server_address parse_server_url(const std::string& url);

// As in the header `Host`.
std::string host_header(const server_address& address);

// Tries all addresses of the host in turn, within `limit`.
dialed dial(const server_address& address, std::chrono::milliseconds limit);

}  // namespace mcp
