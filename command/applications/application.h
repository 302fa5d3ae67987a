// A process that serves the layer's port, and how it is told from others.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "mcp/client/dial.h"
#include "mcp/socket_diagnosis.h"

namespace velmoor {

struct application {
    pid_t pid = 0;            // 0 if it is a process that the system does not show to this user
    std::uint64_t start = 0;  // of the process, in clock ticks since the machine's
    uid_t user = 0;
    std::string name;           // of its program
    ino_t network = 0;          // the network namespace that it listens in
    pid_t network_process = 0;  // one that is in there, by which it can be entered; 0 for that of this process
    bool ipv4 = false;          // where it listens
    bool ipv6 = false;
    std::set<ino_t> sockets;                                     // that it listens with
    std::shared_ptr<mcp::socket_diagnosis> diagnosis = nullptr;  // tells of its network; null if nothing does
};

// The same process, listening in the same place. It may have begun to listen anew.
bool is_same(const application& one, const application& other);

// "velmoor_demo (pid 12)"
std::string label(const application& of);

// What an agent may say: the program's name, or the number of the process.
bool answers_to(const application& one, const std::string& wanted);

// The seam between the bridge and the machine.
struct surroundings {
    std::function<std::vector<application>()> find;
    // A connection to that process and to no other; within a second or two.
    std::function<mcp::dialed(const application&)> dial;
};

}  // namespace velmoor
