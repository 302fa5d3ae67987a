#include "command/applications/reach.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <system_error>
#include <thread>

#include "command/applications/proc.h"

namespace velmoor {
namespace {

using mcp::descriptor;
using mcp::dialed;

constexpr int kConnectMilliseconds = 500;
// Where several listen on one port, each connection reaches one of them by its own port, which is new each time.
constexpr int kMostTries = 64;
constexpr std::chrono::milliseconds kAcceptLimit{200};

struct loopback {
    sockaddr_storage address{};
    socklen_t size = 0;

    loopback(int family, std::uint16_t port) {
        if (family == AF_INET6) {
            auto& v6 = reinterpret_cast<sockaddr_in6&>(address);
            v6.sin6_family = AF_INET6;
            v6.sin6_addr = in6addr_loopback;
            v6.sin6_port = htons(port);
            size = sizeof v6;
        } else {
            auto& v4 = reinterpret_cast<sockaddr_in&>(address);
            v4.sin_family = AF_INET;
            v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            v4.sin_port = htons(port);
            size = sizeof v4;
        }
    }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }
};

// Runs in a child process: nothing but system calls may be used here.
[[noreturn]] void send_socket(int user_namespace, int network_namespace, int family, int channel) {
    if (setns(network_namespace, CLONE_NEWNET) != 0) {
        // A user's own network lies in a user namespace of his, where he may do that.
        if (setns(user_namespace, CLONE_NEWUSER) != 0 || setns(network_namespace, CLONE_NEWNET) != 0) _exit(1);
    }
    int made = socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (made < 0) _exit(2);
    char byte = 0;
    iovec content{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof made)> control{};
    msghdr message{};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof made);
    std::memcpy(CMSG_DATA(header), &made, sizeof made);
    _exit(sendmsg(channel, &message, MSG_NOSIGNAL) == 1 ? 0 : 3);
}

descriptor receive_socket(int channel) {
    char byte = 0;
    iovec content{&byte, 1};
    int made = -1;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof made)> control{};
    msghdr message{};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    if (recvmsg(channel, &message, MSG_CMSG_CLOEXEC) != 1) return {};
    const cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (header && header->cmsg_type == SCM_RIGHTS) std::memcpy(&made, CMSG_DATA(header), sizeof made);
    return descriptor(made);
}

// The error of connecting, or 0.
int connect_within(int socket, const loopback& to, int milliseconds) {
    if (connect(socket, to.get(), to.size) == 0) return 0;
    if (errno != EINPROGRESS) return errno;
    pollfd waiting{socket, POLLOUT, 0};
    if (poll(&waiting, 1, milliseconds) <= 0) return ETIMEDOUT;
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

std::uint16_t own_port(int socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
    return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6&>(address).sin6_port
                                               : reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

struct owner {
    bool is_wanted = false;
    bool is_certain = false;
};

// Whether the other end of a connection from `from` is the application's. The system shows that end without an owner
// until it has been accepted.
owner owner_of_connection(const application& wanted, std::uint16_t port, std::uint16_t from) {
    const pid_t by = wanted.network_process != 0 ? wanted.network_process : getpid();
    const auto deadline = std::chrono::steady_clock::now() + kAcceptLimit;
    for (;;) {
        ino_t other_end = 0;
        bool is_shared = false;
        each_tcp_row(by, port, [&](const tcp_row& row, bool /*ipv6*/) {
            if (row.listens) is_shared |= !wanted.sockets.contains(row.inode);
            if (!row.listens && row.remote_port == from) other_end = row.inode;
        });
        // Nobody else listens there: nobody else can have it.
        if (!is_shared) return {true, true};
        if (wanted.pid == 0) return {false, false};
        if (other_end != 0) return {holds_socket(wanted.pid, other_end), true};
        if (std::chrono::steady_clock::now() > deadline) return {false, false};
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

dialed reach_by(int family, const application& to, std::uint16_t port) {
    const loopback address(family, port);
    for (int left = kMostTries; left > 0; --left) {
        descriptor made = to.network_process != 0
                              ? socket_in_network_of(to.network_process, family)
                              : descriptor(socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (!made) return {{}, "the network of " + label(to) + " can't be entered"};
        const int on = 1;
        setsockopt(made.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        const int error = connect_within(made.get(), address, kConnectMilliseconds);
        if (error != 0) return {{}, label(to) + ": " + std::system_category().message(error)};
        const owner its = owner_of_connection(to, port, own_port(made.get()));
        if (its.is_wanted) return {std::move(made), {}};
        if (!its.is_certain) return {{}, "who took the connection to " + label(to) + " can't be told"};
    }
    return {{}, "all connections to " + label(to) + " reached another process on port " + std::to_string(port)};
}

}  // namespace

descriptor socket_in_network_of(pid_t process, int family) {
    const std::string spaces = "/proc/" + std::to_string(process) + "/ns/";
    const descriptor user(open((spaces + "user").c_str(), O_RDONLY | O_CLOEXEC));
    const descriptor network(open((spaces + "net").c_str(), O_RDONLY | O_CLOEXEC));
    std::array<int, 2> ends{-1, -1};
    if (!network || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) return {};
    const descriptor ours(ends[0]);
    descriptor theirs(ends[1]);
    const pid_t child = fork();
    if (child == 0) send_socket(user.get(), network.get(), family, theirs.get());
    theirs.reset();
    if (child < 0) return {};
    descriptor made = receive_socket(ours.get());
    waitpid(child, nullptr, 0);
    return made;
}

dialed reach(const application& to, std::uint16_t port) {
    if (to.pid != 0 && start_of(to.pid) != to.start) return {{}, label(to) + " has ended"};
    dialed made = to.ipv4 ? reach_by(AF_INET, to, port) : dialed{{}, label(to) + " does not listen"};
    if (!made.socket && to.ipv6) made = reach_by(AF_INET6, to, port);
    return made;
}

}  // namespace velmoor
