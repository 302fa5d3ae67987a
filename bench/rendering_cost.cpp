// What the simulator costs an application that renders, with 1024x1024 pixels for each eye and each graphics interface
// that this machine has:
//
//   - a frame at which nobody looks: the calls from xrBeginFrame to xrEndFrame, but not drawing, and what they
//   allocate;
//   - the memory of a swapchain whose images have all been drawn to;
//   - a picture, by parts: the wait for the end of a frame, reading its image, composing, and PNG and base64 after it;
//   - the same through layer and server, from the tool call to the answer, and the frames that are missed meanwhile.
#include <malloc.h>
#include <openxr/openxr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "capture/base64.h"
#include "capture/image_encoding.h"
#include "mcp/client/blocking_client.h"
#include "tests/fakes/allocation_counter.h"
#include "tests/rendering/painter.h"
#include "xr/simulator_capture_records.h"

namespace {

using namespace rendering_test;
using Clock = std::chrono::steady_clock;

constexpr std::int32_t kSize = 1024;
constexpr int kPictures = 11;

double Milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

double Median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

double ResidentMegabytes() {
    std::size_t total = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return static_cast<double>(resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) / 1e6;
}

void Require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
}

// Shows one image to each eye. On one thread, but for what is said to be for another.
class Application {
 public:
    explicit Application(std::unique_ptr<Painter> painter) : painter_(std::move(painter)) {
        auto extensions = painter_->Extensions();
        extensions.push_back(orvanic_xr::kSimulatorCompositorCaptureExtension);
        auto info = Typed<XrInstanceCreateInfo>(XR_TYPE_INSTANCE_CREATE_INFO);
        std::strcpy(info.applicationInfo.applicationName, "rendering cost");
        info.applicationInfo.apiVersion = XR_MAKE_VERSION(1, 0, 0);
        info.enabledExtensionCount = static_cast<std::uint32_t>(extensions.size());
        info.enabledExtensionNames = extensions.data();
        Require(xrCreateInstance(&info, &instance_) == XR_SUCCESS, "xrCreateInstance");
        const XrSystemGetInfo which = {XR_TYPE_SYSTEM_GET_INFO, nullptr, XR_FORM_FACTOR_HEAD_MOUNTED_DISPLAY};
        XrSystemId system = XR_NULL_SYSTEM_ID;
        xrGetSystem(instance_, &which, &system);
        missing_ = painter_->Start(instance_, system);
        if (missing_.empty()) Open(system);
    }
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    ~Application() { xrDestroyInstance(instance_); }

    // Empty, or why this machine has not the graphics interface.
    const std::string& missing() const { return missing_; }
    double swapchain_megabytes() const { return swapchain_megabytes_; }

    // Gives the time from xrBeginFrame to xrEndFrame, less that of drawing.
    Clock::duration RunFrame(bool draws) {
        auto state = Typed<XrFrameState>(XR_TYPE_FRAME_STATE);
        Require(xrWaitFrame(session_, nullptr, &state) == XR_SUCCESS, "xrWaitFrame");
        if (last_time_ != 0) {
            const auto periods = (state.predictedDisplayTime - last_time_ + state.predictedDisplayPeriod / 2) /
                                 state.predictedDisplayPeriod;
            missed += static_cast<int>(periods) - 1;
        }
        last_time_ = state.predictedDisplayTime;
        const auto start = Clock::now();
        Clock::duration drawing = {};
        const std::size_t allocations_before = orvanic_xr::AllocationsOfThisThread();
        xrBeginFrame(session_, nullptr);
        for (const XrSwapchain swapchain : swapchains_) drawing += Show(swapchain, draws);
        const auto header = reinterpret_cast<const XrCompositionLayerBaseHeader*>(&layer_);
        const XrFrameEndInfo end = {
            XR_TYPE_FRAME_END_INFO, nullptr, state.predictedDisplayTime, blend_mode, 1, &header};
        const auto ending = Clock::now();
        Require(xrEndFrame(session_, &end) == XR_SUCCESS, "xrEndFrame");
        const auto ended = Clock::now();
        Remember(ending, ended);
        allocations = orvanic_xr::AllocationsOfThisThread() - allocations_before;
        return ended - start - drawing;
    }

