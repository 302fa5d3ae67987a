// A server with one tool that gives its message back, for load meters: prints its port, and serves until its
// standard input ends. It logs to a file as the layer does; XDG_STATE_HOME says where.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "diagnostics/log_file_sink.h"
#include "mcp/server.h"

int main(int argc, char** argv) {
    orvanic_xr::LogFileSink::instance().begin_session("mcp_echo_server");
    mcp::server_config config;
    config.host = "0.0.0.0";
    config.port = argc > 1 ? std::atoi(argv[1]) : 0;
    config.write_timeout_seconds = 30;
    mcp::server server(config);
    mcp::tool echo;
    echo.name = "echo";
    echo.description = "Gives its message back.";
    echo.input_schema = {{"type", "object"}, {"properties", {{"message", {{"type", "string"}}}}}};
    server.register_tool(echo, [](const mcp::json& arguments, const std::string&) {
        return mcp::json::array({{{"type", "text"}, {"text", arguments.value("message", "")}}});
    });
    server.start(false);
    if (!server.wait_until_listening(std::chrono::seconds(5))) return 1;
    std::printf("%d\n", server.port());
    std::fflush(stdout);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
}
