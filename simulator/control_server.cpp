#include "simulator/control_server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <exception>
#include <functional>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "simulator/control_commands.h"
#include "simulator/runtime.h"

namespace simulator {
namespace {

using nlohmann::json;
using clock = std::chrono::steady_clock;

constexpr std::size_t kMostConnections = 8;
constexpr std::size_t kMostLineBytes = 4096;
// For an application that ends no frame any more.
constexpr std::chrono::seconds kLongestWait(60);
// With no descriptor left, a connection that waits would otherwise be looked at without end.
constexpr std::chrono::milliseconds kAfterNoDescriptor(100);

std::string Refused(const std::string& why) {
    return json{{"ok", false}, {"error", why}}.dump(-1, ' ', false, json::error_handler_t::replace);
}

class Connection {
 public:
    explicit Connection(Descriptor socket) : socket_(std::move(socket)) {}

    int socket() const { return socket_.get(); }
    bool holds() const { return holds_; }
    bool gathers() const { return gathers_; }
    void Release() { holds_ = false; }
    bool is_over() const { return is_over_; }
    std::optional<clock::time_point> deadline() const { return deadline_; }

    // What has come, or that the other side is gone. Requests behind one that waits stay in the socket's buffer, or
    // here.
    void Read() {
        std::array<char, kMostLineBytes> bytes;
        const ssize_t count = recv(socket(), bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (count <= 0) {
            is_over_ = true;
            return;
        }
        text_.append(bytes.data(), static_cast<std::size_t>(count));
        ServeLines();
    }

    // Answers if what it waited for is there, or never comes.
    void Look() {
        if (!deadline_) return;
        {
            Runtime& runtime = Runtime::instance();
            std::lock_guard lock(runtime.mutex);
            if (!IsStill(runtime) && clock::now() < *deadline_) return;
            answer_ = IsStill(runtime) ? DescribeState(runtime).dump()
                                       : Refused("the application has not done its frames within a minute");
        }
        deadline_.reset();
        Answer();
        ServeLines();
    }

 private:
    void ServeLines() {
        for (std::size_t end; !is_over_ && !deadline_ && (end = text_.find('\n')) != std::string::npos;) {
            const std::string line = text_.substr(0, end);
            text_.erase(0, end + 1);
            ServeLine(line);
            if (!deadline_) Answer();
        }
        if (is_over_ || deadline_ || text_.size() < kMostLineBytes) return;
        answer_ = Refused("the line is too long");
        Answer();
        is_over_ = true;
    }

    void ServeLine(const std::string& line) {
        try {
            const json request = json::parse(line, nullptr, false);
            if (request.is_discarded()) throw std::runtime_error("that is no JSON");
            Runtime& runtime = Runtime::instance();
            std::lock_guard lock(runtime.mutex);
            const Obeyed obeyed = Obey(runtime, request);
            holds_ |= obeyed.holds;
            gathers_ = obeyed.gathers || (gathers_ && runtime.gathers);
            if (obeyed.waits && !IsStill(runtime)) deadline_ = clock::now() + kLongestWait;
            answer_ = DescribeState(runtime).dump();
        } catch (const std::exception& problem) {
            answer_ = Refused(problem.what());
        }
    }

    // Who does not read is left.
    void Answer() {
        answer_ += '\n';
        const ssize_t sent = send(socket(), answer_.data(), answer_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent != static_cast<ssize_t>(answer_.size())) is_over_ = true;
    }

    Descriptor socket_;
    std::string text_;
    std::string answer_;
    std::optional<clock::time_point> deadline_;
    bool holds_ = false;
    bool gathers_ = false;
    bool is_over_ = false;
};

// Bound and listening, or none; errno says why.
Descriptor Bind(const sockaddr_un& address) {
    Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // The file gets these rights from its beginning; the process's own mask stays as it is.
    const bool is_good = listener.get() >= 0 && fchmod(listener.get(), S_IRUSR | S_IWUSR) == 0 &&
                         bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                         listen(listener.get(), static_cast<int>(kMostConnections)) == 0;
    return is_good ? std::move(listener) : Descriptor();
}

bool IsLeftBehind(const sockaddr_un& address) {
    struct stat status = {};
    if (lstat(address.sun_path, &status) != 0 || !S_ISSOCK(status.st_mode)) return false;
    const Descriptor probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
           errno == ECONNREFUSED;
}

void LetGo() {
    Runtime& runtime = Runtime::instance();
    std::lock_guard lock(runtime.mutex);
    runtime.gathers = false;
    runtime.frame_changed.notify_all();
}

void RunOn() {
    LetGo();
    Runtime& runtime = Runtime::instance();
    std::lock_guard lock(runtime.mutex);
    runtime.clock.Run(RealNow());
    runtime.frame_changed.notify_all();
}

bool IsHeld() {
    Runtime& runtime = Runtime::instance();
    std::lock_guard lock(runtime.mutex);
    return runtime.clock.IsHeld();
}

void DropEnded(std::vector<Connection>& connections) {
    const auto is_over = [](const Connection& each) { return each.is_over(); };
    const auto holds = [](const Connection& each) { return each.holds(); };
    const bool held = std::any_of(connections.begin(), connections.end(), holds);
    const auto leaves_gathering = [](const Connection& each) { return each.is_over() && each.gathers(); };
    if (std::any_of(connections.begin(), connections.end(), leaves_gathering)) LetGo();
    std::erase_if(connections, is_over);
    if (held && std::none_of(connections.begin(), connections.end(), holds)) RunOn();
}

int Milliseconds(const std::vector<Connection>& connections) {
    std::optional<clock::time_point> first;
    for (const Connection& each : connections) {
        if (each.deadline() && (!first || *each.deadline() < *first)) first = each.deadline();
    }
    if (!first) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*first - clock::now());
    return std::max(0, static_cast<int>(left.count()));
}

}  // namespace

Descriptor::~Descriptor() {
    if (number_ >= 0) close(number_);
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
}

std::unique_ptr<ControlServer> ControlServer::Open(const std::string& path, std::string& why) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        why = "the path is too long for a socket";
        return nullptr;
    }
    path.copy(address.sun_path, path.size());
    Descriptor listener = Bind(address);
    if (listener.get() < 0 && errno == EADDRINUSE && IsLeftBehind(address) && unlink(path.c_str()) == 0) {
        listener = Bind(address);
    }
    Descriptor wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (listener.get() < 0 || wake.get() < 0) {
        why = std::error_code(errno, std::generic_category()).message();
        return nullptr;
    }
    std::unique_ptr<ControlServer> server(new ControlServer(path, std::move(listener), std::move(wake)));
    // Signals are for the application's threads.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        server->thread_ = std::thread([&served = *server] { served.Serve(); });
    } catch (const std::exception& problem) {
        why = problem.what();
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return why.empty() ? std::move(server) : nullptr;
}

