#include "bench/mcp_load_client.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

namespace mcp {
namespace {

using clock = std::chrono::steady_clock;

constexpr int kPatienceMilliseconds = 10000;
constexpr std::string_view kAnswerBegin = R"(data: {"jsonrpc":"2.0","id":)";

class file {
 public:
    explicit file(int descriptor) : descriptor_(descriptor) {}
    ~file() { close(descriptor_); }
    file(const file&) = delete;
    file& operator=(const file&) = delete;

    int get() const { return descriptor_; }

 private:
    const int descriptor_;
};

void send_all(int socket, std::string_view bytes) {
    if (send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("cannot send");
    }
}

// Appends what has come; false at the end.
bool receive(int socket, std::string& text) {
    std::array<char, 65536> bytes;
    const ssize_t count = recv(socket, bytes.data(), bytes.size(), 0);
    if (count > 0) text.append(bytes.data(), static_cast<std::size_t>(count));
    return count > 0;
}

// Reads until `end` has come, and returns what came behind it.
std::string receive_past(int socket, std::string text, std::string_view end) {
    std::size_t found;
    while ((found = text.find(end)) == std::string::npos) {
        if (!receive(socket, text)) throw std::runtime_error("the server ended the connection");
    }
    return text.substr(found + end.size());
}

struct session {
    std::unique_ptr<file> stream;
    std::string received;
    std::string uri;
};

// One call in flight after the other, on one connection.
struct slot {
    session* owner = nullptr;
    std::unique_ptr<file> connection;
    std::string received;
    bool acknowledged = true;
    bool answered = true;
    clock::time_point posted;

    bool is_free() const { return acknowledged && answered; }
};

class load_client {
 public:
    load_client(int port, int session_count, int in_flight)
        : port_(port), sessions_(static_cast<std::size_t>(session_count)), events_(epoll_create1(EPOLL_CLOEXEC)) {
        slots_.resize(static_cast<std::size_t>(session_count * in_flight));
        for (std::size_t i = 0; i < sessions_.size(); ++i) open(sessions_[i], i);
        for (std::size_t i = 0; i < slots_.size(); ++i) {
            slots_[i].owner = &sessions_[i % sessions_.size()];
            connect(slots_[i]);
        }
    }

    load_result run(int calls) {
        result_ = {};
        to_post_ = calls;
        const auto start = clock::now();
        for (slot& each : slots_) post_next(each);
        while (std::any_of(slots_.begin(), slots_.end(), [](const slot& each) { return !each.is_free(); })) {
            if (!handle_events()) break;
        }
        result_.seconds = std::chrono::duration<double>(clock::now() - start).count();
        result_.lost = calls - static_cast<int>(result_.latencies_us.size());
        std::sort(result_.latencies_us.begin(), result_.latencies_us.end());
        return std::move(result_);
    }

 private:
    void watch(int socket, std::size_t source) {
        epoll_event event{.events = EPOLLIN, .data = {.u64 = source}};
        epoll_ctl(events_.get(), EPOLL_CTL_ADD, socket, &event);
    }

    // Sources: the streams first, then the connections of the slots.
    void connect(slot& each) {
        each.connection = std::make_unique<file>(connect_to(port_));
        watch(each.connection->get(), sessions_.size() + static_cast<std::size_t>(&each - slots_.data()));
    }

    void open(session& opened, std::size_t source) {
        opened.stream = std::make_unique<file>(connect_to(port_));
        const int stream = opened.stream->get();
        send_all(stream, "GET /sse HTTP/1.1\r\nHost: localhost\r\n\r\n");
        std::string received = receive_past(stream, {}, "data: ");
        while (received.find('\r') == std::string::npos) receive(stream, received);
        opened.uri = received.substr(0, received.find('\r'));

        const file posts(connect_to(port_));
        const auto post = [&](std::string_view body) {
            send_all(posts.get(), request(opened.uri, body));
            receive_past(posts.get(), {}, "\r\n\r\nAccepted");
        };
        post(R"({"jsonrpc":"2.0","id":"i","method":"initialize","params":{"protocolVersion":"2025-11-25"}})");
        receive_past(stream, {}, kAnswerBegin);
        post(R"({"jsonrpc":"2.0","method":"notifications/initialized"})");
        std::this_thread::sleep_for(std::chrono::milliseconds(100));  // it is not answered
        watch(stream, source);
    }

