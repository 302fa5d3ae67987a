#include "simulator/graphics/graphics.h"

#include "simulator/graphics/gl_device.h"
#include "simulator/graphics/vulkan_device.h"
#include "simulator/graphics/vulkan_entry.h"
#include "simulator/refusal.h"

namespace simulator {
namespace {

bool IsBinding(XrStructureType type) {
    switch (type) {
        case XR_TYPE_GRAPHICS_BINDING_OPENGL_XLIB_KHR:
        case XR_TYPE_GRAPHICS_BINDING_OPENGL_XCB_KHR:
        case XR_TYPE_GRAPHICS_BINDING_OPENGL_WAYLAND_KHR:
        case XR_TYPE_GRAPHICS_BINDING_OPENGL_ES_ANDROID_KHR:
        case XR_TYPE_GRAPHICS_BINDING_VULKAN_KHR:
        case XR_TYPE_GRAPHICS_BINDING_EGL_MNDX:
            return true;
        default:
            return false;
    }
}

bool IsEnabled(XrStructureType type, const GraphicsExtensions& enabled) {
    switch (type) {
        case XR_TYPE_GRAPHICS_BINDING_VULKAN_KHR:
            return enabled.vulkan;
        case XR_TYPE_GRAPHICS_BINDING_OPENGL_XLIB_KHR:
        case XR_TYPE_GRAPHICS_BINDING_OPENGL_XCB_KHR:
            return enabled.gl;
        case XR_TYPE_GRAPHICS_BINDING_EGL_MNDX:
            return enabled.egl;
        default:
            return false;
    }
}

}  // namespace

GraphicsEntry::GraphicsEntry() : vulkan(std::make_unique<VulkanEntry>()), gl(std::make_unique<GlEntry>()) {}
GraphicsEntry::~GraphicsEntry() = default;

std::unique_ptr<GraphicsDevice> BindGraphics(const void* chain, const GraphicsExtensions& enabled,
                                             const GraphicsEntry& entry) {
    const XrBaseInStructure* found = nullptr;
    for (auto* link = static_cast<const XrBaseInStructure*>(chain); link; link = link->next) {
        if (!IsBinding(link->type)) continue;
        // There is to be exactly one.
        if (found || !IsEnabled(link->type, enabled)) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
        found = link;
    }
    if (!found) return nullptr;
    if (found->type != XR_TYPE_GRAPHICS_BINDING_VULKAN_KHR) return entry.gl->Bind(*found, enabled);
    const auto& binding = *reinterpret_cast<const XrGraphicsBindingVulkanKHR*>(found);
    return MakeVulkanDevice(entry.vulkan->CheckBinding(binding), binding);
}

}  // namespace simulator
