// Where a client's calls go.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "mcp/json.h"

namespace velmoor {

using mcp::json;

// One call of a tool. Its functions run on any thread and must not wait.
struct tool_call {
    std::string name;
    json arguments;  // null if none were given
    // Once, and with no more reports behind it: an object with either `result` or `error`. Not after cancel().
    std::function<void(json&& outcome)> done;
    // `progress`, which rises, and perhaps `total` and `message`. Empty if the caller wants none.
    std::function<void(json&& progress)> report;
    bool is_inner = false;  // made by a tool of the bridge's own
    pid_t process = 0;      // that alone may run it: it fails as soon as that one is gone. 0 for any
    bool is_aside = false;  // a look of somebody who watches: waits for no application, and counts as no call
};

class tool_source {
 public:
    virtual ~tool_source() = default;

    // The declarations of all tools, as the text of a JSON array. The same pointer as long as they are the same.
    virtual std::shared_ptr<const std::string> list_tools() = 0;

    virtual std::uint64_t new_call_id() = 0;
    virtual void start(std::uint64_t id, tool_call call) = 0;
    virtual void cancel(std::uint64_t id, const std::string& why) = 0;

    // Who the client is: its name and version, as far as it says.
    virtual void introduce(const json& client_info) = 0;
    // A client is there in earnest: from now on, applications are looked for. May be told again, and is cheap then.
    virtual void expect_calls() = 0;
};

}  // namespace velmoor
