// An application that renders, over the real loader on the simulator: what it drew is in the picture, and what the
// specification forbids is refused.
#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <future>
#include <set>
#include <thread>
#include <tuple>
#include <utility>

#include "simulator/graphics/foreign_images.h"
#include "tests/rendering/painter.h"
#include "xr/simulator_capture_records.h"

namespace rendering_test {
namespace {

using testing::ElementsAre;
using Colour = std::array<int, 3>;
using Records = orvanic_xr::SimulatorCompositorCaptureInfo;

constexpr std::uint32_t kSize = 64;
constexpr XrPosef kHere = {{0, 0, 0, 1}, {0, 0, 0}};
// As bytes: by quarters of the image, from the upper left one by rows.
constexpr std::uint8_t kQuarters[4][4] = {
    {200, 30, 40, 255}, {20, 210, 50, 255}, {10, 60, 220, 255}, {90, 90, 90, 255}};

std::vector<std::uint8_t> Pattern(bool mirrored) {
    std::vector<std::uint8_t> pixels;
    for (std::uint32_t y = 0; y < kSize; ++y) {
        for (std::uint32_t x = 0; x < kSize; ++x) {
            const bool is_right = (x >= kSize / 2) != mirrored;
            const auto& quarter = kQuarters[(y >= kSize / 2 ? 2 : 0) + (is_right ? 1 : 0)];
            pixels.insert(pixels.end(), std::begin(quarter), std::end(quarter));
        }
    }
    return pixels;
}

struct Api {
    const char* name;
    std::unique_ptr<Painter> (*make)();
    // The first byte of its sRGB format is blue.
    bool srgb_is_swapped;
};

class Rendering : public testing::TestWithParam<Api> {
 protected:
    void SetUp() override {
        setenv("XR_RUNTIME_JSON", VELMOOR_SIMULATOR_MANIFEST, 1);
        setenv("VELMOOR_SIM_STRICT", "1", 1);
        setenv("VELMOOR_SIM_EYE_SIZE", "64x64", 1);
        setenv("VELMOOR_SIM_HZ", "200", 1);
        painter_ = GetParam().make();
        MakeInstance();
    }

    void MakeInstance() {
        auto extensions = painter_->Extensions();
        extensions.insert(extensions.end(),
                          {orvanic_xr::kSimulatorCompositorCaptureExtension, "XR_KHR_composition_layer_depth",
                           "XR_KHR_composition_layer_cylinder", "XR_KHR_composition_layer_equirect2"});
        auto info = Typed<XrInstanceCreateInfo>(XR_TYPE_INSTANCE_CREATE_INFO);
        std::strcpy(info.applicationInfo.applicationName, "rendering test");
        info.applicationInfo.apiVersion = XR_MAKE_VERSION(1, 0, 0);
        info.enabledExtensionCount = static_cast<std::uint32_t>(extensions.size());
        info.enabledExtensionNames = extensions.data();
        ASSERT_EQ(xrCreateInstance(&info, &instance_), XR_SUCCESS);
        const XrSystemGetInfo system = {XR_TYPE_SYSTEM_GET_INFO, nullptr, XR_FORM_FACTOR_HEAD_MOUNTED_DISPLAY};
        ASSERT_EQ(xrGetSystem(instance_, &system, &system_), XR_SUCCESS);
    }

    void TearDown() override {
        if (instance_) xrDestroyInstance(instance_);
        EXPECT_EQ(painter_->Complaints(), "");
    }

    // False where the machine lacks what it takes.
    bool Begin() {
        const std::string missing = painter_->Start(instance_, system_);
        if (!missing.empty()) return false;
        EXPECT_EQ(Create(painter_->Binding()), XR_SUCCESS);
        const XrSessionBeginInfo mono = {XR_TYPE_SESSION_BEGIN_INFO, nullptr, XR_VIEW_CONFIGURATION_TYPE_PRIMARY_MONO};
        EXPECT_EQ(xrBeginSession(session_, &mono), XR_ERROR_VIEW_CONFIGURATION_TYPE_UNSUPPORTED);
        const XrSessionBeginInfo begin = {XR_TYPE_SESSION_BEGIN_INFO, nullptr,
                                          XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO};
        EXPECT_EQ(xrBeginSession(session_, &begin), XR_SUCCESS);
        const XrReferenceSpaceCreateInfo stage = {XR_TYPE_REFERENCE_SPACE_CREATE_INFO, nullptr,
                                                  XR_REFERENCE_SPACE_TYPE_STAGE, kHere};
        EXPECT_EQ(xrCreateReferenceSpace(session_, &stage, &stage_), XR_SUCCESS);
        return true;
    }

    XrResult Create(const void* chain) {
        const XrSessionCreateInfo info = {XR_TYPE_SESSION_CREATE_INFO, chain, 0, system_};
        return xrCreateSession(instance_, &info, &session_);
    }

