// GLX: ours draws to a pbuffer of one pixel.
#include <dlfcn.h>

#include <atomic>
#include <mutex>
#include <type_traits>

#include "simulator/graphics/gl_context.h"
#include "simulator/refusal.h"

// After the header of OpenGL that declares its functions too.
#include <GL/glx.h>

#define XR_USE_PLATFORM_XLIB
#define XR_USE_GRAPHICS_API_OPENGL
#include <openxr/openxr.h>
#include <openxr/openxr_platform.h>

namespace simulator {
namespace {

// Never closed: drivers don't like to be loaded twice. The application that uses GLX has both already.
void* Library(const char* name, const char* missing) {
    void* const library = dlopen(name, RTLD_NOW | RTLD_LOCAL);
    if (!library) Refuse(XR_ERROR_RUNTIME_FAILURE, missing);
    return library;
}

#define VELMOOR_GLX_FUNCTIONS(X) \
    X(CreateNewContext)          \
    X(CreatePbuffer)             \
    X(DestroyContext)            \
    X(DestroyPbuffer)            \
    X(GetCurrentContext)         \
    X(GetCurrentDisplay)         \
    X(GetCurrentDrawable)        \
    X(GetCurrentReadDrawable)    \
    X(GetFBConfigAttrib)         \
    X(GetFBConfigs)              \
    X(GetProcAddressARB)         \
    X(IsDirect)                  \
    X(MakeContextCurrent)        \
    X(QueryContext)

#define VELMOOR_X_FUNCTIONS(X) \
    X(Free)                    \
    X(SetErrorHandler)         \
    X(Sync)

struct GlxFunctions {
    GlxFunctions() {
        void* const gl = Library("libGL.so.1", "there is no libGL.so.1; the package libgl1 brings it");
        void* const x = Library("libX11.so.6", "there is no libX11.so.6; the package libx11-6 brings it");
        const auto load = [](auto& function, void* library, const char* name) {
            function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(library, name));
            if (!function) Refuse(XR_ERROR_RUNTIME_FAILURE);
        };
#define VELMOOR_LOAD_GLX(name) load(name, gl, "glX" #name);
#define VELMOOR_LOAD_X(name) load(X##name, x, "X" #name);
        VELMOOR_GLX_FUNCTIONS(VELMOOR_LOAD_GLX)
        VELMOOR_X_FUNCTIONS(VELMOOR_LOAD_X)
#undef VELMOOR_LOAD_X
#undef VELMOOR_LOAD_GLX
    }

#define VELMOOR_DECLARE_GLX(name)                  \
    using name##Function = decltype(&::glX##name); \
    name##Function name = nullptr;
#define VELMOOR_DECLARE_X(name)                     \
    using X##name##Function = decltype(&::X##name); \
    X##name##Function X##name = nullptr;
    VELMOOR_GLX_FUNCTIONS(VELMOOR_DECLARE_GLX)
    VELMOOR_X_FUNCTIONS(VELMOOR_DECLARE_X)
#undef VELMOOR_DECLARE_X
#undef VELMOOR_DECLARE_GLX
};

// What a server refuses would end the process: while this lives, errors of this display are only counted.
class RefusalsOfX {
 public:
    RefusalsOfX(const GlxFunctions& glx, Display* display) : glx_(glx), display_(display) {
        glx_.XSync(display, False);
        watched_ = display;
        count_ = 0;
        next_ = glx_.XSetErrorHandler(Count);
    }
    RefusalsOfX(const RefusalsOfX&) = delete;
    RefusalsOfX& operator=(const RefusalsOfX&) = delete;
    ~RefusalsOfX() { glx_.XSetErrorHandler(next_); }

    bool Any() const {
        glx_.XSync(display_, False);
        return count_ != 0;
    }

 private:
    static int Count(Display* display, XErrorEvent* event) {
        if (display != watched_) return next_ ? next_.load()(display, event) : 0;
        return ++count_;
    }

