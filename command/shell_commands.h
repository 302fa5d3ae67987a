// The subcommands that do one thing and end, for people and scripts.
#pragma once

#include <string>

#include "command/bridge/bridge.h"

namespace velmoor {

// Exit codes.
inline constexpr int kWell = 0;
inline constexpr int kFailed = 1;  // the tool refused, or the doctor found what is in the way
inline constexpr int kMisused = 2;
inline constexpr int kNobodyThere = 3;

struct call_request {
    std::string tool;
    std::string arguments;  // JSON; empty for none
    std::string app;
    std::string pictures;  // directory; pictures are not kept if it is empty
};

int show_applications(bridge& through, bool as_json);
int show_tools(bridge& through, bool as_json);
int call_once(bridge& through, const call_request& request);
// To be called while the process has one thread.
int show_doctor(bool as_json);

}  // namespace velmoor
