// EGL: no surface is needed on either side.
#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <cstring>

#define XR_USE_PLATFORM_EGL
#include <openxr/openxr.h>
#include <openxr/openxr_platform.h>

#include "simulator/graphics/gl_context.h"
#include "simulator/refusal.h"

namespace simulator {
namespace {

#define VELMOOR_EGL_FUNCTIONS(X) \
    X(BindAPI)                   \
    X(CreateContext)             \
    X(DestroyContext)            \
    X(GetCurrentContext)         \
    X(GetCurrentDisplay)         \
    X(GetCurrentSurface)         \
    X(MakeCurrent)               \
    X(QueryAPI)                  \
    X(QueryContext)              \
    X(QueryString)

struct EglFunctions {
    explicit EglFunctions(PFN_xrEglGetProcAddressMNDX lookup) {
        if (!lookup) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
#define VELMOOR_LOAD(name)                                        \
    name = reinterpret_cast<decltype(name)>(lookup("egl" #name)); \
    if (!(name)) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
        VELMOOR_EGL_FUNCTIONS(VELMOOR_LOAD)
#undef VELMOOR_LOAD
    }

#define VELMOOR_DECLARE(name)                      \
    using name##Function = decltype(&::egl##name); \
    name##Function name = nullptr;
    VELMOOR_EGL_FUNCTIONS(VELMOOR_DECLARE)
#undef VELMOOR_DECLARE
};

class EglContext : public GlContext {
 public:
    EglContext(const XrGraphicsBindingEGLMNDX& binding, GlKind kind)
        : GlContext(reinterpret_cast<GlFunctions::Lookup>(binding.getProcAddress), kind == GlKind::kGlEs),
          egl_(binding.getProcAddress),
          display_(binding.display),
          api_(kind == GlKind::kGlEs ? EGL_OPENGL_ES_API : EGL_OPENGL_API) {
        const char* const extensions = egl_.QueryString(display_, EGL_EXTENSIONS);
        if (!extensions || !std::strstr(extensions, "EGL_KHR_surfaceless_context")) {
            Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID, "this EGL lacks EGL_KHR_surfaceless_context");
        }
        // Of OpenGL the default is the latest version that has all of the earlier ones.
        const EGLint version[] = {EGL_CONTEXT_CLIENT_VERSION, 3, EGL_NONE};
        const EGLenum api = egl_.QueryAPI();
        egl_.BindAPI(api_);
        context_ = egl_.CreateContext(display_, binding.config, binding.context, is_es() ? version : nullptr);
        egl_.BindAPI(api);
        if (context_ == EGL_NO_CONTEXT) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
    }
    ~EglContext() override { egl_.DestroyContext(display_, context_); }

 protected:
    bool Remember() override {
        before_ = {egl_.QueryAPI(), egl_.GetCurrentDisplay(), egl_.GetCurrentSurface(EGL_DRAW),
                   egl_.GetCurrentSurface(EGL_READ), egl_.GetCurrentContext()};
        return before_.context != EGL_NO_CONTEXT;
    }

    bool MakeCurrent() override {
        egl_.BindAPI(api_);
        return egl_.MakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, context_) == EGL_TRUE;
    }

    void PutBack() override {
        const EGLDisplay display = before_.context == EGL_NO_CONTEXT ? display_ : before_.display;
        egl_.MakeCurrent(display, before_.draw, before_.read, before_.context);
        egl_.BindAPI(before_.api);
    }

 private:
    struct Current {
        EGLenum api = EGL_OPENGL_ES_API;
        EGLDisplay display = EGL_NO_DISPLAY;
        EGLSurface draw = EGL_NO_SURFACE;
        EGLSurface read = EGL_NO_SURFACE;
        EGLContext context = EGL_NO_CONTEXT;
    };

    const EglFunctions egl_;
    const EGLDisplay display_;
    const EGLenum api_;
    EGLContext context_ = EGL_NO_CONTEXT;
    Current before_;
};

}  // namespace

GlKind KindOf(const XrGraphicsBindingEGLMNDX& binding) {
    EGLint api = 0;
    const bool is_good = binding.display != EGL_NO_DISPLAY && binding.context != EGL_NO_CONTEXT &&
                         EglFunctions(binding.getProcAddress)
                             .QueryContext(binding.display, binding.context, EGL_CONTEXT_CLIENT_TYPE, &api);
    if (!is_good || (api != EGL_OPENGL_API && api != EGL_OPENGL_ES_API)) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
    return api == EGL_OPENGL_API ? GlKind::kGl : GlKind::kGlEs;
}

std::shared_ptr<GlContext> MakeEglContext(const XrGraphicsBindingEGLMNDX& binding) {
    return std::make_shared<EglContext>(binding, KindOf(binding));
}

}  // namespace simulator
