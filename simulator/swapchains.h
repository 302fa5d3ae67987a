// A headless session has no swapchains: there are no formats, and no handle is one.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>

namespace simulator {

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
