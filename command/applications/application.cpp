#include "command/applications/application.h"

namespace velmoor {

bool is_same(const application& one, const application& other) {
    if (one.pid != other.pid || one.start != other.start || one.network != other.network) return false;
    // Of a process that is not shown, its sockets are all that is known.
    return one.pid != 0 || one.sockets == other.sockets;
}

std::string label(const application& of) {
    if (of.pid == 0) return "a process of user " + std::to_string(of.user);
    return of.name + " (pid " + std::to_string(of.pid) + ")";
}

bool answers_to(const application& one, const std::string& wanted) {
    return one.name == wanted || (one.pid != 0 && std::to_string(one.pid) == wanted);
}

}  // namespace velmoor
