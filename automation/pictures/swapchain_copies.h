// What the application's swapchains show, as far as it was copied. Once an image is released it is the runtime's, so it
// is copied right before. A swapchain shows the image that was released last: its copy is good until the next release.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "automation/pictures/image_reader.h"

namespace automation {

// One image as a layer shows it, or why there is none.
struct ShownImage {
    std::shared_ptr<const simulator::RawImage> image;
    XrResult failure = XR_SUCCESS;
    // The next release may bring it.
    bool may_come = false;
};

// Any thread.
class SwapchainCopies {
 public:
    explicit SwapchainCopies(ImageReader& reader) : reader_(reader) {}

    // `info` is what it was made by. Until it is removed, which has to be done before its handle may stand for another.
    void Add(XrSwapchain swapchain, const XrSwapchainCreateInfo& info);
    void Remove(XrSwapchain swapchain);
    void Acquired(XrSwapchain swapchain, std::uint32_t index);
    // The oldest of the acquired images is the application's to draw on, and can be released.
    void Waited(XrSwapchain swapchain);

    // Whether there are static images that wait for their one release, at which they are copied whether or not anybody
    // wants it.
    bool AwaitsStatic() const { return awaited_statics_.load(std::memory_order_relaxed) != 0; }
    // Before the oldest of the acquired images is released. One that was not waited for may still be in use by the
    // runtime, which will refuse the release: it is not touched.
    void Copy(XrSwapchain swapchain, bool is_wanted);
    // What became of that.
    void Settle(XrSwapchain swapchain, bool is_released);

    ShownImage Find(const XrSwapchainSubImage& image) const;

 private:
    struct Swapchain {
        bool IsStatic() const { return (info.createFlags & XR_SWAPCHAIN_CREATE_STATIC_IMAGE_BIT) != 0; }

        // With no chain.
        XrSwapchainCreateInfo info = {};
        bool is_readable = false;
        // The oldest one first. Runtimes have no more; of one that has, the swapchain is not readable any longer.
        std::array<std::uint32_t, 16> acquired = {};
        std::size_t acquired_count = 0;
        bool is_oldest_waited = false;
        // Of the image that is being released.
        std::optional<ImageCopy> leaving;
        // Of the one that was released last.
        std::optional<ImageCopy> shown;
        bool was_released = false;
    };

    // What was waited for is there, or will never be. With mutex_ locked.
    void StopAwaitingLocked(const Swapchain& swapchain);

    ImageReader& reader_;
    std::atomic<int> awaited_statics_ = 0;
    // Guards all below. Not locked while an image is read.
    mutable std::mutex mutex_;
    std::unordered_map<XrSwapchain, std::shared_ptr<Swapchain>> swapchains_;
};

}  // namespace automation
