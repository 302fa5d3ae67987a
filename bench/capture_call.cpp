// What openxr_capture_composited_image costs from the POST to the last byte of its answer on the stream, and which part
// of it goes where. The runtime below draws the simulator's room anew for each call.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/some_view.h"
#include "capture/base64.h"
#include "capture/capture_tools.h"
#include "capture/image_encoding.h"
#include "capture/screen_capture_manager.h"
#include "context/context_manager.h"
#include "diagnostics/logger.h"
#include "diagnostics/mcp_logger.h"
#include "mcp/server.h"
#include "simulator/renderer/picture.h"
#include "tests/fakes/fake_runtime.h"
#include "tests/fakes/sse_client.h"
#include "xr/simulator_capture_records.h"

namespace orvanic_xr {
namespace {

constexpr int kRounds = 9;
constexpr char kBody[] = R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":)"
                         R"({"name":"openxr_capture_composited_image","arguments":{}}})";

struct Size {
    std::uint32_t width, height;
};
constexpr Size kSizes[] = {{256, 256}, {512, 512}, {1024, 1024}, {1832, 1920}};

struct Part {
    const char* name;
    std::function<void()> work;
    double fastest_ms = 1e9;  // which other work on the machine disturbs least
};

// In turns, so that what disturbs one disturbs all.
void Time(std::span<Part> parts) {
    for (int round = 0; round < kRounds; ++round) {
        for (Part& part : parts) {
            const auto start = std::chrono::steady_clock::now();
            part.work();
            const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
            part.fastest_ms = std::min(part.fastest_ms, taken.count());
        }
    }
}

void Print(Size size, std::span<const Part> parts, std::size_t bytes) {
    double left_ms = parts[0].fastest_ms;
    std::printf("%ux%u, %zu bytes of text: %s %.1f ms", size.width, size.height, bytes, parts[0].name, left_ms);
    for (const Part& part : parts.subspan(1)) {
        std::printf(", %s %.2f", part.name, part.fastest_ms);
        left_ms -= part.fastest_ms;
    }
    std::printf(", all else %.2f\n", left_ms);
}

void StartSession(FakeRuntime& runtime) {
    InstanceState instance;
    instance.valid = true;
    instance.instance = runtime.instance();
    instance.enabledExtensions = {kSimulatorCompositorCaptureExtension};
    ContextManager::instance().setInstanceState(instance);
    const auto session = reinterpret_cast<XrSession>(std::uintptr_t{0x2001});
    ContextManager::instance().updateSessionState({true, session, XR_SESSION_STATE_FOCUSED, 1});
    ContextManager::instance().createSessionContext(session);
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
    std::vector<std::uint8_t> pixels;
    std::vector<std::uint8_t> png;
    json image;
    std::string text;
    const auto call = [&] {
        client.post(kBody);
        client.stream().read_bytes(std::stoul(client.stream().read_until("\r\n"), nullptr, 16) + 2);
    };
    const auto capture = [&] {
        std::uint32_t width, height;
        pixels = {};
        ScreenCaptureManager::instance().backend()->capture(pixels, width, height, "left");
    };
    Part parts[] = {
        {"from POST to answer", call},
        {"the runtime's picture", capture},
        {"PNG", [&] { png = encode_png(pixels, size.width, size.height).value(); }},
        {"base64", [&] { image["data"] = encode_base64(png.data(), png.size()); }},
        {"JSON text", [&] { text = mcp::dump_json(image); }},
    };
    Time(parts);
    Print(size, parts, text.size());
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
