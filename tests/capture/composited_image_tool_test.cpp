#include <atomic>
#include <chrono>
#include <thread>

#include "capture/capture_tools.h"
#include "diagnostics/clock.h"
#include "mcp/thread_pool.h"
#include "tests/capture/capture_fixture.h"
#include "tests/capture/decoded_png.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;

constexpr char kPending[] =
    "Screen capture permission is pending. A system consent dialog is now shown in the headset — ask the user to "
    "approve it, then call openxr_capture_composited_image again. This is not an error; retry once the user has "
    "granted permission.";

class CompositedImageTool : public CaptureTest {
 protected:
    void StartCapture() {
        ScreenCaptureManager::instance().initialize();
        ScreenCaptureManager::instance().backend()->start(Session());
        log_.take();
    }
    static json Content(const json& arguments) {
        return make_openxr_capture_composited_image_tool_entry().handler(arguments, "");
    }
    static std::string Text(const json& arguments) { return Content(arguments).at(0).at("text").get<std::string>(); }
};

TEST_F(CompositedImageTool, AnswersOneImageItem) {
    StartCapture();
    EXPECT_EQ(Content(json())[0]["type"], "image");
    EXPECT_EQ(records_.back().eye, 1u) << "the left one, as nothing is said";
    log_.take();
    Show({3, 2}, {3, 2});
    json content = Content({{"eye", "right"}});
    ASSERT_EQ(content.size(), 1u);
    const std::string data = content[0]["data"].get<std::string>();
    EXPECT_TRUE(data.starts_with("iVBORw0KGgo")) << data;
    const DecodedPng decoded(Base64Decoded(data));
    ASSERT_EQ(decoded.pixels.size(), 24u);
    EXPECT_EQ(decoded.pixels.front(), 32);  // of the right eye
    EXPECT_EQ(decoded.pixels.back(), 55);
    const std::size_t file_size = Base64Decoded(data).size();
    content[0]["data"] = "";
    EXPECT_EQ(mcp::dump_json(content),
              R"([{"type":"image","data":"","mimeType":"image/png","annotations":{"width":3,"height":2}}])");
    EXPECT_THAT(log_.take(), ElementsAre("INFO openxr_capture_composited_image tool called",
                                         "INFO SimulatorCompositorCapture: Captured frame 3x2 (24 bytes)",
                                         "INFO openxr_capture_composited_image: Successfully captured 3x2 image, PNG "
                                         "size: " +
                                             std::to_string(file_size) + " bytes"));
}

TEST_F(CompositedImageTool, RefusesInTheOrderOfItsChecks) {
    ToolEntry (*const make)() = make_openxr_capture_composited_image_tool_entry;
    ExpectRefusals({
        {make, R"({"eye":5})", "Invalid 'hand' parameter. Expected a string value.", "Invalid 'eye' parameter"},
        {make, R"({"eye":null})", "Invalid 'hand' parameter. Expected a string value.", "Invalid 'eye' parameter"},
        {make, R"({"eye":"Left"})", "Invalid 'eye' parameter. Must be 'left' or 'right'.",
         "Invalid 'eye' parameter: Left"},
        {make, "{}", "Compositor capture is not available on this platform.",
         "No capture method available on this platform"},
    });
    ContextManager::instance().updateSessionState({});
    EXPECT_EQ(Text({{"eye", 5}}), "Error: No valid XR session is currently active.");
}

TEST_F(CompositedImageTool, WithoutARunningSessionItWaitsFiveSecondsAndTellsToRetry) {
    ScreenCaptureManager::instance().initialize();
    log_.take();
    FakeClock clock(0, 1'000'000'000);
    std::atomic<bool> answered = false;
    std::string text;
    std::thread tool([&] {
        text = Text({});
        answered = true;
    });
    const std::string asked = "INFO openxr_capture_composited_image: Capture backend not ready, requesting permission";
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    const auto wait_until = [&](auto condition) {
        while (!condition() && std::chrono::steady_clock::now() < give_up) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    };
    wait_until([&] { return log_.lines().size() == 2; });
    EXPECT_THAT(log_.lines(), ElementsAre("INFO openxr_capture_composited_image tool called", asked));
    // Long enough for a poll or two; time itself stands short of the end.
    clock.Advance(4'999'999'999);
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    EXPECT_FALSE(answered);
    wait_until([&] {
        clock.Advance(100'000'000);
        return answered.load();
    });
    tool.join();
    EXPECT_EQ(text, kPending);
    EXPECT_THAT(log_.messages("WARNING"),
                ElementsAre("openxr_capture_composited_image: no permission is missing: no session has begun, or its "
                            "capture could not be started"));
    EXPECT_EQ(log_.take().back(),
              "INFO openxr_capture_composited_image: Permission not yet granted, returning pending status");
}

TEST_F(CompositedImageTool, SessionThatBeginsDuringTheWaitIsCaptured) {
    ScreenCaptureManager::instance().initialize();
    json content;
    mcp::thread_pool pool(1);
    auto captured = pool.enqueue([&] { content = Content({}); });
    // The only worker serves others meanwhile.
    EXPECT_EQ(pool.enqueue([] {}).wait_for(std::chrono::seconds(3)), std::future_status::ready);
    ScreenCaptureManager::instance().backend()->start(Session());
    captured.wait();
    EXPECT_EQ(content.at(0).at("type"), "image");
}

}  // namespace
}  // namespace orvanic_xr
