// An OpenXR application without a picture: instance, session, event loop and frame loop.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>

#include "examples/velmoor_demo/controls.h"
#include "examples/velmoor_demo/game.h"
#include "examples/velmoor_demo/report.h"

namespace demo {

class Application {
 public:
    Application() = default;
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    // Opens a session and runs until it ends: because `seconds` went by, because `stop` was set, or because somebody
    // else asked for it. With no `seconds` it runs for as long as it is let.
    void Run(std::optional<double> seconds, const std::atomic<bool>& stop);

 private:
    void Start();
    void CreateInstance();
    void CreateSession();
    XrSpace CreateReferenceSpace(XrReferenceSpaceType type);
    void PollEvents();
    void OnSessionState(XrSessionState state);
    void TellProfiles() const;
    void RequestExit();
    void RunFrame();
    std::optional<XrPosef> LocateHead(XrTime time) const;
    double SecondsSinceStart() const;

    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    Game game_;  // outlives the instance, whose tools use it
    XrInstance instance_ = XR_NULL_HANDLE;
    XrSession session_ = XR_NULL_HANDLE;
    XrSpace stage_ = XR_NULL_HANDLE;
    XrSpace view_ = XR_NULL_HANDLE;
    std::unique_ptr<Controls> controls_;
    Report report_;
    XrSessionState state_ = XR_SESSION_STATE_UNKNOWN;
    // Between xrBeginSession and xrEndSession: frames are due.
    bool running_ = false;
    bool exit_requested_ = false;
    bool finished_ = false;
};

}  // namespace demo
