// Holds a TCP port, so that nobody else can have it: says "ready", and lets go when its standard input ends.
//
//   port_holder PORT [ipv4|ipv6]      both families unless one is named
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

bool Hold(int family, const char* port) {
    addrinfo hints = {};
    hints.ai_family = family;
    hints.ai_flags = AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* any = nullptr;
    if (getaddrinfo(nullptr, port, &hints, &any) != 0) return false;
    const int fd = socket(family, SOCK_STREAM, 0);
    const int yes = 1;
    // Connections of an earlier test may still linger; that is no reason to fail.
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    if (family == AF_INET6) setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &yes, sizeof(yes));
    const bool is_held = bind(fd, any->ai_addr, any->ai_addrlen) == 0 && listen(fd, 1) == 0;
    freeaddrinfo(any);
    return is_held;
}

}  // namespace

int main(int argc, char** argv) {
    const char* const port = argc > 1 ? argv[1] : "0";
    const std::string family = argc > 2 ? argv[2] : "";
    if (family != "ipv6" && !Hold(AF_INET, port)) return 1;
    if (family != "ipv4" && !Hold(AF_INET6, port)) return 1;
    std::puts("ready");
    std::fflush(stdout);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
}
