#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <ctime>
#include <mutex>

namespace mcp {

// One client's socket. Its worker reads, writes and closes it;
// any thread may cut it.
class connection {
 public:
    // Has small writes go out at once: otherwise two of them can wait 40 ms for each other.
    explicit connection(int socket);
    connection(const connection&) = delete;
    connection& operator=(const connection&) = delete;

    // For each single read and write.
    void set_time_limits(time_t read_seconds, time_t write_seconds);

    // Both as the system calls: the number of bytes, or -1 on failure and when the time limit has passed; read
    // gives 0 at the end. What comes beyond the bytes asked for is kept for the next read.
    ssize_t read(char* bytes, std::size_t size);
    ssize_t write(const char* bytes, std::size_t size);

    bool has_buffered() const { return begin_ < end_; }
    // False once the client has closed its side.
    bool peer_is_alive() const;
    // True if the system takes some ten kilobytes at once.
    bool has_room() const;
    int socket() const { return socket_; }

    // Whether the peer was told that no more of its requests is read. For the worker alone.
    bool is_last_answered() const { return is_last_answered_; }
    void set_last_answered() { is_last_answered_ = true; }

    // Ends whatever read or write is under way and all that follow.
    void cut();
    void close();

 private:
    const int socket_;
    std::array<char, 8192> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool is_last_answered_ = false;

    std::mutex mutex_;  // closed_, after which the socket's number may be another file's
    bool closed_ = false;
};

}  // namespace mcp
