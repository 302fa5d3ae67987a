// What openxr_capture_composited_image costs from the POST to the last byte of its answer on the stream, and which part
// of it goes where. The runtime below draws the simulator's room anew for each call.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "bench/some_view.h"
#include "capture/capture_tools.h"
#include "capture/image_encoding.h"
#include "capture/screen_capture_manager.h"
#include "capture/simulator_capture_records.h"
#include "context/context_manager.h"
#include "diagnostics/logger.h"
#include "diagnostics/mcp_logger.h"
#include "mcp/server.h"
#include "simulator/renderer/picture.h"
#include "tests/fakes/fake_runtime.h"
#include "tests/fakes/sse_client.h"

namespace orvanic_xr {
namespace {

constexpr int kCalls = 9;
constexpr char kBody[] = R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":)"
                         R"({"name":"openxr_capture_composited_image","arguments":{}}})";

struct Size {
    std::uint32_t width, height;
};
constexpr Size kSizes[] = {{1024, 1024}, {1832, 1920}};

// Of the fastest call, which other work on the machine disturbs least.
template <typename Work>
double FastestMs(const Work& work) {
    std::array<double, kCalls> times;
    for (double& time : times) {
        const auto start = std::chrono::steady_clock::now();
        work();
        time = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    }
    return *std::min_element(times.begin(), times.end());
}

void StartSession(FakeRuntime& runtime) {
    InstanceState instance;
    instance.valid = true;
    instance.instance = runtime.instance();
    instance.enabledExtensions = {kSimulatorCompositorCaptureExtension};
    ContextManager::instance().setInstanceState(instance);
    const auto session = reinterpret_cast<XrSession>(std::uintptr_t{0x2001});
    ContextManager::instance().updateSessionState({true, session, XR_SESSION_STATE_FOCUSED, 1});
    ScreenCaptureManager::instance().initialize();
    ScreenCaptureManager::instance().backend()->start(session);
}

void Measure(Size size, FakeRuntime& runtime, mcp::sse_client& client) {
    const simulator::WorldView world = SomeView();
    const simulator::LitRoom room(world.things);
    runtime.on("xrCaptureSimulatorCompositorOutputKESTX1", [&, size](XrSession, SimulatorCompositorCaptureInfo* info) {
        *info->width_output = size.width;
        *info->height_output = size.height;
        if (info->pixels) simulator::DrawPicture(world, room, 0, size.width, size.height, info->pixels);
        return XR_SUCCESS;
    });
    const double whole = FastestMs([&] {
        client.post(kBody);
        client.stream().read_bytes(std::stoul(client.stream().read_until("\r\n"), nullptr, 16) + 2);
    });

    std::vector<std::uint8_t> pixels;
    const double drawing = FastestMs([&] {
        std::uint32_t width, height;
        pixels = {};
        ScreenCaptureManager::instance().backend()->capture(pixels, width, height, "left");
    });
    std::vector<std::uint8_t> png;
    const double compressing = FastestMs([&] { png = encode_png(pixels, size.width, size.height).value(); });
    json image;
    const double encoding = FastestMs([&] { image["data"] = encode_base64(png.data(), png.size()); });
    std::size_t length = 0;
    const double dumping = FastestMs([&] { length = mcp::dump_json(image).size(); });
    std::printf(
        "%ux%u: %.1f ms from POST to answer: %.1f the runtime's picture, %.1f PNG, %.2f base64, %.2f JSON text, "
        "%.2f all else; %zu bytes\n",
        size.width, size.height, whole, drawing, compressing, encoding, dumping,
        whole - drawing - compressing - encoding - dumping, length);
}

void Run() {
    Logger::instance().set_level(kLogError);
    mcp::logger::instance().set_level(kLogError);
    FakeRuntime runtime;
    StartSession(runtime);
    mcp::server_config config;
    config.host = "127.0.0.1";
    config.port = 0;
    config.timings.heartbeat_pause = std::chrono::hours(1);  // nothing but answers on the stream
    mcp::server server(config);
    const ToolEntry capture = make_openxr_capture_composited_image_tool_entry();
    server.register_tool(capture.tool, capture.handler);
    server.start(false);
    if (!server.wait_until_listening(std::chrono::seconds(5))) throw std::runtime_error("the server does not listen");
    mcp::sse_client client(server.port());
    client.shake_hands();
    for (const Size size : kSizes) Measure(size, runtime, client);
}

}  // namespace
}  // namespace orvanic_xr

int main() try { orvanic_xr::Run(); } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
}
