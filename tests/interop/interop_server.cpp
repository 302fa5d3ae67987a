// A server with a tool for each kind of content, for clients that others wrote: prints its port, and serves
// until its standard input ends.
//
//   interop_server [--local-only | PORT]
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "mcp/server.h"

namespace {

mcp::tool Declare(const char* name, const char* description) {
    mcp::tool tool;
    tool.name = name;
    tool.description = description;
    tool.input_schema = {
        {"properties", {{"message", {{"type", "string"}}}}}, {"type", "object"}, {"additionalProperties", false}};
    return tool;
}

void RegisterTools(mcp::server& server) {
    mcp::tool echo = Declare("echo", "Gives its message back.");
    echo.title = "Echo";
    echo.read_only_hint = true;
    echo.destructive_hint = false;
    echo.has_annotations = true;
    server.register_tool(echo, [](const mcp::json& arguments, const std::string&) {
        return mcp::json::array({{{"type", "text"}, {"text", arguments.value("message", "")}}});
    });
    server.register_tool(Declare("picture", "Gives a text and a picture."), [](const mcp::json&, const std::string&) {
        return mcp::json::array({{{"type", "text"}, {"text", "one pixel"}},
                                 {{"type", "image"}, {"data", "iVBORw0KGgo="}, {"mimeType", "image/png"}}});
    });
    server.register_tool(Declare("wait", "Gives its message back after a second."),
                         [](const mcp::json& arguments, const std::string&) {
                             std::this_thread::sleep_for(std::chrono::seconds(1));
                             return mcp::json::array({{{"type", "text"}, {"text", arguments.value("message", "")}}});
                         });
    server.register_tool(Declare("broken", "Throws."), [](const mcp::json&, const std::string&) -> mcp::json {
        throw std::runtime_error("out of order");
    });
}

}  // namespace

int main(int argc, char** argv) {
    mcp::server_config config;
    config.local_only = argc > 1 && argv[1] == std::string_view("--local-only");
    config.host = "0.0.0.0";
    config.port = argc > 1 && !config.local_only ? std::atoi(argv[1]) : 0;
    mcp::server server(config);
    server.set_server_info("interop", "1.2.3");
    server.set_capabilities({{"tools", mcp::json::object()}});
    RegisterTools(server);
    server.start(false);
    if (!server.wait_until_listening(std::chrono::seconds(5))) return 1;
    std::printf("port %d\n", server.port());
    std::fflush(stdout);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
}
