// Applications with OpenGL and OpenGL ES: contexts by EGL, with no surface, and by GLX.
#define GL_GLEXT_PROTOTYPES
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>
#include <GL/glext.h>
#include <GL/glx.h>
#include <dlfcn.h>
#include <link.h>

#define XR_USE_GRAPHICS_API_OPENGL
#define XR_USE_GRAPHICS_API_OPENGL_ES
#define XR_USE_PLATFORM_EGL
#define XR_USE_PLATFORM_XLIB
#include <openxr/openxr.h>
#include <openxr/openxr_platform.h>

#include <map>

#include "tests/rendering/painter.h"
#include "tests/rendering/x_server.h"

namespace rendering_test {
namespace {

// Of the state that reading an image would like to change, what the application has set.
struct State {
    static State Current() {
        State state;
        glGetIntegerv(GL_VIEWPORT, state.viewport);
        glGetIntegerv(GL_PACK_ALIGNMENT, &state.pack_alignment);
        glGetIntegerv(GL_TEXTURE_BINDING_2D, &state.texture);
        glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &state.read_framebuffer);
        glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &state.draw_framebuffer);
        glGetIntegerv(GL_RENDERBUFFER_BINDING, &state.renderbuffer);
        return state;
    }
    bool operator==(const State&) const = default;

    GLint viewport[4] = {};
    GLint pack_alignment = 0;
    GLint texture = 0;
    GLint read_framebuffer = 0;
    GLint draw_framebuffer = 0;
    GLint renderbuffer = 0;
};

class GlPainter : public Painter {
 public:
    std::int64_t LinearFormat() const override { return GL_RGBA8; }
    std::int64_t SrgbFormat() const override { return GL_SRGB8_ALPHA8; }
    std::int64_t HalfFormat() const override { return GL_RGBA16F; }
    std::int64_t DepthFormat() const override { return GL_DEPTH_COMPONENT24; }

    void Paint(XrSwapchain swapchain, std::uint32_t image, std::uint32_t layer, std::uint32_t width,
               std::uint32_t height, const std::vector<std::uint8_t>& pixels) override {
        Enter();
        glBindTexture(GL_TEXTURE_2D_ARRAY, images_[swapchain][image]);
        // The first row of a texture is the lowest one.
        for (std::uint32_t row = 0; row < height; ++row) {
            glTexSubImage3D(GL_TEXTURE_2D_ARRAY, 0, 0, static_cast<GLint>(height - 1 - row), static_cast<GLint>(layer),
                            static_cast<GLsizei>(width), 1, 1, GL_RGBA, GL_UNSIGNED_BYTE,
                            &pixels[std::size_t{row} * width * 4]);
        }
        Leave();
    }

    void Fill(XrSwapchain swapchain, std::uint32_t image, bool has_samples, const float (&colour)[4]) override {
        Enter();
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer_);
        glFramebufferTexture2D(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0,
                               has_samples ? GL_TEXTURE_2D_MULTISAMPLE : GL_TEXTURE_2D, images_[swapchain][image], 0);
        glClearBufferfv(GL_COLOR, 0, colour);
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, static_cast<GLuint>(set_.draw_framebuffer));
        Leave();
    }

    std::string Complaints() override {
        if (!has_started_) return {};
        std::string complaints = IsAsLeft() ? "" : "another context is current\n";
        Enter();
        if (State::Current() != set_) complaints += "the state is another\n";
        if (glGetError() != GL_NO_ERROR) complaints += "there is an error\n";
        Leave();
        return complaints;
    }

 protected:
    // Around what the application does.
    virtual void Enter() {}
    virtual void Leave() {}
    // What is current on this thread is what the last of those left.
    virtual bool IsAsLeft() = 0;

    // With a context current.
    void SetState() {
        GLuint names[2];
        glViewport(1, 2, 3, 4);
        glPixelStorei(GL_PACK_ALIGNMENT, 2);
        glGenTextures(1, names);
        glBindTexture(GL_TEXTURE_2D, names[0]);
        glGenFramebuffers(2, names);
        glBindFramebuffer(GL_FRAMEBUFFER, names[0]);
        framebuffer_ = names[1];
        glGenRenderbuffers(1, names);
        glBindRenderbuffer(GL_RENDERBUFFER, names[0]);
        set_ = State::Current();
        has_started_ = true;
    }

    template <class Record>
    void AdoptAs(XrSwapchain swapchain, XrStructureType type) {
        for (const Record& record : ImagesOf<Record>(swapchain, type)) images_[swapchain].push_back(record.image);
    }

    template <class Record>
    static void AskRequirements(XrInstance instance, XrSystemId system, const char* function, XrStructureType type) {
        auto requirements = Typed<Record>(type);
        Lookup<XrResult(XRAPI_PTR*)(XrInstance, XrSystemId, Record*)>(instance, function)(instance, system,
                                                                                          &requirements);
    }

 private:
    State set_;
    bool has_started_ = false;
    GLuint framebuffer_ = 0;
    std::map<XrSwapchain, std::vector<GLuint>> images_;
};

