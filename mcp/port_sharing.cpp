#include "mcp/port_sharing.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace mcp {
namespace {

// A socket to ask the system about sockets.
class diagnosis {
 public:
    diagnosis() : socket_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG)) {
        const timeval patience{.tv_sec = 1, .tv_usec = 0};
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }
    ~diagnosis() {
        if (socket_ >= 0) close(socket_);
    }
    diagnosis(const diagnosis&) = delete;
    diagnosis& operator=(const diagnosis&) = delete;

    bool ask_for_listeners(bool ipv6, int port) const {
        struct {
            nlmsghdr header;
            inet_diag_req_v2 wanted;
        } question{};
        question.header.nlmsg_len = sizeof question;
        question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
        question.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        question.wanted.sdiag_family = ipv6 ? AF_INET6 : AF_INET;
        question.wanted.sdiag_protocol = IPPROTO_TCP;
        question.wanted.idiag_states = 1u << TCP_LISTEN;
        question.wanted.id.idiag_sport = htons(static_cast<in_port_t>(port));
        return send(socket_, &question, sizeof question, 0) == static_cast<ssize_t>(sizeof question);
    }

    // False once the answer has ended, or failed.
    bool read_some(std::set<ino_t>& inodes) {
        const ssize_t count = recv(socket_, answer_.data(), answer_.size(), 0);
        if (count <= 0) return false;
        auto left = static_cast<unsigned>(count);
        for (const auto* message = reinterpret_cast<const nlmsghdr*>(answer_.data()); NLMSG_OK(message, left);
             message = NLMSG_NEXT(message, left)) {
            if (message->nlmsg_type != SOCK_DIAG_BY_FAMILY) return false;
            inodes.insert(static_cast<const inet_diag_msg*>(NLMSG_DATA(message))->idiag_inode);
        }
        return true;
    }

 private:
    const int socket_;
    alignas(nlmsghdr) std::array<char, 16384> answer_{};
};

// As the system shows a descriptor of a socket, behind which its inode follows.
constexpr std::string_view kSocket = "socket:[";

void erase_own(std::set<ino_t>& inodes) {
    std::error_code error;
    std::filesystem::directory_iterator descriptor("/proc/self/fd", error);
    for (; !error && !inodes.empty() && descriptor != std::filesystem::end(descriptor); descriptor.increment(error)) {
        // The link's text tells it. To ask the file itself could wait for a file server.
        std::error_code closed_meanwhile;
        const std::string file = std::filesystem::read_symlink(descriptor->path(), closed_meanwhile).native();
        ino_t inode = 0;
        if (file.starts_with(kSocket)) {
            std::from_chars(file.data() + kSocket.size(), file.data() + file.size(), inode);
            inodes.erase(inode);
        }
    }
    if (error) inodes.clear();
}

}  // namespace

std::set<ino_t> listening_inodes(bool ipv6, int port) {
    std::set<ino_t> inodes;
    diagnosis system;
    if (system.ask_for_listeners(ipv6, port)) {
        while (system.read_some(inodes)) {
        }
    }
    return inodes;
}

bool is_served_by_another_process(bool ipv6, int port) noexcept {
    try {
        std::set<ino_t> inodes = listening_inodes(ipv6, port);
        erase_own(inodes);
        return !inodes.empty();
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace mcp
