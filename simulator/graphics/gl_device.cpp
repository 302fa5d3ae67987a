#include "simulator/graphics/gl_device.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "simulator/graphics/gl_context.h"
#include "simulator/graphics/gl_reader.h"
#include "simulator/refusal.h"

// After the header of OpenGL that declares its functions too.
#include <EGL/egl.h>
#include <GL/glx.h>

#define XR_USE_GRAPHICS_API_OPENGL
#define XR_USE_GRAPHICS_API_OPENGL_ES
#define XR_USE_PLATFORM_XLIB
#define XR_USE_PLATFORM_EGL
#include <openxr/openxr_platform.h>

namespace simulator {
namespace {

constexpr GLenum kColours[] = {GL_SRGB8_ALPHA8, GL_RGBA8, GL_RGBA16F};
constexpr GLenum kDepths[] = {GL_DEPTH_COMPONENT16, GL_DEPTH_COMPONENT24, GL_DEPTH24_STENCIL8, GL_DEPTH_COMPONENT32F,
                              GL_DEPTH32F_STENCIL8};

// For the texture that is bound.
void Allocate(const GlFunctions& gl, const XrSwapchainCreateInfo& info, GLenum target) {
    const auto format = static_cast<GLenum>(info.format);
    const auto width = static_cast<GLsizei>(info.width);
    const auto height = static_cast<GLsizei>(info.height);
    const auto layers = static_cast<GLsizei>(info.arraySize * info.faceCount);
    const auto mips = static_cast<GLsizei>(info.mipCount);
    const auto samples = static_cast<GLsizei>(info.sampleCount);
    if (samples != 1) {
        const bool is_possible =
            gl.TexStorage2DMultisample && gl.TexStorage3DMultisample && mips == 1 && info.faceCount == 1;
        if (!is_possible) Refuse(XR_ERROR_FEATURE_UNSUPPORTED);
        if (target == GL_TEXTURE_2D_MULTISAMPLE) {
            gl.TexStorage2DMultisample(target, samples, format, width, height, GL_TRUE);
        } else {
            gl.TexStorage3DMultisample(target, samples, format, width, height, layers, GL_TRUE);
        }
    } else if (info.arraySize > 1) {
        gl.TexStorage3D(target, mips, format, width, height, layers);
    } else {
        gl.TexStorage2D(target, mips, format, width, height);
    }
    CheckGl(gl, XR_ERROR_FEATURE_UNSUPPORTED);
}

class GlImages : public ImageSet {
 public:
    GlImages(std::shared_ptr<GlContext> context, const XrSwapchainCreateInfo& info, std::uint32_t count)
        : context_(std::move(context)), info_(info), target_(TargetOf(info)), textures_(count) {
        context_->Run([&](const GlFunctions& gl) {
            gl.GenTextures(static_cast<GLsizei>(count), textures_.data());
            try {
                for (const GLuint texture : textures_) {
                    gl.BindTexture(target_, texture);
                    Allocate(gl, info_, target_);
                }
                gl.BindTexture(target_, 0);
                // So that the application's context finds them.
                gl.Finish();
            } catch (...) {
                Delete(gl);
                throw;
            }
        });
    }

    ~GlImages() override {
        try {
            context_->Run([&](const GlFunctions& gl) { Delete(gl); });
        } catch (const Refusal&) {
            // They go with the context.
        }
    }

    // The records of both interfaces look the same.
    void Write(std::uint32_t index, XrSwapchainImageBaseHeader* records) const override {
        auto& record = reinterpret_cast<XrSwapchainImageOpenGLKHR*>(records)[index];
        RequireType(&record,
                    context_->is_es() ? XR_TYPE_SWAPCHAIN_IMAGE_OPENGL_ES_KHR : XR_TYPE_SWAPCHAIN_IMAGE_OPENGL_KHR);
        record.image = textures_[index];
    }

    void Prepare() override {}

    RawImage Read(std::uint32_t index, std::uint32_t layer) override {
        return context_->Run(
            [&](const GlFunctions& gl) { return ReadTexture(gl, ViewOf(info_, textures_[index], layer)); });
    }

 private:
    void Delete(const GlFunctions& gl) { gl.DeleteTextures(static_cast<GLsizei>(textures_.size()), textures_.data()); }

