// Swapchains, for pictures: which image the application has, and that it can be read.
#include "automation/guard.h"
#include "automation/hooks.h"
#include "automation/session.h"

namespace automation {

XrResult CreateSwapchain(XrSession session, const XrSwapchainCreateInfo* info, XrSwapchain* swapchain) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const auto create = owner->instance->next.CreateSwapchain;
        if (!info) return create(session, info, swapchain);
        XrSwapchainCreateInfo taken = *info;
        XrResult result = XR_ERROR_FEATURE_UNSUPPORTED;
        if (const auto widened = owner->pictures ? owner->pictures->Widened(*info) : std::nullopt) {
            taken = *widened;
            result = create(session, &taken, swapchain);
        }
        // As the application has it, where the runtime does not want more.
        if (XR_FAILED(result)) {
            taken = *info;
            result = create(session, info, swapchain);
        }
        if (XR_FAILED(result)) return result;
        GuardOwnWork([&] {
            if (owner->pictures) owner->pictures->AddSwapchain(*swapchain, taken);
            Registry::instance().Add(*swapchain, owner);
        });
        return result;
    });
}

XrResult DestroySwapchain(XrSwapchain swapchain) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(swapchain);
        const auto instance = owner ? owner->instance : Registry::instance().OnlyInstance();
        if (!instance) return XR_ERROR_HANDLE_INVALID;
        if (owner && owner->pictures) owner->pictures->RemoveSwapchain(swapchain);
        // Before the call: afterwards another thread may have made one with this handle, of the same session.
        if (owner) Registry::instance().Remove(swapchain, owner);
        return instance->next.DestroySwapchain(swapchain);
    });
}

XrResult AcquireSwapchainImage(XrSwapchain swapchain, const XrSwapchainImageAcquireInfo* info, std::uint32_t* index) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(swapchain);
        const auto instance = owner ? owner->instance : Registry::instance().OnlyInstance();
        if (!instance) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = instance->next.AcquireSwapchainImage(swapchain, info, index);
        if (XR_SUCCEEDED(result) && owner && owner->pictures) owner->pictures->Acquired(swapchain, *index);
        return result;
    });
}

XrResult WaitSwapchainImage(XrSwapchain swapchain, const XrSwapchainImageWaitInfo* info) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(swapchain);
        const auto instance = owner ? owner->instance : Registry::instance().OnlyInstance();
        if (!instance) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = instance->next.WaitSwapchainImage(swapchain, info);
        if (owner && owner->pictures) owner->pictures->AfterWait(swapchain, result);
        return result;
    });
}

XrResult ReleaseSwapchainImage(XrSwapchain swapchain, const XrSwapchainImageReleaseInfo* info) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(swapchain);
        const auto instance = owner ? owner->instance : Registry::instance().OnlyInstance();
        if (!instance) return XR_ERROR_HANDLE_INVALID;
        if (owner && owner->pictures) owner->pictures->BeforeRelease(swapchain);
        const XrResult result = instance->next.ReleaseSwapchainImage(swapchain, info);
        if (owner && owner->pictures) owner->pictures->AfterRelease(swapchain, result);
        return result;
    });
}

}  // namespace automation
