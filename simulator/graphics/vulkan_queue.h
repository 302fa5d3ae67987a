// The application's device and queue, and commands of ours on it. The application keeps its queue to itself but in
// xrBeginFrame, xrEndFrame, xrAcquireSwapchainImage and xrReleaseSwapchainImage; Run belongs into those.
#pragma once

#include <cstdint>
#include <mutex>

#include "simulator/graphics/vulkan_functions.h"

namespace simulator {

class VulkanQueue {
 public:
    VulkanQueue(PFN_vkGetInstanceProcAddr lookup, const XrGraphicsBindingVulkanKHR& binding);
    VulkanQueue(const VulkanQueue&) = delete;
    VulkanQueue& operator=(const VulkanQueue&) = delete;
    ~VulkanQueue();

    // `record(command_buffer)`, then all of it and what the application gave before is waited for.
    template <class Record>
    void Run(Record record) {
        std::lock_guard lock(mutex_);
        const VkCommandBuffer commands = Begin();
        record(commands);
        Finish();
    }

    // Memory that `requirements` allow, with all of `wanted` and, where there is one with `liked` too, that. Throws
    // XR_ERROR_OUT_OF_MEMORY where there is none.
    VkDeviceMemory Allocate(const VkMemoryRequirements& requirements, VkMemoryPropertyFlags wanted,
                            VkMemoryPropertyFlags liked = 0) const;

    const VulkanInstanceFunctions of_instance;
    const VkPhysicalDevice physical_device;
    const VkDevice device;
    const VulkanDeviceFunctions vk;

 private:
    VkCommandBuffer Begin();
    void Finish();

    VkQueue queue_ = VK_NULL_HANDLE;
    VkPhysicalDeviceMemoryProperties memory_ = {};
    // Guards all below.
    std::mutex mutex_;
    VkCommandPool pool_ = VK_NULL_HANDLE;
    VkCommandBuffer commands_ = VK_NULL_HANDLE;
    VkFence fence_ = VK_NULL_HANDLE;
    // Where commands did not end, why: they may never be recorded over.
    VkResult stuck_ = VK_SUCCESS;
};

// Takes all of the image from one layout to the other, after whatever was done with it and before whatever will be.
void ChangeLayout(const VulkanDeviceFunctions& vk, VkCommandBuffer commands, VkImage image, VkImageAspectFlags aspects,
                  VkImageLayout from, VkImageLayout to);

}  // namespace simulator
