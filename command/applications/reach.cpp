#include "command/applications/reach.h"

#include <fcntl.h>
#include <linux/netlink.h>
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

// A message that passes one descriptor from process to process.
struct passing_message {
    char byte = 0;
    iovec content{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr message{};

    passing_message() {
        message.msg_iov = &content;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
    }
    passing_message(const passing_message&) = delete;
    passing_message& operator=(const passing_message&) = delete;
};

// As socket() takes it.
struct socket_kind {
    int family;
    int type;
    int protocol;
};

// Runs in a child process: nothing but system calls may be used here.
[[noreturn]] void send_socket(int user_namespace, int network_namespace, const socket_kind& kind, int channel) {
    if (setns(network_namespace, CLONE_NEWNET) != 0) {
        // A user's own network lies in a user namespace of his, where he may do that.
        if (setns(user_namespace, CLONE_NEWUSER) != 0 || setns(network_namespace, CLONE_NEWNET) != 0) _exit(1);
    }
    const int made = socket(kind.family, kind.type, kind.protocol);
    if (made < 0) _exit(2);
    passing_message sent;
    cmsghdr* const header = CMSG_FIRSTHDR(&sent.message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof made);
    std::memcpy(CMSG_DATA(header), &made, sizeof made);
    _exit(sendmsg(channel, &sent.message, MSG_NOSIGNAL) == 1 ? 0 : 3);
}

descriptor receive_socket(int channel) {
    passing_message received;
    if (recvmsg(channel, &received.message, MSG_CMSG_CLOEXEC) != 1) return {};
    int made = -1;
    const cmsghdr* const header = CMSG_FIRSTHDR(&received.message);
    if (header && header->cmsg_type == SCM_RIGHTS) std::memcpy(&made, CMSG_DATA(header), sizeof made);
    return descriptor(made);
}

// A socket that is in the network of that process; none if it can't be entered.
descriptor socket_in_network_of(pid_t process, const socket_kind& kind) {
    const std::string spaces = "/proc/" + std::to_string(process) + "/ns/";
    const descriptor user(open((spaces + "user").c_str(), O_RDONLY | O_CLOEXEC));
    const descriptor network(open((spaces + "net").c_str(), O_RDONLY | O_CLOEXEC));
    std::array<int, 2> ends{-1, -1};
    if (!network || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) return {};
    const descriptor ours(ends[0]);
    descriptor theirs(ends[1]);
    const pid_t child = fork();
    if (child == 0) send_socket(user.get(), network.get(), kind, theirs.get());
    theirs.reset();
    if (child < 0) return {};
    descriptor made = receive_socket(ours.get());
    waitpid(child, nullptr, 0);
    return made;
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

// What is seen of a connection to `wanted` from the port `from`.
struct sight {
    bool is_shared = false;          // others listen there as well
    std::optional<ino_t> other_end;  // none until it has been accepted
};

sight look_at_table(const application& wanted, std::uint16_t port, std::uint16_t from) {
    sight seen;
    each_tcp_row(wanted.network_process != 0 ? wanted.network_process : getpid(), port,
                 [&](const tcp_row& row, bool /*ipv6*/) {
                     if (row.listens) seen.is_shared |= !wanted.sockets.contains(row.inode);
                     if (!row.listens && row.remote_port == from && row.inode != 0) seen.other_end = row.inode;
                 });
    return seen;
}

sight look_at_connection(const application& wanted, int family, std::uint16_t port, std::uint16_t from) {
    if (!wanted.diagnosis) return look_at_table(wanted, port, from);
    sight seen;
    for (const bool ipv6 : {false, true}) {
        for (const auto& each : wanted.diagnosis->listeners(ipv6, port)) {
            seen.is_shared |= !wanted.sockets.contains(each.inode);
        }
    }
    if (!seen.is_shared) return seen;
    seen.other_end = wanted.diagnosis->loopback_end(family == AF_INET6, port, from);
    if (!seen.other_end) return look_at_table(wanted, port, from);
    if (*seen.other_end == 0) seen.other_end.reset();
    return seen;
}

struct owner {
    bool is_wanted = false;
    bool is_certain = false;
};

// Whether the other end of a connection from `from` is the application's. The system shows that end without an owner
// until it has been accepted.
owner owner_of_connection(const application& wanted, int family, std::uint16_t port, std::uint16_t from) {
    const auto deadline = std::chrono::steady_clock::now() + kAcceptLimit;
    for (;;) {
        const sight seen = look_at_connection(wanted, family, port, from);
        // Nobody else listens there: nobody else can have it.
        if (!seen.is_shared) return {true, true};
        if (wanted.pid == 0) return {false, false};
        if (seen.other_end) return {holds_socket(wanted.pid, *seen.other_end), true};
        if (std::chrono::steady_clock::now() > deadline) return {false, false};
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

dialed reach_by(int family, const application& to, std::uint16_t port) {
    const loopback address(family, port);
    for (int left = kMostTries; left > 0; --left) {
        const socket_kind kind{family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0};
        descriptor made = to.network_process != 0 ? socket_in_network_of(to.network_process, kind)
                                                  : descriptor(socket(kind.family, kind.type, kind.protocol));
        if (!made) return {{}, "the network of " + label(to) + " can't be entered"};
        const int on = 1;
        setsockopt(made.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        const int error = connect_within(made.get(), address, kConnectMilliseconds);
        if (error != 0) return {{}, label(to) + ": " + std::system_category().message(error)};
        const owner its = owner_of_connection(to, family, port, own_port(made.get()));
        if (its.is_wanted) return {std::move(made), {}};
        if (!its.is_certain) return {{}, "who took the connection to " + label(to) + " can't be told"};
    }
    return {{}, "all connections to " + label(to) + " reached another process on port " + std::to_string(port)};
}

}  // namespace

std::shared_ptr<mcp::socket_diagnosis> diagnosis_in_network_of(pid_t process) {
    descriptor made = socket_in_network_of(process, {AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG});
    return made ? std::make_shared<mcp::socket_diagnosis>(made.release()) : nullptr;
}

dialed reach(const application& to, std::uint16_t port) {
    if (to.pid != 0 && start_of(to.pid) != to.start) return {{}, label(to) + " has ended"};
    dialed made = to.ipv4 ? reach_by(AF_INET, to, port) : dialed{{}, label(to) + " does not listen"};
    if (!made.socket && to.ipv6) made = reach_by(AF_INET6, to, port);
    return made;
}

}  // namespace velmoor
