// OpenGL ES 3 by EGL, with no window and no screen. It is loaded when the demo starts, not linked: where there is none,
// the demo runs without a picture.
#pragma once

#include <EGL/egl.h>

// Prototypes for their types alone.
#define GL_GLEXT_PROTOTYPES
#include <GL/gl.h>
#include <GL/glext.h>

#include <memory>
#include <string>

#define XR_USE_GRAPHICS_API_OPENGL_ES
#define XR_USE_PLATFORM_EGL
#include <openxr/openxr.h>
#include <openxr/openxr_platform.h>

namespace demo {

#define DEMO_GL_FUNCTIONS(X)   \
    X(AttachShader)            \
    X(BindBuffer)              \
    X(BindFramebuffer)         \
    X(BindRenderbuffer)        \
    X(BindVertexArray)         \
    X(BufferData)              \
    X(Clear)                   \
    X(ClearColor)              \
    X(CompileShader)           \
    X(CreateProgram)           \
    X(CreateShader)            \
    X(DrawArraysInstanced)     \
    X(Enable)                  \
    X(EnableVertexAttribArray) \
    X(FramebufferRenderbuffer) \
    X(FramebufferTextureLayer) \
    X(GenBuffers)              \
    X(GenFramebuffers)         \
    X(GenRenderbuffers)        \
    X(GenVertexArrays)         \
    X(GetProgramiv)            \
    X(GetUniformLocation)      \
    X(LinkProgram)             \
    X(RenderbufferStorage)     \
    X(ShaderSource)            \
    X(Uniform3fv)              \
    X(Uniform4fv)              \
    X(UniformMatrix4fv)        \
    X(UseProgram)              \
    X(VertexAttribDivisor)     \
    X(VertexAttribPointer)     \
    X(Viewport)

// A context that is current on the thread that made it. What is made in it goes with it.
class Gles {
 public:
    // Null where this machine has none, and `why` says what is missing.
    static std::unique_ptr<Gles> Make(std::string& why);
    ~Gles();
    Gles(const Gles&) = delete;
    Gles& operator=(const Gles&) = delete;

    // For a session's creation.
    const XrGraphicsBindingEGLMNDX& binding() const { return binding_; }

#define DEMO_DECLARE(name)                        \
    using name##Function = decltype(&::gl##name); \
    name##Function name = nullptr;
    DEMO_GL_FUNCTIONS(DEMO_DECLARE)
#undef DEMO_DECLARE

 private:
    Gles() = default;
    // Empty, or what is missing.
    std::string Open();

    XrGraphicsBindingEGLMNDX binding_ = {};
};

}  // namespace demo
