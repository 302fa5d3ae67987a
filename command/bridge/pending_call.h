// One call whose outcome somebody waits for.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "command/bridge/tool_source.h"

namespace velmoor {

class pending_call {
 public:
    // Begins it. `call.done` is set here.
    pending_call(tool_source& through, tool_call call);

    // Its outcome, once; nothing if it does not come in that time.
    std::optional<json> wait_for(std::chrono::milliseconds time);
    json wait();
    bool is_answered() const;
    void cancel(const std::string& why) { through_.cancel(id_, why); }

 private:
    struct arrival;  // outlives this where nobody waits any more

    tool_source& through_;
    const std::uint64_t id_;
    const std::shared_ptr<arrival> arrived_;
};

}  // namespace velmoor
