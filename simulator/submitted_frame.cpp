#include "simulator/submitted_frame.h"

#include <algorithm>
#include <utility>

#include "simulator/runtime.h"
#include "simulator/session.h"

namespace simulator {
namespace {

constexpr std::chrono::milliseconds kLongestWait(1000);
// For a frame that is under way: software on a busy machine draws slowly.
constexpr std::chrono::milliseconds kLongestFrame(3000);
constexpr std::chrono::milliseconds kStepOfWait(50);
// An application that takes longer than this for a frame gives the one that it has.
constexpr std::chrono::milliseconds kPatience(250);
// What needs fewer frames may cease to between two of them, as what waits for the application to poll events.
constexpr std::uint64_t kShortDemand = 4;

// One image, read once, however many layers show it.
struct ReadImage {
    const ImageSet* images;
    std::uint32_t image;
    std::uint32_t layer;
    std::shared_ptr<const RawImage> raw;
};

std::shared_ptr<const RawImage> ReadOnce(const PlannedLayer& planned, std::vector<ReadImage>& read) {
    for (const ReadImage& known : read) {
        if (known.images == planned.images.get() && known.image == planned.image &&
            known.layer == planned.array_layer) {
            return known.raw;
        }
    }
    auto raw = std::make_shared<const RawImage>(planned.images->Read(planned.image, planned.array_layer));
    read.push_back({planned.images.get(), planned.image, planned.array_layer, raw});
    return raw;
}

}  // namespace

void ToldViews::Tell(XrTime time, const XrPosef& head) {
    rows_[next_] = {time, head};
    next_ = (next_ + 1) % rows_.size();
}

std::optional<XrPosef> ToldViews::HeadAt(XrTime time) const {
    // What was told last counts.
    for (std::size_t i = 1; i <= rows_.size(); ++i) {
        const Row& row = rows_[(next_ + rows_.size() - i) % rows_.size()];
        if (row.time == time) return row.head;
    }
    return std::nullopt;
}

std::shared_ptr<const SubmittedFrame> FrameRequests::Await(std::unique_lock<std::mutex>& lock, std::size_t eye,
                                                           const FrameLoop& frames, const CallCounts& calls) {
    const auto request = std::make_shared<FrameRequest>();
    request->eye = eye;
    request->calls = calls;
    request->made = std::chrono::steady_clock::now();
    pending_.push_back(request);
    // In steps, so that a process that is stopped, as by a debugger, has the rest of the time when it goes on.
    // One that a frame has taken is settled, however long its images are read.
    const auto limit = [&] { return frames.waited || frames.begun ? kLongestFrame : kLongestWait; };
    for (auto waited = kStepOfWait; request->taken || waited <= limit(); waited += kStepOfWait) {
        if (request->settled.wait_for(lock, kStepOfWait, [&] { return request->IsSettled(); })) break;
    }
    std::erase(pending_, request);
    if (XR_FAILED(request->failure)) Refuse(request->failure);
    if (request->frame) return request->frame;
    Refuse(XR_ERROR_CALL_ORDER_INVALID, "no picture, for the application has ended no frame within a second");
}

void FrameRequests::TakeInto(std::vector<FrameReading::Part>& parts, const FrameLoop& frames, bool is_held) {
    const auto now = std::chrono::steady_clock::now();
    // Once one is taken nothing may fail before it is settled, or it would wait for nobody.
    parts.reserve(parts.size() + pending_.size());
    for (auto& request : pending_) {
        // While the next frame is held, nothing newer comes.
        const bool is_due = is_held || frames.ShowsAllOf(request->calls) || now - request->made > kPatience;
        if (!is_due) continue;
        request->taken = true;
        parts.emplace_back().request = std::move(request);
    }
    std::erase(pending_, nullptr);
}

void FrameRequests::Abandon() {
    for (const auto& request : std::exchange(pending_, {})) request->Settle(nullptr, XR_ERROR_SESSION_NOT_RUNNING);
}

void FrameRequest::Settle(std::shared_ptr<const SubmittedFrame> shown, XrResult why_not) {
    frame = std::move(shown);
    failure = why_not;
    settled.notify_all();
}

void FrameReading::Read() noexcept {
    std::vector<ReadImage> read;
    for (Part& part : parts) {
        if (XR_FAILED(part.failure)) continue;
        part.failure = WithoutThrowing([&] {
            for (PlannedLayer& planned : part.layers) {
                planned.layer.image = ReadOnce(planned, read);
                part.frame->layers.push_back(std::move(planned.layer));
            }
            return XR_SUCCESS;
        });
    }
}

FrameReading PlanReading(const Runtime& runtime, Session& session, const XrFrameEndInfo& info) {
    FrameReading reading;
    // If the next frame is held, this one is to be seen until then. Nobody knows whether anyone will look.
    FrameLoop& frames = session.frames;
    const bool stands = runtime.clock.IsHeld() && !runtime.clock.LetsPass();
    const bool is_held = stands && frames.demand == 0;
    const bool may_be_held = is_held || (stands && ++frames.frames_of_demand <= kShortDemand);
    session.held_frame = {};
    if (session.requests.empty() && !may_be_held) return reading;
    const auto told = session.told_views.HeadAt(info.displayTime);
    const auto head = told ? told : HeadPose(session, info.displayTime);
    WorldView world = LookAtWorld(session, info.displayTime);
    // The application draws the hands.
    world.controllers = {};
    if (head) world.eyes = EyesOf(*head);
    for (std::size_t eye = 0; may_be_held && eye < session.held_frame.size(); ++eye) {
        session.held_frame[eye] = reading.parts.emplace_back().request = std::make_shared<FrameRequest>();
        session.held_frame[eye]->eye = eye;
    }
    session.requests.TakeInto(reading.parts, session.frames, is_held);
    for (FrameReading::Part& part : reading.parts) {
        part.failure = WithoutThrowing([&] {
            part.frame = std::make_shared<SubmittedFrame>();
            part.frame->mode = info.environmentBlendMode;
            part.frame->world = world;
            if (head) part.layers = LayersFor(runtime, info, part.request->eye);
            if (head) part.frame->eye = (*world.eyes)[part.request->eye];
            return XR_SUCCESS;
        });
    }
    return reading;
}

}  // namespace simulator
