// An agent of a few lines: connects to the MCP server in a running XR application, shakes hands, and makes a
// tour of what the application tells.
//
//     velmoor_agent [http://127.0.0.1:8720]
//
// Exit code: 0 if all went well, 1 if a step of the tour failed, 2 if there was nobody to talk to.

#include <exception>
#include <iostream>
#include <string>

#include "examples/velmoor_agent/mcp_client.h"
#include "examples/velmoor_agent/tour.h"

namespace {

constexpr auto kServerComesUp = std::chrono::seconds(20);

int Run(const std::string& url) {
    agent::McpClient client(url);
    client.Connect(kServerComesUp);
    const agent::json told = client.Initialize("velmoor_agent", "1.0");
    const agent::json server = told.value("serverInfo", agent::json::object());
    std::cout << "Connected to " << url << ": " << server.value("name", "?") << " " << server.value("version", "?")
              << ", protocol " << told.value("protocolVersion", "?") << "\n";
    return agent::RunTour(client, agent::MakeTour(), std::cout) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc > 1 ? argv[1] : "http://127.0.0.1:8720");
    } catch (const std::exception& problem) {
        std::cerr << "velmoor_agent: " << problem.what() << "\n";
        return 2;
    }
}