    XrSwapchainCreateInfo Info(std::int64_t format) const {
        return {XR_TYPE_SWAPCHAIN_CREATE_INFO,
                nullptr,
                0,
                XR_SWAPCHAIN_USAGE_COLOR_ATTACHMENT_BIT | XR_SWAPCHAIN_USAGE_TRANSFER_DST_BIT,
                format,
                1,
                kSize,
                kSize,
                1,
                2,
                1};
    }

    XrSwapchain MakeSwapchain(const XrSwapchainCreateInfo& info) {
        XrSwapchain swapchain = XR_NULL_HANDLE;
        EXPECT_EQ(xrCreateSwapchain(session_, &info, &swapchain), XR_SUCCESS);
        if (swapchain) painter_->Adopt(swapchain);
        return swapchain;
    }

    static XrResult Acquire(XrSwapchain swapchain, std::uint32_t* image) {
        return xrAcquireSwapchainImage(swapchain, nullptr, image);
    }
    static XrResult Wait(XrSwapchain swapchain) {
        const XrSwapchainImageWaitInfo info = {XR_TYPE_SWAPCHAIN_IMAGE_WAIT_INFO, nullptr, XR_INFINITE_DURATION};
        return xrWaitSwapchainImage(swapchain, &info);
    }
    static XrResult Release(XrSwapchain swapchain) { return xrReleaseSwapchainImage(swapchain, nullptr); }

    // The left eye's pattern in the first layer, and its mirror image in the second.
    void Paint(XrSwapchain swapchain) {
        std::uint32_t image = 0;
        EXPECT_EQ(Acquire(swapchain, &image), XR_SUCCESS);
        EXPECT_EQ(Wait(swapchain), XR_SUCCESS);
        for (const std::uint32_t layer : {0u, 1u}) {
            painter_->Paint(swapchain, image, layer, kSize, kSize, Pattern(layer == 1));
        }
        EXPECT_EQ(Release(swapchain), XR_SUCCESS);
    }

    // A whole frame that shows `layers(display_time)`.
    template <class Layers>
    XrResult RunFrame(Layers layers) {
        auto state = Typed<XrFrameState>(XR_TYPE_FRAME_STATE);
        EXPECT_EQ(xrWaitFrame(session_, nullptr, &state), XR_SUCCESS);
        EXPECT_EQ(xrBeginFrame(session_, nullptr), XR_SUCCESS);
        return End(state.predictedDisplayTime, layers(state.predictedDisplayTime));
    }

    XrResult End(XrTime time, const std::vector<const void*>& layers) {
        std::vector<const XrCompositionLayerBaseHeader*> headers;
        headers.reserve(layers.size());
        for (const void* layer : layers) headers.push_back(static_cast<const XrCompositionLayerBaseHeader*>(layer));
        const XrFrameEndInfo end = {XR_TYPE_FRAME_END_INFO,
                                    nullptr,
                                    time,
                                    XR_ENVIRONMENT_BLEND_MODE_OPAQUE,
                                    static_cast<std::uint32_t>(headers.size()),
                                    headers.data()};
        return xrEndFrame(session_, &end);
    }

    // Both eyes, as they are located for `time`, each with its layer of the swapchain.
    std::vector<const void*> Projection(XrSwapchain swapchain, XrTime time) {
        const XrViewLocateInfo locate = {XR_TYPE_VIEW_LOCATE_INFO, nullptr, XR_VIEW_CONFIGURATION_TYPE_PRIMARY_STEREO,
                                         time, stage_};
        auto state = Typed<XrViewState>(XR_TYPE_VIEW_STATE);
        XrView located[] = {Typed<XrView>(XR_TYPE_VIEW), Typed<XrView>(XR_TYPE_VIEW)};
        std::uint32_t count = 0;
        EXPECT_EQ(xrLocateViews(session_, &locate, &state, 2, &count, located), XR_SUCCESS);
        for (std::uint32_t eye : {0u, 1u}) {
            views_[eye] = {XR_TYPE_COMPOSITION_LAYER_PROJECTION_VIEW,
                           nullptr,
                           located[eye].pose,
                           located[eye].fov,
                           {swapchain, {{0, 0}, {kSize, kSize}}, eye}};
        }
        projection_ = {XR_TYPE_COMPOSITION_LAYER_PROJECTION, nullptr, 0, stage_, 2, views_};
        return {&projection_};
    }

    std::vector<XrSessionState> StatesTold() {
        std::vector<XrSessionState> states;
        auto buffer = Typed<XrEventDataBuffer>(XR_TYPE_EVENT_DATA_BUFFER);
        while (xrPollEvent(instance_, &buffer) == XR_SUCCESS) {
            XrEventDataSessionStateChanged event;
            std::memcpy(&event, &buffer, sizeof(event));
            if (event.type == XR_TYPE_EVENT_DATA_SESSION_STATE_CHANGED) states.push_back(event.state);
            buffer = Typed<XrEventDataBuffer>(XR_TYPE_EVENT_DATA_BUFFER);
        }
        return states;
    }