    const std::shared_ptr<GlContext> context_;
    const XrSwapchainCreateInfo info_;
    const GLenum target_;
    std::vector<GLuint> textures_;
};

// Whether a small image of it can be had.
bool IsThere(const std::shared_ptr<GlContext>& context, GLenum format) {
    XrSwapchainCreateInfo info = {};
    info.format = format;
    info.sampleCount = info.faceCount = info.arraySize = info.mipCount = 1;
    info.width = info.height = 8;
    try {
        GlImages image(context, info, 1);
        const bool is_colour = std::find(std::begin(kColours), std::end(kColours), format) != std::end(kColours);
        if (is_colour) image.Read(0, 0);
        return true;
    } catch (const Refusal&) {
        return false;
    }
}

class GlDevice : public GraphicsDevice {
 public:
    explicit GlDevice(std::shared_ptr<GlContext> context) : context_(std::move(context)) {
        for (const GLenum format : kColours) Offer(format);
        colours_ = formats_.size();
        for (const GLenum format : kDepths) Offer(format);
    }

    const std::vector<std::int64_t>& Formats() const override { return formats_; }
    bool IsColour(std::int64_t format) const override {
        const auto end = formats_.begin() + static_cast<std::ptrdiff_t>(colours_);
        return std::find(formats_.begin(), end, format) != end;
    }
    std::unique_ptr<ImageSet> CreateImages(const XrSwapchainCreateInfo& info, std::uint32_t count) override {
        return std::make_unique<GlImages>(context_, info, count);
    }

 private:
    void Offer(GLenum format) {
        if (IsThere(context_, format)) formats_.push_back(format);
    }

    const std::shared_ptr<GlContext> context_;
    std::vector<std::int64_t> formats_;
    // Of those, the first ones.
    std::size_t colours_ = 0;
};

template <class Record>
void TellRequirements(void* record, XrStructureType type, XrVersion least, XrVersion most) {
    auto* const requirements = static_cast<Record*>(record);
    RequireType(requirements, type);
    requirements->minApiVersionSupported = least;
    requirements->maxApiVersionSupported = most;
}

}  // namespace

void GlEntry::GetRequirements(void* record) {
    TellRequirements<XrGraphicsRequirementsOpenGLKHR>(record, XR_TYPE_GRAPHICS_REQUIREMENTS_OPENGL_KHR,
                                                      XR_MAKE_VERSION(3, 3, 0), XR_MAKE_VERSION(4, 6, 0));
    told_ = true;
}

void GlEntry::GetEsRequirements(void* record) {
    TellRequirements<XrGraphicsRequirementsOpenGLESKHR>(record, XR_TYPE_GRAPHICS_REQUIREMENTS_OPENGL_ES_KHR,
                                                        XR_MAKE_VERSION(3, 0, 0), XR_MAKE_VERSION(3, 2, 0));
    told_es_ = true;
}

std::unique_ptr<GraphicsDevice> GlEntry::BindEgl(const XrGraphicsBindingEGLMNDX& binding,
                                                 const GraphicsExtensions& enabled) const {
    if (!told_ && !told_es_) Refuse(XR_ERROR_GRAPHICS_REQUIREMENTS_CALL_MISSING);
    const bool is_es = KindOf(binding) == GlKind::kGlEs;
    if (!(is_es ? enabled.gl_es : enabled.gl)) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
    if (!(is_es ? told_es_ : told_)) Refuse(XR_ERROR_GRAPHICS_REQUIREMENTS_CALL_MISSING);
    return std::make_unique<GlDevice>(MakeEglContext(binding));
}

std::unique_ptr<GraphicsDevice> GlEntry::Bind(const XrBaseInStructure& binding,
                                              const GraphicsExtensions& enabled) const {
    if (binding.type == XR_TYPE_GRAPHICS_BINDING_EGL_MNDX) {
        return BindEgl(reinterpret_cast<const XrGraphicsBindingEGLMNDX&>(binding), enabled);
    }
    if (!told_) Refuse(XR_ERROR_GRAPHICS_REQUIREMENTS_CALL_MISSING);
    // On purpose: of XCB nothing is read. Applications send it empty, and Xlib is what GLX needs.
    if (binding.type == XR_TYPE_GRAPHICS_BINDING_OPENGL_XCB_KHR) return std::make_unique<GlDevice>(MakeGlxContext());
    return std::make_unique<GlDevice>(MakeGlxContext(reinterpret_cast<const XrGraphicsBindingOpenGLXlibKHR&>(binding)));
}

}  // namespace simulator
