#include "mcp/connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace mcp {
namespace {

template <typename Call>
ssize_t retry_when_interrupted(const Call& call) {
    ssize_t result;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

}  // namespace

connection::connection(int socket) : socket_(socket) {
    const int on = 1;
    setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void connection::set_time_limits(time_t read_seconds, time_t write_seconds) {
    const timeval reading{.tv_sec = read_seconds, .tv_usec = 0};
    const timeval writing{.tv_sec = write_seconds, .tv_usec = 0};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &reading, sizeof reading);
    setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &writing, sizeof writing);
}

ssize_t connection::read(char* bytes, std::size_t size) {
    if (!has_buffered()) {
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

ssize_t connection::write(const char* bytes, std::size_t size) {
    return retry_when_interrupted([&] { return send(socket_, bytes, size, MSG_NOSIGNAL); });
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
    const std::lock_guard lock(mutex_);
    closed_ = true;
    shutdown(socket_, SHUT_RDWR);
    ::close(socket_);
}

}  // namespace mcp
