// What the system tells of TCP sockets when it is asked for single ones. Its table of all connections (/proc/net/tcp)
// takes milliseconds to read.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

struct inet_diag_sockid;

namespace mcp {

// Any thread may ask.
class socket_diagnosis {
 public:
    // A socket to ask with: it tells of the network in which it was made. -1 if none can be had.
    static int open();

    // Takes over such a socket.
    explicit socket_diagnosis(int socket = open());
    ~socket_diagnosis();
    socket_diagnosis(const socket_diagnosis&) = delete;
    socket_diagnosis& operator=(const socket_diagnosis&) = delete;

    struct listener {
        ino_t inode;
        uid_t user;
    };
    // The sockets that listen on `port`, on whatever address of IPv4 or of IPv6; empty if the system does not tell.
    std::vector<listener> listeners(bool ipv6, std::uint16_t port);

    // The inode of the end at `port` of a connection over loopback whose other end has the port `from`: 0 until a
    // process has accepted it. Nothing if the system does not tell, or knows no such connection.
    std::optional<ino_t> loopback_end(bool ipv6, std::uint16_t port, std::uint16_t from);

 private:
    bool ask_locked(bool ipv6, bool for_listeners, const inet_diag_sockid& id) const;
    // False once the answer has ended, or failed.
    template <typename Tell>
    bool read_some_locked(const Tell& tell);

    const int socket_;
    std::mutex mutex_;  // who asks, until all is answered; answer_
    alignas(8) std::array<char, 16384> answer_{};
};

}  // namespace mcp
