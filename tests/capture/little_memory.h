// Runs a piece of a test where memory soon runs out, in a child process, since the limit is the process's.
#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>

namespace orvanic_xr {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kMemoryCanBeLimited = false;
#elif defined(__has_feature)
inline constexpr bool kMemoryCanBeLimited = !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer);
#else
inline constexpr bool kMemoryCanBeLimited = true;
#endif

// What `body` returns, 0 to 255, or -1 if the child did not end by itself. The child may write to
// `spare_bytes` more than it has already.
inline int WithLittleMemory(std::size_t spare_bytes, const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        // The sixth number is the pages that can be written; address space alone is also held by idle arenas.
        std::size_t pages = 0;
        std::ifstream numbers("/proc/self/statm");
        for (int i = 0; i < 6; ++i) numbers >> pages;
        const rlim_t limit = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) + spare_bytes;
        const rlimit limits = {limit, RLIM_INFINITY};
        setrlimit(RLIMIT_DATA, &limits);
        _exit(body());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace orvanic_xr
