#include "mcp/connection.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace mcp {
namespace {

using std::chrono::steady_clock;

// A client that reads closes its side within that time.
constexpr std::chrono::milliseconds kQuietBeforeClose{500};
constexpr std::chrono::seconds kTimeBeforeClose{5};
constexpr std::size_t kBytesBeforeClose = 64u << 20;

constexpr std::size_t kMostParts = 4;

template <typename Call>
ssize_t retry_when_interrupted(const Call& call) {
    ssize_t result;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

void set_time_limit(int socket, int direction, std::chrono::milliseconds limit) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
    const timeval time{.tv_sec = seconds.count(), .tv_usec = std::chrono::microseconds(limit - seconds).count()};
    setsockopt(socket, SOL_SOCKET, direction, &time, sizeof time);
}

}  // namespace

connection::connection(int socket, const connection_timings& timings) : socket_(socket), timings_(timings) {
    const int on = 1;
    setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    set_time_limit(socket_, SO_RCVTIMEO, timings.silence);
    set_time_limit(socket_, SO_SNDTIMEO, timings.write);

    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    if (getpeername(socket_, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
        getnameinfo(reinterpret_cast<const sockaddr*>(&peer), size, host.data(), host.size(), port.data(), port.size(),
                    NI_NUMERICHOST | NI_NUMERICSERV) == 0) {
        remote_address_ = host.data();
        remote_port_ = std::atoi(port.data());
    }
}

void connection::begin_request() {
    request_end_ = steady_clock::now() + timings_.request;
}

ssize_t connection::read(char* bytes, std::size_t size) {
    if (!has_buffered()) {
        if (steady_clock::now() >= request_end_) return -1;
        const bool direct = size >= buffer_.size();
        char* const target = direct ? bytes : buffer_.data();
        const std::size_t room = direct ? size : buffer_.size();
        const ssize_t count = retry_when_interrupted([&] { return recv(socket_, target, room, 0); });
        if (direct || count <= 0) return count;
        begin_ = 0;
        end_ = static_cast<std::size_t>(count);
    }
    const std::size_t count = std::min(size, end_ - begin_);
    std::memcpy(bytes, buffer_.data() + begin_, count);
    begin_ += count;
    return static_cast<ssize_t>(count);
}

bool connection::write(std::initializer_list<std::string_view> parts) {
    std::array<iovec, kMostParts> left{};
    std::size_t end = 0;
    for (const std::string_view part : parts) {
        if (!part.empty()) left.at(end++) = {.iov_base = const_cast<char*>(part.data()), .iov_len = part.size()};
    }
    for (std::size_t begin = 0; begin < end;) {
        msghdr message{};
        message.msg_iov = &left[begin];
        message.msg_iovlen = end - begin;
        const ssize_t sent = retry_when_interrupted([&] { return sendmsg(socket_, &message, MSG_NOSIGNAL); });
        if (sent <= 0) return false;
        std::size_t count = static_cast<std::size_t>(sent);
        while (begin < end && count >= left[begin].iov_len) count -= left[begin++].iov_len;
        if (begin < end) {
            left[begin].iov_base = static_cast<char*>(left[begin].iov_base) + count;
            left[begin].iov_len -= count;
        }
    }
    return true;
}

bool connection::peer_is_alive() const {
    char byte;
    const ssize_t count = retry_when_interrupted([&] { return recv(socket_, &byte, 1, MSG_PEEK | MSG_DONTWAIT); });
    return count > 0 || (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK));
}

bool connection::has_room() const {
    // The system calls a socket writable while at least a third of its buffer is free.
    pollfd waiting{.fd = socket_, .events = POLLOUT, .revents = 0};
    return poll(&waiting, 1, 0) == 1 && waiting.revents == POLLOUT;
}

void connection::cut() {
    const std::lock_guard lock(mutex_);
    if (!closed_) shutdown(socket_, SHUT_RDWR);
}

void connection::close() {
    shutdown(socket_, SHUT_WR);
    read_away();
    const std::lock_guard lock(mutex_);
    closed_ = true;
    ::close(socket_);
}

void connection::read_away() {
    const auto end = steady_clock::now() + kTimeBeforeClose;
    std::size_t left = kBytesBeforeClose;
    while (left > 0 && steady_clock::now() < end) {
        pollfd waiting{.fd = socket_, .events = POLLIN, .revents = 0};
        if (poll(&waiting, 1, static_cast<int>(kQuietBeforeClose.count())) <= 0) return;
        const ssize_t count = recv(socket_, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
        if (count <= 0) return;
        left -= std::min(left, static_cast<std::size_t>(count));
    }
}

}  // namespace mcp
