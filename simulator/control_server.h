// A unix socket at which a controller steers the simulator: one line of JSON each way. A thread of its own serves it,
// with all signals blocked, and calls nothing of the application's. Who held the application and goes away lets it run
// on.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace simulator {

class Runtime;

// A file descriptor that is closed with it.
class Descriptor {
 public:
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : number_(other.number_) { other.number_ = -1; }
    Descriptor& operator=(Descriptor&& other) noexcept;
    int get() const { return number_; }

 private:
    int number_;
};

class ControlServer {
 public:
    // Null with a reason in `why`. What lies at the path and is no socket is left alone, and so is a socket that is
    // served; one that nobody serves any more is replaced.
    static std::unique_ptr<ControlServer> Open(const std::string& path, std::string& why);
    // Not with the runtime's mutex: the thread may be about to take it.
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    // The application may be still now. Any thread; waits for nothing.
    void Wake();

 private:
    ControlServer(std::string path, Descriptor listener, Descriptor wake);

    void Serve() noexcept;

    const std::string path_;
    const Descriptor listener_;
    const Descriptor wake_;
    std::atomic<bool> is_ending_{false};
    std::thread thread_;  // last: it uses all the others
};

}  // namespace simulator
