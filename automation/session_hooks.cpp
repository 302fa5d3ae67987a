// Sessions come and go. What the layer made in one goes before it does.
#include "automation/guard.h"
#include "automation/hooks.h"
#include "automation/session.h"

namespace automation {
namespace {

std::unique_ptr<SessionPictures> MakePictures(const Instance& instance, const XrSessionCreateInfo& info) {
    auto binding = simulator::CopyBinding(info.next, instance.vulkan_lookup);
    if (!binding) return nullptr;
    return std::make_unique<SessionPictures>(std::move(binding), instance.next.EnumerateSwapchainImages,
                                             [](const char* line) { orvanic_xr::LogWarning("Automation: ", line); });
}

}  // namespace

XrResult CreateVulkanInstanceKHR(XrInstance instance, const XrVulkanInstanceCreateInfoKHR* info, VkInstance_T** created,
                                 std::int32_t* result) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(instance);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult made = owner->next.CreateVulkanInstanceKHR(instance, info, created, result);
        // Zero is VK_SUCCESS.
        if (XR_SUCCEEDED(made) && *result == 0) owner->vulkan_lookup = simulator::LookupOf(*info);
        return made;
    });
}

XrResult CreateSession(XrInstance instance, const XrSessionCreateInfo* info, XrSession* session) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(instance);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = owner->next.CreateSession(instance, info, session);
        if (XR_FAILED(result)) return result;
        GuardOwnWork([&] {
            auto made = std::make_shared<Session>();
            made->instance = owner;
            made->handle = *session;
            made->system = info->systemId;
            if (owner->parts.pictures) made->pictures = MakePictures(*owner, *info);
            Registry::instance().Add(*session, std::move(made));
        });
        return result;
    });
}

XrResult DestroySession(XrSession session) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        // Its device and what was made with it have to go before.
        if (owner->pictures) owner->pictures->DestroySession();
        owner->DestroySpaces();
        const XrResult result = owner->instance->next.DestroySession(session);
        if (XR_FAILED(result)) return result;
        Registry::instance().Remove(session, owner);
        const std::lock_guard lock(owner->instance->mutex);
        std::erase(owner->instance->profile_events, session);
        return result;
    });
}

XrResult BeginSession(XrSession session, const XrSessionBeginInfo* info) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = owner->instance->next.BeginSession(session, info);
        if (XR_FAILED(result)) return result;
        owner->view_configuration = info->primaryViewConfigurationType;
        owner->running = true;
        return result;
    });
}

XrResult EndSession(XrSession session) {
    return Guarded([&] {
        const auto owner = Registry::instance().Find(session);
        if (!owner) return XR_ERROR_HANDLE_INVALID;
        const XrResult result = owner->instance->next.EndSession(session);
        if (XR_FAILED(result)) return result;
        owner->running = false;
        if (owner->pictures) owner->pictures->EndSession();
        const std::lock_guard lock(owner->mutex);
        owner->input.states.clear();
        return result;
    });
}

}  // namespace automation
