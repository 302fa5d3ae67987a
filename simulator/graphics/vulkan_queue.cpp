#include "simulator/graphics/vulkan_queue.h"

#include <new>
#include <utility>

#include "simulator/refusal.h"

namespace simulator {
namespace {

constexpr std::uint64_t kLongestWait = 5'000'000'000;

PFN_vkGetDeviceProcAddr DeviceLookup(const VulkanInstanceFunctions& of_instance) {
    return of_instance.GetDeviceProcAddr;
}

void CheckFamily(const VulkanInstanceFunctions& vk, const XrGraphicsBindingVulkanKHR& binding) {
    std::uint32_t count = 0;
    vk.GetPhysicalDeviceQueueFamilyProperties(binding.physicalDevice, &count, nullptr);
    std::vector<VkQueueFamilyProperties> families(count);
    vk.GetPhysicalDeviceQueueFamilyProperties(binding.physicalDevice, &count, families.data());
    const bool is_there =
        binding.queueFamilyIndex < count && binding.queueIndex < families[binding.queueFamilyIndex].queueCount;
    if (!is_there) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
}

}  // namespace

VulkanQueue::VulkanQueue(PFN_vkGetInstanceProcAddr lookup, const XrGraphicsBindingVulkanKHR& binding)
    : of_instance(lookup, binding.instance),
      physical_device(binding.physicalDevice),
      device(binding.device),
      vk(DeviceLookup(of_instance), binding.device) {
    CheckFamily(of_instance, binding);
    of_instance.GetPhysicalDeviceMemoryProperties(physical_device, &memory_);
    vk.GetDeviceQueue(device, binding.queueFamilyIndex, binding.queueIndex, &queue_);
    if (!queue_) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
    const VkCommandPoolCreateInfo pool = {VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO, nullptr,
                                          VK_COMMAND_POOL_CREATE_RESET_COMMAND_BUFFER_BIT, binding.queueFamilyIndex};
    CheckVulkan(vk.CreateCommandPool(device, &pool, nullptr, &pool_));
    const VkCommandBufferAllocateInfo buffer = {VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO, nullptr, pool_,
                                                VK_COMMAND_BUFFER_LEVEL_PRIMARY, 1};
    const VkFenceCreateInfo fence = {VK_STRUCTURE_TYPE_FENCE_CREATE_INFO, nullptr, 0};
    VkResult result = vk.AllocateCommandBuffers(device, &buffer, &commands_);
    if (result == VK_SUCCESS) result = vk.CreateFence(device, &fence, nullptr, &fence_);
    if (result != VK_SUCCESS) vk.DestroyCommandPool(device, pool_, nullptr);
    CheckVulkan(result);
}

VulkanQueue::~VulkanQueue() {
    // On purpose: what the device may still work on is left to it.
    if (!HasEnded()) return;
    vk.DestroyFence(device, fence_, nullptr);
    vk.DestroyCommandPool(device, pool_, nullptr);
}

VkCommandBuffer VulkanQueue::Begin() {
    if (!HasEnded()) Refuse(XR_ERROR_RUNTIME_FAILURE);
    const VkCommandBufferBeginInfo info = {VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO, nullptr,
                                           VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT, nullptr};
    CheckVulkan(vk.BeginCommandBuffer(commands_, &info));
    return commands_;
}

void VulkanQueue::Finish() {
    CheckVulkan(vk.EndCommandBuffer(commands_));
    CheckVulkan(vk.ResetFences(device, 1, &fence_));
    VkSubmitInfo submit = {};
    submit.sType = VK_STRUCTURE_TYPE_SUBMIT_INFO;
    submit.commandBufferCount = 1;
    submit.pCommandBuffers = &commands_;
    CheckVulkan(vk.QueueSubmit(queue_, 1, &submit, fence_));
    is_busy_ = true;
    const VkResult result = vk.WaitForFences(device, 1, &fence_, VK_TRUE, kLongestWait);
    if (result == VK_SUCCESS) is_busy_ = false;
    CheckVulkan(result);
}

bool VulkanQueue::HasEnded() noexcept {
    if (is_busy_) {
        const VkResult status = vk.GetFenceStatus(device, fence_);
        // A lost device works on nothing any more.
        is_busy_ = status != VK_SUCCESS && status != VK_ERROR_DEVICE_LOST;
    }
    if (is_busy_) return false;
    for (const VulkanObject& object : std::exchange(kept_, {})) Destroy(object);
    return true;
}

void VulkanQueue::Free(const VulkanObject& object) noexcept {
    const std::lock_guard lock(mutex_);
    if (HasEnded()) return Destroy(object);
    try {
        kept_.push_back(object);
    } catch (const std::bad_alloc&) {
        // Then the device keeps it for good.
    }
}

void VulkanQueue::Destroy(const VulkanObject& object) const noexcept {
    vk.DestroyImage(device, object.image, nullptr);
    vk.DestroyBuffer(device, object.buffer, nullptr);
    vk.FreeMemory(device, object.memory, nullptr);
}

VkDeviceMemory VulkanQueue::Allocate(const VkMemoryRequirements& requirements, VkMemoryPropertyFlags wanted,
                                     VkMemoryPropertyFlags liked) const {
    for (const VkMemoryPropertyFlags flags : {wanted | liked, wanted}) {
        for (std::uint32_t type = 0; type < memory_.memoryTypeCount; ++type) {
            const bool is_allowed = (requirements.memoryTypeBits >> type & 1) != 0;
            if (!is_allowed || (memory_.memoryTypes[type].propertyFlags & flags) != flags) continue;
            const VkMemoryAllocateInfo info = {VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO, nullptr, requirements.size,
                                               type};
            VkDeviceMemory memory = VK_NULL_HANDLE;
            if (vk.AllocateMemory(device, &info, nullptr, &memory) == VK_SUCCESS) return memory;
        }
    }
    Refuse(XR_ERROR_OUT_OF_MEMORY);
}

void ChangeLayout(const VulkanDeviceFunctions& vk, VkCommandBuffer commands, VkImage image, VkImageAspectFlags aspects,
                  VkImageLayout from, VkImageLayout to) {
    VkImageMemoryBarrier barrier = {};
    barrier.sType = VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER;
    barrier.srcAccessMask = VK_ACCESS_MEMORY_READ_BIT | VK_ACCESS_MEMORY_WRITE_BIT;
    barrier.dstAccessMask = VK_ACCESS_MEMORY_READ_BIT | VK_ACCESS_MEMORY_WRITE_BIT;
    barrier.oldLayout = from;
    barrier.newLayout = to;
    barrier.srcQueueFamilyIndex = barrier.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
    barrier.image = image;
    barrier.subresourceRange = {aspects, 0, VK_REMAINING_MIP_LEVELS, 0, VK_REMAINING_ARRAY_LAYERS};
    vk.CmdPipelineBarrier(commands, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, 0, 0,
                          nullptr, 0, nullptr, 1, &barrier);
}

}  // namespace simulator
