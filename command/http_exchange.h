// One HTTP answer while it comes about: a single JSON text, or a stream of events.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "command/bridge/client_session.h"
#include "mcp/http_message.h"

namespace velmoor {

class http_exchange final : public outlet {
 public:
    void notify(std::string message) override;
    void answer(std::string message) override;
    void give_up() override;

    // Until something is to be sent, or nothing will be any more; false if that did not come in time.
    bool await(std::chrono::milliseconds limit);
    // The answer, if it has come and nothing before it.
    std::optional<std::string> take_lone_answer();
    // All that is to be sent now.
    std::vector<std::string> take_messages();
    // Nothing comes any more.
    bool is_over() const;

 private:
    mutable std::mutex mutex_;  // all below
    std::condition_variable changed_;
    std::vector<std::string> messages_;
    bool is_over_ = false;
};

// The exchange as a stream of events, until it is over or the client is gone. Then `ended` runs.
mcp::http_answer event_stream(std::shared_ptr<http_exchange> of, std::function<void()> ended);

}  // namespace velmoor
