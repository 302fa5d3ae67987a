// The page that shows what a watch sees, over HTTP: on loopback alone, and read-only.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "command/watch/watch.h"
#include "mcp/http_message.h"
#include "mcp/http_server.h"

namespace velmoor {

inline constexpr const char* kWatchPath = "/watch";

class watch_page {
 public:
    // With a token, browsers ask for a password, which is that; the user's name does not matter.
    watch_page(watch& shown, std::string token) : shown_(shown), token_(std::move(token)) {}

    // Nothing if the path is none of the page's. Any thread.
    std::optional<mcp::http_answer> answer(const mcp::http_request& request);

 private:
    std::optional<mcp::http_answer> refuse(const mcp::http_request& request) const;
    mcp::http_answer picture(const std::string& number);
    mcp::http_answer events();

    watch& shown_;
    const std::string token_;
};

// A server for the page and for nothing else, on 127.0.0.1.
class watch_server {
 public:
    explicit watch_server(watch& shown);
    ~watch_server();
    watch_server(const watch_server&) = delete;
    watch_server& operator=(const watch_server&) = delete;

    // The port that it serves at from now on, or 0 if that can't be had. 0 takes any.
    int start(int port);

 private:
    watch& shown_;
    watch_page page_;
    mcp::http_server server_;
    std::thread thread_;
};

}  // namespace velmoor
