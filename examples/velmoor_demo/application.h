// An OpenXR application: instance, session, event loop and frame loop. It draws its game over the room, with OpenGL ES
// and no window; or it runs headless and draws nothing.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>

#include "examples/velmoor_demo/controls.h"
#include "examples/velmoor_demo/game.h"
#include "examples/velmoor_demo/gles.h"
#include "examples/velmoor_demo/picture.h"
#include "examples/velmoor_demo/report.h"

namespace demo {

class Application {
 public:
    Application(bool headless, Fault fault);
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    // Opens a session and runs until it ends: because `seconds` of frames went by, because `stop` was set, or because
    // somebody else asked for it. With no `seconds` it runs for as long as it is let.
    void Run(std::optional<double> seconds, const std::atomic<bool>& stop);

 private:
    void Start();
    void CreateInstance();
    void CreateSession();
    // Where there is a context to draw with.
    XrResult CreateSessionThatDraws(XrSessionCreateInfo info);
    XrSpace CreateReferenceSpace(XrReferenceSpaceType type);
    void PollEvents();
    void OnSessionState(XrSessionState state);
    void TellProfiles() const;
    void RequestExit();
    void RunFrame();
    std::optional<XrPosef> LocateHead(XrTime time) const;
    // Where no frame comes, the machine's clock counts.
    bool IsOver(double seconds) const;
    double SecondsOfFrames() const { return static_cast<double>(newest_frame_ - first_frame_) / 1e9; }

    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    // Outlives the session. Null in a headless one.
    std::unique_ptr<Gles> gles_;
    const Fault fault_;
    Game game_;  // outlives the instance, whose tools use it
    XrInstance instance_ = XR_NULL_HANDLE;
    XrSystemId system_ = XR_NULL_SYSTEM_ID;
    XrSession session_ = XR_NULL_HANDLE;
    XrSpace stage_ = XR_NULL_HANDLE;
    XrSpace view_ = XR_NULL_HANDLE;
    std::unique_ptr<Controls> controls_;
    std::unique_ptr<Picture> picture_;
    Report report_;
    XrSessionState state_ = XR_SESSION_STATE_UNKNOWN;
    // Between xrBeginSession and xrEndSession: frames are due.
    bool running_ = false;
    // When they are shown. The demo goes by this time, which may be another than the machine's.
    XrTime first_frame_ = 0;
    XrTime newest_frame_ = 0;
    bool exit_requested_ = false;
    bool finished_ = false;
};

}  // namespace demo
