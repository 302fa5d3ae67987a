// Moves simulated devices over time. A tool starts an animation and waits on its future; the xrWaitFrame hook
// advances all of them, once a frame. Nothing here knows OpenXR: an animation is two poses and a function that
// applies one. Poses in metres and x, y, z, w; times in nanoseconds of CLOCK_MONOTONIC, or of FrameClock where that is
// on.
#pragma once

#include <openxr/openxr.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace orvanic_xr {

enum AnimationResult : std::int32_t {
    AnimationCompleted = 0,   // the end pose was applied
    AnimationSuperseded = 1,  // ended by a newer animation of the same name, or by CancelAll
    AnimationFailed = 2,      // the apply function returned false
};

struct ActiveAnimation {
    std::string name;  // the key: one animation of a name runs at a time
    XrPosef start_pose{};
    XrPosef end_pose{};
    float duration_seconds = 0.0f;
    std::function<bool(const XrPosef&)> apply;
    // Made by StartAnimation.
    std::int64_t start_time = 0;
    std::promise<AnimationResult> completion;
    // Called before the outcome is told: once or more, on any thread. May be empty; throws nothing.
    std::function<void()> on_end = {};
};

class PoseAnimationManager {
 public:
    static PoseAnimationManager& instance();

    // Starts `animation` now. A running one of the same name ends as AnimationSuperseded. Any thread.
    std::future<AnimationResult> StartAnimation(ActiveAnimation animation);

    // Advances every animation by one frame. Frame thread only. Apply functions run with no lock held; what
    // they throw goes to the caller, and their animation tries again at the next frame.
    void Tick();

    // Ends every animation as AnimationSuperseded; devices stay where their last step put them. Any thread. `cause`
    // goes to the log: their callers are told of a newer call, whatever it was.
    void CancelAll(const char* cause);
    // The same, and until the next Open also for every one that is started later: the server's end waits for the
    // tools that wait for them.
    void Close();
    void Open();

 private:
    // Guards both.
    std::mutex mutex_;
    bool closed_ = false;
    std::unordered_map<std::string, std::shared_ptr<ActiveAnimation>> active_;
};

// Position linearly, orientation by normalised linear interpolation along the shorter arc; `t` is clamped to
// 0..1. A zero quaternion stays one.
XrPosef InterpolatePose(const XrPosef& start, const XrPosef& end, float t);

// How long a tool waits for an animation of that duration: the duration and five seconds' grace for an
// application that renders slowly. A duration that the clock can't hold ends at the clock's last moment.
std::chrono::steady_clock::time_point AnimationDeadline(float duration_seconds);

}  // namespace orvanic_xr
