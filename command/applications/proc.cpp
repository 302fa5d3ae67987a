#include "command/applications/proc.h"

#include <dirent.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <climits>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

namespace velmoor {
namespace {

std::string path_of(pid_t pid, const char* file) {
    return "/proc/" + std::to_string(pid) + "/" + file;
}

std::string link_target(const std::string& path) {
    std::array<char, PATH_MAX> target;
    const ssize_t size = readlink(path.c_str(), target.data(), target.size());
    return size <= 0 ? std::string() : std::string(target.data(), static_cast<std::size_t>(size));
}

// Of "socket:[123]" or "net:[123]".
ino_t inode_in(std::string_view target, std::string_view kind) {
    ino_t inode = 0;
    if (target.starts_with(kind)) {
        std::from_chars(target.data() + kind.size(), target.data() + target.size(), inode);
    }
    return inode;
}

struct directory_closer {
    void operator()(DIR* of) const { closedir(of); }
};
using directory = std::unique_ptr<DIR, directory_closer>;

std::optional<pid_t> number_of(const char* name) {
    const std::string_view text = name;
    pid_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<std::uint16_t> port_of(std::string_view address) {
    const std::size_t colon = address.rfind(':');
    if (colon == std::string_view::npos) return std::nullopt;
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(address.data() + colon + 1, address.data() + address.size(), port, 16);
    if (error != std::errc()) return std::nullopt;
    return port;
}

// A number of /proc/PID/stat, where the first is 1; 0 if there is no such process.
std::uint64_t field_of(pid_t pid, int field) {
    std::ifstream file(path_of(pid, "stat"));
    std::string text;
    std::getline(file, text);
    // The program's name may hold anything; behind its last bracket the third field follows.
    const std::size_t name_end = text.rfind(')');
    if (name_end == std::string::npos) return 0;
    std::istringstream fields(text.substr(name_end + 1));
    std::string skipped;
    for (int i = 3; i < field; ++i) fields >> skipped;
    std::uint64_t number = 0;
    fields >> number;
    return fields ? number : 0;
}

}  // namespace

std::vector<pid_t> all_processes() {
    std::vector<pid_t> processes;
    const directory proc(opendir("/proc"));
    while (const dirent* entry = proc ? readdir(proc.get()) : nullptr) {
        if (const auto pid = number_of(entry->d_name)) processes.push_back(*pid);
    }
    return processes;
}

std::uint64_t start_of(pid_t pid) {
    return field_of(pid, 22);
}

std::vector<pid_t> descendants_of(pid_t pid) {
    std::multimap<pid_t, pid_t> children;
    for (const pid_t each : all_processes()) children.emplace(static_cast<pid_t>(field_of(each, 4)), each);
    std::vector<pid_t> found = {pid};
    for (std::size_t i = 0; i < found.size(); ++i) {
        const auto [begin, end] = children.equal_range(found[i]);
        for (auto child = begin; child != end; ++child) found.push_back(child->second);
    }
    found.erase(found.begin());
    return found;
}

std::optional<std::uint64_t> switches_asleep(pid_t pid) {
    const std::string place = path_of(pid, "task");
    const directory tasks(opendir(place.c_str()));
    std::uint64_t switches = 0;
    bool is_any = false;
    while (const dirent* entry = tasks ? readdir(tasks.get()) : nullptr) {
        if (!number_of(entry->d_name)) continue;
        std::ifstream file(place + "/" + entry->d_name + "/status");
        for (std::string line; std::getline(file, line);) {
            const std::size_t colon = line.find(":\t");
            if (colon == std::string::npos) continue;
            const std::string_view name = std::string_view(line).substr(0, colon);
            const std::string_view value = std::string_view(line).substr(colon + 2);
            if (name == "State" && !value.starts_with('S')) return std::nullopt;
            if (!name.ends_with("voluntary_ctxt_switches")) continue;
            std::uint64_t count = 0;
            std::from_chars(value.data(), value.data() + value.size(), count);
            switches += count;
            is_any = true;
        }
    }
    return is_any ? std::optional(switches) : std::nullopt;
}

std::string program_of(pid_t pid) {
    std::string path = link_target(path_of(pid, "exe"));
    if (const std::size_t gone = path.find(" (deleted)"); gone != std::string::npos) path.resize(gone);
    if (!path.empty()) return path.substr(path.rfind('/') + 1);
    std::ifstream file(path_of(pid, "comm"));
    std::string name;
    std::getline(file, name);
    return name;
}

ino_t network_of(pid_t pid) {
    return inode_in(link_target(path_of(pid, "ns/net")), "net:[");
}

bool has_variable(pid_t pid, std::string_view name) {
    std::ifstream file(path_of(pid, "environ"), std::ios::binary);
    for (std::string entry; std::getline(file, entry, '\0');) {
        if (entry.starts_with(name) && entry.size() > name.size() && entry[name.size()] == '=') return true;
    }
    return false;
}

void each_socket(pid_t pid, const std::function<bool(ino_t)>& tell) {
    const std::string path = path_of(pid, "fd");
    const directory descriptors(opendir(path.c_str()));
    while (const dirent* entry = descriptors ? readdir(descriptors.get()) : nullptr) {
        const ino_t socket = inode_in(link_target(path + "/" + entry->d_name), "socket:[");
        if (socket != 0 && !tell(socket)) return;
    }
}

bool holds_socket(pid_t pid, ino_t socket) {
    bool holds = false;
    each_socket(pid, [&](ino_t each) { return !(holds = each == socket); });
    return holds;
}

std::optional<tcp_row> parse_tcp_row(std::string_view line) {
    std::istringstream fields{std::string(line)};
    std::string number, local, remote, state, skipped;
    tcp_row row;
    fields >> number >> local >> remote >> state;
    for (int i = 0; i < 3; ++i) fields >> skipped;  // queues, timer, retransmissions
    fields >> row.user >> skipped >> row.inode;
    const auto local_port = port_of(local);
    const auto remote_port = port_of(remote);
    if (!fields || !local_port || !remote_port) return std::nullopt;
    row.local_port = *local_port;
    row.remote_port = *remote_port;
    row.listens = state == "0A";
    return row;
}

void each_tcp_row(pid_t in_network_of, std::uint16_t local_port,
                  const std::function<void(const tcp_row&, bool ipv6)>& tell) {
    std::array<char, 8> wanted{};  // most rows are of other ports, and not worth taking apart
    std::snprintf(wanted.data(), wanted.size(), ":%04X ", static_cast<unsigned>(local_port));
    for (const bool ipv6 : {false, true}) {
        std::ifstream file(path_of(in_network_of, ipv6 ? "net/tcp6" : "net/tcp"));
        for (std::string line; std::getline(file, line);) {
            if (line.find(wanted.data()) == std::string::npos) continue;
            if (const auto row = parse_tcp_row(line); row && row->local_port == local_port) tell(*row, ipv6);
        }
    }
}

}  // namespace velmoor
