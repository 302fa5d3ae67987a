// The functions that an application calls before it creates a session that renders. Records of graphics interfaces
// are known here by their names; simulator/graphics looks into them.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>

#include "simulator/graphics/vulkan_entry.h"

namespace simulator {

// `requirements` is an XrGraphicsRequirementsVulkanKHR.
XRAPI_ATTR XrResult XRAPI_CALL GetVulkanGraphicsRequirements(XrInstance instance, XrSystemId system,
                                                             void* requirements);
// `requirements` is an XrGraphicsRequirementsOpenGLKHR, and an XrGraphicsRequirementsOpenGLESKHR.
XRAPI_ATTR XrResult XRAPI_CALL GetOpenGlGraphicsRequirements(XrInstance instance, XrSystemId system,
                                                             void* requirements);
XRAPI_ATTR XrResult XRAPI_CALL GetOpenGlEsGraphicsRequirements(XrInstance instance, XrSystemId system,
                                                               void* requirements);
// Texts with no extension in them: there is nothing that the simulator needs.
XRAPI_ATTR XrResult XRAPI_CALL GetVulkanExtensions(XrInstance instance, XrSystemId system, std::uint32_t capacity,
                                                   std::uint32_t* count, char* buffer);
XRAPI_ATTR XrResult XRAPI_CALL GetVulkanGraphicsDeviceKHR(XrInstance instance, XrSystemId system,
                                                          VkInstance_T* vulkan_instance, VkPhysicalDevice_T** device);
// `result` is a VkResult.
XRAPI_ATTR XrResult XRAPI_CALL CreateVulkanInstanceKHR(XrInstance instance, const XrVulkanInstanceCreateInfoKHR* info,
                                                       VkInstance_T** created, std::int32_t* result);
XRAPI_ATTR XrResult XRAPI_CALL CreateVulkanDeviceKHR(XrInstance instance, const XrVulkanDeviceCreateInfoKHR* info,
                                                     VkDevice_T** created, std::int32_t* result);
XRAPI_ATTR XrResult XRAPI_CALL GetVulkanGraphicsDevice2KHR(XrInstance instance,
                                                           const XrVulkanGraphicsDeviceGetInfoKHR* info,
                                                           VkPhysicalDevice_T** device);

}  // namespace simulator
