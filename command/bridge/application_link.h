// The bridge's connection to one application.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "command/applications/application.h"
#include "mcp/client/client_link.h"

namespace velmoor {

using mcp::json;

enum class link_state {
    opening,  // has not answered yet, or was lost a moment ago
    ready,
    failing,  // serves the port, and is not to be talked to
};

class application_link {
 public:
    // `changed` runs on the link's thread, when its state or its tools have changed.
    application_link(application who, const surroundings& around, json client_info, const std::string& version,
                     std::function<void()> changed);

    // `is_aside` asks the application not to log it.
    std::int64_t call(const std::string& tool, const json& arguments, mcp::call_limits limits,
                      std::function<void(mcp::call_result&&)> done, std::function<void(const json&)> report,
                      bool is_aside);
    void cancel(std::int64_t call, const std::string& why) { client_->cancel(call, why); }

    // Asks for the tools again, every now and then: the layer does not say when an application adds one.
    void look_at_tools(std::chrono::steady_clock::time_point now);

    const application& who() const { return who_; }
    link_state state() const;
    std::string problem() const;
    std::vector<json> tools() const;  // those that are the application's own
    bool offers(const std::string& own_tool) const;

 private:
    void ask_for_tools();
    void take_tools(const std::vector<json>& tools);

    const application who_;
    const std::function<void()> changed_;

    mutable std::mutex mutex_;  // all below but the client
    link_state state_ = link_state::opening;
    bool was_ready_ = false;
    std::string problem_;
    std::vector<json> tools_;
    int looks_ = 0;
    std::chrono::steady_clock::time_point next_look_;

    std::unique_ptr<mcp::client_link> client_;  // last: its thread uses all the others
};

}  // namespace velmoor
