// A session's context of OpenGL or OpenGL ES, and the textures of its swapchains.
#pragma once

#include <openxr/openxr.h>

#include <atomic>
#include <memory>

#include "simulator/graphics/graphics.h"

struct XrGraphicsBindingEGLMNDX;

namespace simulator {

// What an instance keeps of the calls that come before a session. Any thread.
class GlEntry {
 public:
    // `record` is an XrGraphicsRequirementsOpenGLKHR, or an XrGraphicsRequirementsOpenGLESKHR.
    void GetRequirements(void* record);
    void GetEsRequirements(void* record);

    // As BindGraphics, for the bindings of Xlib, XCB and EGL.
    std::unique_ptr<GraphicsDevice> Bind(const XrBaseInStructure& binding, const GraphicsExtensions& enabled) const;

 private:
    std::unique_ptr<GraphicsDevice> BindEgl(const XrGraphicsBindingEGLMNDX& binding,
                                            const GraphicsExtensions& enabled) const;

    std::atomic<bool> told_ = false;
    std::atomic<bool> told_es_ = false;
};

}  // namespace simulator