    // What the capture gives for an eye, while `meanwhile()` goes on in this thread. Empty where it failed.
    template <class Meanwhile>
    std::vector<std::uint8_t> Capture(std::uint64_t eye, Meanwhile meanwhile) {
        const auto capture = Lookup<orvanic_xr::PFN_xrCaptureSimulatorCompositorOutputKESTX1>(
            instance_, "xrCaptureSimulatorCompositorOutputKESTX1");
        Lookup<orvanic_xr::PFN_xrStartSimulatorCompositorOutputCaptureKESTX1>(
            instance_, "xrStartSimulatorCompositorOutputCaptureKESTX1")(session_, 3);
        has_size_ = false;
        auto taken = std::async(std::launch::async, [&, session = session_] {
            std::vector<std::uint8_t> pixels(kSize * kSize * 4);
            std::uint32_t width = 0;
            std::uint32_t height = 0;
            Records info = {orvanic_xr::kSimulatorCompositorCaptureInfoType, nullptr, eye, &width, &height, nullptr};
            capture(session, &info);
            EXPECT_EQ(width, kSize);
            EXPECT_EQ(height, kSize);
            info.pixels = pixels.data();
            has_size_ = true;
            captured_ = capture(session, &info);
            return XR_SUCCEEDED(captured_) ? pixels : std::vector<std::uint8_t>();
        });
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (taken.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready &&
               std::chrono::steady_clock::now() < deadline) {
            meanwhile();
        }
        return taken.get();
    }

    // In the middles of the four quarters.
    static std::vector<Colour> QuartersOf(const std::vector<std::uint8_t>& pixels) {
        std::vector<Colour> colours;
        for (const auto& [x, y] : {std::pair{16u, 16u}, {48u, 16u}, {16u, 48u}, {48u, 48u}}) {
            if (pixels.empty()) break;
            const std::uint8_t* pixel = &pixels[(y * kSize + x) * 4];
            colours.push_back({pixel[0], pixel[1], pixel[2]});
        }
        return colours;
    }

