// An application's device of Vulkan, whose images the runtime has made.
#pragma once

#include "simulator/graphics/foreign_images.h"

namespace simulator {

std::unique_ptr<ForeignBinding> CopyVulkanBinding(const XrBaseInStructure& binding, VulkanInstanceLookup lookup);

}  // namespace simulator
