// Draws boxes for both eyes into the images of a swapchain.
#pragma once

#include <openxr/openxr.h>

#include <array>
#include <memory>
#include <vector>

#include "examples/velmoor_demo/gles.h"
#include "examples/velmoor_demo/scene.h"

namespace demo {

class Picture {
 public:
    // On the thread where `gles` is current, which is also to call all below. It outlives this.
    Picture(XrInstance instance, XrSystemId system, XrSession session, const Gles& gles);
    ~Picture();
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    // Between xrBeginFrame and xrEndFrame. The layer that shows the boxes, good until the next call; null while the
    // eyes are nowhere.
    const XrCompositionLayerBaseHeader* Draw(XrSpace base, XrTime time, const std::vector<Box>& boxes);

    // Over the room where the runtime can show one.
    XrEnvironmentBlendMode blend_mode() const { return blend_mode_; }

 private:
    void ChooseBlendMode(XrInstance instance, XrSystemId system);
    void MakeSwapchain(XrInstance instance, XrSystemId system);
    void MakeProgram();
    void MakeBuffers();
    bool LocateEyes(XrSpace base, XrTime time);
    void DrawEye(std::size_t eye, GLuint texture, GLsizei count);

    const XrSession session_;
    const Gles& gl_;
    XrEnvironmentBlendMode blend_mode_ = XR_ENVIRONMENT_BLEND_MODE_OPAQUE;
    XrExtent2Di size_ = {};
    XrSwapchain swapchain_ = XR_NULL_HANDLE;
    std::vector<XrSwapchainImageOpenGLESKHR> images_;
    GLuint framebuffer_ = 0;
    GLuint boxes_ = 0;
    GLint projection_ = 0;
    GLint eye_position_ = 0;
    GLint eye_turn_ = 0;
    std::array<XrCompositionLayerProjectionView, 2> views_ = {};
    XrCompositionLayerProjection layer_ = {};
};

}  // namespace demo
