// Many clients over Streamable HTTP, at one path: sessions up to 2025-11-25, and requests that stand alone.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "command/bridge/bridge.h"
#include "command/bridge/client_session.h"
#include "command/http_exchange.h"
#include "mcp/http_server.h"

namespace velmoor {

struct http_settings {
    std::string host = "127.0.0.1";
    int port = 8730;
    std::string token;  // what clients have to know; without one, this machine alone is served
    json server_info;
    // Answers requests for paths of its own, before any other rule; may be empty.
    std::function<std::optional<mcp::http_answer>(const mcp::http_request&)> page = nullptr;
};

class http_transport {
 public:
    http_transport(bridge& through, http_settings settings);

    // The port, or 0 if it can't be had.
    int bind();
    // Until stop().
    void serve() { server_.serve(); }
    // Answers what is under way, and ends all connections. Any thread.
    void stop();
    // To all clients that want to know: the list of tools has changed.
    void tell_of_tools();

 private:
    struct open_session {
        std::shared_ptr<client_session> session;
        std::shared_ptr<http_exchange> stream;  // of its GET; may be null
        std::chrono::steady_clock::time_point used;
    };

    std::optional<mcp::http_answer> look_at_head(const mcp::http_request& request);
    mcp::http_answer take_post(const mcp::http_request& request, mcp::http_body& body);
    mcp::http_answer take_get(const mcp::http_request& request);
    mcp::http_answer take_delete(const mcp::http_request& request);
    mcp::http_answer serve_alone(const mcp::http_request& request, json message);
    mcp::http_answer open(json message);
    mcp::http_answer serve_in_session(const mcp::http_request& request, json message);
    mcp::http_answer answer_with(const mcp::http_request& request, const std::shared_ptr<http_exchange>& exchange,
                                 std::function<void()> ended);

    std::shared_ptr<client_session> make_session(std::function<void(std::string)> unasked);
    std::shared_ptr<client_session> find(const std::string& id);
    void push(const std::string& id, std::string message);
    void make_room_locked();

    bridge& through_;
    const http_settings settings_;

    std::mutex mutex_;  // all below but the server
    std::map<std::string, open_session> sessions_;
    std::vector<std::weak_ptr<client_session>> alone_;  // that listen for changes

    mcp::http_server server_;  // last: its workers use all the others
};

}  // namespace velmoor