    static std::string request(const std::string& uri, std::string_view body) {
        return "POST " + uri + " HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\nContent-Length: " +
               std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
    }

    void post_next(slot& each) {
        if (to_post_ == 0) return;
        --to_post_;
        const std::string body = R"({"jsonrpc":"2.0","id":)" + std::to_string(slot_of_call_.size()) +
                                 R"(,"method":"tools/call","params":{"name":"echo","arguments":{"message":"hi"}}})";
        const std::string bytes = request(each.owner->uri, body);
        slot_of_call_.push_back(&each);
        each.acknowledged = each.answered = false;
        each.posted = clock::now();
        send_all(each.connection->get(), bytes);
    }

    bool handle_events() {
        std::array<epoll_event, 64> events;
        const int count =
            epoll_wait(events_.get(), events.data(), static_cast<int>(events.size()), kPatienceMilliseconds);
        const auto now = clock::now();
        for (int i = 0; i < count; ++i) {
            const std::size_t source = events[static_cast<std::size_t>(i)].data.u64;
            if (source < sessions_.size()) {
                read_answers(sessions_[source], now);
            } else {
                read_acknowledgement(slots_[source - sessions_.size()]);
            }
        }
        return count > 0;
    }

    void read_answers(session& from, clock::time_point now) {
        if (!receive(from.stream->get(), from.received)) throw std::runtime_error("the server ended a stream");
        std::size_t read_to = 0;
        for (std::size_t found = 0; (found = from.received.find(kAnswerBegin, read_to)) != std::string::npos;) {
            const std::size_t end = from.received.find("\r\n\r\n", found);
            if (end == std::string::npos) break;
            const std::size_t id = std::strtoul(from.received.c_str() + found + kAnswerBegin.size(), nullptr, 10);
            count_answer(id, now);
            read_to = end;
        }
        from.received.erase(0, read_to);
    }

    void count_answer(std::size_t id, clock::time_point now) {
        slot* const each = std::exchange(slot_of_call_.at(id), nullptr);
        if (!each) {
            ++result_.duplicates;
            return;
        }
        result_.latencies_us.push_back(std::chrono::duration<double, std::micro>(now - each->posted).count());
        each->answered = true;
        if (each->is_free()) post_next(*each);
    }

    void read_acknowledgement(slot& each) {
        const bool open = receive(each.connection->get(), each.received);
        const bool acknowledged = each.received.find("\r\n\r\nAccepted") != std::string::npos;
        if (!open || each.received.find("Connection: close") != std::string::npos) connect(each);
        if (!acknowledged) return;
        each.received.clear();
        each.acknowledged = true;
        if (each.is_free()) post_next(each);
    }

    const int port_;
    std::vector<session> sessions_;
    std::vector<slot> slots_;
    const file events_;
    std::vector<slot*> slot_of_call_;  // null once it was answered
    int to_post_ = 0;
    load_result result_;
};

}  // namespace

int connect_to(int port) {
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(made, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(made, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(made);
        throw std::runtime_error("cannot connect");
    }
    return made;
}

double load_result::latency_us(double share) const {
    if (latencies_us.empty()) return 0;
    const auto rank = static_cast<std::size_t>(share * static_cast<double>(latencies_us.size()));
    return latencies_us[std::min(rank, latencies_us.size() - 1)];
}

load_result measure_load(int port, int sessions, int in_flight, int calls) {
    load_client client(port, sessions, in_flight);
    client.run(calls / 10);
    return client.run(calls);
}

}  // namespace mcp
