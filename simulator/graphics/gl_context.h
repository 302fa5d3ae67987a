// A context of OpenGL or OpenGL ES of our own, beside the application's, with which it shares its textures. All work is
// done in ours: what the application has set in its own stays set, and what is current on a thread is current again
// afterwards.
//
// The application keeps its context to itself but in the functions that create and destroy sessions, in xrBeginFrame
// and xrEndFrame, and in those of swapchains; Run belongs into those.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "simulator/graphics/gl_functions.h"

struct XrGraphicsBindingEGLMNDX;
struct XrGraphicsBindingOpenGLXlibKHR;

namespace simulator {

class GlContext {
 public:
    GlContext(const GlContext&) = delete;
    GlContext& operator=(const GlContext&) = delete;
    virtual ~GlContext() = default;

    bool is_es() const { return is_es_; }

    // `work(gl)` with ours current on this thread, after what the thread gave to the context that it had current is
    // done. Throws XR_ERROR_RUNTIME_FAILURE where ours can't be made current. Threads wait for each other.
    template <class Work>
    auto Run(Work work) {
        std::lock_guard lock(mutex_);
        const Visit visit(*this);
        return work(gl_);
    }

 protected:
    GlContext(GlFunctions::Lookup lookup, bool is_es) : gl_(lookup), is_es_(is_es) {}

    // Remembers what is current on this thread. False where nothing is.
    virtual bool Remember() = 0;
    virtual bool MakeCurrent() = 0;
    virtual void PutBack() = 0;

 private:
    class Visit {
     public:
        explicit Visit(GlContext& context);
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;
        ~Visit() { context_.PutBack(); }

     private:
        GlContext& context_;
    };

    const GlFunctions gl_;
    const bool is_es_;
    // Guards what is remembered.
    std::mutex mutex_;
};

// What an application's own context is of: XR_MNDX_egl_enable serves both.
enum class GlKind : std::uint8_t { kGl, kGlEs };

// Throws XR_ERROR_GRAPHICS_DEVICE_INVALID for a binding with no good context in it.
GlKind KindOf(const XrGraphicsBindingEGLMNDX& binding);
std::shared_ptr<GlContext> MakeEglContext(const XrGraphicsBindingEGLMNDX& binding);
std::shared_ptr<GlContext> MakeGlxContext(const XrGraphicsBindingOpenGLXlibKHR& binding);
// Beside the context that is current on this thread.
std::shared_ptr<GlContext> MakeGlxContext();

}  // namespace simulator
