// Two processes of one user may listen on one port, since the server's sockets allow it (SO_REUSEPORT). The system
// then hands each connection to one of them by chance.
#pragma once

#include <sys/types.h>

#include <set>

namespace mcp {

// The inodes of the sockets that listen on `port`, on whatever address of IPv4 or of IPv6. Empty if
// the system doesn't tell.
std::set<ino_t> listening_inodes(bool ipv6, int port);

// True if a socket of another process is among them. Also false where that can't be known.
// To be asked with the own socket bound: of two processes that start at the same time, one sees the other for sure.
bool is_served_by_another_process(bool ipv6, int port) noexcept;

}  // namespace mcp
