#include "command/launch/simulator_link.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

namespace velmoor {
namespace {

using mcp::json;

constexpr int kLookMilliseconds = 50;

// -1 if nobody listens there.
mcp::descriptor connected(const std::string& path, int flags) {
    mcp::descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (connect(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) made.reset();
    return made;
}

void tell(const std::string& path, std::string_view line) {
    const mcp::descriptor socket = connected(path, SOCK_NONBLOCK);
    if (socket.get() >= 0) send(socket.get(), line.data(), line.size(), MSG_NOSIGNAL);
}

}  // namespace

control_path::control_path() : control_path(std::getenv("VELMOOR_SIM_CONTROL")) {}

control_path::control_path(const char* given) {
    if (given && *given) {
        text_ = given;
        return;
    }
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    for (std::string place : {std::string(runtime ? runtime : ""), std::string("/tmp")}) {
        place += "/velmoor-XXXXXX";
        if (place.front() != '/' || !mkdtemp(place.data())) continue;
        directory_ = place;
        text_ = place + "/simulator";
        return;
    }
}

control_path::~control_path() {
    if (directory_.empty()) return;
    unlink(text_.c_str());  // of an application that was killed
    rmdir(directory_.c_str());
}

void let_run_on(const std::string& path) {
    tell(path, "{\"do\":\"run\"}\n");
}

void stop_steps(const std::string& path) {
    tell(path, "{\"do\":\"pause\"}\n");
}

json simulator_link::ask(const json& request, const std::function<void()>& look) {
    const std::lock_guard lock(mutex_);
    // One that was cut off in the middle of an answer, or whose application has gone, is made anew.
    if (socket_.get() < 0) connect_locked();
    const std::string line = mcp::dump_json(request) + "\n";
    if (send(socket_.get(), line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
        connect_locked();
        if (send(socket_.get(), line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
            throw std::runtime_error("Error: the simulator does not listen");
        }
    }
    ++unread_;
    json answer;
    try {
        while (unread_ > 0) answer = mcp::parse_json(read_line_locked(look));
    } catch (...) {
        if (request.value("do", json()) == "step") stop_steps(path_);
        throw;
    }
    if (answer.value("ok", false)) return answer;
    throw std::runtime_error("Error: " + answer.value("error", "the simulator refuses"));
}

bool simulator_link::let_frames_pass(std::uint64_t frames) try {
    const auto nobody = [] {};
    const json state = ask({{"do", "state"}}, nobody);
    if (!state.value("held", false)) return false;
    ask({{"do", "step"}, {"frames", frames}}, nobody);
    return true;
} catch (const std::exception&) {
    return false;
}

std::optional<std::uint64_t> simulator_link::gather(bool is_wanted) try {
    const json state = ask({{"do", "gather"}, {"wanted", is_wanted}}, [] {});
    if (state.value("paused", false)) return state.value("wanted", std::uint64_t{0});
    if (is_wanted) ask({{"do", "gather"}, {"wanted", false}}, [] {});
    return std::nullopt;
} catch (const std::exception&) {
    return std::nullopt;
}

void simulator_link::connect_locked() {
    socket_ = connected(path_, 0);
    read_.clear();
    unread_ = 0;
    if (socket_.get() >= 0) return;
    throw std::runtime_error(
        "Error: no application runs on the simulator that could be controlled; app_start starts the application");
}

std::string simulator_link::read_line_locked(const std::function<void()>& look) {
    for (;;) {
        if (const std::size_t end = read_.find('\n'); end != std::string::npos) {
            std::string line = read_.substr(0, end);
            read_.erase(0, end + 1);
            --unread_;
            return line;
        }
        pollfd source{socket_.get(), POLLIN, 0};
        if (poll(&source, 1, kLookMilliseconds) <= 0) {
            look();
            continue;
        }
        std::array<char, 4096> bytes;
        const ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), 0);
        if (count <= 0) {
            socket_.reset();
            throw std::runtime_error("Error: the application has ended");
        }
        read_.append(bytes.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace velmoor
