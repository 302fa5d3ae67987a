// The functions of OpenGL and OpenGL ES that are used, by the names and types that both share, looked up in what the
// application brought.
#pragma once

// Prototypes for their types alone: nothing of it is linked.
#define GL_GLEXT_PROTOTYPES
#include <GL/gl.h>
#include <GL/glext.h>

namespace simulator {

#define VELMOOR_GL_FUNCTIONS(X) \
    X(BindFramebuffer)          \
    X(BindRenderbuffer)         \
    X(BindTexture)              \
    X(BlitFramebuffer)          \
    X(CheckFramebufferStatus)   \
    X(DeleteFramebuffers)       \
    X(DeleteRenderbuffers)      \
    X(DeleteTextures)           \
    X(Finish)                   \
    X(FramebufferRenderbuffer)  \
    X(FramebufferTexture2D)     \
    X(FramebufferTextureLayer)  \
    X(GenFramebuffers)          \
    X(GenRenderbuffers)         \
    X(GenTextures)              \
    X(GetError)                 \
    X(ReadPixels)               \
    X(RenderbufferStorage)      \
    X(TexStorage2D)             \
    X(TexStorage3D)

// Null where the driver is older than they are.
#define VELMOOR_GL_LATER_FUNCTIONS(X) \
    X(TexStorage2DMultisample)        \
    X(TexStorage3DMultisample)

struct GlFunctions {
    using Lookup = void (*(*)(const char*))();

    // Throws XR_ERROR_RUNTIME_FAILURE where one is missing.
    explicit GlFunctions(Lookup lookup);

#define VELMOOR_DECLARE(name)                     \
    using name##Function = decltype(&::gl##name); \
    name##Function name = nullptr;
    VELMOOR_GL_FUNCTIONS(VELMOOR_DECLARE)
    VELMOOR_GL_LATER_FUNCTIONS(VELMOOR_DECLARE)
#undef VELMOOR_DECLARE
};

}  // namespace simulator
