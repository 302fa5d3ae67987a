#include "tools/simulation/pose_animation_manager.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "diagnostics/clock.h"
#include "diagnostics/logger.h"
#include "diagnostics/number_text.h"
#include "tools/simulation/frame_clock.h"
#include "xr/pose_math.h"

namespace orvanic_xr {
namespace {

constexpr char kInstanceEnds[] = "the end of the instance";
// Seconds that fit into nanoseconds.
constexpr double kLongestByFrames = 9e9;

using Entry = std::pair<std::string, std::shared_ptr<ActiveAnimation>>;

// An animation may be superseded while a tick is at work on it: the value that came first stands.
void Fulfil(ActiveAnimation& animation, AnimationResult result) {
    if (animation.on_end) animation.on_end();
    try {
        animation.completion.set_value(result);
    } catch (const std::future_error&) {
    }
}

std::int64_t NowForMoves() {
    const FrameClock& clock = FrameClock::instance();
    return clock.is_on() ? clock.now() : MonotonicNanoseconds();
}

// By frames, a move ends with the one that is shown nearest to its end.
bool IsLastFrame(const ActiveAnimation& animation) {
    const FrameClock& clock = FrameClock::instance();
    return clock.is_on() && static_cast<double>(animation.duration_seconds) < kLongestByFrames &&
           clock.HasPassed(animation.start_time,
                           static_cast<std::int64_t>(static_cast<double>(animation.duration_seconds) * 1e9));
}

float Progress(const ActiveAnimation& animation, std::int64_t now) {
    if (!(animation.duration_seconds > 0.0f) || IsLastFrame(animation)) return 1.0f;
    const float elapsed_ns = static_cast<float>(now - animation.start_time);
    return std::min(1.0f, elapsed_ns / 1000000000.0f / animation.duration_seconds);
}

// Applies the pose of this moment; true if the animation is over.
bool Step(const std::string& key, ActiveAnimation& animation, std::int64_t now) {
    if (FrameClock::instance().is_on() && animation.start_time == FrameClock::kNoFrame) animation.start_time = now;
    const float t = Progress(animation, now);
    if (!animation.apply(InterpolatePose(animation.start_pose, animation.end_pose, t))) {
        LogError("PoseAnimationManager: Failed to apply pose for ", key);
        Fulfil(animation, AnimationFailed);
        return true;
    }
    if (t < 1.0f) return false;
    LogInfo("PoseAnimationManager: Animation completed for ", key);
    Fulfil(animation, AnimationCompleted);
    return true;
}

// On purpose the result doesn't tell what it was; the log does.
void Supersede(ActiveAnimation& animation, const char* cause) {
    LogWarning("PoseAnimationManager: ", animation.name, " superseded by ", cause);
    Fulfil(animation, AnimationSuperseded);
}

}  // namespace

PoseAnimationManager& PoseAnimationManager::instance() {
    // Never destroyed: the frame thread may still tick while the process ends.
    static PoseAnimationManager& manager = *new PoseAnimationManager;
    return manager;
}

std::future<AnimationResult> PoseAnimationManager::StartAnimation(ActiveAnimation animation) {
    const auto started = std::make_shared<ActiveAnimation>(std::move(animation));
    started->start_time = NowForMoves();
    std::future<AnimationResult> outcome = started->completion.get_future();
    std::shared_ptr<ActiveAnimation> running;
    bool closed = false;
    {
        std::lock_guard lock(mutex_);
        closed = closed_;
        if (!closed) running = std::exchange(active_[started->name], started);
    }
    if (running) {
        LogInfo("PoseAnimationManager: Cancelling existing animation for ", started->name);
        Supersede(*running, "a newer animation");
    }
    LogInfo("PoseAnimationManager: Started animation for ", started->name,
            " (duration=", FixedText(static_cast<double>(started->duration_seconds)), "s)");
    if (closed) Supersede(*started, kInstanceEnds);
    return outcome;
}

void PoseAnimationManager::Tick() {
    std::vector<Entry> running;
    {
        std::lock_guard lock(mutex_);
        if (active_.empty()) return;
        running.assign(active_.begin(), active_.end());
    }
    const std::int64_t now = NowForMoves();
    std::vector<const Entry*> finished;
    for (const Entry& entry : running) {
        if (Step(entry.first, *entry.second, now)) finished.push_back(&entry);
    }
    if (finished.empty()) return;
    std::lock_guard lock(mutex_);
    for (const Entry* entry : finished) {
        // A newer animation may have taken the name during this tick: it stays.
        const auto found = active_.find(entry->first);
        if (found != active_.end() && found->second == entry->second) active_.erase(found);
    }
}

void PoseAnimationManager::CancelAll(const char* cause) {
    decltype(active_) cancelled;
    {
        std::lock_guard lock(mutex_);
        cancelled.swap(active_);
    }
    if (cancelled.empty()) return;
    LogWarning("PoseAnimationManager: Cancelling ", cancelled.size(), " active animations");
    for (const auto& [name, animation] : cancelled) Supersede(*animation, cause);
}

void PoseAnimationManager::Close() {
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
    }
    CancelAll(kInstanceEnds);
}

void PoseAnimationManager::Open() {
    std::lock_guard lock(mutex_);
    closed_ = false;
}

XrPosef InterpolatePose(const XrPosef& start, const XrPosef& end, float t) {
    t = std::clamp(t, 0.0f, 1.0f);
    const XrQuaternionf& a = start.orientation;
    const XrQuaternionf& b = end.orientation;
    const float start_weight = 1.0f - t;
    const float end_weight = Dot(a, b) < 0.0f ? -t : t;
    const XrQuaternionf q = {a.x * start_weight + b.x * end_weight, a.y * start_weight + b.y * end_weight,
                             a.z * start_weight + b.z * end_weight, a.w * start_weight + b.w * end_weight};
    const auto blend = [t](float from, float to) { return std::fma(to - from, t, from); };
    return {safe_normalize(q),
            {blend(start.position.x, end.position.x), blend(start.position.y, end.position.y),
             blend(start.position.z, end.position.z)}};
}

std::chrono::steady_clock::time_point AnimationDeadline(float duration_seconds) {
    using std::chrono::milliseconds;
    using std::chrono::steady_clock;
    const auto now = steady_clock::now();
    const auto longest = std::chrono::duration_cast<milliseconds>(steady_clock::time_point::max() - now);
    const float wanted_ms = duration_seconds * 1000.0f;
    if (!(wanted_ms < static_cast<float>(longest.count() - 5000))) return steady_clock::time_point::max();
    return now + milliseconds(static_cast<std::int64_t>(wanted_ms) + 5000);
}

}  // namespace orvanic_xr
