#include "command/applications/finder.h"

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <utility>

#include "command/applications/proc.h"
#include "command/applications/reach.h"

namespace velmoor {
namespace {

// Going through all processes takes a millisecond or two.
constexpr std::chrono::milliseconds kNetworksHold{100};

}  // namespace

std::vector<application> application_finder::find() {
    std::vector<application> found;
    const std::vector<listener> seen = listeners();
    for (const listener& each : seen) {
        const pid_t pid = owner_of(each.socket);
        auto known = std::find_if(found.begin(), found.end(), [&](const application& one) {
            return one.pid == pid && one.network == each.network && (pid != 0 || one.user == each.user);
        });
        if (known == found.end()) {
            application made;
            made.pid = pid;
            made.start = pid == 0 ? 0 : start_of(pid);
            made.user = each.user;
            made.name = pid == 0 ? std::string() : program_of(pid);
            made.network = each.network;
            made.network_process = each.network_process;
            made.diagnosis = each.diagnosis;
            known = found.insert(found.end(), std::move(made));
        }
        (each.ipv6 ? known->ipv6 : known->ipv4) = true;
        known->sockets.insert(each.socket);
    }
    std::erase_if(owners_, [&](const auto& owner) {
        return std::none_of(seen.begin(), seen.end(), [&](const listener& each) { return each.socket == owner.first; });
    });
    return found;
}

std::vector<application_finder::listener> application_finder::listeners() {
    std::vector<listener> found;
    const auto look_in = [&](ino_t network, const other_network& by) {
        if (by.process != 0 && !by.diagnosis) {
            each_tcp_row(by.process, port_, [&](const tcp_row& row, bool ipv6) {
                if (row.listens && row.inode != 0)
                    found.push_back({row.inode, ipv6, row.user, network, by.process, nullptr});
            });
            return;
        }
        for (const bool ipv6 : {false, true}) {
            for (const auto& each : by.diagnosis->listeners(ipv6, port_)) {
                found.push_back({each.inode, ipv6, each.user, network, by.process, by.diagnosis});
            }
        }
    };
    look_in(network_of(getpid()), {0, diagnosis_});
    look_for_networks();
    for (const auto& [network, by] : networks_) look_in(network, by);
    return found;
}

void application_finder::look_for_networks() {
    const auto now = std::chrono::steady_clock::now();
    if (now < networks_due_) return;
    networks_due_ = now + kNetworksHold;
    const ino_t own = network_of(getpid());
    const std::map<ino_t, other_network> before = std::exchange(networks_, {});
    for (const pid_t pid : all_processes()) {
        const ino_t network = network_of(pid);
        if (network == 0 || network == own || networks_.contains(network)) continue;
        if (!has_variable(pid, kRunVariable)) continue;
        // While a socket of that network is held, its number stands for no other.
        const auto known = before.find(network);
        networks_[network] = {pid, known != before.end() ? known->second.diagnosis : diagnosis_in_network_of(pid)};
    }
}

pid_t application_finder::owner_of(ino_t socket) {
    if (const auto known = owners_.find(socket); known != owners_.end() && known->second != 0) {
        if (holds_socket(known->second, socket)) return known->second;
    }
    // Of several, such as a process and a child that it has forked, the one that was there first.
    pid_t owner = 0;
    std::uint64_t start = 0;
    for (const pid_t pid : all_processes()) {
        if (!holds_socket(pid, socket)) continue;
        const std::uint64_t its_start = start_of(pid);
        if (owner == 0 || its_start < start) {
            owner = pid;
            start = its_start;
        }
    }
    owners_[socket] = owner;
    return owner;
}

surroundings surroundings_of_machine(std::uint16_t port) {
    struct shared_finder {
        explicit shared_finder(std::uint16_t port) : finder(port) {}
        std::mutex mutex;
        application_finder finder;
    };
    const auto shared = std::make_shared<shared_finder>(port);
    return {.find =
                [shared] {
                    const std::lock_guard lock(shared->mutex);
                    return shared->finder.find();
                },
            .dial = [port](const application& to) { return reach(to, port); }};
}

}  // namespace velmoor
