// Who serves a port, and whether a connection reaches that process and no other.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>

#include "command/applications/finder.h"
#include "command/applications/proc.h"
#include "command/applications/reach.h"

namespace velmoor {
namespace {

TEST(TcpTable, TellsListenersAndOwnersOfConnections) {
    const auto listener = parse_tcp_row(
        "   0: 00000000:2210 00000000:0000 0A 00000000:00000000 00:00000000 00000000  1000        0 4711 1 0 100 0");
    ASSERT_TRUE(listener);
    EXPECT_TRUE(listener->listens);
    EXPECT_EQ(listener->local_port, 8720);
    EXPECT_EQ(listener->user, 1000u);
    EXPECT_EQ(listener->inode, 4711u);
    const auto connection = parse_tcp_row(
        "   1: 00000000000000000000000001000000:2210 "
        "00000000000000000000000001000000:D431 01 0:0 00:0 0 0 0 12 2 0");
    ASSERT_TRUE(connection);
    EXPECT_FALSE(connection->listens);
    EXPECT_EQ(connection->remote_port, 54321);
    EXPECT_FALSE(parse_tcp_row("  sl  local_address rem_address   st tx_queue"));
}

TEST(SocketDiagnosis, TellsListenersAndWhoHasTheOtherEndOnceItIsAccepted) {
    const auto inode_of = [](const mcp::descriptor& of) {
        struct stat its {};
        return fstat(of.get(), &its) == 0 ? its.st_ino : 0;
    };
    mcp::socket_diagnosis system;
    for (const bool ipv6 : {false, true}) {
        sockaddr_in6 address{};
        address.sin6_family = static_cast<sa_family_t>(ipv6 ? AF_INET6 : AF_INET);
        address.sin6_addr = in6addr_loopback;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        if (!ipv6) reinterpret_cast<sockaddr_in*>(any)->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        const mcp::descriptor listener(socket(address.sin6_family, SOCK_STREAM, 0));
        if (bind(listener.get(), any, size) != 0) continue;  // no IPv6 here
        listen(listener.get(), 1);
        getsockname(listener.get(), any, &size);
        const std::uint16_t port = ntohs(address.sin6_port);
        const mcp::descriptor client(socket(address.sin6_family, SOCK_STREAM, 0));
        ASSERT_EQ(connect(client.get(), any, size), 0);
        getsockname(client.get(), any, &size);
        const std::uint16_t from = ntohs(address.sin6_port);
        EXPECT_EQ(system.loopback_end(ipv6, port, from), ino_t{0});
        const mcp::descriptor accepted(accept(listener.get(), nullptr, nullptr));
        EXPECT_EQ(system.loopback_end(ipv6, port, from), inode_of(accepted));
        EXPECT_EQ(system.loopback_end(ipv6, port, 1), std::nullopt);
        ASSERT_EQ(system.listeners(ipv6, port).size(), 1u);
        EXPECT_EQ(system.listeners(ipv6, port)[0].inode, inode_of(listener));
    }
}

// A child that listens on `port` and sends its pid on every connection; ends with the test. `own_network` puts it in a
// network of its own, in which it has the variable by which such are known.
class server_process {
 public:
    server_process(std::uint16_t& port, bool own_network) {
        std::array<int, 2> ready{};
        if (pipe(ready.data()) != 0) throw std::runtime_error("no pipe");
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            serve(port, own_network, ready[1]);
        }
        close(ready[1]);
        if (read(ready[0], &port, sizeof port) != sizeof port) port = 0;
        close(ready[0]);
    }
    ~server_process() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    pid_t pid() const { return pid_; }

 private:
    [[noreturn]] static void serve(std::uint16_t port, bool own_network, int ready) {
        if (own_network && (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0 || !BringLoopbackUp())) _exit(1);
        // Others are shown the environment that a process was started with, where it lies: there it is changed.
        if (own_network) std::strcpy(environ[0], "VELMOOR_RUN=1");
        const int listener = socket(AF_INET, SOCK_STREAM, 0);
        const int on = 1;
        setsockopt(listener, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        socklen_t size = sizeof address;
        if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(listener, 64) != 0) _exit(2);
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
        port = ntohs(address.sin_port);
        if (write(ready, &port, sizeof port) != sizeof port) _exit(3);
        for (;;) {
            const int connection = accept(listener, nullptr, nullptr);
            const pid_t own = getpid();
            if (write(connection, &own, sizeof own) != sizeof own) _exit(4);
            // Kept open: its owner is looked for.
        }
    }
    static bool BringLoopbackUp() {
        const int any = socket(AF_INET, SOCK_DGRAM, 0);
        ifreq loopback{};
        loopback.ifr_name[0] = 'l';
        loopback.ifr_name[1] = 'o';
        loopback.ifr_flags = IFF_UP;
        return ioctl(any, SIOCSIFFLAGS, &loopback) == 0;
    }

    pid_t pid_;
};

// The process that a connection to `wanted` reaches, or 0.
pid_t Reached(const application& wanted, std::uint16_t port) {
    const mcp::dialed made = reach(wanted, port);
    pid_t reached = 0;
    for (int i = 0; made.socket && i < 1000 && recv(made.socket.get(), &reached, sizeof reached, 0) < 0; ++i)
        usleep(1000);
    return reached;
}

TEST(Applications, AreToldApartOnOnePort) {
    std::uint16_t port = 0;
    const server_process one(port, false);
    const server_process two(port, false);
    ASSERT_NE(port, 0);
    application_finder finder(port);
    const std::vector<application> found = finder.find();
    ASSERT_EQ(found.size(), 2u);
    for (const application& each : found) {
        EXPECT_TRUE(each.pid == one.pid() || each.pid == two.pid());
        EXPECT_EQ(each.name, "command_test");
        EXPECT_TRUE(each.ipv4 && !each.ipv6);
        for (int i = 0; i < 10; ++i) EXPECT_EQ(Reached(each, port), each.pid);
    }
    application gone = found[0];
    ++gone.start;
    EXPECT_NE(reach(gone, port).problem.find("has ended"), std::string::npos);
}

TEST(Applications, AreFoundInNetworksOfTheirOwn) {
    std::uint16_t port = 0;
    const server_process one(port, true);
    if (port == 0) GTEST_SKIP() << "this system lets users have no networks of their own";
    application_finder finder(port);
    const std::vector<application> found = finder.find();
    const auto its =
        std::find_if(found.begin(), found.end(), [&](const application& each) { return each.pid == one.pid(); });
    ASSERT_NE(its, found.end());
    EXPECT_NE(its->network_process, 0);
    EXPECT_EQ(Reached(*its, port), one.pid());
}

}  // namespace
}  // namespace velmoor
