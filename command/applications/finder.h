// Looks for the processes that serve the layer's port: in this network, and in those of their own that `velmoor run`
// has given to others. Further networks, such as those of containers, are somebody else's.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <vector>

#include "command/applications/application.h"

namespace velmoor {

// Set in the environment of whatever `velmoor run` starts.
inline constexpr const char* kRunVariable = "VELMOOR_RUN";

class application_finder {
 public:
    explicit application_finder(std::uint16_t port) : port_(port) {}

    // All that are there now. One thread at a time. Looking again costs little where nothing has changed.
    std::vector<application> find();

 private:
    struct listener {
        ino_t socket = 0;
        bool ipv6 = false;
        uid_t user = 0;
        ino_t network = 0;
        pid_t network_process = 0;
        std::shared_ptr<mcp::socket_diagnosis> diagnosis;
    };
    struct other_network {
        pid_t process = 0;  // one that is in it
        std::shared_ptr<mcp::socket_diagnosis> diagnosis;
    };

    std::vector<listener> listeners();
    void look_for_networks();
    pid_t owner_of(ino_t socket);

    const std::uint16_t port_;
    const std::shared_ptr<mcp::socket_diagnosis> diagnosis_ = std::make_shared<mcp::socket_diagnosis>();
    std::map<ino_t, other_network> networks_;  // beside this one
    std::chrono::steady_clock::time_point networks_due_;
    std::map<ino_t, pid_t> owners_;  // of listening sockets; 0 where the system does not show it
};

// What the bridge sees of this machine. Any thread may use it.
surroundings surroundings_of_machine(std::uint16_t port);

}  // namespace velmoor