    // For any thread: the runtime's picture of the left eye.
    std::vector<std::uint8_t> Capture() const {
        const auto capture = Lookup<orvanic_xr::PFN_xrCaptureSimulatorCompositorOutputKESTX1>(
            instance_, "xrCaptureSimulatorCompositorOutputKESTX1");
        std::uint32_t width = 0;
        std::uint32_t height = 0;
        orvanic_xr::SimulatorCompositorCaptureInfo info = {
            orvanic_xr::kSimulatorCompositorCaptureInfoType, nullptr, 1, &width, &height, nullptr};
        Require(capture(session_, &info) == XR_SUCCESS, "measuring a picture");
        std::vector<std::uint8_t> pixels(std::size_t{4} * width * height);
        info.pixels = pixels.data();
        Require(capture(session_, &info) == XR_SUCCESS, "taking a picture");
        return pixels;
    }

    // Runs frames until `work()`, on a thread of its own, is done.
    void RunFramesDuring(const std::function<void()>& work) {
        std::atomic<bool> is_done = false;
        std::thread other([&] {
            work();
            is_done = true;
        });
        while (!is_done) RunFrame(true);
        other.join();
    }

    XrEnvironmentBlendMode blend_mode = XR_ENVIRONMENT_BLEND_MODE_OPAQUE;
    std::atomic<int> missed = 0;
    // Of the last frame.
    std::size_t allocations = 0;

    struct Ending {
        Clock::time_point begin;
        Clock::time_point end;
    };
    // For any thread: the call of xrEndFrame that took longest since the last question, which is the one that read.
    Ending LongestEnding() {
        const std::lock_guard lock(mutex_);
        return std::exchange(longest_, {});
    }

 private:
    void Remember(Clock::time_point begin, Clock::time_point end) {
        const std::lock_guard lock(mutex_);
        if (end - begin > longest_.end - longest_.begin) longest_ = {begin, end};
    }

    void Open(XrSystemId system) {
        const XrSessionCreateInfo info = {XR_TYPE_SESSION_CREATE_INFO, painter_->Binding(), 0, system};
        Require(xrCreateSession(instance_, &info, &session_) == XR_SUCCESS, "xrCreateSession");
        const XrSessionBeginInfo begin = {XR_TYPE_SESSION_BEGIN_INFO, nullptr,
                                          XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO};
        Require(xrBeginSession(session_, &begin) == XR_SUCCESS, "xrBeginSession");
        const XrReferenceSpaceCreateInfo view = {
            XR_TYPE_REFERENCE_SPACE_CREATE_INFO, nullptr, XR_REFERENCE_SPACE_TYPE_VIEW, {{0, 0, 0, 1}, {0, 0, 0}}};
        xrCreateReferenceSpace(session_, &view, &space_);
        const double before = ResidentMegabytes();
        for (std::size_t eye = 0; eye < 2; ++eye) {
            swapchains_[eye] = MakeSwapchain();
            const float x = eye == 0 ? -0.0315f : 0.0315f;
            views_[eye] = {XR_TYPE_COMPOSITION_LAYER_PROJECTION_VIEW,
                           nullptr,
                           {{0, 0, 0, 1}, {x, 0, 0}},
                           {-0.7854f, 0.7854f, 0.7854f, -0.7854f},
                           {swapchains_[eye], {{0, 0}, {kSize, kSize}}, 0}};
        }
        swapchain_megabytes_ = (ResidentMegabytes() - before) / 2;
        layer_ = {XR_TYPE_COMPOSITION_LAYER_PROJECTION,
                  nullptr,
                  XR_COMPOSITION_LAYER_BLEND_TEXTURE_SOURCE_ALPHA_BIT,
                  space_,
                  2,
                  views_};
        const auto start = Lookup<orvanic_xr::PFN_xrStartSimulatorCompositorOutputCaptureKESTX1>(
            instance_, "xrStartSimulatorCompositorOutputCaptureKESTX1");
        start(session_, 3);
        for (int i = 0; i < 10; ++i) RunFrame(true);
    }

