// Reads a texture of OpenGL or OpenGL ES into plain memory: any texture of the context that is current, or shared with
// it, whoever made it.
#pragma once

#include <openxr/openxr.h>

#include <cstdint>

#include "simulator/graphics/gl_functions.h"
#include "simulator/graphics/raw_image.h"

namespace simulator {

struct GlTextureView {
    GLuint texture;
    // GL_TEXTURE_2D, GL_TEXTURE_CUBE_MAP, GL_TEXTURE_2D_MULTISAMPLE, or one of their arrays.
    GLenum target;
    // One of colour, sized.
    GLenum format;
    // Of the first mip level.
    std::uint32_t width;
    std::uint32_t height;
    // Of a cube, the face; of an array of cubes, six for each.
    std::uint32_t layer;
};

// What swapchains of this kind are textures of.
GLenum TargetOf(const XrSwapchainCreateInfo& info);
GlTextureView ViewOf(const XrSwapchainCreateInfo& info, GLuint texture, std::uint32_t layer);

bool CanReadTexture(GLenum format);

// Throws XR_ERROR_OUT_OF_MEMORY, and XR_ERROR_RUNTIME_FAILURE for what the driver can't read.
RawImage ReadTexture(const GlFunctions& gl, const GlTextureView& view);

// A framebuffer object for as long as something takes, bound to `target`.
class Framebuffer {
 public:
    Framebuffer(const GlFunctions& gl, GLenum target) : gl_(gl) {
        gl_.GenFramebuffers(1, &name_);
        Bind(target);
    }
    Framebuffer(const Framebuffer&) = delete;
    Framebuffer& operator=(const Framebuffer&) = delete;
    // What was bound before is of no interest: the context is ours.
    ~Framebuffer() { gl_.DeleteFramebuffers(1, &name_); }

    void Bind(GLenum target) const { gl_.BindFramebuffer(target, name_); }

 private:
    const GlFunctions& gl_;
    GLuint name_ = 0;
};

// Throws what OpenXR has for an error since the last call, and `otherwise` where it has nothing.
void CheckGl(const GlFunctions& gl, XrResult otherwise);

}  // namespace simulator
