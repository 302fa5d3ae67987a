#include "mcp/local_only.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <string_view>

namespace mcp {
namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::size_t kPortDigits = 5;

// Four decimal numbers, and no shorter or other way to write them; nor anything behind a zero byte.
bool is_loopback_ipv4(const std::string& address) {
    in_addr parsed{};
    return address.find('\0') == std::string::npos && inet_pton(AF_INET, address.c_str(), &parsed) == 1 &&
           ntohl(parsed.s_addr) >> 24 == IN_LOOPBACKNET;
}

bool is_loopback_ipv6(const std::string& address) {
    in6_addr parsed{};
    if (inet_pton(AF_INET6, address.c_str(), &parsed) != 1) return false;
    return IN6_IS_ADDR_LOOPBACK(&parsed) || (IN6_IS_ADDR_V4MAPPED(&parsed) && parsed.s6_addr[12] == IN_LOOPBACKNET);
}

bool is_localhost(std::string_view name) {
    constexpr std::string_view kLocalhost = "localhost";
    return std::equal(name.begin(), name.end(), kLocalhost.begin(), kLocalhost.end(),
                      [](char c, char wanted) { return (c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c) == wanted; });
}

// A host with its port, if it has one.
bool is_local_host(std::string_view host) {
    // Behind the bracket, the colons of an IPv6 address are passed.
    const std::size_t colon = host.find(':', host.starts_with('[') ? std::min(host.find(']'), host.size()) : 0);
    if (colon != std::string_view::npos) {
        const std::string_view port = host.substr(colon + 1);
        if (port.empty() || port.size() > kPortDigits || port.find_first_not_of(kDigits) != std::string_view::npos) {
            return false;
        }
        host = host.substr(0, colon);
    }
    return is_localhost(host) || host == "[::1]" || is_loopback_ipv4(std::string(host));
}

bool is_local_origin(std::string_view origin) {
    for (const std::string_view scheme : {"http://", "https://"}) {
        if (origin.starts_with(scheme)) return is_local_host(origin.substr(scheme.size()));
    }
    return false;
}

}  // namespace

const char* foreign_part(const std::string& peer_address, const header_map& headers) {
    if (!is_loopback_ipv4(peer_address) && !is_loopback_ipv6(peer_address)) return "address";
    const auto host = headers.find("host");
    if (host == headers.end() || !is_local_host(host->second)) return "Host";
    const auto origin = headers.find("origin");
    if (origin != headers.end() && !is_local_origin(origin->second)) return "Origin";
    return nullptr;
}

}  // namespace mcp
