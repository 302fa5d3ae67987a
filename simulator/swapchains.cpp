#include "simulator/swapchains.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "simulator/runtime.h"
#include "simulator/session.h"

namespace simulator {
namespace {

constexpr std::uint32_t kImages = 3;

constexpr XrSwapchainCreateFlags kKnownFlags =
    XR_SWAPCHAIN_CREATE_PROTECTED_CONTENT_BIT | XR_SWAPCHAIN_CREATE_STATIC_IMAGE_BIT;
constexpr XrSwapchainUsageFlags kKnownUsage =
    XR_SWAPCHAIN_USAGE_COLOR_ATTACHMENT_BIT | XR_SWAPCHAIN_USAGE_DEPTH_STENCIL_ATTACHMENT_BIT |
    XR_SWAPCHAIN_USAGE_UNORDERED_ACCESS_BIT | XR_SWAPCHAIN_USAGE_TRANSFER_SRC_BIT |
    XR_SWAPCHAIN_USAGE_TRANSFER_DST_BIT | XR_SWAPCHAIN_USAGE_SAMPLED_BIT | XR_SWAPCHAIN_USAGE_MUTABLE_FORMAT_BIT;

void CheckCreateInfo(const GraphicsDevice& graphics, const XrSwapchainCreateInfo& info) {
    Require((info.createFlags & ~kKnownFlags) == 0);
    if ((info.usageFlags & XR_SWAPCHAIN_USAGE_INPUT_ATTACHMENT_BIT_KHR) != 0) Refuse(XR_ERROR_FEATURE_UNSUPPORTED);
    Require((info.usageFlags & ~kKnownUsage) == 0);
    Require(info.sampleCount > 0 && info.width > 0 && info.height > 0 && info.arraySize > 0 && info.mipCount > 0);
    Require(info.faceCount == 1 || info.faceCount == 6);
    const auto& formats = graphics.Formats();
    if (std::find(formats.begin(), formats.end(), info.format) == formats.end()) {
        Refuse(XR_ERROR_SWAPCHAIN_FORMAT_UNSUPPORTED);
    }
    if ((info.createFlags & XR_SWAPCHAIN_CREATE_PROTECTED_CONTENT_BIT) != 0) Refuse(XR_ERROR_FEATURE_UNSUPPORTED);
}

}  // namespace

XrResult EnumerateSwapchainFormats(XrSession session, std::uint32_t capacity, std::uint32_t* count,
                                   std::int64_t* formats) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(session);
        return WriteList(owner->graphics ? owner->graphics->Formats() : std::vector<std::int64_t>{}, capacity, count,
                         formats);
    });
}

XrResult CreateSwapchain(XrSession session, const XrSwapchainCreateInfo* info, XrSwapchain* swapchain) {
    std::shared_ptr<GraphicsDevice> graphics;
    std::shared_ptr<Swapchain> created;
    return GuardedWithLock([&](Runtime& runtime, auto& lock) {
        auto owner = runtime.Get(session);
        RequireType(info, XR_TYPE_SWAPCHAIN_CREATE_INFO);
        Require(swapchain);
        if (!owner->graphics) Refuse(XR_ERROR_SWAPCHAIN_FORMAT_UNSUPPORTED);
        CheckCreateInfo(*owner->graphics, *info);
        graphics = owner->graphics;
        created = std::make_shared<Swapchain>();
        created->info = *info;
        created->info.next = nullptr;
        created->image_count = created->IsStatic() ? 1 : kImages;
        lock.unlock();
        created->images = graphics->CreateImages(created->info, created->image_count);
        lock.lock();
        if (!runtime.IsAlive(session)) Refuse(XR_ERROR_HANDLE_INVALID);
        created->session = std::move(owner);
        *swapchain = runtime.Add<XrSwapchain>(created);
        return XR_SUCCESS;
    });
}

XrResult DestroySwapchain(XrSwapchain swapchain) {
    std::shared_ptr<Swapchain> destroyed;
    return Guarded([&](Runtime& runtime) {
        destroyed = runtime.Get(swapchain);
        runtime.Remove<Swapchain>(swapchain);
        return XR_SUCCESS;
    });
}

XrResult EnumerateSwapchainImages(XrSwapchain swapchain, std::uint32_t capacity, std::uint32_t* count,
                                  XrSwapchainImageBaseHeader* images) {
    return Guarded([&](Runtime& runtime) {
        const auto asked = runtime.Get(swapchain);
        return WriteElements(asked->image_count, capacity, count, images,
                             [&](std::size_t i) { asked->images->Write(static_cast<std::uint32_t>(i), images); });
    });
}

XrResult AcquireSwapchainImage(XrSwapchain swapchain, const XrSwapchainImageAcquireInfo* info, std::uint32_t* index) {
    std::shared_ptr<Swapchain> held;
    std::shared_ptr<ImageSet> images;
    return GuardedWithLock([&](Runtime& runtime, auto& lock) {
        held = runtime.Get(swapchain);
        Swapchain& asked = *held;
        if (info) RequireType(info, XR_TYPE_SWAPCHAIN_IMAGE_ACQUIRE_INFO);
        Require(index);
        if (!asked.prepared) {
            images = asked.images;
            lock.unlock();
            std::call_once(asked.preparing, [&] { images->Prepare(); });
            lock.lock();
            asked.prepared = true;
        }
        const bool is_used_up = asked.IsStatic() && std::exchange(asked.was_acquired, true);
        if (is_used_up || asked.acquired == asked.image_count) Refuse(XR_ERROR_CALL_ORDER_INVALID);
        *index = std::exchange(asked.next, (asked.next + 1) % asked.image_count);
        ++asked.acquired;
        return XR_SUCCESS;
    });
}

XrResult WaitSwapchainImage(XrSwapchain swapchain, const XrSwapchainImageWaitInfo* info) {
    return Guarded([&](Runtime& runtime) {
        Swapchain& asked = *runtime.Get(swapchain);
        RequireType(info, XR_TYPE_SWAPCHAIN_IMAGE_WAIT_INFO);
        // Whatever was read of it, was read when its frame ended: there is nothing to wait for.
        if (asked.acquired == 0 || asked.waited) Refuse(XR_ERROR_CALL_ORDER_INVALID);
        asked.waited = true;
        return XR_SUCCESS;
    });
}

XrResult ReleaseSwapchainImage(XrSwapchain swapchain, const XrSwapchainImageReleaseInfo* info) {
    return Guarded([&](Runtime& runtime) {
        Swapchain& asked = *runtime.Get(swapchain);
        if (info) RequireType(info, XR_TYPE_SWAPCHAIN_IMAGE_RELEASE_INFO);
        if (!asked.waited) Refuse(XR_ERROR_CALL_ORDER_INVALID);
        asked.waited = false;
        asked.released = (asked.next + asked.image_count - asked.acquired) % asked.image_count;
        --asked.acquired;
        return XR_SUCCESS;
    });
}

}  // namespace simulator
