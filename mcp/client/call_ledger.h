// Which calls wait, which are under way, and that each of them ends exactly once. Knows no socket and no clock: what
// has happened, and when, is told to it.
//
// A call waits until it is taken to be sent. Until its last byte has left it may be given back, and waits on: it can't
// have been run. From then on only an answer tells what came of it, and it is never sent again.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "mcp/json.h"

namespace mcp {

enum class call_end {
    answered,         // `message` has a result or an error
    not_sent,         // no server was there in time; it was not run
    refused,          // the server took it for no request of its; it was not run
    outcome_unknown,  // it was sent, and the server went before it answered
    timed_out,        // it was sent, and not answered in time
    cancelled,
};

struct call_result {
    call_end how = call_end::answered;
    json message;
    std::string why;  // for a person to read; empty if it was answered
};

struct call {
    std::int64_t id = 0;
    std::string body;  // the JSON-RPC request with that id
    std::chrono::steady_clock::time_point send_by;
    std::chrono::milliseconds answer_within{0};
    bool is_greeting = false;                        // may be sent before the server is ready
    std::function<void(call_result&&)> done;         // once
    std::function<void(const json& params)> report;  // of progress; may be empty
};

class call_ledger {
 public:
    using time_point = std::chrono::steady_clock::time_point;

    void add(call added);

    // The id and the body of the call that is next, which is under way from now on.
    struct outgoing {
        std::int64_t id;
        std::string body;
    };
    std::optional<outgoing> take_next(bool is_ready);
    bool has_next(bool is_ready) const { return !greetings_.empty() || (is_ready && !waiting_.empty()); }

    // Of one that was taken: it comes first again, all of it has left, or nobody knows whether it has been read, so
    // that it is to be answered soon. Ids of calls that have ended are ignored, here and below.
    void give_back(std::int64_t id);
    void mark_sent(std::int64_t id, time_point now);
    void doubt(std::int64_t id, time_point answer_by);

    void answer(json message);
    void report(const json& params);  // params of notifications/progress
    // True if the server may have it, and should learn of this.
    bool cancel(std::int64_t id, const std::string& why);
    void end(std::int64_t id, call_end how, const std::string& why);

    // The stream is gone on which answers come. Greetings end too: the next server is greeted anew.
    void lose_server(const std::string& why);
    // `problem` is what keeps the client from a server.
    void expire(time_point now, const std::string& problem);
    void end_all(const std::string& why);

    std::optional<time_point> next_deadline() const;

 private:
    enum class stage { waiting, leaving, sent };
    struct entry {
        call it;
        stage where = stage::waiting;
        time_point deadline;
    };

    void finish(std::map<std::int64_t, entry>::iterator which, call_result&& result);
    void set_deadline(entry& of, time_point deadline);
    std::deque<std::int64_t>& queue_of(const call& it) { return it.is_greeting ? greetings_ : waiting_; }

    std::map<std::int64_t, entry> calls_;
    // In the order of sending.
    std::deque<std::int64_t> greetings_;
    std::deque<std::int64_t> waiting_;
    std::set<std::pair<time_point, std::int64_t>> deadlines_;
};

}  // namespace mcp
