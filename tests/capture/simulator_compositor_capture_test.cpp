#include "capture/simulator_compositor_capture.h"

#include <memory>
#include <thread>

#include "tests/capture/capture_fixture.h"
#include "tests/capture/little_memory.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CaptureBackend : public CaptureTest {
 protected:
    void Start() {
        EXPECT_TRUE(backend_.start(Session()));
        runtime_.take_calls();
        runtime_.take_lookups();
        log_.take();
    }
    bool Capture(const std::string& eye = "left") { return backend_.capture(pixels_, width_, height_, eye); }

    OpenXRSimulatorCompositorCaptureBackend backend_;
    std::vector<std::uint8_t> pixels_;
    std::uint32_t width_ = 77;
    std::uint32_t height_ = 77;
};

TEST_F(CaptureBackend, SecondStartKeepsTheFirstSession) {
    Start();
    EXPECT_TRUE(backend_.start(Session(0x2002)));
    EXPECT_THAT(runtime_.take_calls(), IsEmpty());
    EXPECT_THAT(log_.take(), ElementsAre("WARNING SimulatorCompositorCapture: Already active"));
    EXPECT_TRUE(Capture());
    EXPECT_THAT(sessions_, ElementsAre(Session(), Session()));
}

TEST_F(CaptureBackend, StopEndsWhateverTheRuntimeSaysOrLacks) {
    Start();
    runtime_.answer(kStop, XR_ERROR_SESSION_NOT_RUNNING);
    backend_.stop();
    EXPECT_THAT(log_.take(), ElementsAre("INFO SimulatorCompositorCapture: Stopped"));
    Start();
    runtime_.lack(kStop);
    backend_.shutdown();
    EXPECT_THAT(log_.take(), ElementsAre("WARNING SimulatorCompositorCapture: Skipping stop (entry point or session "
                                         "unavailable)",
                                         "INFO SimulatorCompositorCapture: Stopped"));
    EXPECT_FALSE(backend_.is_ready());
    EXPECT_TRUE(backend_.start(Session(0x2002)));
}

TEST_F(CaptureBackend, PictureComesInTwoCallsWithOneRecord) {
    Start();
    Show({3, 1}, {3, 1});
    EXPECT_TRUE(Capture("left"));
    EXPECT_THAT(pixels_, ElementsAre(16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27));
    EXPECT_EQ(width_, 3u);
    EXPECT_EQ(height_, 1u);
    EXPECT_THAT(log_.take(), ElementsAre("INFO SimulatorCompositorCapture: Captured frame 3x1 (12 bytes)"));
    ASSERT_EQ(records_.size(), 2u);
    EXPECT_EQ(records_[0].pixels, nullptr);
    EXPECT_EQ(records_[1].pixels, pixels_.data());
    for (const auto& record : records_) {
        EXPECT_EQ(record.type, 1000680000u);
        EXPECT_EQ(record.next, nullptr);
        EXPECT_EQ(record.eye, 1u);
        EXPECT_EQ(record.width_output, records_[0].width_output);
    }
    // The function is asked for anew each time.
    EXPECT_THAT(runtime_.take_lookups(), ElementsAre(kCapture));
    for (const char* eye : {"right", "LEFT", ""}) {
        EXPECT_TRUE(Capture(eye));
        EXPECT_EQ(records_.back().eye, 2u) << eye;
    }
}

TEST_F(CaptureBackend, SizesThatCannotBeAreRefusedBeforeAnyPixels) {
    Start();
    const struct {
        Size size;
        std::string line;
    } rows[] = {
        {{0, 0}, "Invalid dimensions 0x0"},
        {{8, 0}, "Invalid dimensions 8x0"},
        {{16385, 1}, "Dimensions exceed maximum 16385x1"},
        {{1, 16385}, "Dimensions exceed maximum 1x16385"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        records_.clear();
        Show(row.size, row.size);
        EXPECT_FALSE(Capture());
        EXPECT_THAT(log_.take(), ElementsAre("ERROR SimulatorCompositorCapture: " + row.line));
        EXPECT_EQ(records_.size(), 1u);
    }
    Show({16384, 1}, {16384, 1});
    EXPECT_TRUE(Capture());
}

TEST_F(CaptureBackend, SizeThatChangesBetweenTheCallsIsThatOfTheBuffer) {
    Start();
    for (const Size then : {Size{4000, 4000}, Size{1, 1}, Size{0, 0}}) {
        Show({3, 2}, then);
        EXPECT_TRUE(Capture());
        EXPECT_EQ(width_, 3u);
        EXPECT_EQ(height_, 2u);
        EXPECT_EQ(pixels_.size(), 24u);
        EXPECT_THAT(log_.take(), ElementsAre("INFO SimulatorCompositorCapture: Captured frame 3x2 (24 bytes)"));
    }
}

TEST_F(CaptureBackend, PictureThatDoesNotFitIntoMemoryIsRefused) {
    if (!kMemoryCanBeLimited) GTEST_SKIP() << "a sanitizer needs its address space";
    Start();
    Show({16384, 16384}, {16384, 16384});
    const int outcome = WithLittleMemory(200'000'000, [&] {
        const bool captured = Capture();
        return !captured && log_.lines().back().ends_with("Failed to allocate 1073741824 bytes") ? 0 : 1;
    });
    EXPECT_EQ(outcome, 0);
}

class CaptureManager : public CaptureTest {
 protected:
    ScreenCaptureManager manager_;
};

TEST_F(CaptureManager, OwnsOneBackendWhileTheExtensionIsThere) {
    EXPECT_EQ(manager_.backend(), nullptr);
    manager_.shutdown();
    EXPECT_TRUE(manager_.initialize());
    const auto first = manager_.backend();
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(manager_.initialize());
    EXPECT_EQ(manager_.backend(), first);
    EXPECT_TRUE(first->start(Session()));
    manager_.shutdown();
    EXPECT_EQ(manager_.backend(), nullptr);
    EXPECT_FALSE(first->is_ready());
    EXPECT_THAT(log_.take(),
                ElementsAre("INFO ScreenCapture: Using OpenXR simulator compositor capture backend",
                            "WARNING ScreenCapture: Already initialized", "INFO SimulatorCompositorCapture: Started",
                            "INFO SimulatorCompositorCapture: Stopped", "INFO ScreenCapture: Shut down"));
    Renew(ContextManager::instance());
    EXPECT_FALSE(manager_.initialize());
    EXPECT_EQ(manager_.backend(), nullptr);
    EXPECT_THAT(log_.take(), ElementsAre("WARNING ScreenCapture: No backend available"));
}

TEST_F(CaptureManager, ShutdownUnderARunningCaptureLeavesItsBackendToIt) {
    manager_.initialize();
    std::weak_ptr<ScreenCaptureBackend> watched = manager_.backend();
    manager_.backend()->start(Session());
    Gate gate = runtime_.block_call(kCapture, 1);
    bool captured = false;
    std::vector<std::uint8_t> pixels;
    std::thread tool([&] {
        std::uint32_t width = 0;
        std::uint32_t height = 0;
        captured = manager_.backend()->capture(pixels, width, height, "left");
    });
    EXPECT_TRUE(gate.wait_for_caller());
    manager_.shutdown();
    EXPECT_FALSE(watched.expired());
    gate.open();
    tool.join();
    EXPECT_TRUE(captured);
    EXPECT_EQ(pixels.size(), 16u);
    EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace orvanic_xr
