// Which images come into a picture, and when nothing may be touched. The images are of a device that only counts.
#include <gmock/gmock.h>

#include <future>
#include <map>

#include "automation/pictures/session_pictures.h"
#include "simulator/refusal.h"

namespace automation_test {
namespace {

using automation::SessionPictures;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::int64_t kFormat = 7;
constexpr XrPosef kHere = {{0, 0, 0, 1}, {0, 0, 0}};
constexpr XrFovf kFov = {-0.7f, 0.7f, 0.7f, -0.7f};
const auto kProjected = reinterpret_cast<XrSwapchain>(1);
const auto kSign = reinterpret_cast<XrSwapchain>(2);

struct Gpu {
    // Devices and sets of images that there are, and images that were read.
    int alive = 0;
    int reads = 0;
    XrResult failure = XR_SUCCESS;
    std::map<std::pair<XrSwapchain, std::uint32_t>, std::uint8_t> painted;
};
Gpu gpu;
std::vector<std::string> log;

template <class Base>
struct Counted : Base {
    Counted() { ++gpu.alive; }
    ~Counted() override { --gpu.alive; }
};

// Two by two pixels of what was painted, in the second layer one level more.
struct Images : Counted<simulator::ForeignImages> {
    explicit Images(XrSwapchain of) : swapchain(of) {}
    simulator::RawImage Read(std::uint32_t index, std::uint32_t layer) override {
        ++gpu.reads;
        if (XR_FAILED(gpu.failure)) simulator::Refuse(gpu.failure, "it is broken");
        simulator::RawImage raw;
        raw.width = raw.height = 2;
        raw.bytes.assign(16, static_cast<std::uint8_t>(gpu.painted.at({swapchain, index}) + layer));
        return raw;
    }
    const XrSwapchain swapchain;
};

struct Device : Counted<simulator::ForeignDevice> {
    std::unique_ptr<simulator::ForeignImages> ImagesOf(XrSwapchain swapchain, const XrSwapchainCreateInfo& /*info*/,
                                                       PFN_xrEnumerateSwapchainImages /*enumerate*/) override {
        return std::make_unique<Images>(swapchain);
    }
};

struct Binding : simulator::ForeignBinding {
    bool CanRead(std::int64_t format) const override { return format == kFormat; }
    XrSwapchainUsageFlags UsageToRead() const override { return XR_SWAPCHAIN_USAGE_TRANSFER_SRC_BIT; }
    std::unique_ptr<simulator::ForeignDevice> MakeDevice() const override { return std::make_unique<Device>(); }
};

XrSwapchainCreateInfo Info() {
    return {XR_TYPE_SWAPCHAIN_CREATE_INFO,
            nullptr,
            0,
            XR_SWAPCHAIN_USAGE_COLOR_ATTACHMENT_BIT | XR_SWAPCHAIN_USAGE_TRANSFER_SRC_BIT,
            kFormat,
            1,
            2,
            2,
            1,
            2,
            1};
}

struct Taken {
    XrResult result;
    // The first pixel's red, and its opposite's.
    int first;
    int last;
};

class Pictures : public testing::Test {
 protected:
    void SetUp() override {
        gpu = {};
        log.clear();
        pictures_.AddSwapchain(kProjected, Info());
    }
    void TearDown() override {
        pictures_.DestroySession();
        EXPECT_EQ(gpu.alive, 0);
    }

    void Release(XrSwapchain swapchain, std::uint8_t colour, XrResult result = XR_SUCCESS) {
        next_ = (next_ + 1) % 3;
        gpu.painted[{swapchain, next_}] = colour;
        pictures_.Acquired(swapchain, next_);
        ReleaseOldest(swapchain, result);
    }
    void ReleaseOldest(XrSwapchain swapchain, XrResult result = XR_SUCCESS) {
        pictures_.AfterWait(swapchain, XR_SUCCESS);
        ReleaseUnwaited(swapchain, result);
    }
    void ReleaseUnwaited(XrSwapchain swapchain, XrResult result) {
        pictures_.BeforeRelease(swapchain);
        pictures_.AfterRelease(swapchain, result);
    }

