// A closed-loop client for load: one thread, many connections. Every call is posted, and over when both its
// acknowledgement and its answer on the stream have come; then the next goes out on the same connection.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace mcp {

struct load_result {
    std::vector<double> latencies_us;  // from the POST to its answer, ascending
    double seconds = 0;
    int lost = 0;        // not answered within ten seconds
    int duplicates = 0;  // answered again

    double latency_us(double share) const;
    double calls_per_second() const { return static_cast<double>(latencies_us.size()) / seconds; }
};

// Makes `calls` calls of the tool "echo" with `in_flight` of them at a time on each of `sessions` sessions, after
// a tenth as many that don't count. Throws if the server can't be talked to.
load_result measure_load(int port, int sessions, int in_flight, int calls);

// Connects to 127.0.0.1.
int connect_to(int port);

}  // namespace mcp
