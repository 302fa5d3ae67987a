#include "simulator/graphics/vulkan_entry.h"

#include <algorithm>
#include <vector>

#include "simulator/graphics/vulkan_functions.h"
#include "simulator/refusal.h"

namespace simulator {
namespace {

// Larger is better.
int Rank(VkPhysicalDeviceType type) {
    switch (type) {
        case VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU:
            return 3;
        case VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU:
            return 2;
        case VK_PHYSICAL_DEVICE_TYPE_VIRTUAL_GPU:
            return 1;
        default:
            return 0;
    }
}

std::vector<VkPhysicalDevice> DevicesOf(const VulkanInstanceFunctions& vk, VkInstance instance) {
    std::uint32_t count = 0;
    CheckVulkan(vk.EnumeratePhysicalDevices(instance, &count, nullptr));
    std::vector<VkPhysicalDevice> devices(count);
    const VkResult result = vk.EnumeratePhysicalDevices(instance, &count, devices.data());
    if (result != VK_INCOMPLETE) CheckVulkan(result);
    devices.resize(count);
    return devices;
}

std::map<std::uint32_t, std::uint32_t> QueuesOf(const VkDeviceCreateInfo& info) {
    std::map<std::uint32_t, std::uint32_t> counts;
    for (std::uint32_t i = 0; i < info.queueCreateInfoCount; ++i) {
        const VkDeviceQueueCreateInfo& queues = info.pQueueCreateInfos[i];
        // Others, the protected ones, are not what a binding names.
        if (queues.flags == 0) counts[queues.queueFamilyIndex] = queues.queueCount;
    }
    return counts;
}

}  // namespace

void VulkanEntry::GetRequirements(void* record) {
    auto* const requirements = static_cast<XrGraphicsRequirementsVulkanKHR*>(record);
    RequireType(requirements, XR_TYPE_GRAPHICS_REQUIREMENTS_VULKAN_KHR);
    requirements->minApiVersionSupported = XR_MAKE_VERSION(1, 0, 0);
    requirements->maxApiVersionSupported = XR_MAKE_VERSION(1, 0x3ff, 0xfff);
    const std::lock_guard lock(mutex_);
    requirements_told_ = true;
}

void VulkanEntry::CreateInstance(XrSystemId system, const XrVulkanInstanceCreateInfoKHR* info, VkInstance_T** instance,
                                 std::int32_t* result) {
    RequireType(info, XR_TYPE_VULKAN_INSTANCE_CREATE_INFO_KHR);
    if (info->systemId != system) Refuse(XR_ERROR_SYSTEM_INVALID);
    Require(info->createFlags == 0 && info->pfnGetInstanceProcAddr && info->vulkanCreateInfo && instance && result);
    const auto create =
        reinterpret_cast<PFN_vkCreateInstance>(info->pfnGetInstanceProcAddr(nullptr, "vkCreateInstance"));
    if (!create) Refuse(XR_ERROR_RUNTIME_FAILURE);
    *result = create(info->vulkanCreateInfo, info->vulkanAllocator, instance);
    const std::lock_guard lock(mutex_);
    if (*result == VK_SUCCESS) lookups_[*instance] = info->pfnGetInstanceProcAddr;
}

void VulkanEntry::CreateDevice(XrSystemId system, const XrVulkanDeviceCreateInfoKHR* info, VkDevice_T** device,
                               std::int32_t* result) {
    RequireType(info, XR_TYPE_VULKAN_DEVICE_CREATE_INFO_KHR);
    if (info->systemId != system) Refuse(XR_ERROR_SYSTEM_INVALID);
    Require(info->createFlags == 0 && info->pfnGetInstanceProcAddr && info->vulkanCreateInfo && device && result);
    const auto create = reinterpret_cast<PFN_vkCreateDevice>(
        info->pfnGetInstanceProcAddr(InstanceOf(info->vulkanPhysicalDevice), "vkCreateDevice"));
    if (!create) Refuse(XR_ERROR_RUNTIME_FAILURE);
    *result = create(info->vulkanPhysicalDevice, info->vulkanCreateInfo, info->vulkanAllocator, device);
    const std::lock_guard lock(mutex_);
    if (*result == VK_SUCCESS) queues_[*device] = QueuesOf(*info->vulkanCreateInfo);
}

VkPhysicalDevice_T* VulkanEntry::DeviceFor(XrSystemId system, const XrVulkanGraphicsDeviceGetInfoKHR* info) {
    RequireType(info, XR_TYPE_VULKAN_GRAPHICS_DEVICE_GET_INFO_KHR);
    if (info->systemId != system) Refuse(XR_ERROR_SYSTEM_INVALID);
    return DeviceFor(info->vulkanInstance);
}

VkPhysicalDevice_T* VulkanEntry::DeviceFor(VkInstance_T* instance) {
    Require(instance);
    const VulkanInstanceFunctions vk(LookupOf(instance), instance);
    const auto devices = DevicesOf(vk, instance);
    if (devices.empty()) {
        Refuse(XR_ERROR_RUNTIME_FAILURE, "Vulkan has no device; mesa-vulkan-drivers brings one in software");
    }
    const auto rank_of = [&](VkPhysicalDevice device) {
        VkPhysicalDeviceProperties properties;
        vk.GetPhysicalDeviceProperties(device, &properties);
        return Rank(properties.deviceType);
    };
    const VkPhysicalDevice best =
        *std::max_element(devices.begin(), devices.end(),
                          [&](VkPhysicalDevice a, VkPhysicalDevice b) { return rank_of(a) < rank_of(b); });
    const std::lock_guard lock(mutex_);
    return devices_[instance] = best;
}

VkInstance_T* VulkanEntry::InstanceOf(VkPhysicalDevice_T* device) const {
    const std::lock_guard lock(mutex_);
    const auto told =
        std::find_if(devices_.begin(), devices_.end(), [&](const auto& row) { return row.second == device; });
    Require(told != devices_.end());
    return told->first;
}

VulkanEntry::Lookup VulkanEntry::CheckBinding(const XrGraphicsBindingVulkanKHR& binding) const {
    std::unique_lock lock(mutex_);
    if (!requirements_told_) Refuse(XR_ERROR_GRAPHICS_REQUIREMENTS_CALL_MISSING);
    const auto told = devices_.find(binding.instance);
    const bool is_told = told != devices_.end() && told->second == binding.physicalDevice;
    if (!is_told || !binding.device) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
    const auto made_here = queues_.find(binding.device);
    if (made_here != queues_.end()) {
        const auto family = made_here->second.find(binding.queueFamilyIndex);
        const bool has_queue = family != made_here->second.end() && binding.queueIndex < family->second;
        if (!has_queue) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
    }
    lock.unlock();
    return LookupOf(binding.instance);
}

VulkanEntry::Lookup VulkanEntry::LookupOf(VkInstance_T* instance) const {
    {
        const std::lock_guard lock(mutex_);
        const auto made_here = lookups_.find(instance);
        if (made_here != lookups_.end()) return made_here->second;
    }
    const auto lookup = VulkanLookup();
    if (!lookup) {
        Refuse(XR_ERROR_RUNTIME_FAILURE, "there is no libvulkan.so.1; the package libvulkan1 brings it");
    }
    return lookup;
}

}  // namespace simulator