ControlServer::ControlServer(std::string path, Descriptor listener, Descriptor wake)
    : path_(std::move(path)), listener_(std::move(listener)), wake_(std::move(wake)) {}

ControlServer::~ControlServer() {
    is_ending_ = true;
    Wake();
    if (thread_.joinable()) thread_.join();
    unlink(path_.c_str());
}

void ControlServer::Wake() {
    // It can't fail but for a counter that is full, and then it is awake.
    eventfd_write(wake_.get(), 1);
}

void ControlServer::Serve() noexcept {
    try {
        std::vector<Connection> connections;
        bool can_accept = true;
        while (!is_ending_) {
            std::vector<pollfd> sources = {{wake_.get(), POLLIN, 0}};
            for (const Connection& each : connections) {
                const short wanted = each.deadline() ? POLLRDHUP : POLLIN;
                sources.push_back({each.socket(), wanted, 0});
            }
            const bool has_room = can_accept && connections.size() < kMostConnections;
            if (has_room) sources.push_back({listener_.get(), POLLIN, 0});
            const int limit = can_accept ? Milliseconds(connections) : static_cast<int>(kAfterNoDescriptor.count());
            can_accept = true;
            if (poll(sources.data(), sources.size(), limit) < 0) continue;
            eventfd_t count = 0;
            eventfd_read(wake_.get(), &count);
            for (std::size_t i = 0; i < connections.size(); ++i) {
                connections[i].Look();
                // One that waits is looked at only for its end.
                if (sources[i + 1].revents == 0) continue;
                connections[i].Read();
                if (!IsHeld()) std::for_each(connections.begin(), connections.end(), std::mem_fn(&Connection::Release));
            }
            DropEnded(connections);
            if (!has_room || sources.back().revents == 0) continue;
            Descriptor taken(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            can_accept = taken.get() >= 0 || errno == EAGAIN || errno == ECONNABORTED;
            if (taken.get() >= 0) connections.emplace_back(std::move(taken));
        }
    } catch (...) {
        // There is no memory: nobody is served any more, and the application goes on.
    }
    RunOn();
}

}  // namespace simulator
