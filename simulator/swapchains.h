// Swapchains of a session that renders: a few images that the application draws into in turn. A headless session has
// none: there are no formats.
//
// The images are those of simulator/graphics; here is who has them. They go round: the application acquires the next
// one, waits for it, draws and releases it, oldest first. What a layer shows is the one that was released last.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "simulator/graphics/graphics.h"

namespace simulator {

struct Session;

struct Swapchain {
    bool IsStatic() const { return (info.createFlags & XR_SWAPCHAIN_CREATE_STATIC_IMAGE_BIT) != 0; }

    std::shared_ptr<Session> session;
    // With no chain.
    XrSwapchainCreateInfo info = {};
    // Shared with xrEndFrame while it reads.
    std::shared_ptr<ImageSet> images;
    std::uint32_t image_count = 0;
    // Before the first of them is acquired: how far the images are. Their driver is called with the runtime's mutex
    // open.
    std::once_flag preparing;
    bool prepared = false;
    bool was_acquired = false;
    // The one that is acquired next, and how many before it are.
    std::uint32_t next = 0;
    std::uint32_t acquired = 0;
    // Of those, the oldest was waited for.
    bool waited = false;
    std::optional<std::uint32_t> released;
};

XRAPI_ATTR XrResult XRAPI_CALL EnumerateSwapchainFormats(XrSession session, std::uint32_t capacity,
                                                         std::uint32_t* count, std::int64_t* formats);
XRAPI_ATTR XrResult XRAPI_CALL CreateSwapchain(XrSession session, const XrSwapchainCreateInfo* info,
                                               XrSwapchain* swapchain);
XRAPI_ATTR XrResult XRAPI_CALL DestroySwapchain(XrSwapchain swapchain);
XRAPI_ATTR XrResult XRAPI_CALL EnumerateSwapchainImages(XrSwapchain swapchain, std::uint32_t capacity,
                                                        std::uint32_t* count, XrSwapchainImageBaseHeader* images);
XRAPI_ATTR XrResult XRAPI_CALL AcquireSwapchainImage(XrSwapchain swapchain, const XrSwapchainImageAcquireInfo* info,
                                                     std::uint32_t* index);
XRAPI_ATTR XrResult XRAPI_CALL WaitSwapchainImage(XrSwapchain swapchain, const XrSwapchainImageWaitInfo* info);
XRAPI_ATTR XrResult XRAPI_CALL ReleaseSwapchainImage(XrSwapchain swapchain, const XrSwapchainImageReleaseInfo* info);

}  // namespace simulator