// Of OpenGL ES the context is current only while it draws, of OpenGL always.
class EglPainter : public GlPainter {
 public:
    explicit EglPainter(bool is_es) : is_es_(is_es) {}

    ~EglPainter() override {
        if (!context_) return;
        eglMakeCurrent(display_, nullptr, nullptr, nullptr);
        // The display is the whole process's: what its driver keeps would count as leaked once that is unloaded.
        eglDestroyContext(display_, context_);
    }

    std::vector<const char*> Extensions() const override {
        return {"XR_MNDX_egl_enable", is_es_ ? "XR_KHR_opengl_es_enable" : "XR_KHR_opengl_enable"};
    }

    std::string Start(XrInstance instance, XrSystemId system) override {
        if (is_es_) {
            AskRequirements<XrGraphicsRequirementsOpenGLESKHR>(instance, system, "xrGetOpenGLESGraphicsRequirementsKHR",
                                                               XR_TYPE_GRAPHICS_REQUIREMENTS_OPENGL_ES_KHR);
        } else {
            AskRequirements<XrGraphicsRequirementsOpenGLKHR>(instance, system, "xrGetOpenGLGraphicsRequirementsKHR",
                                                             XR_TYPE_GRAPHICS_REQUIREMENTS_OPENGL_KHR);
        }
        display_ = eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
        if (!display_ || !eglInitialize(display_, nullptr, nullptr)) return "EGL has no display without a surface";
        const EGLint wanted[] = {EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, is_es_ ? EGL_OPENGL_ES3_BIT : EGL_OPENGL_BIT,
                                 EGL_NONE};
        const EGLint version[] = {EGL_CONTEXT_CLIENT_VERSION, 3, EGL_NONE};
        EGLConfig config = nullptr;
        EGLint count = 0;
        eglChooseConfig(display_, wanted, &config, 1, &count);
        eglBindAPI(is_es_ ? EGL_OPENGL_ES_API : EGL_OPENGL_API);
        if (count > 0) context_ = eglCreateContext(display_, config, nullptr, version);
        if (!context_) return "EGL makes no context";
        binding_ = {XR_TYPE_GRAPHICS_BINDING_EGL_MNDX, nullptr, eglGetProcAddress, display_, config, context_};
        MakeCurrent(context_);
        SetState();
        // The other one, which has to stay.
        if (is_es_) eglBindAPI(EGL_OPENGL_API);
        Leave();
        return {};
    }

    void* Binding() override { return &binding_; }

    std::vector<void*> BadBindings() override {
        bad_[0] = bad_[1] = bad_[2] = binding_;
        bad_[0].getProcAddress = nullptr;
        bad_[1].context = EGL_NO_CONTEXT;
        bad_[2].display = EGL_NO_DISPLAY;
        return {&bad_[0], &bad_[1], &bad_[2]};
    }

    void Adopt(XrSwapchain swapchain) override {
        if (is_es_) {
            AdoptAs<XrSwapchainImageOpenGLESKHR>(swapchain, XR_TYPE_SWAPCHAIN_IMAGE_OPENGL_ES_KHR);
        } else {
            AdoptAs<XrSwapchainImageOpenGLKHR>(swapchain, XR_TYPE_SWAPCHAIN_IMAGE_OPENGL_KHR);
        }
    }

 private:
    void MakeCurrent(EGLContext context) { eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, context); }
    void Enter() override { MakeCurrent(context_); }
    void Leave() override {
        if (is_es_) MakeCurrent(EGL_NO_CONTEXT);
    }
    bool IsAsLeft() override {
        return eglGetCurrentContext() == (is_es_ ? EGL_NO_CONTEXT : context_) && eglQueryAPI() == EGL_OPENGL_API;
    }

    const bool is_es_;
    EGLDisplay display_ = EGL_NO_DISPLAY;
    EGLContext context_ = EGL_NO_CONTEXT;
    XrGraphicsBindingEGLMNDX binding_ = {};
    XrGraphicsBindingEGLMNDX bad_[3] = {};
};

