// Holds a TCP port, so that nobody else can have it: says "ready", and lets go when its standard input ends.
//
//   port_holder PORT [ipv4|ipv6]      both families unless one is named
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

bool Hold(int family, const sockaddr* address, socklen_t size) {
    const int fd = socket(family, SOCK_STREAM, 0);
    const int yes = 1;
    // Connections of an earlier test may still linger; that is no reason to fail.
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    if (family == AF_INET6) setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &yes, sizeof(yes));
    return bind(fd, address, size) == 0 && listen(fd, 1) == 0;
}

bool HoldIpv4(std::uint16_t port) {
    sockaddr_in any = {};
    any.sin_family = AF_INET;
    any.sin_port = htons(port);
    return Hold(AF_INET, reinterpret_cast<const sockaddr*>(&any), sizeof(any));
}

bool HoldIpv6(std::uint16_t port) {
    sockaddr_in6 any = {};
    any.sin6_family = AF_INET6;
    any.sin6_port = htons(port);
    return Hold(AF_INET6, reinterpret_cast<const sockaddr*>(&any), sizeof(any));
}

}  // namespace

int main(int argc, char** argv) {
    const auto port = static_cast<std::uint16_t>(argc > 1 ? std::atoi(argv[1]) : 0);
    const std::string family = argc > 2 ? argv[2] : "";
    if (family != "ipv6" && !HoldIpv4(port)) return 1;
    if (family != "ipv4" && !HoldIpv6(port)) return 1;
    std::puts("ready");
    std::fflush(stdout);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
}
