// What became of requests. An id is answered once, or it is lost; there is no third way.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "mcp/json.h"

namespace soak {

struct Tally {
    std::int64_t answered = 0;
    std::int64_t lost = 0;            // acknowledged, and never answered
    std::int64_t duplicates = 0;      // answered again
    std::int64_t strays = 0;          // of another session, or no answers at all
    std::int64_t refused = 0;         // not acknowledged with 202
    std::vector<float> latencies_ms;  // from the POST to the answer

    void Add(const Tally& other);
    bool is_clean() const { return lost == 0 && duplicates == 0 && strays == 0 && refused == 0; }
};

// The requests of one client on one session.
class Ledger {
 public:
    // Ids of different clients differ.
    explicit Ledger(int client) : next_id_(std::int64_t{client} * 1'000'000'000) {}

    // Enters a request that is about to be posted, and gives its id: numbers and texts take turns.
    mcp::json Post();
    // The one that was posted last was not acknowledged.
    void Refuse();
    // Takes in what came on the session's stream.
    void Receive(const std::string& message);

    int in_flight() const { return in_flight_; }
    // Those still in flight are lost.
    Tally Close();

 private:
    using Clock = std::chrono::steady_clock;

    struct Request {
        Clock::time_point posted = Clock::now();
        bool is_open = true;
    };

    std::int64_t next_id_;
    std::map<mcp::json, Request> requests_;
    Request* last_ = nullptr;
    int in_flight_ = 0;
    Tally tally_;
};

// The latency that `share` of them stay below; reorders them. 0 if there are none.
float Quantile(std::vector<float>& latencies_ms, double share);

}  // namespace soak
