// The lock on the registries behind InstanceState::toolRegistry, which are destroyed with the instance.
#pragma once

#include <shared_mutex>

namespace orvanic_xr {

// Held shared from the reading of InstanceState::toolRegistry to the end of the registration through it, and
// exclusively while the registries are replaced or destroyed. Taken before every other lock.
inline std::shared_mutex& ToolRegistryLifetime() {
    static std::shared_mutex& mutex = *new std::shared_mutex;
    return mutex;
}

}  // namespace orvanic_xr
