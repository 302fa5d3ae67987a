#include "simulator/graphics/gl_reader.h"

#include <optional>

#include "simulator/refusal.h"

namespace simulator {
namespace {

struct PixelsOfFormat {
    GLenum format;
    GLenum type;
    PixelKind kind;
    bool is_srgb;
};

constexpr PixelsOfFormat kFormats[] = {
    {GL_SRGB8_ALPHA8, GL_UNSIGNED_BYTE, PixelKind::kRgba8, true},
    {GL_RGBA8, GL_UNSIGNED_BYTE, PixelKind::kRgba8, false},
    {GL_RGBA16F, GL_HALF_FLOAT, PixelKind::kRgba16F, false},
    {GL_RGBA16, GL_UNSIGNED_SHORT, PixelKind::kRgba16, false},
    {GL_RGB10_A2, GL_UNSIGNED_INT_2_10_10_10_REV, PixelKind::kRgb10A2, false},
};

const PixelsOfFormat* FindPixels(GLenum format) {
    for (const auto& row : kFormats) {
        if (row.format == format) return &row;
    }
    return nullptr;
}

const PixelsOfFormat& PixelsOf(GLenum format) {
    const PixelsOfFormat* const found = FindPixels(format);
    if (!found) Refuse(XR_ERROR_SWAPCHAIN_FORMAT_UNSUPPORTED);
    return *found;
}

void Attach(const GlFunctions& gl, const GlTextureView& view) {
    constexpr GLenum kPoint = GL_COLOR_ATTACHMENT0;
    switch (view.target) {
        case GL_TEXTURE_2D:
        case GL_TEXTURE_2D_MULTISAMPLE:
            return gl.FramebufferTexture2D(GL_READ_FRAMEBUFFER, kPoint, view.target, view.texture, 0);
        case GL_TEXTURE_CUBE_MAP:
            return gl.FramebufferTexture2D(GL_READ_FRAMEBUFFER, kPoint, GL_TEXTURE_CUBE_MAP_POSITIVE_X + view.layer,
                                           view.texture, 0);
        default:
            return gl.FramebufferTextureLayer(GL_READ_FRAMEBUFFER, kPoint, view.texture, 0,
                                              static_cast<GLint>(view.layer));
    }
}

// In place of what is bound for reading, its samples made one.
class Resolved {
 public:
    Resolved(const GlFunctions& gl, GLenum format, GLsizei width, GLsizei height)
        : gl_(gl), framebuffer_(gl, GL_DRAW_FRAMEBUFFER) {
        gl_.GenRenderbuffers(1, &pixels_);
        gl_.BindRenderbuffer(GL_RENDERBUFFER, pixels_);
        gl_.RenderbufferStorage(GL_RENDERBUFFER, format, width, height);
        gl_.FramebufferRenderbuffer(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, pixels_);
        gl_.BlitFramebuffer(0, 0, width, height, 0, 0, width, height, GL_COLOR_BUFFER_BIT, GL_NEAREST);
        framebuffer_.Bind(GL_READ_FRAMEBUFFER);
    }
    Resolved(const Resolved&) = delete;
    Resolved& operator=(const Resolved&) = delete;
    ~Resolved() { gl_.DeleteRenderbuffers(1, &pixels_); }

 private:
    const GlFunctions& gl_;
    const Framebuffer framebuffer_;
    GLuint pixels_ = 0;
};

bool HasSamples(GLenum target) {
    return target == GL_TEXTURE_2D_MULTISAMPLE || target == GL_TEXTURE_2D_MULTISAMPLE_ARRAY;
}

}  // namespace

void CheckGl(const GlFunctions& gl, XrResult otherwise) {
    switch (gl.GetError()) {
        case GL_NO_ERROR:
            return;
        case GL_OUT_OF_MEMORY:
            Refuse(XR_ERROR_OUT_OF_MEMORY);
        case GL_CONTEXT_LOST:
            Refuse(XR_ERROR_SESSION_LOST);
        default:
            Refuse(otherwise);
    }
}

GLenum TargetOf(const XrSwapchainCreateInfo& info) {
    const bool is_array = info.arraySize > 1;
    if (info.sampleCount > 1) return is_array ? GL_TEXTURE_2D_MULTISAMPLE_ARRAY : GL_TEXTURE_2D_MULTISAMPLE;
    if (info.faceCount == 6) return is_array ? GL_TEXTURE_CUBE_MAP_ARRAY : GL_TEXTURE_CUBE_MAP;
    return is_array ? GL_TEXTURE_2D_ARRAY : GL_TEXTURE_2D;
}

GlTextureView ViewOf(const XrSwapchainCreateInfo& info, GLuint texture, std::uint32_t layer) {
    return {texture, TargetOf(info), static_cast<GLenum>(info.format), info.width, info.height, layer};
}

bool CanReadTexture(GLenum format) {
    return FindPixels(format) != nullptr;
}

RawImage ReadTexture(const GlFunctions& gl, const GlTextureView& view) {
    const PixelsOfFormat& pixels = PixelsOf(view.format);
    RawImage raw;
    raw.width = view.width;
    raw.height = view.height;
    raw.kind = pixels.kind;
    raw.is_srgb = pixels.is_srgb;
    raw.bottom_up = true;
    raw.bytes.resize(std::size_t{view.width} * view.height * BytesOfPixel(raw.kind));
    const auto width = static_cast<GLsizei>(view.width);
    const auto height = static_cast<GLsizei>(view.height);
    const Framebuffer source(gl, GL_READ_FRAMEBUFFER);
    Attach(gl, view);
    std::optional<Resolved> resolved;
    if (HasSamples(view.target)) resolved.emplace(gl, view.format, width, height);
    gl.ReadPixels(0, 0, width, height, GL_RGBA, pixels.type, raw.bytes.data());
    CheckGl(gl, XR_ERROR_RUNTIME_FAILURE);
    return raw;
}

}  // namespace simulator
