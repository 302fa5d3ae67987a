// An application's whole life with the layer, over the scripted next layer: a row of steps, each of which calls one
// hook or one tool as an application or an agent would. The same life calls down in the same way every time.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "layer/mcp_server_lifecycle.h"
#include "mcp/json.h"
#include "tests/fakes/fake_runtime.h"
#include "tests/fakes/log_capture.h"
#include "tests/scene/fake_room.h"

namespace orvanic_xr {

// What a step comes to beside the XrResult of its hook: XR_SUCCESS is also a tool that answered.
inline constexpr std::int32_t kToolThrew = -2000;

class Application {
 public:
    Application();

    std::int32_t CreateInstance();
    std::int32_t CreateSession();
    std::int32_t SuggestBindings();
    std::int32_t Poll(const std::vector<XrEventDataBuffer>& events);
    std::int32_t Frame();
    std::int32_t Call(const std::string& tool, mcp::json arguments = mcp::json::object());
    // The head on its way for one frame; the frames go on until it has arrived.
    std::int32_t CallWhileFramesRun(const std::string& tool, mcp::json arguments);
    // A button is pressed and, on a thread of the layer's own, let go again.
    std::int32_t PressAndRelease();

    FakeRuntime runtime{FakeRuntime::Installed::kNo};
    FakeRoom room{runtime};
    XrInstance instance = XR_NULL_HANDLE;
    XrSession session = XR_NULL_HANDLE;
    XrSpace hand_space = XR_NULL_HANDLE;
    std::string answer;  // of the last tool

 private:
    ScopedMcpServerPort port_{-1};  // which no server can have
    LogCapture log_{kLogError};
};

struct Step {
    std::string_view name;
    bool is_tool;
    std::int32_t (*run)(Application&);
};

// From the instance's creation to its end, in order.
const std::vector<Step>& WholeLife();

}  // namespace orvanic_xr
