#include "simulator/graphics/foreign_images.h"

#include "simulator/graphics/gl_foreign.h"
#include "simulator/graphics/vulkan_foreign.h"

namespace simulator {

std::unique_ptr<ForeignBinding> CopyBinding(const void* chain, VulkanInstanceLookup lookup) {
    for (auto* link = static_cast<const XrBaseInStructure*>(chain); link; link = link->next) {
        switch (link->type) {
            case XR_TYPE_GRAPHICS_BINDING_VULKAN_KHR:
                return CopyVulkanBinding(*link, lookup);
            case XR_TYPE_GRAPHICS_BINDING_OPENGL_XLIB_KHR:
            case XR_TYPE_GRAPHICS_BINDING_OPENGL_XCB_KHR:
            case XR_TYPE_GRAPHICS_BINDING_EGL_MNDX:
                return CopyGlBinding(*link);
            default:
                break;
        }
    }
    return nullptr;
}

}  // namespace simulator
