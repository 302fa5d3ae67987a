// The clients of the soak. Each is a function that keeps one kind of client at work on a thread of its own until it is
// told to stop, which is heard within a few seconds.
#pragma once

#include <atomic>
#include <cstdint>

#include "tests/soak/tally.h"

namespace soak {

constexpr int kPort = 8720;

struct Orders {
    const char* address;  // of the server
    int number;           // of the client, from 1
    const std::atomic<bool>& stop;
};

// Shakes hands, calls all tools at random with several calls in flight, and at the end waits for what is still due.
// Throws if the server breaks off.
Tally CallTools(const Orders& orders);

// These three break the rules again and again, and give how many times. Their own requests are in no tally.
// Resets a connection in the middle of a request, or of a stream.
std::int64_t Vanish(const Orders& orders);
// Asks for much and reads nothing, until it is cut off.
std::int64_t NeverRead(const Orders& orders);
// Sends what is no HTTP, no JSON, or too much of either.
std::int64_t SendGarbage(const Orders& orders);

}  // namespace soak
