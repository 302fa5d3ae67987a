#include "automation/pictures/frame_requests.h"

#include <utility>

#include "simulator/refusal.h"

namespace automation {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLongestWait(1000);
constexpr std::chrono::milliseconds kStepOfWait(50);
// An application that takes longer than this for a frame gives the one that it has. Swapchains that are drawn less
// often than this are not waited for.
constexpr std::chrono::milliseconds kPatience(250);

}  // namespace

std::shared_ptr<const ShownFrame> FrameRequests::Await(std::size_t eye) {
    const auto request = std::make_shared<FrameRequest>();
    request->eye = eye;
    std::unique_lock lock(mutex_);
    if (XR_FAILED(closed_)) simulator::Refuse(closed_);
    request->begins = begins_;
    request->syncs = syncs_;
    request->made = steady_clock::now();
    pending_.push_back(request);
    any_ = true;
    // In steps, so that a process that is stopped, as by a debugger, has the rest of the time when it goes on.
    const auto wait = [&](auto is_over) {
        for (auto waited = kStepOfWait; waited <= kLongestWait; waited += kStepOfWait) {
            if (request->settled.wait_for(lock, kStepOfWait, is_over)) return;
        }
    };
    wait([&] { return request->IsSettled() || request->met; });
    if (request->met) wait([&] { return request->IsSettled(); });
    DropLocked(*request);
    if (XR_FAILED(request->failure)) simulator::Refuse(request->failure);
    if (request->frame) return request->frame;
    simulator::Refuse(XR_ERROR_CALL_ORDER_INVALID, "the application has ended no frame within a second");
}

std::vector<std::shared_ptr<FrameRequest>> FrameRequests::Due() {
    std::vector<std::shared_ptr<FrameRequest>> due;
    const auto now = steady_clock::now();
    const std::uint64_t begins = begins_;
    const std::uint64_t syncs = syncs_;
    const std::lock_guard lock(mutex_);
    due.reserve(pending_.size());
    for (const auto& request : pending_) {
        const bool shows_all = begins > request->begins && (!syncs_each_frame_ || syncs > request->syncs);
        if (!shows_all && now - request->made <= kPatience) continue;
        if (!request->met) request->met = now;
        request->settled.notify_all();
        due.push_back(request);
    }
    return due;
}

bool FrameRequests::IsPatient(const FrameRequest& request) {
    return steady_clock::now() - *request.met <= kPatience;
}

void FrameRequests::Settle(FrameRequest& request, std::shared_ptr<const ShownFrame> frame, XrResult failure) {
    const std::lock_guard lock(mutex_);
    SettleLocked(request, std::move(frame), failure);
}

void FrameRequests::SettleLocked(FrameRequest& request, std::shared_ptr<const ShownFrame> frame, XrResult failure) {
    if (request.IsSettled()) return;
    request.frame = std::move(frame);
    request.failure = failure;
    request.settled.notify_all();
    DropLocked(request);
}

// From then on nothing is copied for it.
void FrameRequests::DropLocked(const FrameRequest& request) {
    std::erase_if(pending_, [&](const auto& pending) { return pending.get() == &request; });
    any_ = !pending_.empty();
}

void FrameRequests::Abandon(XrResult failure, bool for_good) {
    const std::lock_guard lock(mutex_);
    if (for_good) closed_ = failure;
    while (!pending_.empty()) {
        const auto request = pending_.back();
        SettleLocked(*request, nullptr, failure);
    }
}

}  // namespace automation
