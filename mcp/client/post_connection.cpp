#include "mcp/client/post_connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

namespace mcp {
namespace {

// A reply says "Accepted", or in a few words why not.
constexpr std::size_t kMostContent = 65536;

bool would_block() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

}  // namespace

void post_connection::start(std::string request, std::int64_t id, time_point now) {
    request_ = std::move(request);
    sent_ = 0;
    id_ = id;
    reply_ = {};
    content_.clear();
    since_ = now;
    state_ = state::sending;
}

post_connection::state post_connection::proceed() {
    const bool was_sending = state_ == state::sending;
    if (was_sending) send_some();
    // What was sent only now is not replied to yet.
    if (state_ != state::broken && !(was_sending && state_ == state::sent)) receive_some();
    return state_;
}

void post_connection::rest(time_point now) {
    state_ = state::idle;
    since_ = now;
}

short post_connection::wanted_events() const {
    return state_ == state::sending ? POLLIN | POLLOUT : POLLIN;
}

void post_connection::send_some() {
    while (sent_ < request_.size()) {
        const ssize_t count = send(socket_.get(), request_.data() + sent_, request_.size() - sent_, MSG_NOSIGNAL);
        if (count > 0) {
            sent_ += static_cast<std::size_t>(count);
        } else {
            if (count == 0 || !would_block()) state_ = state::broken;
            return;
        }
    }
    state_ = state::sent;
}

void post_connection::receive_some() {
    std::array<char, 4096> bytes;
    const ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), 0);
    if (count < 0 && would_block()) return;
    // Nothing is due on an idle connection: the server has closed it, or has lost its way.
    if (count <= 0 || state_ == state::idle) {
        state_ = state::broken;
        return;
    }
    std::string_view received(bytes.data(), static_cast<std::size_t>(count));
    const auto reply = reply_.feed(received, content_);
    if (reply == http_reply_parser::state::broken || content_.size() > kMostContent) state_ = state::broken;
    // A server may refuse a request before it has read all of it.
    if (reply == http_reply_parser::state::complete && state_ != state::broken) state_ = state::replied;
}

}  // namespace mcp
