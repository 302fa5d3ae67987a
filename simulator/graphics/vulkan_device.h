// A session's device of Vulkan, and the images of its swapchains.
#pragma once

#include <memory>

#include "simulator/graphics/graphics.h"
#include "simulator/graphics/vulkan_functions.h"

namespace simulator {

std::unique_ptr<GraphicsDevice> MakeVulkanDevice(PFN_vkGetInstanceProcAddr lookup,
                                                 const XrGraphicsBindingVulkanKHR& binding);

}  // namespace simulator
