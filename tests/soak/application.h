// The demo application with the layer on the simulator, as a process that is watched from outside.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace soak {

// Frames since the application began, by its own count.
struct Frames {
    std::int64_t due = 0;
    std::int64_t missed = 0;
    // What the thread that makes them waited for a processor, which the machine's other work has to answer for.
    double starved_seconds = 0;
};

struct Footprint {
    double resident_mb = 0;
    int threads = 0;
    int descriptors = 0;
};

class Application {
 public:
    // Starts it out of the build tree; what it writes goes below `state_home`.
    Application(const std::string& build, const std::string& state_home);
    // Kills it if it still runs.
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    // Waits for the next report that it gives of its frames, which comes once a second. Nothing if none came within
    // `limit`: it hangs, or has ended.
    std::optional<Frames> AwaitFrames(std::chrono::seconds limit);
    Footprint ReadFootprint() const;
    // Waits for its end, at most for `limit`, and gives its exit code, or 128 and the number of the signal that ended
    // it.
    std::optional<int> AwaitEnd(std::chrono::seconds limit);
    // The last that it said.
    std::string LastWords() const;

 private:
    std::string ProcessDirectory() const;
    void ReadLines(int output);
    void TakeLine(const std::string& line);

    pid_t pid_ = -1;
    std::optional<int> exit_code_;
    std::thread reader_;

    mutable std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    std::deque<std::string> last_lines_;
    Frames frames_;
    int reports_ = 0;
    bool ended_ = false;
};

}  // namespace soak
