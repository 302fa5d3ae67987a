#include "mcp/connection_server.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <thread>
#include <utility>

#include "diagnostics/mcp_logger.h"

namespace mcp {
namespace {

constexpr std::chrono::milliseconds kPauseAfterFailedAccept{10};

// Connections that come at once and are not yet accepted.
constexpr int kBacklog = 1024;

void set_option(int socket, int level, int name, int value) {
    setsockopt(socket, level, name, &value, sizeof value);
}

// A socket that listens there, or -1.
int listen_at(const addrinfo& address) {
    const int made = socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC, address.ai_protocol);
    if (made < 0) return -1;
    set_option(made, SOL_SOCKET, SO_REUSEPORT, 1);
    if (address.ai_family == AF_INET6) set_option(made, IPPROTO_IPV6, IPV6_V6ONLY, 0);
    if (::bind(made, address.ai_addr, address.ai_addrlen) == 0 && listen(made, kBacklog) == 0) return made;
    close(made);
    return -1;
}

int port_of(int socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
    return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6&>(address).sin6_port
                                               : reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

bool is_lasting_accept_error(int error) {
    return error == EBADF || error == EINVAL || error == ENOTSOCK || error == EOPNOTSUPP || error == EFAULT;
}

}  // namespace

connection_server::connection_server(const connection_limits& limits, const connection_timings& timings,
                                     server serve_one)
    : timings_(timings), serve_one_(std::move(serve_one)), workers_(limits) {}

connection_server::~connection_server() {
    if (socket_ >= 0) close(socket_);
}

int connection_server::bind(const std::string& host, int port) {
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &wanted, &found) != 0) return 0;
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owned(found, freeaddrinfo);
    int made = -1;
    for (const addrinfo* address = found; address && made < 0; address = address->ai_next) made = listen_at(*address);
    const std::lock_guard lock(mutex_);
    socket_ = made;
    return made < 0 ? 0 : port_of(made);
}

bool connection_server::serve() {
    bool failed = false;
    while (!stopping_ && !failed) {
        const int accepted = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted >= 0) {
            if (!workers_.enqueue([this, accepted] { serve_connection(accepted); })) close(accepted);
        } else if (!stopping_) {
            failed = is_lasting_accept_error(errno);
            if (errno != EINTR) std::this_thread::sleep_for(kPauseAfterFailedAccept);
        }
    }
    stop();
    workers_.shutdown();
    return !failed;
}

void connection_server::stop() {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    if (socket_ >= 0) shutdown(socket_, SHUT_RDWR);
    for (const auto& open : connections_) open->cut();
}

bool connection_server::enter(const std::shared_ptr<connection>& opened) {
    const std::lock_guard lock(mutex_);
    connections_.insert(opened);
    if (stopping_) opened->cut();
    return !stopping_;
}

void connection_server::serve_connection(int socket) noexcept {
    std::shared_ptr<connection> served;
    try {
        served = std::make_shared<connection>(socket, timings_);
        if (enter(served)) serve_one_(served);
    } catch (const std::exception& e) {
        log_error("Exception while serving a connection: ", e.what());
    } catch (...) {
        log_error("Unknown exception while serving a connection");
    }
    if (!served) {
        close(socket);
        return;
    }
    served->close();
    const std::lock_guard lock(mutex_);
    connections_.erase(served);
}

}  // namespace mcp