    XrSwapchain MakeSwapchain() {
        XrSwapchain made = XR_NULL_HANDLE;
        const XrSwapchainCreateInfo info = {
            XR_TYPE_SWAPCHAIN_CREATE_INFO,
            nullptr,
            0,
            XR_SWAPCHAIN_USAGE_COLOR_ATTACHMENT_BIT | XR_SWAPCHAIN_USAGE_TRANSFER_DST_BIT,
            painter_->SrgbFormat(),
            1,
            kSize,
            kSize,
            1,
            1,
            1};
        Require(xrCreateSwapchain(session_, &info, &made) == XR_SUCCESS, "xrCreateSwapchain");
        painter_->Adopt(made);
        for (int i = 0; i < 3; ++i) Show(made, true);
        return made;
    }

    Clock::duration Show(XrSwapchain swapchain, bool draws) {
        const XrSwapchainImageWaitInfo wait = {XR_TYPE_SWAPCHAIN_IMAGE_WAIT_INFO, nullptr, XR_INFINITE_DURATION};
        std::uint32_t image = 0;
        xrAcquireSwapchainImage(swapchain, nullptr, &image);
        xrWaitSwapchainImage(swapchain, &wait);
        const auto start = Clock::now();
        if (draws) painter_->Fill(swapchain, image, false, {0.2f, 0.4f, 0.6f, 0.5f});
        const auto drawing = Clock::now() - start;
        xrReleaseSwapchainImage(swapchain, nullptr);
        return draws ? drawing : Clock::duration::zero();
    }

    // Before the instance, after which the application takes its device away.
    const std::unique_ptr<Painter> painter_;
    std::string missing_;
    XrInstance instance_ = XR_NULL_HANDLE;
    XrSession session_ = XR_NULL_HANDLE;
    XrSpace space_ = XR_NULL_HANDLE;
    XrSwapchain swapchains_[2] = {};
    double swapchain_megabytes_ = 0;
    XrCompositionLayerProjectionView views_[2] = {};
    XrCompositionLayerProjection layer_ = {};
    XrTime last_time_ = 0;
    std::mutex mutex_;  // guards what follows
    Ending longest_ = {};
};

void MeasureFrames(Application& application, std::FILE* figures) {
    std::vector<double> microseconds;
    std::size_t allocations = 0;
    for (int i = 0; i < 500; ++i) {
        microseconds.push_back(Milliseconds(application.RunFrame(false)) * 1e3);
        allocations += application.allocations;
    }
    std::fprintf(figures, "  a frame with nobody looking: %.1f us, %zu allocations in 500; a swapchain: %.1f MB\n",
                 Median(microseconds), allocations, application.swapchain_megabytes());
}

void MeasurePictures(Application& application, const char* name, std::FILE* figures) {
    std::vector<double> whole, wait, read, compose, png, base64;
    application.RunFramesDuring([&] {
        application.Capture();  // the light of the room is worked out once
        for (int i = 0; i < kPictures; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            application.LongestEnding();
            const auto start = Clock::now();
            const auto pixels = application.Capture();
            const auto taken = Clock::now();
            const auto ending = application.LongestEnding();
            const auto file = orvanic_xr::encode_png(pixels, kSize, kSize);
            const auto made = Clock::now();
            orvanic_xr::encode_base64(file->data(), file->size());
            const auto end = Clock::now();
            whole.push_back(Milliseconds(end - start));
            wait.push_back(Milliseconds(ending.begin - start));
            read.push_back(Milliseconds(ending.end - ending.begin));
            compose.push_back(Milliseconds(taken - ending.end));
            png.push_back(Milliseconds(made - taken));
            base64.push_back(Milliseconds(end - made));
        }
    });
    std::fprintf(figures, "  a picture %s: %.1f ms; in ms: wait %.1f, read %.1f, compose %.1f, PNG %.1f, base64 %.2f\n",
                 name, Median(whole), Median(wait), Median(read), Median(compose), Median(png), Median(base64));
}

