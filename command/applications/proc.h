// What the system tells of processes and their sockets, under /proc. Whatever it does not tell is empty.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmoor {

std::vector<pid_t> all_processes();

// The start of a process in clock ticks since the machine's; 0 if there is no such process.
std::uint64_t start_of(pid_t pid);
std::string program_of(pid_t pid);
// Its children, and theirs.
std::vector<pid_t> descendants_of(pid_t pid);
// How often its threads have been switched off and on, all together, if all of them sleep now. Two readings that are
// the same show that none has run in between.
std::optional<std::uint64_t> switches_asleep(pid_t pid);
// The inode of its network namespace, or 0.
ino_t network_of(pid_t pid);
// Whether the process was started with that variable in its environment.
bool has_variable(pid_t pid, std::string_view name);
// Tells the inode of each socket that the process holds, until `tell` gives false.
void each_socket(pid_t pid, const std::function<bool(ino_t)>& tell);
bool holds_socket(pid_t pid, ino_t socket);

// A row of /proc/net/tcp or tcp6.
struct tcp_row {
    std::uint16_t local_port = 0;
    std::uint16_t remote_port = 0;
    bool listens = false;
    uid_t user = 0;
    ino_t inode = 0;  // 0 while nobody has accepted the connection
};
std::optional<tcp_row> parse_tcp_row(std::string_view line);

// All rows of IPv4 and then of IPv6, in the network of that process, whose local port is that.
void each_tcp_row(pid_t in_network_of, std::uint16_t local_port,
                  const std::function<void(const tcp_row&, bool ipv6)>& tell);

}  // namespace velmoor
