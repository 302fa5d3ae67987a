#include "automation/pictures/swapchain_copies.h"

#include <algorithm>
#include <utility>

namespace automation {
namespace {

bool IsInside(const XrRect2Di& rect, const XrSwapchainCreateInfo& info) {
    const auto& [offset, extent] = rect;
    return offset.x >= 0 && offset.y >= 0 && extent.width > 0 && extent.height > 0 &&
           std::int64_t{offset.x} + extent.width <= info.width && std::int64_t{offset.y} + extent.height <= info.height;
}

}  // namespace

void SwapchainCopies::Add(XrSwapchain swapchain, const XrSwapchainCreateInfo& info) {
    auto added = std::make_shared<Swapchain>();
    added->info = info;
    added->info.next = nullptr;
    const XrSwapchainUsageFlags usage = reader_.UsageToRead();
    added->is_readable = reader_.KnowsHowTo(info) && (info.usageFlags & usage) == usage;
    const bool is_awaited = added->is_readable && added->IsStatic();
    const std::lock_guard lock(mutex_);
    swapchains_.insert_or_assign(swapchain, std::move(added));
    if (is_awaited) ++awaited_statics_;
}

void SwapchainCopies::Remove(XrSwapchain swapchain) {
    {
        const std::lock_guard lock(mutex_);
        const auto found = swapchains_.find(swapchain);
        if (found == swapchains_.end()) return;
        StopAwaitingLocked(*found->second);
        swapchains_.erase(found);
    }
    reader_.Forget(swapchain);
}

void SwapchainCopies::StopAwaitingLocked(const Swapchain& swapchain) {
    if (swapchain.is_readable && swapchain.IsStatic() && !swapchain.was_released) --awaited_statics_;
}

void SwapchainCopies::Acquired(XrSwapchain swapchain, std::uint32_t index) {
    const std::lock_guard lock(mutex_);
    const auto found = swapchains_.find(swapchain);
    if (found == swapchains_.end()) return;
    Swapchain& known = *found->second;
    if (known.acquired_count < known.acquired.size()) {
        known.acquired[known.acquired_count++] = index;
    } else {
        StopAwaitingLocked(known);
        known.is_readable = false;
    }
}

void SwapchainCopies::Waited(XrSwapchain swapchain) {
    const std::lock_guard lock(mutex_);
    const auto found = swapchains_.find(swapchain);
    if (found != swapchains_.end()) found->second->is_oldest_waited = true;
}

void SwapchainCopies::Copy(XrSwapchain swapchain, bool is_wanted) {
    std::shared_ptr<Swapchain> known;
    std::uint32_t index = 0;
    {
        const std::lock_guard lock(mutex_);
        const auto found = swapchains_.find(swapchain);
        if (found == swapchains_.end()) return;
        known = found->second;
        const bool is_drawn = known->acquired_count > 0 && known->is_oldest_waited;
        if (!known->is_readable || !is_drawn || !(is_wanted || known->IsStatic())) return;
        index = known->acquired.front();
    }
    ImageCopy copy = reader_.Read(swapchain, known->info, index);
    const std::lock_guard lock(mutex_);
    known->leaving = std::move(copy);
}

void SwapchainCopies::Settle(XrSwapchain swapchain, bool is_released) {
    // A large image is given back with the lock open.
    std::optional<ImageCopy> before;
    const std::lock_guard lock(mutex_);
    const auto found = swapchains_.find(swapchain);
    if (found == swapchains_.end()) return;
    Swapchain& known = *found->second;
    auto left = std::exchange(known.leaving, std::nullopt);
    if (!is_released) {
        before = std::move(left);
        return;
    }
    StopAwaitingLocked(known);
    known.was_released = true;
    known.is_oldest_waited = false;
    before = std::exchange(known.shown, std::move(left));
    if (known.acquired_count == 0) return;
    std::shift_left(known.acquired.begin(), known.acquired.end(), 1);
    --known.acquired_count;
}

ShownImage SwapchainCopies::Find(const XrSwapchainSubImage& image) const {
    const std::lock_guard lock(mutex_);
    const auto found = swapchains_.find(image.swapchain);
    if (found == swapchains_.end()) return {nullptr, XR_ERROR_HANDLE_INVALID};
    const Swapchain& known = *found->second;
    if (!known.is_readable) return {nullptr, XR_ERROR_SWAPCHAIN_FORMAT_UNSUPPORTED};
    if (!IsInside(image.imageRect, known.info)) return {nullptr, XR_ERROR_SWAPCHAIN_RECT_INVALID};
    if (!known.shown) return {nullptr, XR_ERROR_CALL_ORDER_INVALID, !known.IsStatic() || !known.was_released};
    if (XR_FAILED(known.shown->failure)) return {nullptr, known.shown->failure};
    if (image.imageArrayIndex >= known.shown->layers.size()) return {nullptr, XR_ERROR_FEATURE_UNSUPPORTED};
    return {known.shown->layers[image.imageArrayIndex]};
}

}  // namespace automation