    // The projection fills the picture, with a layer for each eye; the sign stands in front of its lower right pixel.
    void End(bool with_sign = false, XrResult result = XR_SUCCESS) {
        const auto view = [](std::uint32_t layer) {
            return XrCompositionLayerProjectionView{
                XR_TYPE_COMPOSITION_LAYER_PROJECTION_VIEW, nullptr, kHere, kFov, {kProjected, {{0, 0}, {2, 2}}, layer}};
        };
        const XrCompositionLayerProjectionView views[] = {view(0), view(1)};
        const XrCompositionLayerProjection projection = {
            XR_TYPE_COMPOSITION_LAYER_PROJECTION, nullptr, 0, XR_NULL_HANDLE, 2, views};
        const XrCompositionLayerQuad sign = {XR_TYPE_COMPOSITION_LAYER_QUAD,
                                             nullptr,
                                             0,
                                             XR_NULL_HANDLE,
                                             XR_EYE_VISIBILITY_BOTH,
                                             {kSign, {{0, 0}, {2, 2}}, 0},
                                             {{0, 0, 0, 1}, {1, -1, -1}},
                                             {1.9f, 1.9f}};
        const XrCompositionLayerBaseHeader* const layers[] = {
            reinterpret_cast<const XrCompositionLayerBaseHeader*>(&projection),
            reinterpret_cast<const XrCompositionLayerBaseHeader*>(&sign)};
        const XrFrameEndInfo info = {XR_TYPE_FRAME_END_INFO,
                                     nullptr,
                                     1,
                                     XR_ENVIRONMENT_BLEND_MODE_ALPHA_BLEND,
                                     (has_projection_ ? 1u : 0u) + (with_sign ? 1u : 0u),
                                     layers + (has_projection_ ? 0 : 1)};
        const auto ending = pictures_.BeforeEnd(
            info, [](XrSpace) { return kHere; }, eyes_);
        pictures_.AfterEnd(ending, result);
    }

    void Frame(std::uint8_t colour, bool with_sign = false) {
        pictures_.FrameBegan();
        Release(kProjected, colour);
        End(with_sign);
    }

    // Returns once the request is made.
    std::future<Taken> Ask(std::uint64_t eye) {
        pictures_.Start(3, {2, 2});
        std::promise<void> measured;
        auto taken = std::async(std::launch::async, [&, eye] {
            std::uint32_t width = 0;
            std::uint32_t height = 0;
            std::vector<std::uint8_t> pixels(16);
            orvanic_xr::SimulatorCompositorCaptureInfo info = {
                orvanic_xr::kSimulatorCompositorCaptureInfoType, nullptr, eye, &width, &height, nullptr};
            pictures_.Capture(&info);
            info.pixels = pixels.data();
            measured.set_value();
            const XrResult result = pictures_.Capture(&info);
            return Taken{result, pixels[0], pixels[12]};
        });
        measured.get_future().wait();
        for (int i = 0; i < 2000 && !pictures_.IsAsked(); ++i) {
            if (taken.wait_for(milliseconds(1)) == std::future_status::ready) break;
        }
        return taken;
    }

    // What a request that is made now gets, while `frame()` runs again and again.
    template <class MakeFrame>
    Taken Take(MakeFrame frame) {
        auto taken = Ask(1);
        for (int i = 0; i < 2000 && taken.wait_for(milliseconds(1)) != std::future_status::ready; ++i) frame();
        return taken.get();
    }

