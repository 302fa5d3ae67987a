// What happens between application and runtime before there is a session with Vulkan: instance and device are made,
// in one of two ways. XR_KHR_vulkan_enable tells the application which extensions are needed, which are none;
// XR_KHR_vulkan_enable2 makes both on its behalf, with the functions that it brings. Either way the runtime names the
// physical device.
//
// The records are those of the two extensions, by their names alone, so that no other header is needed here.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <map>
#include <mutex>

struct VkInstance_T;
struct VkPhysicalDevice_T;
struct VkDevice_T;
struct XrGraphicsBindingVulkanKHR;
struct XrVulkanDeviceCreateInfoKHR;
struct XrVulkanGraphicsDeviceGetInfoKHR;
struct XrVulkanInstanceCreateInfoKHR;

namespace simulator {

// Any thread, and several at once: a driver may take its time.
class VulkanEntry {
 public:
    using Lookup = void (*(*)(VkInstance_T*, const char*))();

    // `record` is an XrGraphicsRequirementsVulkanKHR.
    void GetRequirements(void* record);

    // `system` is the one that the record has to name. `result` is a VkResult. XR_SUCCESS also where Vulkan refuses,
    // which stands in `result`.
    void CreateInstance(XrSystemId system, const XrVulkanInstanceCreateInfoKHR* info, VkInstance_T** instance,
                        std::int32_t* result);
    void CreateDevice(XrSystemId system, const XrVulkanDeviceCreateInfoKHR* info, VkDevice_T** device,
                      std::int32_t* result);
    VkPhysicalDevice_T* DeviceFor(XrSystemId system, const XrVulkanGraphicsDeviceGetInfoKHR* info);
    VkPhysicalDevice_T* DeviceFor(VkInstance_T* instance);

    // Throws as BindGraphics does. Gives the lookup of the binding's instance.
    Lookup CheckBinding(const XrGraphicsBindingVulkanKHR& binding) const;

 private:
    Lookup LookupOf(VkInstance_T* instance) const;
    // For which this physical device was told. Throws XR_ERROR_VALIDATION_FAILURE where it was not.
    VkInstance_T* InstanceOf(VkPhysicalDevice_T* device) const;

    // Guards all below. Not locked while a driver is called.
    mutable std::mutex mutex_;
    bool requirements_told_ = false;
    // Of the instances that were made here.
    std::map<VkInstance_T*, Lookup> lookups_;
    // As they were told.
    std::map<VkInstance_T*, VkPhysicalDevice_T*> devices_;
    // How many queues of which family the devices have that were made here.
    std::map<VkDevice_T*, std::map<std::uint32_t, std::uint32_t>> queues_;
};

}  // namespace simulator
