// A picture of megabytes on its way to one client, who takes his time, while other clients go on.
#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "capture/capture_tools.h"
#include "mcp/server.h"
#include "tests/capture/capture_fixture.h"
#include "tests/capture/decoded_png.h"
#include "tests/fakes/sse_client.h"

namespace orvanic_xr {
namespace {

constexpr std::uint32_t kWidth = 1024;
constexpr std::uint32_t kHeight = 1024;

// Encoding the picture takes some seconds under a sanitizer.
constexpr std::chrono::seconds kPatience{120};

// Pixels that no compression makes smaller.
std::vector<std::uint8_t> Noise(std::size_t size) {
    std::mt19937 random(7);
    std::vector<std::uint8_t> bytes(size);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    return bytes;
}

std::unique_ptr<mcp::server> StartServer() {
    mcp::server_config config;
    config.host = "127.0.0.1";
    config.port = 0;
    config.write_timeout_seconds = 240;
    config.threadpool_size = 2;
    config.timings.endpoint_delay = config.timings.stop_pause = std::chrono::milliseconds(5);
    config.timings.heartbeat_pause = std::chrono::hours(1);  // nothing but answers on the streams
    auto server = std::make_unique<mcp::server>(config);
    const ToolEntry capture = make_openxr_capture_composited_image_tool_entry();
    server->register_tool(capture.tool, capture.handler);
    mcp::tool echo;
    echo.name = "echo";
    server->register_tool(echo, [](const json& arguments, const std::string&) {
        return json::array({{{"type", "text"}, {"text", arguments.at("text")}}});
    });
    server->start(false);
    EXPECT_TRUE(server->wait_until_listening(std::chrono::seconds(10)));
    return server;
}

class CaptureStream : public CaptureTest {
 protected:
    CaptureStream() {
        ContextManager::instance().updateSessionState({true, Session(), XR_SESSION_STATE_FOCUSED, 1});
        ScreenCaptureManager::instance().initialize();
        ScreenCaptureManager::instance().backend()->start(Session());
        runtime_.on(kCapture, [this](XrSession, SimulatorCompositorCaptureInfo* info) {
            *info->width_output = kWidth;
            *info->height_output = kHeight;
            if (info->pixels) std::memcpy(info->pixels, pixels_.data(), pixels_.size());
            return XR_SUCCESS;
        });
    }

    const std::vector<std::uint8_t> pixels_ = Noise(std::size_t{kWidth} * kHeight * 4);
};

TEST_F(CaptureStream, CarriesThePictureWholeWhileOtherSessionsAreAnswered) {
    const std::unique_ptr<mcp::server> server = StartServer();
    mcp::sse_client viewer(server->port());
    mcp::sse_client others[] = {mcp::sse_client(server->port()), mcp::sse_client(server->port())};
    viewer.shake_hands();
    for (mcp::sse_client& other : others) other.shake_hands();

    viewer.post(R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":)"
                R"({"name":"openxr_capture_composited_image","arguments":{}}})");
    // The length of the chunk is there, so the picture is being written; more than the sockets hold is left unread.
    const std::size_t size = std::stoul(viewer.stream().read_until("\r\n", kPatience), nullptr, 16);
    EXPECT_GT(size, 5'500'000u);

    for (int i = 0; i < 50; ++i) {
        for (mcp::sse_client& other : others) {
            const std::string text(static_cast<std::size_t>(i) * 1000, static_cast<char>('a' + i % 26));
            const json answer = mcp::parse_json(other.call_tool(i, "echo", mcp::dump_json(json{{"text", text}})));
            ASSERT_EQ(answer.at("id"), i);
            ASSERT_EQ(answer.at("result").at("content").at(0).at("text"), text);
        }
    }

    const std::string frame = viewer.stream().read_bytes(size);
    const std::string head = "event: message\r\ndata: ";
    ASSERT_TRUE(frame.starts_with(head) && frame.ends_with("\r\n\r\n"));
    const json answer = mcp::parse_json(frame.substr(head.size()));
    EXPECT_EQ(answer.at("id"), 1);
    const json& image = answer.at("result").at("content").at(0);
    const DecodedPng decoded(Base64Decoded(image.at("data").get<std::string>()));
    EXPECT_EQ(decoded.width, kWidth);
    EXPECT_EQ(decoded.height, kHeight);
    EXPECT_TRUE(decoded.pixels == pixels_);
}

}  // namespace
}  // namespace orvanic_xr