// Likewise of GLX, whose driver goes with the connection.
void KeepDrivers() {
    const auto keep = [](dl_phdr_info* module, std::size_t, void*) {
        const std::string name = module->dlpi_name;
        const bool is_driver =
            name.find("_dri.so") != std::string::npos || name.find("libgallium") != std::string::npos;
        if (is_driver) dlopen(name.c_str(), RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
        return 0;
    };
    dl_iterate_phdr(keep, nullptr);
}

class GlxPainter : public GlPainter {
 public:
    // As Qt does it: an empty record of XCB.
    explicit GlxPainter(bool as_xcb) : as_xcb_(as_xcb) {}

    ~GlxPainter() override {
        if (!display_) return;
        glXMakeContextCurrent(display_, None, None, nullptr);
        if (surface_) glXDestroyPbuffer(display_, surface_);
        if (context_) glXDestroyContext(display_, context_);
        XCloseDisplay(display_);
    }

    std::vector<const char*> Extensions() const override { return {"XR_KHR_opengl_enable"}; }

    std::string Start(XrInstance instance, XrSystemId system) override {
        AskRequirements<XrGraphicsRequirementsOpenGLKHR>(instance, system, "xrGetOpenGLGraphicsRequirementsKHR",
                                                         XR_TYPE_GRAPHICS_REQUIREMENTS_OPENGL_KHR);
        if (server_.display().empty()) return "there is no Xvfb";
        display_ = XOpenDisplay(server_.display().c_str());
        if (!display_) return "Xvfb can't be reached";
        const int wanted[] = {GLX_DRAWABLE_TYPE, GLX_PBUFFER_BIT, None};
        const int size[] = {GLX_PBUFFER_WIDTH, 2, GLX_PBUFFER_HEIGHT, 2, None};
        int count = 0;
        GLXFBConfig* const configs = glXChooseFBConfig(display_, DefaultScreen(display_), wanted, &count);
        if (count == 0) return "GLX has no configuration";
        context_ = glXCreateNewContext(display_, configs[0], GLX_RGBA_TYPE, nullptr, True);
        surface_ = glXCreatePbuffer(display_, configs[0], size);
        glXMakeContextCurrent(display_, surface_, surface_, context_);
        binding_ = {XR_TYPE_GRAPHICS_BINDING_OPENGL_XLIB_KHR, nullptr, display_, 0, configs[0], surface_, context_};
        XFree(configs);
        KeepDrivers();
        SetState();
        return {};
    }

    std::vector<void*> BadBindings() override {
        bad_[0] = bad_[1] = binding_;
        bad_[0].xDisplay = nullptr;
        bad_[1].glxContext = nullptr;
        return {&bad_[0], &bad_[1]};
    }
    void* Binding() override { return as_xcb_ ? static_cast<void*>(&empty_) : &binding_; }
    void Adopt(XrSwapchain swapchain) override {
        AdoptAs<XrSwapchainImageOpenGLKHR>(swapchain, XR_TYPE_SWAPCHAIN_IMAGE_OPENGL_KHR);
    }

 private:
    bool IsAsLeft() override {
        return glXGetCurrentContext() == context_ && glXGetCurrentDrawable() == surface_ &&
               glXGetCurrentReadDrawable() == surface_;
    }

    const bool as_xcb_;
    XServer server_;
    Display* display_ = nullptr;
    GLXContext context_ = nullptr;
    GLXPbuffer surface_ = None;
    XrGraphicsBindingOpenGLXlibKHR binding_ = {};
    XrGraphicsBindingOpenGLXlibKHR bad_[2] = {};
    struct {
        XrStructureType type = XR_TYPE_GRAPHICS_BINDING_OPENGL_XCB_KHR;
        const void* next = nullptr;
        std::uint64_t fields[4] = {};
    } empty_;
};

}  // namespace

std::unique_ptr<Painter> MakeEglPainter() {
    return std::make_unique<EglPainter>(false);
}

std::unique_ptr<Painter> MakeEglEsPainter() {
    return std::make_unique<EglPainter>(true);
}

std::unique_ptr<Painter> MakeXlibPainter() {
    return std::make_unique<GlxPainter>(false);
}

std::unique_ptr<Painter> MakeXcbPainter() {
    return std::make_unique<GlxPainter>(true);
}

}  // namespace rendering_test
