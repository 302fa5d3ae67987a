// The application's device and queue, and commands of ours on it. The application keeps its queue to itself but in
// xrBeginFrame, xrEndFrame, xrAcquireSwapchainImage and xrReleaseSwapchainImage; Run belongs into those.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "simulator/graphics/vulkan_functions.h"

namespace simulator {

// An image or a buffer of ours, and its memory. Null where it is not made yet.
struct VulkanObject {
    VkImage image = VK_NULL_HANDLE;
    VkBuffer buffer = VK_NULL_HANDLE;
    VkDeviceMemory memory = VK_NULL_HANDLE;
};

class VulkanQueue {
 public:
    VulkanQueue(PFN_vkGetInstanceProcAddr lookup, const XrGraphicsBindingVulkanKHR& binding);
    VulkanQueue(const VulkanQueue&) = delete;
    VulkanQueue& operator=(const VulkanQueue&) = delete;
    ~VulkanQueue();

    // `record(command_buffer)`, then all of it and what the application gave before is waited for. Throws where that
    // takes seconds; the commands may end later, and until they do every further call throws as well.
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

    // At once, or when the commands have ended that were given up. Where they never end, the device keeps it: to free
    // what it may write to would harm whoever gets that memory next.
    void Free(const VulkanObject& object) noexcept;

    const VulkanInstanceFunctions of_instance;
    const VkPhysicalDevice physical_device;
    const VkDevice device;
    const VulkanDeviceFunctions vk;

 private:
    // With mutex_ locked.
    VkCommandBuffer Begin();
    void Finish();
    bool HasEnded() noexcept;
    void Destroy(const VulkanObject& object) const noexcept;

    VkQueue queue_ = VK_NULL_HANDLE;
    VkPhysicalDeviceMemoryProperties memory_ = {};
    // Guards all below.
    std::mutex mutex_;
    VkCommandPool pool_ = VK_NULL_HANDLE;
    VkCommandBuffer commands_ = VK_NULL_HANDLE;
    VkFence fence_ = VK_NULL_HANDLE;
    // Submitted, and not known to have ended.
    bool is_busy_ = false;
    // To be freed then.
    std::vector<VulkanObject> kept_;
};

// Takes all of the image from one layout to the other, after whatever was done with it and before whatever will be.
void ChangeLayout(const VulkanDeviceFunctions& vk, VkCommandBuffer commands, VkImage image, VkImageAspectFlags aspects,
                  VkImageLayout from, VkImageLayout to);

}  // namespace simulator
