#include "simulator/submitted_frame.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "simulator/runtime.h"
#include "simulator/session.h"

namespace simulator {
namespace {

constexpr std::chrono::milliseconds kLongestWait(500);
// An application that takes longer than this for a frame gives the one that it has.
constexpr std::chrono::milliseconds kPatience(250);

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
                                                           const CallCounts& calls) {
    const auto request = std::make_shared<FrameRequest>();
    request->eye = eye;
    request->calls = calls;
    request->made = std::chrono::steady_clock::now();
    pending_.push_back(request);
    request->settled.wait_for(lock, kLongestWait, [&] { return request->frame || XR_FAILED(request->failure); });
    std::erase(pending_, request);
    if (XR_FAILED(request->failure)) Refuse(request->failure);
    return request->frame ? request->frame : last_[eye];
}

std::vector<std::shared_ptr<FrameRequest>> FrameRequests::Take(const FrameLoop& frames) {
    const auto now = std::chrono::steady_clock::now();
    const auto is_settled = [&](const auto& request) {
        return frames.ShowsAllOf(request->calls) || now - request->made > kPatience;
    };
    std::vector<std::shared_ptr<FrameRequest>> taken;
    std::copy_if(pending_.begin(), pending_.end(), std::back_inserter(taken), is_settled);
    std::erase_if(pending_, is_settled);
    return taken;
}

void FrameRequests::Settle(FrameRequest& request, std::shared_ptr<const SubmittedFrame> frame, XrResult failure) {
    if (frame) last_[request.eye] = frame;
    request.frame = std::move(frame);
    request.failure = failure;
    request.settled.notify_all();
}

void FrameRequests::Abandon() {
    for (const auto& request : std::exchange(pending_, {})) Settle(*request, nullptr, XR_ERROR_SESSION_NOT_RUNNING);
    last_ = {};
}

void FrameReading::Read() noexcept {
    std::vector<ReadImage> read;
    for (Part& part : parts) {
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
    if (session.requests.empty()) return reading;
    const auto told = session.told_views.HeadAt(info.displayTime);
    const auto head = told ? told : HeadPose(session, info.displayTime);
    WorldView world = LookAtWorld(session, info.displayTime);
    // The application draws the hands.
    world.controllers = {};
    if (head) world.eyes = EyesOf(*head);
    for (auto& request : session.requests.Take(session.frames)) {
        FrameReading::Part part;
        part.frame = std::make_shared<SubmittedFrame>();
        part.frame->mode = info.environmentBlendMode;
        part.frame->world = world;
        if (head) part.layers = LayersFor(runtime, info, request->eye);
        if (head) part.frame->eye = (*world.eyes)[request->eye];
        part.request = std::move(request);
        reading.parts.push_back(std::move(part));
    }
    return reading;
}

}  // namespace simulator
