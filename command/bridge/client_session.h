// What one client says, and what it is answered, on whatever transport. Knows no socket and no application: requests
// for tools go to a tool_source, answers to an outlet.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "command/bridge/revision.h"
#include "command/bridge/tool_source.h"

namespace velmoor {

// Where the answer to one message goes. Any thread; none of these waits for the client.
class outlet {
 public:
    virtual ~outlet() = default;
    virtual void notify(std::string message) = 0;  // what belongs to the request, before its answer
    virtual void answer(std::string message) = 0;  // once, and nothing after it
    virtual void give_up() = 0;                    // in place of an answer, to what was cancelled
};

struct session_settings {
    json server_info;                                  // name and version
    std::string instructions;                          // for the model; may be empty
    std::function<void(std::string message)> unasked;  // to the client, of no request. May be empty.
};

// Any thread may call. To be owned by a shared_ptr: calls that are under way keep it.
class client_session : public std::enable_shared_from_this<client_session> {
 public:
    client_session(tool_source& tools, session_settings settings);

    // One message as text, or a batch of them. False if it needs no answer: then `to` is not used.
    bool take_text(std::string_view text, const std::shared_ptr<outlet>& to);
    // Likewise, taken apart already.
    bool take(json message, const std::shared_ptr<outlet>& to);

    // The list of tools has changed.
    void tell_of_tools();
    // Cancels the calls that wait for an answer at `to`, and forgets it: the client has closed it.
    void forget(const outlet* to);
    // Ends all subscriptions with an answer; of what was called, the answer still comes.
    void end_subscriptions();

    bool is_initialized() const;
    std::string revision() const;  // as agreed on; empty before that
    std::size_t waiting() const;   // requests that have no answer yet, but for subscriptions

 private:
    struct pending_call {
        json id;
        json progress_token;  // null if none
        bool is_stateless = false;
        std::shared_ptr<outlet> to;
    };
    struct subscription {
        json id;
        bool wants_tools = false;
        std::shared_ptr<outlet> to;
    };
    class batch;

    bool take_batch(json& messages, const std::shared_ptr<outlet>& to);
    void take_request(json& message, const std::shared_ptr<outlet>& to);
    void take_session_request(json& message, const std::string& method, const std::shared_ptr<outlet>& to);
    void take_stateless_request(json& message, const std::string& method, const std::shared_ptr<outlet>& to);
    void take_notification(const json& message);
    void cancel(const json& params);

    void initialize(const json& message, const std::shared_ptr<outlet>& to);
    void list_tools(const json& message, bool is_stateless, const std::shared_ptr<outlet>& to);
    void call_tool(json& message, bool is_stateless, const std::shared_ptr<outlet>& to);
    void listen(const json& message, const std::shared_ptr<outlet>& to);
    void finish(std::uint64_t call, json&& outcome);
    void report(std::uint64_t call, json&& progress);
    void stamp(json& result) const;

    tool_source& tools_;
    const session_settings settings_;

    mutable std::mutex mutex_;  // all below
    std::string revision_;
    std::map<std::uint64_t, pending_call> calls_;
    std::map<std::string, subscription> subscriptions_;  // by the text of their ids
};

// A JSON-RPC error as text. The id is null where the request could not be read.
std::string error_text(const json& id, std::int32_t code, const std::string& message);

}  // namespace velmoor