    // The handler is the whole process's: one at a time.
    inline static std::mutex mutex_;
    inline static std::atomic<Display*> watched_ = nullptr;
    inline static std::atomic<int> count_ = 0;
    inline static std::atomic<XErrorHandler> next_ = nullptr;

    const std::lock_guard<std::mutex> alone_{mutex_};
    const GlxFunctions& glx_;
    Display* const display_;
};

GLXFBConfig ConfigOf(const GlxFunctions& glx, Display* display, GLXContext context) {
    int id = 0;
    int screen = 0;
    const bool is_told = glx.QueryContext(display, context, GLX_FBCONFIG_ID, &id) == 0 &&
                         glx.QueryContext(display, context, GLX_SCREEN, &screen) == 0;
    if (!is_told) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
    // Choosing by the id finds only those that have windows.
    int count = 0;
    GLXFBConfig* const configs = glx.GetFBConfigs(display, screen, &count);
    GLXFBConfig config = nullptr;
    for (int i = 0; i < count && !config; ++i) {
        int candidate = 0;
        glx.GetFBConfigAttrib(display, configs[i], GLX_FBCONFIG_ID, &candidate);
        if (candidate == id) config = configs[i];
    }
    if (configs) glx.XFree(configs);
    if (!config) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
    return config;
}

class GlxContext : public GlContext {
 public:
    GlxContext(const GlxFunctions& glx, Display* display, GLXContext shared)
        : GlContext(reinterpret_cast<GlFunctions::Lookup>(glx.GetProcAddressARB), false), glx_(glx), display_(display) {
        const GLXFBConfig config = ConfigOf(glx_, display_, shared);
        const int size[] = {GLX_PBUFFER_WIDTH, 1, GLX_PBUFFER_HEIGHT, 1, None};
        const RefusalsOfX refusals(glx_, display_);
        context_ = glx_.CreateNewContext(display_, config, GLX_RGBA_TYPE, shared, glx_.IsDirect(display_, shared));
        if (context_) pbuffer_ = glx_.CreatePbuffer(display_, config, size);
        if (!refusals.Any() && context_) return;
        Destroy();
        refusals.Any();
        Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
    }
    ~GlxContext() override { Destroy(); }

 protected:
    bool Remember() override {
        before_ = {glx_.GetCurrentDisplay(), glx_.GetCurrentDrawable(), glx_.GetCurrentReadDrawable(),
                   glx_.GetCurrentContext()};
        return before_.context != nullptr;
    }

    bool MakeCurrent() override { return glx_.MakeContextCurrent(display_, pbuffer_, pbuffer_, context_) == True; }

    void PutBack() override {
        glx_.MakeContextCurrent(before_.context ? before_.display : display_, before_.draw, before_.read,
                                before_.context);
    }

 private:
    struct Current {
        Display* display = nullptr;
        GLXDrawable draw = None;
        GLXDrawable read = None;
        GLXContext context = nullptr;
    };

    void Destroy() {
        if (pbuffer_) glx_.DestroyPbuffer(display_, pbuffer_);
        if (context_) glx_.DestroyContext(display_, context_);
    }

    const GlxFunctions glx_;
    Display* const display_;
    GLXContext context_ = nullptr;
    GLXPbuffer pbuffer_ = None;
    Current before_;
};

}  // namespace

std::shared_ptr<GlContext> MakeGlxContext(const XrGraphicsBindingOpenGLXlibKHR& binding) {
    if (!binding.xDisplay || !binding.glxContext) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
    return std::make_shared<GlxContext>(GlxFunctions(), binding.xDisplay, binding.glxContext);
}

std::shared_ptr<GlContext> MakeGlxContext() {
    const GlxFunctions glx;
    const GLXContext current = glx.GetCurrentContext();
    if (!current) Refuse(XR_ERROR_GRAPHICS_DEVICE_INVALID);
    return std::make_shared<GlxContext>(glx, glx.GetCurrentDisplay(), current);
}

}  // namespace simulator
