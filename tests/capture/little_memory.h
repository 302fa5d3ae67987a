// Runs a piece of a test where memory soon runs out, in a child process, since the limit is the process's.
#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
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

// What `body` returns, 0 to 255, or -1 if the child did not end by itself. The child may allocate some
// `spare_bytes` in large pieces.
inline int WithLittleMemory(std::size_t spare_bytes, const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        // The sixth number is the pages that can be written; address space alone is also held by idle arenas.
        std::size_t pages = 0;
        std::ifstream numbers("/proc/self/statm");
        for (int i = 0; i < 6; ++i) numbers >> pages;
        rlimit limits = {pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)), RLIM_INFINITY};
        setrlimit(RLIMIT_DATA, &limits);
        // What earlier tests freed is not to be had again. The compiler must not take the loop for idle.
        for (void* volatile piece = &limits; piece;) piece = std::malloc(64 * 1024);
        limits.rlim_cur += spare_bytes;
        setrlimit(RLIMIT_DATA, &limits);
        _exit(body());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace orvanic_xr
