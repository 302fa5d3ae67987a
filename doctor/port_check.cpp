#include "doctor/port_check.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <filesystem>
#include <sstream>

#include "doctor/joined.h"
#include "doctor/mcp_greeting.h"
#include "doctor/whole_file.h"

namespace orvanic_xr {
namespace {

// The name that the layer's own server gives.
constexpr std::string_view kOwnServer = "OrvanicXR_MCP_Server";

// The error of binding the port at any address of the family as the layer does, or 0. Neither remains of closed
// connections nor a server that shares the port are a hindrance.
int BindError(int family, std::uint16_t port) {
    const int fd = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return errno;
    const int yes = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &yes, sizeof(yes));
    sockaddr_in6 any6{};
    sockaddr_in any4{};
    int result = 0;
    if (family == AF_INET6) {
        setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &yes, sizeof(yes));
        any6.sin6_family = AF_INET6;
        any6.sin6_port = htons(port);
        result = bind(fd, reinterpret_cast<const sockaddr*>(&any6), sizeof(any6));
    } else {
        any4.sin_family = AF_INET;
        any4.sin_port = htons(port);
        result = bind(fd, reinterpret_cast<const sockaddr*>(&any4), sizeof(any4));
    }
    const int error = result == 0 ? 0 : errno;
    close(fd);
    return error;
}

PortSide LookAtSide(int family, std::uint16_t port, bool has_listener) {
    const int error = BindError(family, port);
    PortSide side;
    side.supported = error != EAFNOSUPPORT && error != EADDRNOTAVAIL;
    side.taken = side.supported && (error != 0 || has_listener);
    if (side.taken) side.mcp_server = GreetMcpServer(family, port);
    return side;
}

// A process shows its sockets as links of the form "socket:[inode]".
bool HoldsOneOf(const std::filesystem::path& process, const std::set<std::string>& inodes) {
    std::error_code hidden;
    for (const auto& entry : std::filesystem::directory_iterator(process / "fd", hidden)) {
        const std::string target = std::filesystem::read_symlink(entry.path(), hidden);
        if (target.starts_with("socket:[") && inodes.contains(target.substr(8, target.size() - 9))) return true;
    }
    return false;
}

std::set<std::string> ProcessesWith(const std::set<std::string>& inodes) {
    std::set<std::string> processes;
    std::error_code hidden;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", hidden)) {
        const std::string pid = entry.path().filename();
        if (pid.find_first_not_of("0123456789") != std::string::npos || !HoldsOneOf(entry.path(), inodes)) continue;
        std::string name = WholeFile(entry.path() / "comm");
        if (!name.empty() && name.back() == '\n') name.pop_back();
        processes.insert(name.append(" (pid ").append(pid).append(")"));
    }
    return processes;
}

bool IsOwn(const PortSide& side) {
    return side.mcp_server && side.mcp_server->starts_with(kOwnServer);
}

std::string Address(const PortSituation& situation, bool ipv4) {
    return std::string("http://") + (ipv4 ? "127.0.0.1" : "[::1]") + ":" + std::to_string(situation.port) + "/sse";
}

std::string Holder(const PortSituation& situation) {
    const PortSide& side = situation.ipv4.taken ? situation.ipv4 : situation.ipv6;
    std::string text = situation.listeners.empty() ? "a process of another user" : Joined(situation.listeners);
    return side.mcp_server ? text + ", which answers as " + *side.mcp_server : text;
}

}  // namespace

std::set<std::string> ListeningInodes(std::string_view table, std::uint16_t port) {
    std::set<std::string> inodes;
    std::istringstream lines{std::string(table)};
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string number, local, remote, state, skipped, inode;
        fields >> number >> local >> remote >> state;
        for (int i = 0; i < 5; ++i) fields >> skipped;
        fields >> inode;
        const std::size_t colon = local.rfind(':');
        if (!fields || state != "0A" || colon == std::string::npos) continue;
        unsigned local_port = 0;
        std::from_chars(local.data() + colon + 1, local.data() + local.size(), local_port, 16);
        if (local_port == port) inodes.insert(inode);
    }
    return inodes;
}

PortSituation LookAtPort(std::uint16_t port) {
    PortSituation situation;
    situation.port = port;
    std::set<std::string> inodes = ListeningInodes(WholeFile("/proc/net/tcp"), port);
    std::set<std::string> ipv6_inodes = ListeningInodes(WholeFile("/proc/net/tcp6"), port);
    situation.ipv4 = LookAtSide(AF_INET, port, !inodes.empty());
    situation.ipv6 = LookAtSide(AF_INET6, port, !ipv6_inodes.empty());
    inodes.merge(ipv6_inodes);
    if (!inodes.empty()) situation.listeners = ProcessesWith(inodes);
    return situation;
}

Finding JudgePort(const PortSituation& situation) {
    const PortSide& ipv4 = situation.ipv4;
    const PortSide& ipv6 = situation.ipv6;
    const std::string port = std::to_string(situation.port);
    const bool ipv4_free = ipv4.supported && !ipv4.taken;
    const bool ipv6_free = ipv6.supported && !ipv6.taken;
    const std::string free_on = ipv4_free ? (ipv6_free ? "IPv4 and IPv6" : "IPv4") : "IPv6";

    if (!ipv4.taken && !ipv6.taken) {
        if (!ipv4_free && !ipv6_free) {
            return {Mark::Bad, "port", "this machine has neither IPv4 nor IPv6", "bring up the loopback interface"};
        }
        return {Mark::Ok, "port", port + " is free on " + free_on,
                "once an application runs with the layer, connect a client to " + Address(situation, ipv4_free)};
    }
    if (situation.listeners.size() > 1 && (IsOwn(ipv4) || IsOwn(ipv6))) {
        return {Mark::Warn, "port", port + " is shared by " + Joined(situation.listeners),
                "end all but one: a client's requests reach now this, now that"};
    }
    if (IsOwn(ipv4) || IsOwn(ipv6)) {
        return {Mark::Ok, "port", port + " is served by " + Holder(situation),
                "connect a client to " + Address(situation, IsOwn(ipv4)) +
                    "; end that application before you start another"};
    }
    if (ipv4_free || ipv6_free) {
        return {Mark::Warn, "port", port + " is free on " + free_on + ", but held elsewhere by " + Holder(situation),
                "end that, or connect clients to " + Address(situation, ipv4_free)};
    }
    return {Mark::Bad, "port", port + " is held by " + Holder(situation), "end that: the layer's port is fixed"};
}

}  // namespace orvanic_xr
