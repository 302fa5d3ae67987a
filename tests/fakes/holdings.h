// What a process can run out of, counted by what the kernel says.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <ostream>
#include <thread>

namespace orvanic_xr {

struct Holdings {
    std::ptrdiff_t threads = 0;
    std::ptrdiff_t descriptors = 0;

    static Holdings Now() {
        const auto entries = [](const char* directory) {
            return std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator());
        };
        return {entries("/proc/self/task"), entries("/proc/self/fd")};
    }
    bool Within(const Holdings& limit) const { return threads <= limit.threads && descriptors <= limit.descriptors; }
    friend std::ostream& operator<<(std::ostream& out, const Holdings& held) {
        return out << held.threads << " threads, " << held.descriptors << " descriptors";
    }
};

// True as soon as no more than `limit` is held; threads that nobody joins get ten seconds to end.
inline bool HoldsNoMoreThan(const Holdings& limit) {
    for (int i = 0; i < 1000; ++i) {
        if (Holdings::Now().Within(limit)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

}  // namespace orvanic_xr