    // Before the instance, after which the application takes its device away.
    std::unique_ptr<Painter> painter_;
    XrInstance instance_ = XR_NULL_HANDLE;
    XrSystemId system_ = XR_NULL_SYSTEM_ID;
    XrSession session_ = XR_NULL_HANDLE;
    XrSpace stage_ = XR_NULL_HANDLE;
    XrCompositionLayerProjectionView views_[2] = {};
    XrCompositionLayerProjection projection_ = {};
    std::atomic<bool> has_size_ = false;
    XrResult captured_ = XR_SUCCESS;
};

#define BEGIN_OR_SKIP() \
    if (!Begin()) GTEST_SKIP() << GetParam().name << " can't be had on this machine"

TEST_P(Rendering, PictureShowsWhatTheApplicationDrewToEachEye) {
    BEGIN_OR_SKIP();
    const XrSwapchain srgb = MakeSwapchain(Info(painter_->SrgbFormat()));
    const auto show = [&](XrSwapchain swapchain) {
        return [&, swapchain] {
            Paint(swapchain);
            EXPECT_EQ(RunFrame([&](XrTime time) { return Projection(swapchain, time); }), XR_SUCCESS);
        };
    };
    // Bytes of a format that begins with blue.
    const auto as_shown = [&](Colour c) { return GetParam().srgb_is_swapped ? Colour{c[2], c[1], c[0]} : c; };
    const Colour red = as_shown({200, 30, 40});
    const Colour green = as_shown({20, 210, 50});
    const Colour blue = as_shown({10, 60, 220});
    const Colour grey = {90, 90, 90};
    EXPECT_THAT(QuartersOf(Capture(1, show(srgb))), ElementsAre(red, green, blue, grey));
    EXPECT_THAT(QuartersOf(Capture(2, show(srgb))), ElementsAre(green, red, grey, blue));

    // The same bytes as light.
    const XrSwapchain linear = MakeSwapchain(Info(painter_->LinearFormat()));
    EXPECT_THAT(QuartersOf(Capture(1, show(linear))),
                ElementsAre(Colour{229, 96, 110}, Colour{79, 234, 122}, Colour{56, 133, 239}, Colour{160, 160, 160}));
    EXPECT_EQ(xrDestroySwapchain(srgb), XR_SUCCESS);
    EXPECT_THAT(QuartersOf(Capture(1, show(linear))).size(), 4u) << "the other swapchain is still there";
}

TEST_P(Rendering, PictureIsOfAFrameThatIsWaitedForAfterTheRequest) {
    BEGIN_OR_SKIP();
    const XrSwapchain swapchain = MakeSwapchain(Info(painter_->SrgbFormat()));
    Paint(swapchain);
    auto state = Typed<XrFrameState>(XR_TYPE_FRAME_STATE);
    EXPECT_EQ(xrWaitFrame(session_, nullptr, &state), XR_SUCCESS);
    EXPECT_EQ(xrBeginFrame(session_, nullptr), XR_SUCCESS);
    const auto show = [&](std::uint32_t layer) {
        return RunFrame([&](XrTime time) {
            const auto layers = Projection(swapchain, time);
            views_[0].subImage.imageArrayIndex = layer;
            return layers;
        });
    };
    bool is_first = true;
    const auto picture = Capture(1, [&] {
        if (!std::exchange(is_first, false)) return show(1);
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        return End(state.predictedDisplayTime, Projection(swapchain, state.predictedDisplayTime));
    });
    // The second layer is the first one's mirror image: red is on the right.
    const Colour red = GetParam().srgb_is_swapped ? Colour{40, 30, 200} : Colour{200, 30, 40};
    EXPECT_EQ(QuartersOf(picture)[1], red);

    // The input that the first frame shows was read before the request.
    const XrActionsSyncInfo nothing = {XR_TYPE_ACTIONS_SYNC_INFO, nullptr, 0, nullptr};
    xrSyncActions(session_, &nothing);
    is_first = true;
    const auto later = Capture(1, [&] {
        if (is_first) std::this_thread::sleep_for(std::chrono::milliseconds(30));
        show(std::exchange(is_first, false) ? 0 : 1);
        xrSyncActions(session_, &nothing);
    });
    EXPECT_EQ(QuartersOf(later)[1], red);
}

TEST_P(Rendering, SurfacesBendAroundTheEye) {
    BEGIN_OR_SKIP();
    const auto info = Info(painter_->LinearFormat());
    const XrSwapchain swapchain = MakeSwapchain(info);
    Paint(swapchain);
    const XrSwapchainSubImage whole = {swapchain, {{0, 0}, {kSize, kSize}}, 0};
    const XrReferenceSpaceCreateInfo at_head = {XR_TYPE_REFERENCE_SPACE_CREATE_INFO, nullptr,
                                                XR_REFERENCE_SPACE_TYPE_VIEW, kHere};
    XrSpace head = XR_NULL_HANDLE;
    EXPECT_EQ(xrCreateReferenceSpace(session_, &at_head, &head), XR_SUCCESS);
    // Both 90 degrees wide, as the view is, so that the picture shows their quarters in its own.
    XrCompositionLayerCylinderKHR cylinder = {XR_TYPE_COMPOSITION_LAYER_CYLINDER_KHR,
                                              nullptr,
                                              0,
                                              head,
                                              XR_EYE_VISIBILITY_LEFT,
                                              whole,
                                              kHere,
                                              10.0f,
                                              1.5708f,
                                              0.7854f};
    XrCompositionLayerEquirect2KHR sphere = {XR_TYPE_COMPOSITION_LAYER_EQUIRECT2_KHR,
                                             nullptr,
                                             0,
                                             head,
                                             XR_EYE_VISIBILITY_RIGHT,
                                             whole,
                                             kHere,
                                             0.0f,
                                             1.5708f,
                                             0.7854f,
                                             -0.7854f};
    XrCompositionLayerDepthInfoKHR depth = {
        XR_TYPE_COMPOSITION_LAYER_DEPTH_INFO_KHR, nullptr, whole, 0.0f, 1.0f, 100.0f, 0.1f};
    const auto layers = [&](XrTime time) {
        auto all = Projection(swapchain, time);
        // The mirror image, for both eyes.
        views_[0].subImage.imageArrayIndex = 1;
        views_[1].next = &depth;
        all.insert(all.end(), {&cylinder, &sphere});
        return all;
    };
    const std::vector<Colour> quarters = {{229, 96, 110}, {79, 234, 122}, {56, 133, 239}, {160, 160, 160}};
    for (const std::uint64_t eye : {1u, 2u}) {
        EXPECT_EQ(QuartersOf(Capture(eye, [&] { EXPECT_EQ(RunFrame(layers), XR_SUCCESS); })), quarters);
    }

    auto state = Typed<XrFrameState>(XR_TYPE_FRAME_STATE);
    EXPECT_EQ(xrWaitFrame(session_, nullptr, &state), XR_SUCCESS);
    EXPECT_EQ(xrBeginFrame(session_, nullptr), XR_SUCCESS);
    const auto end = [&] { return End(state.predictedDisplayTime, layers(state.predictedDisplayTime)); };
    const std::tuple<const char*, float&, float> refusals[] = {
        {"radius", cylinder.radius, -1.0f},
        {"angle", cylinder.centralAngle, 7.0f},
        {"aspect ratio", cylinder.aspectRatio, std::nanf("")},
        {"sphere's radius", sphere.radius, std::nanf("")},
        {"sphere's width", sphere.centralHorizontalAngle, -0.1f},
        {"sphere's top", sphere.upperVerticalAngle, 1.6f},
        {"depth's range", depth.minDepth, 1.0f},
        {"depth's end", depth.farZ, 100.0f},
    };
    for (const auto& [name, value, bad] : refusals) {
        const float good = std::exchange(value, bad);
        EXPECT_EQ(end(), XR_ERROR_VALIDATION_FAILURE) << name;
        value = good;
    }
    depth.subImage.swapchain = MakeSwapchain(info);
    EXPECT_EQ(end(), XR_ERROR_LAYER_INVALID) << "nothing was released";
    depth.subImage = whole;
    EXPECT_EQ(end(), XR_SUCCESS);
}

TEST_P(Rendering, ClearedImageIsReadInEveryFormatWithAnySamples) {
    BEGIN_OR_SKIP();
    for (const auto format : {painter_->LinearFormat(), painter_->SrgbFormat(), painter_->HalfFormat()}) {
        for (const std::uint32_t samples : {1u, 4u}) {
            SCOPED_TRACE(std::to_string(format) + " with samples " + std::to_string(samples));
            auto info = Info(format);
            info.sampleCount = samples;
            info.arraySize = 1;
            const XrSwapchain swapchain = MakeSwapchain(info);
            const auto show = [&] {
                std::uint32_t image = 0;
                EXPECT_EQ(Acquire(swapchain, &image), XR_SUCCESS);
                EXPECT_EQ(Wait(swapchain), XR_SUCCESS);
                painter_->Fill(swapchain, image, samples > 1, {1.0f, 0.0f, 0.0f, 1.0f});
                EXPECT_EQ(Release(swapchain), XR_SUCCESS);
                EXPECT_EQ(RunFrame([&](XrTime time) {
                              const auto layers = Projection(swapchain, time);
                              views_[1].subImage.imageArrayIndex = 0;
                              return layers;
                          }),
                          XR_SUCCESS);
            };
            EXPECT_THAT(QuartersOf(Capture(1, show)), testing::Each(Colour{255, 0, 0}));
        }
    }
}

// As a layer between application and runtime does it.
TEST_P(Rendering, ImageThatSomebodyElseMadeIsReadBeforeItIsReleased) {
    BEGIN_OR_SKIP();
    EXPECT_EQ(simulator::CopyBinding(nullptr), nullptr);
    const auto binding = simulator::CopyBinding(painter_->Binding());
    ASSERT_NE(binding, nullptr);
    EXPECT_FALSE(binding->CanRead(painter_->DepthFormat()));
    EXPECT_TRUE(binding->CanRead(painter_->HalfFormat()));
    auto device = binding->MakeDevice();
    auto info = Info(painter_->LinearFormat());
    info.usageFlags |= binding->UsageToRead();
    const XrSwapchain swapchain = MakeSwapchain(info);
    std::uint32_t image = 0;
    Acquire(swapchain, &image);
    Wait(swapchain);
    for (const std::uint32_t layer : {0u, 1u}) {
        painter_->Paint(swapchain, image, layer, kSize, kSize, Pattern(layer == 1));
    }
    const auto images = device->ImagesOf(swapchain, info, xrEnumerateSwapchainImages);
    for (const std::uint32_t layer : {0u, 1u}) {
        const simulator::RawImage raw = images->Read(image, layer);
        const std::size_t row = raw.bottom_up ? kSize - 1 - 16 : 16;
        const std::uint8_t* const pixel = &raw.bytes[(row * raw.width + 16) * 4];
        EXPECT_THAT(std::vector(pixel, pixel + 4), testing::ElementsAreArray(kQuarters[layer]));
    }
    EXPECT_EQ(Release(swapchain), XR_SUCCESS);
    const auto show = [&] { RunFrame([&](XrTime time) { return Projection(swapchain, time); }); };
    EXPECT_EQ(QuartersOf(Capture(1, show))[0], (Colour{229, 96, 110})) << "the runtime has it as it was";

    info.sampleCount = 4;
    info.arraySize = 1;
    const XrSwapchain sampled = MakeSwapchain(info);
    Acquire(sampled, &image);
    Wait(sampled);
    painter_->Fill(sampled, image, true, {1.0f, 0.0f, 0.0f, 1.0f});
    const auto resolved = device->ImagesOf(sampled, info, xrEnumerateSwapchainImages)->Read(image, 0);
    EXPECT_EQ(std::vector(resolved.bytes.end() - 4, resolved.bytes.end()), (std::vector<std::uint8_t>{255, 0, 0, 255}));
    device.reset();
}

TEST_P(Rendering, StatesClimbAndDescendByOneWithEachFrame) {
    BEGIN_OR_SKIP();
    const auto frame = [&] { return RunFrame([](XrTime) { return std::vector<const void*>(); }); };
    EXPECT_THAT(StatesTold(), ElementsAre(XR_SESSION_STATE_IDLE, XR_SESSION_STATE_READY));
    for (const XrSessionState state :
         {XR_SESSION_STATE_SYNCHRONIZED, XR_SESSION_STATE_VISIBLE, XR_SESSION_STATE_FOCUSED}) {
        EXPECT_EQ(frame(), XR_SUCCESS);
        EXPECT_THAT(StatesTold(), ElementsAre(state));
    }
    EXPECT_EQ(frame(), XR_SUCCESS);
    EXPECT_EQ(xrRequestExitSession(session_), XR_SUCCESS);
    EXPECT_THAT(StatesTold(), ElementsAre());
    for (const XrSessionState state :
         {XR_SESSION_STATE_VISIBLE, XR_SESSION_STATE_SYNCHRONIZED, XR_SESSION_STATE_STOPPING}) {
        EXPECT_EQ(frame(), XR_SUCCESS);
        EXPECT_THAT(StatesTold(), ElementsAre(state));
    }
    EXPECT_EQ(xrEndSession(session_), XR_SUCCESS);
    EXPECT_THAT(StatesTold(), ElementsAre(XR_SESSION_STATE_IDLE, XR_SESSION_STATE_EXITING));
}

TEST_P(Rendering, ImagesGoRoundInTheirOrder) {
    BEGIN_OR_SKIP();
    const XrSwapchain swapchain = MakeSwapchain(Info(painter_->SrgbFormat()));
    std::uint32_t image = 9;
    EXPECT_EQ(Wait(swapchain), XR_ERROR_CALL_ORDER_INVALID) << "none is acquired";
    for (const std::uint32_t expected : {0u, 1u, 2u}) {
        EXPECT_EQ(Acquire(swapchain, &image), XR_SUCCESS);
        EXPECT_EQ(image, expected);
    }
    EXPECT_EQ(Acquire(swapchain, &image), XR_ERROR_CALL_ORDER_INVALID) << "the application has all";
    EXPECT_EQ(Release(swapchain), XR_ERROR_CALL_ORDER_INVALID) << "it did not wait";
    EXPECT_EQ(Wait(swapchain), XR_SUCCESS);
    EXPECT_EQ(Wait(swapchain), XR_ERROR_CALL_ORDER_INVALID) << "twice";
    EXPECT_EQ(Release(swapchain), XR_SUCCESS);
    EXPECT_EQ(Acquire(swapchain, &image), XR_SUCCESS);
    EXPECT_EQ(image, 0u) << "the one that was released";

    auto info = Info(painter_->SrgbFormat());
    info.createFlags = XR_SWAPCHAIN_CREATE_STATIC_IMAGE_BIT;
    const XrSwapchain still = MakeSwapchain(info);
    std::uint32_t count = 0;
    EXPECT_EQ(xrEnumerateSwapchainImages(still, 0, &count, nullptr), XR_SUCCESS);
    EXPECT_EQ(count, 1u);
    Paint(still);
    EXPECT_EQ(Acquire(still, &image), XR_ERROR_CALL_ORDER_INVALID) << "once and for all";
}

TEST_P(Rendering, SwapchainsAreMadeAsFarAsTheyCanBe) {
    BEGIN_OR_SKIP();
    const XrSwapchainCreateInfo good = Info(painter_->SrgbFormat());
    const struct {
        const char* name;
        void (*change)(XrSwapchainCreateInfo&);
        XrResult result;
    } rows[] = {
        {"mips", [](auto& i) { i.mipCount = 2; }, XR_SUCCESS},
        {"six faces",
         [](auto& i) {
             i.faceCount = 6;
             i.arraySize = 1;
         },
         XR_SUCCESS},
        {"five faces", [](auto& i) { i.faceCount = 5; }, XR_ERROR_VALIDATION_FAILURE},
        {"no width", [](auto& i) { i.width = 0; }, XR_ERROR_VALIDATION_FAILURE},
        {"no sample", [](auto& i) { i.sampleCount = 0; }, XR_ERROR_VALIDATION_FAILURE},
        {"oblong faces", [](auto& i) { i.faceCount = 6, i.width *= 2; }, XR_ERROR_FEATURE_UNSUPPORTED},
        {"faces past all numbers", [](auto& i) { i.faceCount = 6, i.arraySize = 0x2AAAAAAB; },
         XR_ERROR_FEATURE_UNSUPPORTED},
        {"more mips than halvings", [](auto& i) { i.mipCount = 8; }, XR_ERROR_FEATURE_UNSUPPORTED},
        {"mips of samples", [](auto& i) { i.mipCount = i.sampleCount = 4; }, XR_ERROR_FEATURE_UNSUPPORTED},
        {"five samples", [](auto& i) { i.sampleCount = 5; }, XR_ERROR_FEATURE_UNSUPPORTED},
        {"huge", [](auto& i) { i.width = 1u << 30; }, XR_ERROR_FEATURE_UNSUPPORTED},
        {"unknown format", [](auto& i) { i.format = 1; }, XR_ERROR_SWAPCHAIN_FORMAT_UNSUPPORTED},
        {"protected", [](auto& i) { i.createFlags = 1; }, XR_ERROR_FEATURE_UNSUPPORTED},
        {"unknown flag", [](auto& i) { i.createFlags = 4; }, XR_ERROR_VALIDATION_FAILURE},
        {"unknown usage", [](auto& i) { i.usageFlags = 0x10000; }, XR_ERROR_VALIDATION_FAILURE},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        XrSwapchainCreateInfo info = good;
        row.change(info);
        XrSwapchain swapchain = XR_NULL_HANDLE;
        EXPECT_EQ(xrCreateSwapchain(session_, &info, &swapchain), row.result);
        std::uint32_t image = 0;
        if (swapchain) {
            EXPECT_EQ(Acquire(swapchain, &image), XR_SUCCESS);
        }
    }
    XrSwapchainCreateInfo depth = Info(painter_->DepthFormat());
    depth.usageFlags = XR_SWAPCHAIN_USAGE_DEPTH_STENCIL_ATTACHMENT_BIT;
    std::uint32_t image = 0;
    EXPECT_EQ(Acquire(MakeSwapchain(depth), &image), XR_SUCCESS);
}

TEST_P(Rendering, EndFrameRefusesLayersThatAreNone) {
    BEGIN_OR_SKIP();
    const XrSwapchain painted = MakeSwapchain(Info(painter_->SrgbFormat()));
    const XrSwapchain fresh = MakeSwapchain(Info(painter_->SrgbFormat()));
    Paint(painted);
    XrCompositionLayerQuad quad = {XR_TYPE_COMPOSITION_LAYER_QUAD,
                                   nullptr,
                                   0,
                                   stage_,
                                   XR_EYE_VISIBILITY_BOTH,
                                   {painted, {{0, 0}, {kSize, kSize}}, 0},
                                   {{0, 0, 0, 1}, {0, 1, -1}},
                                   {1, 1}};
    const XrSwapchainSubImage whole = quad.subImage;
    const struct {
        const char* name;
        XrSwapchainSubImage image;
        XrResult result;
    } images[] = {
        {"good", whole, XR_SUCCESS},
        {"nothing was released", {fresh, whole.imageRect, 0}, XR_ERROR_LAYER_INVALID},
        {"no such layer", {painted, whole.imageRect, 2}, XR_ERROR_VALIDATION_FAILURE},
        {"beyond the edge", {painted, {{1, 0}, {kSize, kSize}}, 0}, XR_ERROR_SWAPCHAIN_RECT_INVALID},
        {"before the edge", {painted, {{0, -1}, {kSize, kSize}}, 0}, XR_ERROR_SWAPCHAIN_RECT_INVALID},
        {"empty", {painted, {{0, 0}, {0, kSize}}, 0}, XR_ERROR_SWAPCHAIN_RECT_INVALID},
        {"past all numbers", {painted, {{INT32_MAX, 0}, {kSize, kSize}}, 0}, XR_ERROR_SWAPCHAIN_RECT_INVALID},
        {"no handle", {XR_NULL_HANDLE, whole.imageRect, 0}, XR_ERROR_HANDLE_INVALID},
    };
    auto state = Typed<XrFrameState>(XR_TYPE_FRAME_STATE);
    EXPECT_EQ(xrWaitFrame(session_, nullptr, &state), XR_SUCCESS);
    EXPECT_EQ(xrBeginFrame(session_, nullptr), XR_SUCCESS);
    const auto end = [&](const std::vector<const void*>& layers) { return End(state.predictedDisplayTime, layers); };
    EXPECT_EQ(end({nullptr}), XR_ERROR_LAYER_INVALID);
    EXPECT_EQ(end(std::vector<const void*>(17, &quad)), XR_ERROR_LAYER_LIMIT_EXCEEDED);
    const XrCompositionLayerBaseHeader unknown = {XR_TYPE_UNKNOWN, nullptr, 0, stage_};
    EXPECT_EQ(end({&unknown}), XR_ERROR_LAYER_INVALID);
    quad.pose.orientation.w = 2;
    EXPECT_EQ(end({&quad}), XR_ERROR_POSE_INVALID);
    quad.pose.orientation.w = 1;
    quad.layerFlags = 1u << 20;
    EXPECT_EQ(end({&quad}), XR_ERROR_VALIDATION_FAILURE) << "no such flag";
    quad.layerFlags = 0;
    auto projection = Projection(painted, state.predictedDisplayTime);
    projection_.viewCount = 1;
    EXPECT_EQ(end(projection), XR_ERROR_VALIDATION_FAILURE);
    for (auto row = std::rbegin(images); row != std::rend(images); ++row) {
        SCOPED_TRACE(row->name);
        quad.subImage = row->image;
        EXPECT_EQ(end({&quad}), row->result);
    }
    EXPECT_EQ(end({}), XR_ERROR_CALL_ORDER_INVALID) << "the good one has ended the frame";
}

TEST_P(Rendering, SessionTakesOnlyWhatItWasToldToBindTo) {
    XrBaseInStructure wayland = {XR_TYPE_GRAPHICS_BINDING_OPENGL_WAYLAND_KHR, nullptr};
    EXPECT_EQ(Create(nullptr), XR_ERROR_GRAPHICS_DEVICE_INVALID);
    EXPECT_EQ(Create(&wayland), XR_ERROR_GRAPHICS_DEVICE_INVALID);
    BEGIN_OR_SKIP();
    EXPECT_EQ(xrDestroySession(session_), XR_SUCCESS);
    for (const void* bad : painter_->BadBindings()) EXPECT_EQ(Create(bad), XR_ERROR_GRAPHICS_DEVICE_INVALID);
    auto* const good = static_cast<XrBaseInStructure*>(painter_->Binding());
    good->next = &wayland;
    EXPECT_EQ(Create(good), XR_ERROR_GRAPHICS_DEVICE_INVALID) << "two of them";
    good->next = nullptr;
    EXPECT_EQ(Create(painter_->Binding()), XR_SUCCESS) << "sessions follow each other on one device";
    EXPECT_EQ(xrDestroyInstance(instance_), XR_SUCCESS);
    MakeInstance();
    EXPECT_EQ(Create(painter_->Binding()), XR_ERROR_GRAPHICS_REQUIREMENTS_CALL_MISSING);
}

TEST_P(Rendering, CaptureEndsWhateverTheApplicationDoes) {
    BEGIN_OR_SKIP();
    EXPECT_FALSE(Capture(1, [&] { RunFrame([](XrTime) { return std::vector<const void*>(); }); }).empty());
    // It hangs: what it showed before says nothing of now.
    EXPECT_TRUE(Capture(1, [] {}).empty());
    EXPECT_EQ(captured_, XR_ERROR_CALL_ORDER_INVALID);
    // It leaves in the middle, or, on a machine that has much to do, a little before.
    bool left = false;
    EXPECT_TRUE(Capture(1, [&] {
                    std::this_thread::sleep_for(std::chrono::milliseconds(50));
                    if (!has_size_ || std::exchange(left, true)) return;
                    EXPECT_EQ(xrDestroySession(session_), XR_SUCCESS);
                }).empty());
    EXPECT_THAT(captured_, testing::AnyOf(XR_ERROR_SESSION_NOT_RUNNING, XR_ERROR_HANDLE_INVALID));
}

// With the functions that the painter of Vulkan2 hands over.
class VulkansDriver : public Rendering {
 protected:
    // Of one image with several samples, so that reading needs another.
    void Show(XrSwapchain swapchain) {
        std::uint32_t image = 0;
        Acquire(swapchain, &image);
        Wait(swapchain);
        painter_->Fill(swapchain, image, true, {1.0f, 0.0f, 0.0f, 1.0f});
        Release(swapchain);
        RunFrame([&](XrTime time) { return Projection(swapchain, time); });
    }
};

TEST_P(VulkansDriver, NothingIsFreedThatItMayStillUse) {
    BEGIN_OR_SKIP();
    auto info = Info(painter_->SrgbFormat());
    info.sampleCount = 4;
    const XrSwapchain swapchain = MakeSwapchain(info);
    Show(swapchain);
    TheDriver().hangs = true;
    EXPECT_TRUE(Capture(1, [&] { Show(swapchain); }).empty());
    EXPECT_EQ(captured_, XR_ERROR_RUNTIME_FAILURE);
    Show(swapchain);  // the application waits for its queue, which has come to the end
    EXPECT_EQ(xrDestroySwapchain(swapchain), XR_SUCCESS);
    EXPECT_EQ(TheDriver().freed_in_use, 0);
    TheDriver().hangs = false;
    const XrSwapchain other = MakeSwapchain(info);
    EXPECT_FALSE(Capture(1, [&] { Show(other); }).empty()) << "it works again";
    EXPECT_EQ(xrDestroySession(session_), XR_SUCCESS);
    EXPECT_EQ(TheDriver().memories, 0) << "all is freed in the end";
}

TEST_P(VulkansDriver, OnlyItsCallerWaitsForIt) {
    std::set<std::string> called;
    std::vector<std::future<XrResult>> others;
    TheDriver().called = [&](const char* name) {
        called.insert(name);
        others.push_back(std::async(std::launch::async, [this] {
            XrPath path;
            return xrStringToPath(instance_, "/user", &path);
        }));
        EXPECT_EQ(others.back().wait_for(std::chrono::seconds(5)), std::future_status::ready) << name;
    };
    BEGIN_OR_SKIP();
    Show(MakeSwapchain(Info(painter_->SrgbFormat())));
    EXPECT_EQ(xrDestroySession(session_), XR_SUCCESS);
    TheDriver().called = nullptr;
    EXPECT_EQ(called.size(), 8u) << testing::PrintToString(called);
}

constexpr Api kApis[] = {
    {"Vulkan2", MakeVulkan2Painter, true},    {"Vulkan", MakeVulkanPainter, true},
    {"OpenGlByEgl", MakeEglPainter, false},   {"OpenGlEsByEgl", MakeEglEsPainter, false},
    {"OpenGlByXlib", MakeXlibPainter, false}, {"OpenGlByXcb", MakeXcbPainter, false},
};

INSTANTIATE_TEST_SUITE_P(With, Rendering, testing::ValuesIn(kApis),
                         [](const auto& api) { return std::string(api.param.name); });

INSTANTIATE_TEST_SUITE_P(With, VulkansDriver, testing::Values(kApis[0]),
                         [](const auto& api) { return std::string(api.param.name); });

}  // namespace
}  // namespace rendering_test
