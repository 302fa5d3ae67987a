#include "mcp/client/dial.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace mcp {
namespace {

using clock = std::chrono::steady_clock;

// The error of connecting, or 0.
int finish_connecting(int socket, clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now()).count();
    pollfd waiting{socket, POLLOUT, 0};
    if (left <= 0 || poll(&waiting, 1, static_cast<int>(left)) <= 0) return ETIMEDOUT;
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

}  // namespace

server_address parse_server_url(const std::string& url) {
    constexpr std::string_view kScheme = "http://";
    const auto refuse = [&] {
        return std::invalid_argument("'" + url + "' is no address of the form http://HOST:PORT");
    };
    std::string_view rest = url;
    if (!rest.starts_with(kScheme)) throw refuse();
    rest.remove_prefix(kScheme.size());
    rest = rest.substr(0, rest.find('/'));
    server_address address{{}, 80};
    const std::size_t bracket = rest.starts_with('[') ? rest.find(']') : 0;
    const std::size_t colon = bracket == std::string_view::npos ? bracket : rest.find(':', bracket);
    address.host = bracket == 0 ? rest.substr(0, colon) : rest.substr(1, bracket - 1);
    if (address.host.empty() || bracket == std::string_view::npos) throw refuse();
    if (colon != std::string_view::npos) {
        const std::string_view port = rest.substr(colon + 1);
        const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), address.port);
        if (error != std::errc() || end != port.data() + port.size() || address.port == 0) throw refuse();
    }
    return address;
}

std::string host_header(const server_address& address) {
    const bool is_v6 = address.host.find(':') != std::string::npos;
    return (is_v6 ? "[" + address.host + "]" : address.host) + ":" + std::to_string(address.port);
}

dialed dial(const server_address& address, std::chrono::milliseconds limit) {
    const auto deadline = clock::now() + limit;
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int unknown = getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &hints, &found);
    if (unknown != 0) return {{}, address.host + ": " + gai_strerror(unknown)};
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);

    int error = 0;
    for (const addrinfo* each = found; each; each = each->ai_next) {
        descriptor made(socket(each->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        const int on = 1;
        setsockopt(made.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        error = connect(made.get(), each->ai_addr, each->ai_addrlen) == 0 ? 0 : errno;
        if (error == EINPROGRESS) error = finish_connecting(made.get(), deadline);
        if (error == 0) return {std::move(made), {}};
    }
    return {{}, host_header(address) + ": " + std::system_category().message(error)};
}

}  // namespace mcp
