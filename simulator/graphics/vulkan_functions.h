// The functions of Vulkan that are used, looked up in what the application brought.
#pragma once

#include <vulkan/vulkan.h>

// After Vulkan's own header, whose types it takes.
#define XR_USE_GRAPHICS_API_VULKAN
#include <openxr/openxr.h>
#include <openxr/openxr_platform.h>

namespace simulator {

#define VELMOOR_VULKAN_INSTANCE_FUNCTIONS(X)  \
    X(EnumeratePhysicalDevices)               \
    X(GetPhysicalDeviceProperties)            \
    X(GetPhysicalDeviceMemoryProperties)      \
    X(GetPhysicalDeviceFormatProperties)      \
    X(GetPhysicalDeviceImageFormatProperties) \
    X(GetPhysicalDeviceQueueFamilyProperties) \
    X(GetDeviceProcAddr)

#define VELMOOR_VULKAN_DEVICE_FUNCTIONS(X) \
    X(GetDeviceQueue)                      \
    X(QueueSubmit)                         \
    X(CreateImage)                         \
    X(DestroyImage)                        \
    X(GetImageMemoryRequirements)          \
    X(BindImageMemory)                     \
    X(CreateBuffer)                        \
    X(DestroyBuffer)                       \
    X(GetBufferMemoryRequirements)         \
    X(BindBufferMemory)                    \
    X(AllocateMemory)                      \
    X(FreeMemory)                          \
    X(MapMemory)                           \
    X(CreateFence)                         \
    X(DestroyFence)                        \
    X(ResetFences)                         \
    X(GetFenceStatus)                      \
    X(WaitForFences)                       \
    X(CreateCommandPool)                   \
    X(DestroyCommandPool)                  \
    X(AllocateCommandBuffers)              \
    X(BeginCommandBuffer)                  \
    X(EndCommandBuffer)                    \
    X(CmdPipelineBarrier)                  \
    X(CmdCopyImageToBuffer)                \
    X(CmdResolveImage)

// What the application's own lookup gives, or libvulkan's where it showed none. Null where there is neither.
PFN_vkGetInstanceProcAddr VulkanLookup();

#define VELMOOR_DECLARE(name) PFN_vk##name name = nullptr;

struct VulkanInstanceFunctions {
    // Throws XR_ERROR_RUNTIME_FAILURE where one is missing.
    VulkanInstanceFunctions(PFN_vkGetInstanceProcAddr lookup, VkInstance instance);

    VELMOOR_VULKAN_INSTANCE_FUNCTIONS(VELMOOR_DECLARE)
};

struct VulkanDeviceFunctions {
    // Likewise.
    VulkanDeviceFunctions(PFN_vkGetDeviceProcAddr lookup, VkDevice device);

    VELMOOR_VULKAN_DEVICE_FUNCTIONS(VELMOOR_DECLARE)
};

#undef VELMOOR_DECLARE

// Throws what OpenXR has for a failure of Vulkan.
void CheckVulkan(VkResult result);

}  // namespace simulator
