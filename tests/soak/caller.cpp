#include <chrono>
#include <optional>
#include <random>
#include <stdexcept>

#include "tests/fakes/sse_client.h"
#include "tests/soak/clients.h"
#include "tests/soak/tool_calls.h"

namespace soak {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// By what the calls ask for, the longest of them has to wait for a dozen others of half a second each.
constexpr auto kPatience = 60s;
// The server ends a connection that idles for five seconds; a request must not cross with that.
constexpr auto kLongestIdle = 3s;
constexpr int kMostPause_ms = 10;

class Caller {
 public:
    explicit Caller(const Orders& orders)
        : orders_(orders),
          random_(static_cast<unsigned>(orders.number)),
          client_(kPort, orders.address),
          ledger_(orders.number) {
        client_.shake_hands();
        const json listed = mcp::parse_json(client_.call(R"({"jsonrpc":"2.0","id":"l","method":"tools/list"})"));
        calls_.emplace(listed.at("result").at("tools"), static_cast<unsigned>(orders.number));
    }

    Tally Run() {
        const int most_in_flight = 1 + orders_.number % 4;
        while (!orders_.stop) {
            ReceiveDuring(std::chrono::milliseconds(random_() % kMostPause_ms));
            if (ledger_.in_flight() < most_in_flight) {
                PostNext();
            } else if (!ReceiveNext()) {
                break;
            }
        }
        while (ledger_.in_flight() > 0 && ReceiveNext()) {
        }
        // What came twice came at once.
        ReceiveDuring(100ms);
        return ledger_.Close();
    }

 private:
    void PostNext() {
        const Call call = calls_->Next();
        json request = {{"jsonrpc", "2.0"}, {"id", ledger_.Post()}, {"method", call.method}};
        if (!call.params.is_null()) request["params"] = call.params;
        if (!posts_ || !posts_->is_open() || Clock::now() - posted_ > kLongestIdle) {
            posts_.emplace(kPort, orders_.address);
        }
        const mcp::http_reply reply =
            http_exchange(*posts_, mcp::post_request(client_.session_uri(), mcp::dump_json(request)));
        posted_ = Clock::now();
        if (reply.header("Connection") == "close") posts_.reset();
        if (reply.status != 202) ledger_.Refuse();
    }

    void ReceiveDuring(std::chrono::milliseconds pause) {
        const auto end = Clock::now() + pause;
        while (Clock::now() < end) {
            ReceiveWithin(std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()));
        }
    }

    bool ReceiveNext() { return ReceiveWithin(kPatience); }

    // Takes the next answer; false if none comes in time.
    bool ReceiveWithin(std::chrono::milliseconds patience) try {
        for (const auto deadline = Clock::now() + patience; Clock::now() < deadline;) {
            const mcp::sse_event event =
                client_.next_event(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()));
            if (event.type != "message") continue;
            ledger_.Receive(event.data);
            return true;
        }
        return false;
    } catch (const std::runtime_error&) {
        return false;
    }

    const Orders& orders_;
    std::minstd_rand random_;
    mcp::sse_client client_;
    std::optional<ToolCalls> calls_;
    std::optional<mcp::raw_socket> posts_;
    Clock::time_point posted_;
    Ledger ledger_;
};

}  // namespace

Tally CallTools(const Orders& orders) {
    return Caller(orders).Run();
}

}  // namespace soak
