#include "mcp/socket_diagnosis.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace mcp {
namespace {

constexpr in_addr_t kLoopback = INADDR_LOOPBACK;

}  // namespace

int socket_diagnosis::open() {
    return socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
}

socket_diagnosis::socket_diagnosis(int socket) : socket_(socket) {
    const timeval patience{.tv_sec = 1, .tv_usec = 0};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

socket_diagnosis::~socket_diagnosis() {
    if (socket_ >= 0) close(socket_);
}

std::vector<socket_diagnosis::listener> socket_diagnosis::listeners(bool ipv6, std::uint16_t port) {
    std::vector<listener> found;
    inet_diag_sockid id{};
    id.idiag_sport = htons(port);
    const auto tell = [&](const inet_diag_msg& each) { found.push_back({each.idiag_inode, each.idiag_uid}); };
    const std::lock_guard lock(mutex_);
    if (!ask_locked(ipv6, true, id)) return found;
    while (read_some_locked(tell)) {
    }
    return found;
}

std::optional<ino_t> socket_diagnosis::loopback_end(bool ipv6, std::uint16_t port, std::uint16_t from) {
    inet_diag_sockid id{};
    id.idiag_sport = htons(port);
    id.idiag_dport = htons(from);
    // Behind zeros the address of IPv6 ends in a one.
    id.idiag_src[ipv6 ? 3 : 0] = id.idiag_dst[ipv6 ? 3 : 0] = htonl(ipv6 ? 1 : kLoopback);
    id.idiag_cookie[0] = id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    std::optional<ino_t> inode;
    const std::lock_guard lock(mutex_);
    if (!ask_locked(ipv6, false, id)) return inode;
    read_some_locked([&](const inet_diag_msg& end) {
        // Where there is no such connection, the system tells who would get it.
        if (end.idiag_state != TCP_LISTEN) inode = end.idiag_inode;
    });
    return inode;
}

bool socket_diagnosis::ask_locked(bool ipv6, bool for_listeners, const inet_diag_sockid& id) const {
    struct {
        nlmsghdr header;
        inet_diag_req_v2 wanted;
    } question{};
    question.header.nlmsg_len = sizeof question;
    question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    question.header.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | (for_listeners ? NLM_F_DUMP : 0));
    question.wanted.sdiag_family = ipv6 ? AF_INET6 : AF_INET;
    question.wanted.sdiag_protocol = IPPROTO_TCP;
    question.wanted.idiag_states = for_listeners ? 1u << TCP_LISTEN : ~0u;
    question.wanted.id = id;
    return send(socket_, &question, sizeof question, 0) == static_cast<ssize_t>(sizeof question);
}

template <typename Tell>
bool socket_diagnosis::read_some_locked(const Tell& tell) {
    const ssize_t count = recv(socket_, answer_.data(), answer_.size(), 0);
    if (count <= 0) return false;
    auto left = static_cast<unsigned>(count);
    for (const auto* message = reinterpret_cast<const nlmsghdr*>(answer_.data()); NLMSG_OK(message, left);
         message = NLMSG_NEXT(message, left)) {
        if (message->nlmsg_type != SOCK_DIAG_BY_FAMILY) return false;
        tell(*static_cast<const inet_diag_msg*>(NLMSG_DATA(message)));
    }
    return true;
}

}  // namespace mcp