    SessionPictures pictures_{std::make_unique<Binding>(), nullptr, [](const char* line) { log.emplace_back(line); }};
    std::uint32_t next_ = 0;
    bool has_projection_ = true;
    std::optional<automation::EyeViews> eyes_ = {{{{kHere, kFov}, {kHere, kFov}}}};
};

TEST_F(Pictures, NothingIsReadUntilSomebodyAsksAndThenForBothEyesAtOnce) {
    pictures_.Start(3, {2, 2});
    Frame(10);
    EXPECT_EQ(gpu.reads + gpu.alive, 0);
    auto left = Ask(1);
    auto right = Ask(2);
    // It may have come after the other one.
    for (int i = 0; i < 2000 && right.wait_for(milliseconds(1)) != std::future_status::ready; ++i) Frame(20);
    EXPECT_EQ(left.get().first, 20);
    EXPECT_EQ(right.get().last, 21);
    gpu.reads = 0;
    Frame(30);
    EXPECT_EQ(gpu.reads, 0);
    EXPECT_THAT(log, ElementsAre());
}

TEST_F(Pictures, FrameShowsWhatWasSoBeforeTheRequest) {
    pictures_.FrameBegan();
    auto taken = Ask(1);
    Release(kProjected, 10);
    End();
    Frame(20);
    EXPECT_EQ(taken.get().first, 20) << "the first one had begun before";

    // Of an application that reads its input with each frame, the one before was read too early.
    pictures_.InputRead();
    Frame(30);
    pictures_.InputRead();
    taken = Ask(1);
    Frame(40);
    EXPECT_NE(taken.wait_for(milliseconds(0)), std::future_status::ready);
    pictures_.InputRead();
    pictures_.FrameBegan();
    Release(kProjected, 50);
    End(false, XR_ERROR_LAYER_INVALID);
    Release(kProjected, 60);
    End();
    EXPECT_EQ(taken.get().first, 60) << "the runtime refused the other one";
}

TEST_F(Pictures, LayerShowsTheImageThatWasReleasedLast) {
    pictures_.AddSwapchain(kSign, Info());
    Release(kSign, 70);
    // Two are acquired at a time, and a release is refused.
    const auto frame = [&, is_first = true]() mutable {
        pictures_.FrameBegan();
        if (std::exchange(is_first, false)) {
            gpu.painted[{kProjected, 1}] = 10;
            gpu.painted[{kProjected, 2}] = 20;
            pictures_.Acquired(kProjected, 1);
            pictures_.Acquired(kProjected, 2);
            ReleaseOldest(kProjected);
            ReleaseOldest(kProjected, XR_ERROR_CALL_ORDER_INVALID);
        }
        End(true);
    };
    const Taken taken = Take(frame);
    EXPECT_EQ(taken.first, 10);
    EXPECT_EQ(taken.last, 10) << "the sign was released before";
    EXPECT_THAT(log, ElementsAre(HasSubstr("has released no image")));
    ReleaseOldest(kProjected);

    // It is drawn less often than frames are.
    int frames = 0;
    const auto slowly = [&] {
        if (++frames == 2) Release(kSign, 80);
        Frame(30, true);
    };
    EXPECT_EQ(Take(slowly).last, 80);
    EXPECT_EQ(Take([&] { Frame(40, true); }).last, 80) << "it still shows that";
    Release(kSign, 90);
    EXPECT_EQ(Take([&] { Frame(40, true); }).last, 40) << "and now another";
}

TEST_F(Pictures, ImageThatWasNotWaitedForIsNotTouched) {
    auto taken = Ask(1);
    pictures_.FrameBegan();
    gpu.painted = {{{kProjected, 1}, 10}, {{kProjected, 2}, 20}};
    pictures_.Acquired(kProjected, 1);
    pictures_.AfterWait(kProjected, XR_TIMEOUT_EXPIRED);
    ReleaseUnwaited(kProjected, XR_ERROR_CALL_ORDER_INVALID);
    EXPECT_EQ(gpu.reads, 0);
    pictures_.Acquired(kProjected, 2);
    ReleaseOldest(kProjected);
    EXPECT_EQ(gpu.reads, 2) << "a layer for each eye";
    ReleaseUnwaited(kProjected, XR_ERROR_CALL_ORDER_INVALID);
    EXPECT_EQ(gpu.reads, 2) << "the next one has to be waited for as well";
    End();
    EXPECT_EQ(taken.get().first, 10);
}

TEST_F(Pictures, StaticImageIsKeptFromItsOnlyRelease) {
    auto info = Info();
    info.createFlags = XR_SWAPCHAIN_CREATE_STATIC_IMAGE_BIT;
    pictures_.AddSwapchain(kSign, info);
    Release(kProjected, 10);
    EXPECT_EQ(gpu.reads, 0) << "only the static one";
    Release(kSign, 70);
    Release(kProjected, 10);
    EXPECT_EQ(gpu.reads, 2);
    EXPECT_EQ(Take([&] { Frame(10, true); }).last, 70);
    pictures_.RemoveSwapchain(kSign);
    EXPECT_EQ(gpu.alive, 2) << "the device, and the images of the other one";
    EXPECT_EQ(Take([&] { Frame(10, true); }).last, 10);
    EXPECT_THAT(log, ElementsAre(HasSubstr("can't be read")));
}

TEST_F(Pictures, FailureIsNoBlackPicture) {
    gpu.failure = XR_ERROR_OUT_OF_MEMORY;
    EXPECT_EQ(Take([&] { Frame(10); }).result, XR_ERROR_OUT_OF_MEMORY);
    EXPECT_THAT(log, ElementsAre(HasSubstr("result -3: it is broken"), HasSubstr("left out")));
    gpu.failure = XR_SUCCESS;
    EXPECT_EQ(Take([&] { Frame(10); }).result, XR_SUCCESS) << "it works again";

    const struct {
        const char* name;
        void (*change)(XrSwapchainCreateInfo&);
        XrResult result;
    } rows[] = {
        {"format", [](auto& i) { i.format = 8; }, XR_ERROR_SWAPCHAIN_FORMAT_UNSUPPORTED},
        {"protected", [](auto& i) { i.createFlags = 1; }, XR_ERROR_SWAPCHAIN_FORMAT_UNSUPPORTED},
        {"usage refused", [](auto& i) { i.usageFlags = 1; }, XR_ERROR_SWAPCHAIN_FORMAT_UNSUPPORTED},
        {"smaller than its rectangle", [](auto& i) { i.width = 1; }, XR_ERROR_SWAPCHAIN_RECT_INVALID},
    };
    for (const auto& row : rows) {
        auto info = Info();
        row.change(info);
        pictures_.AddSwapchain(kProjected, info);
        EXPECT_EQ(Take([&] { Frame(10); }).result, row.result) << row.name;
    }
    EXPECT_EQ(Take([] {}).result, XR_ERROR_CALL_ORDER_INVALID) << "no frame at all";
}

TEST_F(Pictures, ProjectionTellsWhereTheEyesAreWhereNobodyElseDoes) {
    pictures_.AddSwapchain(kSign, Info());
    const auto frame = [&] {
        Release(kSign, 70);
        Frame(10, true);
    };
    eyes_.reset();
    EXPECT_EQ(Take(frame).first, 10);
    has_projection_ = false;
    EXPECT_EQ(Take(frame).result, XR_ERROR_RUNTIME_FAILURE);
    eyes_ = {{{kHere, kFov}, {kHere, kFov}}};
    const Taken taken = Take(frame);
    EXPECT_EQ(taken.first, 0);
    EXPECT_EQ(taken.last, 70);
}

TEST_F(Pictures, OnlyWhatCanBeReadIsMadeReadable) {
    auto info = Info();
    EXPECT_FALSE(pictures_.Widened(info)) << "it is";
    info.usageFlags = XR_SWAPCHAIN_USAGE_SAMPLED_BIT;
    const auto widened = pictures_.Widened(info);
    ASSERT_TRUE(widened);
    EXPECT_EQ(widened->usageFlags, XR_SWAPCHAIN_USAGE_SAMPLED_BIT | XR_SWAPCHAIN_USAGE_TRANSFER_SRC_BIT);
    info.format = 8;
    EXPECT_FALSE(pictures_.Widened(info));
}

TEST_F(Pictures, SessionThatEndsWakesWhoWaitsAndGivesAllBack) {
    auto taken = Ask(1);
    Release(kProjected, 10);
    pictures_.EndSession();
    EXPECT_EQ(taken.get().result, XR_ERROR_SESSION_NOT_RUNNING);
    EXPECT_EQ(pictures_.Stop(), XR_ERROR_CALL_ORDER_INVALID) << "it is stopped";
    EXPECT_EQ(Take([&] { Frame(20); }).first, 20) << "it runs again";
    taken = Ask(2);
    pictures_.DestroySession();
    EXPECT_EQ(taken.get().result, XR_ERROR_HANDLE_INVALID);
    EXPECT_EQ(gpu.alive, 0);
    gpu.reads = 0;
    taken = Ask(1);
    EXPECT_EQ(taken.get().result, XR_ERROR_HANDLE_INVALID);
    Frame(30);
    EXPECT_EQ(gpu.reads + gpu.alive, 0);
}

TEST_F(Pictures, CallsHaveTheirOrderAndPicturesABound) {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint8_t pixels[4] = {};
    orvanic_xr::SimulatorCompositorCaptureInfo info = {
        orvanic_xr::kSimulatorCompositorCaptureInfoType, nullptr, 1, &width, &height, nullptr};
    EXPECT_EQ(pictures_.Capture(nullptr), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(pictures_.Capture(&info), XR_ERROR_CALL_ORDER_INVALID) << "not started";
    EXPECT_EQ(pictures_.Start(1, {0, 100}), XR_ERROR_RUNTIME_FAILURE) << "of no size";
    EXPECT_EQ(pictures_.Start(4, {100, 100}), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(pictures_.Start(1, {8192, 4096}), XR_SUCCESS);
    EXPECT_EQ(pictures_.Start(1, {100, 100}), XR_ERROR_CALL_ORDER_INVALID);
    info.pixels = pixels;
    EXPECT_EQ(pictures_.Capture(&info), XR_ERROR_CALL_ORDER_INVALID) << "not measured";
    info.pixels = nullptr;
    EXPECT_EQ(pictures_.Capture(&info), XR_SUCCESS);
    EXPECT_EQ(width, 2048u);
    EXPECT_EQ(height, 1024u);
    info.eye = 2;
    EXPECT_EQ(pictures_.Capture(&info), XR_ERROR_CALL_ORDER_INVALID) << "the other eye was not started";
    EXPECT_EQ(pictures_.Stop(), XR_SUCCESS);
    EXPECT_EQ(pictures_.Start(2, {100, 100}), XR_SUCCESS);
    EXPECT_EQ(pictures_.Capture(&info), XR_SUCCESS);
    EXPECT_EQ(width, 2048u) << "a buffer of that size may be about";
}

}  // namespace
}  // namespace automation_test
