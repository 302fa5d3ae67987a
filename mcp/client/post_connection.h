// One connection on which requests are posted, one after the other.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "mcp/client/descriptor.h"
#include "mcp/client/http_reply_parser.h"

namespace mcp {

class post_connection {
 public:
    using time_point = std::chrono::steady_clock::time_point;
    enum class state {
        idle,
        sending,
        sent,     // waits for the reply
        replied,  // `status` and `content` are there: take them by start() or rest()
        broken,
    };

    explicit post_connection(descriptor socket) : socket_(std::move(socket)) {}

    // `request` with its head, of call `id`, which is 0 for a notification.
    void start(std::string request, std::int64_t id, time_point now);
    // Goes on with what the socket lets it do, and does not wait.
    state proceed();
    void rest(time_point now);
    void give_up() { state_ = state::broken; }

    int socket() const { return socket_.get(); }
    short wanted_events() const;
    state where() const { return state_; }
    bool has_sent_all() const { return sent_ == request_.size(); }
    std::int64_t id() const { return id_; }
    int status() const { return reply_.status(); }
    const std::string& content() const { return content_; }
    bool may_go_on() const { return reply_.keeps_connection(); }
    time_point since() const { return since_; }  // of the last start or rest

 private:
    void send_some();
    void receive_some();

    descriptor socket_;
    state state_ = state::idle;
    std::string request_;
    std::size_t sent_ = 0;
    std::int64_t id_ = 0;
    http_reply_parser reply_;
    std::string content_;
    time_point since_ = std::chrono::steady_clock::now();
};

}  // namespace mcp
