#include "tools/simulation/pose_moves.h"

#include <cstdint>
#include <future>
#include <memory>
#include <utility>

#include "context/context_manager.h"
#include "mcp/thread_pool.h"
#include "tools/simulation/conformance_automation.h"
#include "tools/simulation/frame_clock.h"
#include "tools/simulation/frame_demand.h"
#include "tools/tool_results.h"

namespace orvanic_xr {
namespace {

bool ends_in_time(const std::future<AnimationResult>& outcome, float duration_seconds) {
    const mcp::lent_place lent;
    const auto is_over = [&](float limit) {
        return outcome.wait_until(AnimationDeadline(limit)) == std::future_status::ready;
    };
    const FrameClock& clock = FrameClock::instance();
    if (!clock.is_on()) return is_over(duration_seconds);
    // By frames, it takes as long as they do, while they come.
    for (std::uint64_t frames = clock.frames(); !is_over(0);) {
        if (std::exchange(frames, clock.frames()) == clock.frames()) return false;
    }
    return true;
}

}  // namespace

SessionLookup take_over_session(const json& arguments, const std::string& tool_name) {
    const auto refused = [&](const std::string& error) { return SessionLookup{nullptr, refuse(tool_name, error)}; };
    const SessionResolution resolution = resolve_session_from_arguments(arguments, tool_name);
    if (!resolution.valid) return refused(resolution.error);
    std::shared_ptr<SessionContext> context = ContextManager::instance().getSessionContext(resolution.session);
    if (!context) return refused("SessionContext not found for the active session.");
    if (context->ended()) return refused("SessionContext is not valid.");
    const OperationResult active = EnsureConformanceAutomationActive(*context);
    if (!active.ok) return refused(active.error);
    return {std::move(context), {}};
}

std::optional<MoveFrame> find_move_frame(const SessionContext& context, XrSpace base_space, XrTime time) {
    if (base_space != context.viewSpace) return MoveFrame{base_space, std::nullopt};
    MoveFrame frame{context.stageSpace != XR_NULL_HANDLE ? context.stageSpace : context.localSpace, kIdentityPose};
    if (!QueryDevicePose(context, context.viewSpace, frame.space, time, "head", *frame.view)) return std::nullopt;
    return frame;
}

json pose_set_result(const std::string& note) {
    json result = {{"success", true}};
    if (!note.empty()) result["note"] = note;
    return make_text_tool_result(mcp::dump_json(result, 2));
}

json play_pose_animation(const SessionContext& context, ActiveAnimation animation, const std::string& tool_name,
                         const std::string& subject, const std::string& call) {
    const float duration_seconds = animation.duration_seconds;
    // Once it has ended, the next frame is no longer needed.
    const FrameNeed need(context.session);
    animation.on_end = [need] { need.End(); };
    std::future<AnimationResult> outcome = PoseAnimationManager::instance().StartAnimation(std::move(animation));
    need.Begin();
    // The session's end closes its fence first and then ends all animations: one that came after may never be ticked.
    if (context.ended()) return refuse(tool_name, "SessionContext is not valid.");
    if (!ends_in_time(outcome, duration_seconds)) {
        need.End();
        PoseAnimationManager::instance().CancelAll("an animation that timed out");
        return refuse(tool_name, "Animation timed out (application may have stopped rendering).");
    }
    need.Rest();
    switch (outcome.get()) {
        case AnimationFailed:
            return refuse(tool_name, "Animation failed while transitioning " + subject + " pose.");
        case AnimationSuperseded:
            return pose_set_result("Animation was superseded by a newer " + call + " call.");
        case AnimationCompleted:
            break;
    }
    return pose_set_result();
}

}  // namespace orvanic_xr
