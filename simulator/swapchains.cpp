#include "simulator/swapchains.h"

#include <array>

#include "simulator/runtime.h"

namespace simulator {

XrResult EnumerateSwapchainFormats(XrSession session, std::uint32_t capacity, std::uint32_t* count,
                                   std::int64_t* formats) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(session);
        return WriteList(std::array<std::int64_t, 0>{}, capacity, count, formats);
    });
}

XrResult CreateSwapchain(XrSession session, const XrSwapchainCreateInfo* info, XrSwapchain* swapchain) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(session);
        RequireType(info, XR_TYPE_SWAPCHAIN_CREATE_INFO);
        Require(swapchain);
        return XR_ERROR_SWAPCHAIN_FORMAT_UNSUPPORTED;
    });
}

XrResult DestroySwapchain(XrSwapchain) {
    return XR_ERROR_HANDLE_INVALID;
}

XrResult EnumerateSwapchainImages(XrSwapchain, std::uint32_t, std::uint32_t*, XrSwapchainImageBaseHeader*) {
    return XR_ERROR_HANDLE_INVALID;
}

XrResult AcquireSwapchainImage(XrSwapchain, const XrSwapchainImageAcquireInfo*, std::uint32_t*) {
    return XR_ERROR_HANDLE_INVALID;
}

XrResult WaitSwapchainImage(XrSwapchain, const XrSwapchainImageWaitInfo*) {
    return XR_ERROR_HANDLE_INVALID;
}

XrResult ReleaseSwapchainImage(XrSwapchain, const XrSwapchainImageReleaseInfo*) {
    return XR_ERROR_HANDLE_INVALID;
}

}  // namespace simulator
