#include "simulator/graphics_calls.h"

#include "simulator/graphics/gl_device.h"
#include "simulator/instance.h"
#include "simulator/runtime.h"

namespace simulator {
namespace {

// `call(graphics)` with the runtime's mutex open, for a driver may be behind it. `check(owner)` comes first, locked.
template <class Check, class Call>
XrResult WithGraphics(XrInstance instance, Check check, Call call, const char* entry_point = __builtin_FUNCTION()) {
    return GuardedWithLock(
        [&](Runtime& runtime, auto& lock) {
            const auto owner = runtime.Get(instance);
            check(*owner);
            lock.unlock();
            call(owner->graphics);
            return XR_SUCCESS;
        },
        entry_point);
}

// The system that the caller names is the one.
auto Names(XrSystemId system) {
    return [system](const Instance& owner) { owner.CheckSystem(system); };
}

// The record names it.
void Anything(const Instance& /*owner*/) {}

}  // namespace

XrResult GetVulkanGraphicsRequirements(XrInstance instance, XrSystemId system, void* requirements) {
    return WithGraphics(instance, Names(system),
                        [&](auto& graphics) { graphics.vulkan->GetRequirements(requirements); });
}

XrResult GetOpenGlGraphicsRequirements(XrInstance instance, XrSystemId system, void* requirements) {
    return WithGraphics(instance, Names(system), [&](auto& graphics) { graphics.gl->GetRequirements(requirements); });
}

XrResult GetOpenGlEsGraphicsRequirements(XrInstance instance, XrSystemId system, void* requirements) {
    return WithGraphics(instance, Names(system), [&](auto& graphics) { graphics.gl->GetEsRequirements(requirements); });
}

XrResult GetVulkanExtensions(XrInstance instance, XrSystemId system, std::uint32_t capacity, std::uint32_t* count,
                             char* buffer) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(instance)->CheckSystem(system);
        return WriteText("", capacity, count, buffer);
    });
}

XrResult GetVulkanGraphicsDeviceKHR(XrInstance instance, XrSystemId system, VkInstance_T* vulkan_instance,
                                    VkPhysicalDevice_T** device) {
    return WithGraphics(instance, Names(system), [&](auto& graphics) {
        Require(device);
        *device = graphics.vulkan->DeviceFor(vulkan_instance);
    });
}

XrResult CreateVulkanInstanceKHR(XrInstance instance, const XrVulkanInstanceCreateInfoKHR* info, VkInstance_T** created,
                                 std::int32_t* result) {
    return WithGraphics(instance, Anything,
                        [&](auto& graphics) { graphics.vulkan->CreateInstance(kSystemId, info, created, result); });
}

XrResult CreateVulkanDeviceKHR(XrInstance instance, const XrVulkanDeviceCreateInfoKHR* info, VkDevice_T** created,
                               std::int32_t* result) {
    return WithGraphics(instance, Anything,
                        [&](auto& graphics) { graphics.vulkan->CreateDevice(kSystemId, info, created, result); });
}

XrResult GetVulkanGraphicsDevice2KHR(XrInstance instance, const XrVulkanGraphicsDeviceGetInfoKHR* info,
                                     VkPhysicalDevice_T** device) {
    return WithGraphics(instance, Anything, [&](auto& graphics) {
        Require(device);
        *device = graphics.vulkan->DeviceFor(kSystemId, info);
    });
}

}  // namespace simulator
