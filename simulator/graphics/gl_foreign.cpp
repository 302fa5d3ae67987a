#include "simulator/graphics/gl_foreign.h"

#include <utility>

#include "simulator/graphics/foreign_records.h"
#include "simulator/graphics/gl_context.h"
#include "simulator/graphics/gl_reader.h"

// After the header of OpenGL that declares its functions too.
#include <EGL/egl.h>
#include <GL/glx.h>

#define XR_USE_GRAPHICS_API_OPENGL
#define XR_USE_PLATFORM_XLIB
#define XR_USE_PLATFORM_EGL
#include <openxr/openxr_platform.h>

namespace simulator {
namespace {

class Images : public ForeignImages {
 public:
    Images(std::shared_ptr<GlContext> context, const XrSwapchainCreateInfo& info,
           std::vector<XrSwapchainImageOpenGLKHR> records)
        : context_(std::move(context)), info_(info), records_(std::move(records)) {}

    RawImage Read(std::uint32_t index, std::uint32_t layer) override {
        if (index >= records_.size()) Refuse(XR_ERROR_RUNTIME_FAILURE);
        return context_->Run(
            [&](const GlFunctions& gl) { return ReadTexture(gl, ViewOf(info_, records_[index].image, layer)); });
    }

 private:
    const std::shared_ptr<GlContext> context_;
    const XrSwapchainCreateInfo info_;
    const std::vector<XrSwapchainImageOpenGLKHR> records_;
};

class Device : public ForeignDevice {
 public:
    explicit Device(std::shared_ptr<GlContext> context) : context_(std::move(context)) {}

    // The records of both interfaces look the same.
    std::unique_ptr<ForeignImages> ImagesOf(XrSwapchain swapchain, const XrSwapchainCreateInfo& info,
                                            PFN_xrEnumerateSwapchainImages enumerate) override {
        const XrSwapchainImageOpenGLKHR blank = {
            context_->is_es() ? XR_TYPE_SWAPCHAIN_IMAGE_OPENGL_ES_KHR : XR_TYPE_SWAPCHAIN_IMAGE_OPENGL_KHR, nullptr, 0};
        return std::make_unique<Images>(context_, info, ImageRecords(swapchain, enumerate, blank));
    }

 private:
    const std::shared_ptr<GlContext> context_;
};

template <class Record>
class Binding : public ForeignBinding {
 public:
    explicit Binding(const Record& record) : record_(record) {}

    bool CanRead(std::int64_t format) const override { return CanReadTexture(static_cast<GLenum>(format)); }
    XrSwapchainUsageFlags UsageToRead() const override { return 0; }

    std::unique_ptr<ForeignDevice> MakeDevice() const override { return std::make_unique<Device>(Context(record_)); }

 private:
    static std::shared_ptr<GlContext> Context(const XrGraphicsBindingEGLMNDX& egl) { return MakeEglContext(egl); }
    static std::shared_ptr<GlContext> Context(const XrGraphicsBindingOpenGLXlibKHR& xlib) {
        return MakeGlxContext(xlib);
    }
    static std::shared_ptr<GlContext> Context(const XrBaseInStructure& /*xcb*/) { return MakeGlxContext(); }

    const Record record_;
};

template <class Record>
std::unique_ptr<ForeignBinding> Copy(const XrBaseInStructure& binding) {
    return std::make_unique<Binding<Record>>(reinterpret_cast<const Record&>(binding));
}

}  // namespace

std::unique_ptr<ForeignBinding> CopyGlBinding(const XrBaseInStructure& binding) {
    switch (binding.type) {
        case XR_TYPE_GRAPHICS_BINDING_EGL_MNDX:
            return Copy<XrGraphicsBindingEGLMNDX>(binding);
        case XR_TYPE_GRAPHICS_BINDING_OPENGL_XLIB_KHR:
            return Copy<XrGraphicsBindingOpenGLXlibKHR>(binding);
        default:
            return Copy<XrBaseInStructure>(binding);
    }
}

}  // namespace simulator
