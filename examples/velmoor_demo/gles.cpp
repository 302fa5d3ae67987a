#include "examples/velmoor_demo/gles.h"

#include <EGL/eglext.h>
#include <dlfcn.h>

namespace demo {
namespace {

// Never closed: drivers don't like to be loaded twice.
void* Library() {
    static void* const library = dlopen("libEGL.so.1", RTLD_NOW | RTLD_LOCAL);
    return library;
}

template <class Function>
Function Egl(const char* name) {
    return reinterpret_cast<Function>(dlsym(Library(), name));
}

// Its type alone is asked for: the address of the function would have to be linked.
#define DEMO_EGL(name) Egl<decltype(&::name)>(#name)

}  // namespace

std::unique_ptr<Gles> Gles::Make(std::string& why) {
    std::unique_ptr<Gles> gles(new Gles);
    why = gles->Open();
    return why.empty() ? std::move(gles) : nullptr;
}

std::string Gles::Open() {
    if (!Library()) return "there is no libEGL.so.1 (package libegl1)";
    const auto lookup = DEMO_EGL(eglGetProcAddress);
    const auto platform_display = DEMO_EGL(eglGetPlatformDisplay);
    EGLDisplay display = EGL_NO_DISPLAY;
    if (platform_display) display = platform_display(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (!display) display = DEMO_EGL(eglGetDisplay)(EGL_DEFAULT_DISPLAY);
    if (!display || !DEMO_EGL(eglInitialize)(display, nullptr, nullptr)) {
        return "EGL has no driver that needs no screen (package libgl1-mesa-dri)";
    }
    binding_ = {XR_TYPE_GRAPHICS_BINDING_EGL_MNDX, nullptr, lookup, display, nullptr, EGL_NO_CONTEXT};
    const EGLint wanted[] = {EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, EGL_OPENGL_ES3_BIT, EGL_NONE};
    const EGLint version[] = {EGL_CONTEXT_CLIENT_VERSION, 3, EGL_NONE};
    EGLint count = 0;
    DEMO_EGL(eglChooseConfig)(display, wanted, &binding_.config, 1, &count);
    DEMO_EGL(eglBindAPI)(EGL_OPENGL_ES_API);
    if (count > 0) binding_.context = DEMO_EGL(eglCreateContext)(display, binding_.config, EGL_NO_CONTEXT, version);
    if (!binding_.context || !DEMO_EGL(eglMakeCurrent)(display, EGL_NO_SURFACE, EGL_NO_SURFACE, binding_.context)) {
        return "EGL makes no context of OpenGL ES 3 without a surface";
    }
#define DEMO_LOAD(name)                                          \
    name = reinterpret_cast<name##Function>(lookup("gl" #name)); \
    if (!(name)) return "OpenGL ES has no gl" #name;
    DEMO_GL_FUNCTIONS(DEMO_LOAD)
#undef DEMO_LOAD
    return {};
}

Gles::~Gles() {
    if (!binding_.context) return;
    DEMO_EGL(eglMakeCurrent)(binding_.display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    DEMO_EGL(eglDestroyContext)(binding_.display, binding_.context);
    // The display is the whole process's, and stays.
}

}  // namespace demo
