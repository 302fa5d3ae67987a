// Two processes of one user may listen on one port, since the server's sockets allow it (SO_REUSEPORT). The system
// then hands each connection to one of them by chance.
#pragma once

#include <istream>
#include <set>
#include <string>

namespace mcp {

// The inodes of the sockets that listen on `port`, on whatever address, out of a table in the form of /proc/net/tcp.
std::set<std::string> listening_inodes(std::istream& table, int port);

// True if a socket of another process listens on `port`, over IPv4 or over IPv6. Also false where /proc doesn't tell.
// To be asked with the own socket bound: of two processes that start at the same time, one sees the other for sure.
bool is_served_by_another_process(bool ipv6, int port) noexcept;

}  // namespace mcp
