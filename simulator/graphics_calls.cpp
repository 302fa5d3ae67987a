#include "simulator/graphics_calls.h"

#include "simulator/graphics/gl_device.h"
#include "simulator/instance.h"
#include "simulator/runtime.h"

namespace simulator {
namespace {

std::shared_ptr<Instance> CheckedOwner(const Runtime& runtime, XrInstance instance, XrSystemId system) {
    auto owner = runtime.Get(instance);
    owner->CheckSystem(system);
    return owner;
}

}  // namespace

XrResult GetVulkanGraphicsRequirements(XrInstance instance, XrSystemId system, void* requirements) {
    return Guarded([&](Runtime& runtime) {
        CheckedOwner(runtime, instance, system)->graphics.vulkan->GetRequirements(requirements);
        return XR_SUCCESS;
    });
}

XrResult GetOpenGlGraphicsRequirements(XrInstance instance, XrSystemId system, void* requirements) {
    return Guarded([&](Runtime& runtime) {
        CheckedOwner(runtime, instance, system)->graphics.gl->GetRequirements(requirements);
        return XR_SUCCESS;
    });
}

XrResult GetOpenGlEsGraphicsRequirements(XrInstance instance, XrSystemId system, void* requirements) {
    return Guarded([&](Runtime& runtime) {
        CheckedOwner(runtime, instance, system)->graphics.gl->GetEsRequirements(requirements);
        return XR_SUCCESS;
    });
}

XrResult GetVulkanExtensions(XrInstance instance, XrSystemId system, std::uint32_t capacity, std::uint32_t* count,
                             char* buffer) {
    return Guarded([&](Runtime& runtime) {
        CheckedOwner(runtime, instance, system);
        return WriteText("", capacity, count, buffer);
    });
}

XrResult GetVulkanGraphicsDeviceKHR(XrInstance instance, XrSystemId system, VkInstance_T* vulkan_instance,
                                    VkPhysicalDevice_T** device) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = CheckedOwner(runtime, instance, system);
        Require(device);
        *device = owner->graphics.vulkan->DeviceFor(vulkan_instance);
        return XR_SUCCESS;
    });
}

XrResult CreateVulkanInstanceKHR(XrInstance instance, const XrVulkanInstanceCreateInfoKHR* info, VkInstance_T** created,
                                 std::int32_t* result) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(instance)->graphics.vulkan->CreateInstance(kSystemId, info, created, result);
        return XR_SUCCESS;
    });
}

XrResult CreateVulkanDeviceKHR(XrInstance instance, const XrVulkanDeviceCreateInfoKHR* info, VkDevice_T** created,
                               std::int32_t* result) {
    return Guarded([&](Runtime& runtime) {
        runtime.Get(instance)->graphics.vulkan->CreateDevice(kSystemId, info, created, result);
        return XR_SUCCESS;
    });
}

XrResult GetVulkanGraphicsDevice2KHR(XrInstance instance, const XrVulkanGraphicsDeviceGetInfoKHR* info,
                                     VkPhysicalDevice_T** device) {
    return Guarded([&](Runtime& runtime) {
        const auto owner = runtime.Get(instance);
        Require(device);
        *device = owner->graphics.vulkan->DeviceFor(kSystemId, info);
        return XR_SUCCESS;
    });
}

}  // namespace simulator