void MeasureCalls(Application& application, const char* name, std::FILE* figures) {
    std::vector<double> milliseconds;
    int missed[2] = {};
    application.RunFramesDuring([&] {
        mcp::blocking_client client("http://127.0.0.1:8720", {{"name", "rendering cost"}, {"version", "1"}});
        client.await_ready(std::chrono::seconds(10));
        client.await_introduction(std::chrono::seconds(10));
        const auto call = [&] { client.call_tool("openxr_capture_composited_image", {{"eye", "left"}}); };
        call();
        for (int i = 0; i < kPictures; ++i) {
            const auto start = Clock::now();
            call();
            milliseconds.push_back(Milliseconds(Clock::now() - start));
        }
        for (const int looks : {0, 1}) {
            application.missed = 0;
            for (int second = 0; second < 5; ++second) {
                const auto next = Clock::now() + std::chrono::seconds(1);
                if (looks == 1) call();
                std::this_thread::sleep_until(next);
            }
            missed[looks] = application.missed;
        }
    });
    std::fprintf(figures, "  a tool call %s: %.1f ms; frames missed in 5 s: %d, with a picture each second: %d\n", name,
                 Median(milliseconds), missed[0], missed[1]);
}

constexpr struct {
    const char* name;
    std::unique_ptr<Painter> (*make)();
} kApis[] = {{"Vulkan", MakeVulkan2Painter}, {"OpenGL", MakeEglPainter}, {"OpenGL ES", MakeEglEsPainter}};

void Measure(std::unique_ptr<Painter> (*make)(), std::FILE* figures) {
    const auto both_modes = [&](auto measure, Application& application) {
        application.blend_mode = XR_ENVIRONMENT_BLEND_MODE_OPAQUE;
        measure(application, "that is opaque", figures);
        application.blend_mode = XR_ENVIRONMENT_BLEND_MODE_ALPHA_BLEND;
        measure(application, "over the room", figures);
    };
    unsetenv("XR_ENABLE_API_LAYERS");
    {
        Application application(make());
        if (!application.missing().empty()) {
            std::fprintf(figures, "  not here: %s\n", application.missing().c_str());
            return;
        }
        MeasureFrames(application, figures);
        both_modes(MeasurePictures, application);
    }
    setenv("XR_ENABLE_API_LAYERS", "XR_APILAYER_KESTX_velmoor", 1);
    Application application(make());
    both_modes(MeasureCalls, application);
}

}  // namespace

int main() {
    setenv("XR_RUNTIME_JSON", VELMOOR_BUILD "/lib/velmoor_simulator.json", 1);
    setenv("XR_API_LAYER_PATH", VELMOOR_BUILD "/layers", 1);
    setenv("XDG_STATE_HOME", VELMOOR_BUILD "/demo", 1);
    setenv("VELMOOR_SIM_EYE_SIZE", "1024x1024", 1);
    // What is freed goes back to the system, or the images of one interface would take the place of another's.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    // What the layer prints goes elsewhere.
    std::FILE* const figures = fdopen(dup(STDOUT_FILENO), "w");
    if (!figures || !std::freopen("/dev/null", "w", stdout)) return 1;
    for (const auto& [name, make] : kApis) {
        std::fprintf(figures, "%s\n", name);
        Measure(make, figures);
        std::fflush(figures);
    }
}
