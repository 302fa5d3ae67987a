// Who waits for a picture, and which frame it is taken from: one that began after the request, and for which the
// application read its input after that. Until a frame has settled it, whatever the application releases is copied.
#pragma once

#include <openxr/openxr.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "simulator/renderer/composition.h"

namespace automation {

// What one eye was shown, in plain memory.
struct ShownFrame {
    simulator::EyeView eye;
    std::vector<simulator::ComposedLayer> layers;
};

struct FrameRequest {
    bool IsSettled() const { return frame || XR_FAILED(failure); }

    std::size_t eye = 0;
    // Those that came before it.
    std::uint64_t begins = 0;
    std::uint64_t syncs = 0;
    std::chrono::steady_clock::time_point made;
    // The end of the first frame that shows all of it, if not every layer.
    std::optional<std::chrono::steady_clock::time_point> met;
    std::condition_variable settled;
    // Either of these.
    std::shared_ptr<const ShownFrame> frame;
    XrResult failure = XR_SUCCESS;
};

// Any thread.
class FrameRequests {
 public:
    bool Any() const { return any_.load(std::memory_order_relaxed); }

    void CountBegin() {
        const std::uint64_t syncs = syncs_.load(std::memory_order_relaxed);
        syncs_each_frame_.store(syncs_at_begin_.exchange(syncs, std::memory_order_relaxed) != syncs,
                                std::memory_order_relaxed);
        begins_.fetch_add(1, std::memory_order_relaxed);
    }
    void CountSync() { syncs_.fetch_add(1, std::memory_order_relaxed); }

    // Waits for a frame, a second at most, and once more where one lacks layers. Throws why there is none:
    // XR_ERROR_CALL_ORDER_INVALID where the application ended none.
    std::shared_ptr<const ShownFrame> Await(std::size_t eye);

    // Those that the frame which ends now may settle. They stay here until they are settled.
    std::vector<std::shared_ptr<FrameRequest>> Due();
    // Whether layers that are missing may still come.
    static bool IsPatient(const FrameRequest& request);
    void Settle(FrameRequest& request, std::shared_ptr<const ShownFrame> frame, XrResult failure);

    // All that wait now fail with `failure`; with `for_good` all that come later as well.
    void Abandon(XrResult failure, bool for_good);

 private:
    // With mutex_ locked.
    void SettleLocked(FrameRequest& request, std::shared_ptr<const ShownFrame> frame, XrResult failure);
    void DropLocked(const FrameRequest& request);

    std::atomic<bool> any_ = false;
    std::atomic<std::uint64_t> begins_ = 0;
    std::atomic<std::uint64_t> syncs_ = 0;
    std::atomic<std::uint64_t> syncs_at_begin_ = 0;
    std::atomic<bool> syncs_each_frame_ = false;
    // Guards all below, and what is in the requests.
    std::mutex mutex_;
    std::vector<std::shared_ptr<FrameRequest>> pending_;
    XrResult closed_ = XR_SUCCESS;
};

}  // namespace automation
