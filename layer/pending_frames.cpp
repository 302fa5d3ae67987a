#include "layer/pending_frames.h"

#include <memory>
#include <utility>

#include "context/context_manager.h"
#include "context/session_context.h"

namespace orvanic_xr {
namespace {

FrameState DescribeFrame(const PendingFrame& frame, XrSession session, const XrFrameEndInfo* end_info,
                         std::vector<LayerSummary> layers) {
    FrameState state;
    state.valid = true;
    state.session = session;  // of the hook: an abandoned frame of an older session may be the one that ends
    state.predictedDisplayTime = frame.predictedDisplayTime;
    state.predictedDisplayPeriod = frame.predictedDisplayPeriod;
    state.shouldRender = frame.shouldRender;
    state.displayTime = end_info ? end_info->displayTime : 0;
    state.environmentBlendMode = end_info ? end_info->environmentBlendMode : XR_ENVIRONMENT_BLEND_MODE_OPAQUE;
    state.layers = std::move(layers);
    state.waitFrameTime = frame.waitFrameTime;
    state.beginFrameTime = frame.beginFrameTime;
    state.endFrameTime = frame.endFrameTime;
    return state;
}

}  // namespace

PendingFrames& PendingFrames::instance() {
    static PendingFrames& frames = *new PendingFrames;
    return frames;
}

void PendingFrames::Push(XrSession session, std::int64_t now_ns) {
    PendingFrame frame;
    frame.session = session;
    frame.waitFrameTime = now_ns;
    std::lock_guard lock(mutex_);
    frames_.push_back(frame);
}

void PendingFrames::MarkWaited(XrSession session, XrResult result, const XrFrameState* frame_state) {
    // Outlives the lock: if the session is destroyed meanwhile, this is the last reference, and its end calls the
    // runtime.
    std::shared_ptr<SessionContext> context;
    std::lock_guard lock(mutex_);
    if (frames_.empty()) return;
    PendingFrame& frame = frames_.back();
    frame.waited = true;
    frame.waitResult = result;
    if (!frame_state || XR_FAILED(result)) return;
    frame.predictedDisplayTime = frame_state->predictedDisplayTime;
    frame.predictedDisplayPeriod = frame_state->predictedDisplayPeriod;
    frame.shouldRender = frame_state->shouldRender;
    context = ContextManager::instance().getSessionContext(session);
    context->RecordFrameTime(frame.predictedDisplayTime);
}

bool PendingFrames::MarkBegun(XrSession session, std::int64_t now_ns) {
    std::lock_guard lock(mutex_);
    if (frames_.empty()) return false;
    frames_.back().beginFrameTime = now_ns;
    // The newest may still be waited for: the oldest that was not begun begins.
    for (std::size_t i = 0; i < frames_.size(); ++i) {
        PendingFrame& frame = frames_[i];
        if (frame.begun || !frame.waited || XR_FAILED(frame.waitResult) || frame.session != session) continue;
        return frame.begun = true;
    }
    return false;
}

void PendingFrames::SettleBegun(XrSession session, XrResult result) {
    std::shared_ptr<SessionContext> context;  // outlives the lock, as above
    std::lock_guard lock(mutex_);
    const std::size_t begun = NewestBegunLocked(session, frames_.size());
    if (begun == kNone) return;
    if (XR_FAILED(result)) frames_[begun].begun = false;
    if (result != XR_FRAME_DISCARDED) return;
    const std::size_t discarded = NewestBegunLocked(session, begun);
    if (discarded == kNone) return;
    context = ContextManager::instance().getSessionContext(session);
    context->DropFrameTime(frames_[discarded].predictedDisplayTime);
    frames_.erase(discarded);
}

std::size_t PendingFrames::NewestBegunLocked(XrSession session, std::size_t end) const {
    while (end-- > 0) {
        if (frames_[end].begun && frames_[end].session == session) return end;
    }
    return kNone;
}

void PendingFrames::MarkEnded(std::int64_t now_ns) {
    std::lock_guard lock(mutex_);
    if (!frames_.empty()) frames_.front().endFrameTime = now_ns;
}

void PendingFrames::Complete(XrSession session, const XrFrameEndInfo* end_info, std::vector<LayerSummary> layers) {
    std::shared_ptr<SessionContext> context;  // outlives the lock, as above
    std::lock_guard lock(mutex_);
    if (frames_.empty()) return;
    ContextManager::instance().updateFrameState(DescribeFrame(frames_.front(), session, end_info, std::move(layers)));
    context = ContextManager::instance().getSessionContext(session);
    context->ConsumeFrameTime();
    frames_.pop_front();
}

}  // namespace orvanic_xr
