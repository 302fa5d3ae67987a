#include "mcp/port_sharing.h"

#include <charconv>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "mcp/socket_diagnosis.h"

namespace mcp {
namespace {

// As the system shows a descriptor of a socket, behind which its inode follows.
constexpr std::string_view kSocket = "socket:[";

void erase_own(std::set<ino_t>& inodes) {
    std::error_code error;
    std::filesystem::directory_iterator descriptor("/proc/self/fd", error);
    for (; !error && !inodes.empty() && descriptor != std::filesystem::end(descriptor); descriptor.increment(error)) {
        // The link's text tells it. To ask the file itself could wait for a file server.
        std::error_code closed_meanwhile;
        const std::string file = std::filesystem::read_symlink(descriptor->path(), closed_meanwhile).native();
        ino_t inode = 0;
        if (file.starts_with(kSocket)) {
            std::from_chars(file.data() + kSocket.size(), file.data() + file.size(), inode);
            inodes.erase(inode);
        }
    }
    if (error) inodes.clear();
}

}  // namespace

std::set<ino_t> listening_inodes(bool ipv6, int port) {
    std::set<ino_t> inodes;
    for (const auto& each : socket_diagnosis().listeners(ipv6, static_cast<std::uint16_t>(port))) {
        inodes.insert(each.inode);
    }
    return inodes;
}

bool is_served_by_another_process(bool ipv6, int port) noexcept {
    try {
        std::set<ino_t> inodes = listening_inodes(ipv6, port);
        erase_own(inodes);
        return !inodes.empty();
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace mcp
