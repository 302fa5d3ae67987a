#include "doctor/mcp_greeting.h"

#include <sys/socket.h>

#include <chrono>
#include <exception>
#include <utility>

#include "mcp/client/blocking_client.h"

namespace orvanic_xr {
namespace {

constexpr std::chrono::milliseconds kPatience{2000};
// What a stranger may send before we stop listening.
constexpr std::size_t kMostBytes = 65536;

}  // namespace

std::optional<std::string> GreetMcpServer(int family, std::uint16_t port) try {
    const mcp::server_address loopback{family == AF_INET6 ? "::1" : "127.0.0.1", port};
    mcp::link_config config;
    config.dial = [loopback] { return mcp::dial(loopback, kPatience); };
    config.host = mcp::host_header(loopback);
    config.client_info = {{"name", "velmoor-doctor"}, {"version", "1"}};
    config.begin_again = false;
    config.most_event_bytes = kMostBytes;
    mcp::blocking_client client(std::move(config));
    const mcp::json info = client.await_introduction(kPatience).at("serverInfo");
    return info.at("name").get<std::string>() + " " + info.at("version").get<std::string>();
} catch (const std::exception&) {
    return std::nullopt;
}

}  // namespace orvanic_xr
