#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>

namespace mcp {

struct connection_timings {
    std::chrono::milliseconds silence;  // a read waits no longer than that ...
    std::chrono::milliseconds request;  // ... and begins none when a request takes longer than that
    std::chrono::milliseconds write;    // each wait for a client that doesn't read
};

// One client's socket. Its worker reads, writes and closes it; any thread may write while the worker doesn't, and
// may cut it.
class connection {
 public:
    // Has small writes go out at once: otherwise two of them can wait 40 ms for each other.
    connection(int socket, const connection_timings& timings);
    connection(const connection&) = delete;
    connection& operator=(const connection&) = delete;

    const std::string& remote_address() const { return remote_address_; }
    int remote_port() const { return remote_port_; }

    // The time for one request begins.
    void begin_request();

    // As the system call: the number of bytes, 0 at the end, or -1 on failure and when the time is over. What comes
    // beyond the bytes asked for is kept for the next read.
    ssize_t read(char* bytes, std::size_t size);
    bool has_buffered() const { return begin_ < end_; }

    // Writes all parts, one behind the other. False if that failed.
    bool write(std::initializer_list<std::string_view> parts);

    // False once the client has closed its side.
    bool peer_is_alive() const;
    // True if the system takes some ten kilobytes at once.
    bool has_room() const;

    // Ends whatever read or write is under way and all that follow.
    void cut();
    // Tells the client that nothing more comes, and takes in what it is still sending, for some seconds at most: with
    // bytes unread the system would tell it by a reset, which can overtake the last answer.
    void close();

 private:
    void read_away();

    const int socket_;
    const connection_timings timings_;
    std::string remote_address_;
    int remote_port_ = 0;
    std::chrono::steady_clock::time_point request_end_;
    std::array<char, 8192> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;

    std::mutex mutex_;  // closed_, after which the socket's number may be another file's
    bool closed_ = false;
};

}  // namespace mcp
