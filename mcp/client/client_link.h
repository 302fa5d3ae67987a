// A client of an MCP server over HTTP and Server-Sent Events: opens the stream, introduces itself, posts calls and
// hands out their answers; and begins again when the server went, for as long as the link lives.
//
//     client_link link(config, events);
//     link.call("tools/call", params, limits, [](call_result&& result) { ... });
//
// One thread of the link does everything, and runs all callbacks: they must not wait, nor destroy the link. A call's
// `done` runs exactly once. No call is ever sent twice, unless the first time it can't have been read as a whole.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "mcp/client/call_ledger.h"
#include "mcp/client/descriptor.h"
#include "mcp/client/dial.h"
#include "mcp/client/event_parser.h"
#include "mcp/client/http_reply_parser.h"
#include "mcp/client/post_connection.h"
#include "mcp/json.h"

namespace mcp {

struct link_config {
    dialer dial;
    std::string host;  // the header
    std::string path = "/sse";
    std::vector<std::pair<std::string, std::string>> headers;  // more of them, on every request
    json client_info;                                          // name and version
    bool begin_again = true;                                   // otherwise the first loss is the end
    std::size_t most_event_bytes = std::size_t{128} << 20;

    std::chrono::milliseconds greeting_limit{10000};  // from dialling to being ready
    std::chrono::milliseconds silence_limit{30000};   // a stream on which nothing comes is dead
    std::chrono::milliseconds unread_limit{10000};    // for the reply to a POST
    std::chrono::milliseconds first_pause{200};       // between two tries, while calls wait ...
    std::chrono::milliseconds longest_pause{2000};    // ... and while none does, growing up to this
    std::chrono::milliseconds post_idle_limit{2000};  // before servers close connections on their own
};

// All may be empty.
struct link_events {
    std::function<void(const json& result)> introduced;         // the result of initialize
    std::function<void(const std::vector<json>& tools)> ready;  // may take calls now; its tools' declarations
    std::function<void(const std::string& why)> lost;           // after `introduced` or not; also each failed try
    std::function<void(const json& message)> notified;          // other than progress
};

struct call_limits {
    std::chrono::milliseconds send{10000};
    std::chrono::milliseconds answer{60000};
};

class client_link {
 public:
    using time_point = std::chrono::steady_clock::time_point;

    client_link(link_config config, link_events events);
    // Ends all calls.
    ~client_link();
    client_link(const client_link&) = delete;
    client_link& operator=(const client_link&) = delete;

    // Any thread. Gives the id of the call. With `report`, the server is asked for progress.
    std::int64_t call(const std::string& method, json params, call_limits limits,
                      std::function<void(call_result&&)> done,
                      std::function<void(const json& params)> report = nullptr);
    void cancel(std::int64_t id, const std::string& why);

 private:
    enum class stage { away, opening, greeting, ready, ended };

    void run();
    // To be run by the link's thread, after all that came before.
    void command(std::function<void()> added);
    void run_commands();
    void wait_for_events();
    void begin();
    void go_away(const std::string& why);
    void read_stream();
    void take_event(const std::string& type, std::string&& data);
    void greet();
    void list_tools(const json& cursor);
    void take_tools(const json& result);
    void greet_with(const std::string& method, json params, std::function<void(const json& message)> next);
    void notify(const std::string& method, json params);
    void post_what_waits();
    post_connection* free_post();
    void start_post(post_connection& on, const std::string& body, std::int64_t id);
    void proceed(post_connection& with);
    void take_reply(post_connection& of);
    void look_at_clock();
    time_point next_look() const;
    std::string head(const std::string& request_line) const;

    const link_config config_;
    const link_events events_;
    const descriptor wake_;

    std::mutex mutex_;  // commands_, stopping_, next_id_
    std::vector<std::function<void()>> commands_;
    bool stopping_ = false;
    std::int64_t next_id_ = 1;

    // All below belong to the link's thread.
    call_ledger calls_;
    stage stage_ = stage::away;
    std::string problem_ = "no server was tried yet";
    descriptor stream_;
    http_reply_parser stream_reply_;
    std::optional<event_parser> events_parser_;
    std::string post_path_;
    std::vector<json> tools_;
    std::vector<std::string> notices_;  // bodies of notifications that wait to be posted
    std::list<post_connection> posts_;
    time_point stage_since_;
    time_point last_heard_;
    time_point next_try_;
    std::chrono::milliseconds pause_{0};

    std::thread thread_;  // last: it uses all the others
};

}  // namespace mcp
