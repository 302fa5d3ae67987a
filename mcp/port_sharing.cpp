#include "mcp/port_sharing.h"

#include <array>
#include <charconv>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace mcp {
namespace {

// As the system writes the state of a socket that listens.
constexpr const char* kListening = "0A";

// Of "<address>:<port>" in hexadecimal digits; -1 if there is none.
int port_of(const std::string& endpoint) {
    int port = -1;
    const std::size_t colon = endpoint.find(':');
    if (colon == std::string::npos) return port;
    std::from_chars(endpoint.data() + colon + 1, endpoint.data() + endpoint.size(), port, 16);
    return port;
}

void erase_own(std::set<std::string>& inodes) {
    std::error_code error;
    std::filesystem::directory_iterator descriptor("/proc/self/fd", error);
    for (; !error && !inodes.empty() && descriptor != std::filesystem::end(descriptor); descriptor.increment(error)) {
        std::error_code closed_meanwhile;
        const std::string file = std::filesystem::read_symlink(descriptor->path(), closed_meanwhile).native();
        if (file.starts_with("socket:[")) inodes.erase(file.substr(8, file.size() - 9));
    }
    if (error) inodes.clear();
}

}  // namespace

std::set<std::string> listening_inodes(std::istream& table, int port) {
    std::set<std::string> inodes;
    for (std::string line; std::getline(table, line);) {
        // Number, local and remote endpoint, state, queues, timer, retransmits, user, timeout, inode.
        std::array<std::string, 10> fields;
        std::istringstream text(line);
        for (std::string& field : fields) text >> field;
        if (text && fields[3] == kListening && port_of(fields[1]) == port) inodes.insert(fields[9]);
    }
    return inodes;
}

bool is_served_by_another_process(bool ipv6, int port) noexcept {
    try {
        std::ifstream table(ipv6 ? "/proc/self/net/tcp6" : "/proc/self/net/tcp");
        std::set<std::string> inodes = listening_inodes(table, port);
        erase_own(inodes);
        return !inodes.empty();
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace mcp
