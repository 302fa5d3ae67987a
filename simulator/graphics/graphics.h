// What the runtime needs of a graphics interface: images that the application draws into, and a look at them. This
// directory is the only place that knows Vulkan, EGL, GLX and OpenGL; it knows no frames, layers or handles.
//
//   vulkan_entry     the functions of XR_KHR_vulkan_enable and XR_KHR_vulkan_enable2
//   vulkan_device    a session's device, and the images of its swapchains
//   vulkan_reader    reads an image, whoever made it
//   foreign_images   those that another runtime made, as an API layer reads them (vulkan_foreign, gl_foreign)
//   gl_device        the same of OpenGL and OpenGL ES: what comes before a session, its textures
//   gl_context       a context beside the application's, by EGL (egl_context) or GLX (glx_context)
//   gl_reader        reads a texture, whoever made it
//
// Nothing of it is linked: the application's device or context is there already, and its functions come from there.
// No graphics package has to be installed for applications that render nothing.
//
// Which thread may call what is the graphics interface's affair, and stands with each function as the one of OpenXR
// that calls it. All may throw a Refusal.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "simulator/graphics/raw_image.h"

namespace simulator {

// The images of one swapchain. They are gone with it.
class ImageSet {
 public:
    ImageSet() = default;
    ImageSet(const ImageSet&) = delete;
    ImageSet& operator=(const ImageSet&) = delete;
    virtual ~ImageSet() = default;

    // Checks the type of the caller's record `index` of the array, and writes the image into it.
    virtual void Write(std::uint32_t index, XrSwapchainImageBaseHeader* records) const = 0;

    // xrAcquireSwapchainImage: before the application has the image for the first time.
    virtual void Prepare() = 0;

    // xrEndFrame: a copy of the first mip level of one layer, of an image that the application has released. Waits
    // for what was drawn. Only for formats of colour.
    virtual RawImage Read(std::uint32_t index, std::uint32_t layer) = 0;
};

// The device or context that a session is bound to.
class GraphicsDevice {
 public:
    GraphicsDevice() = default;
    GraphicsDevice(const GraphicsDevice&) = delete;
    GraphicsDevice& operator=(const GraphicsDevice&) = delete;
    // xrDestroySession: after all image sets.
    virtual ~GraphicsDevice() = default;

    // The best one first.
    virtual const std::vector<std::int64_t>& Formats() const = 0;
    virtual bool IsColour(std::int64_t format) const = 0;

    // xrCreateSwapchain: `info` is checked but for what the driver can do, and its format is one of the above. Throws
    // XR_ERROR_FEATURE_UNSUPPORTED for what it can't.
    virtual std::unique_ptr<ImageSet> CreateImages(const XrSwapchainCreateInfo& info, std::uint32_t count) = 0;
};

// What an instance keeps of the calls that come before a session.
class GlEntry;
class VulkanEntry;
struct GraphicsEntry {
    GraphicsEntry();
    GraphicsEntry(const GraphicsEntry&) = delete;
    GraphicsEntry& operator=(const GraphicsEntry&) = delete;
    ~GraphicsEntry();

    std::unique_ptr<VulkanEntry> vulkan;
    std::unique_ptr<GlEntry> gl;
};

// Which of the extensions the instance has enabled.
struct GraphicsExtensions {
    bool vulkan = false;
    bool gl = false;
    bool gl_es = false;
    // Contexts of either by EGL.
    bool egl = false;
};

// xrCreateSession: the device that the binding in the chain names, or null where the chain holds none. Throws
// XR_ERROR_GRAPHICS_REQUIREMENTS_CALL_MISSING, and XR_ERROR_GRAPHICS_DEVICE_INVALID for a binding that is not good or
// belongs to an extension that was not enabled.
std::unique_ptr<GraphicsDevice> BindGraphics(const void* chain, const GraphicsExtensions& enabled,
                                             const GraphicsEntry& entry);

}  // namespace simulator
