// Takes an event stream apart as the network delivers it, in pieces of any size.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace mcp {

class event_parser {
 public:
    // `type` is empty where the stream names none. Comments and events without data are not told.
    using handler = std::function<void(const std::string& type, std::string&& data)>;

    // Of one event no more than `most_bytes` are kept.
    explicit event_parser(std::size_t most_bytes) : most_bytes_(most_bytes) {}

    // Tells each event that is complete. False as soon as one is too large: the stream is of no use any more.
    // Lines end with LF or CR LF.
    bool feed(std::string_view bytes, const handler& tell);

 private:
    void finish_line(const handler& tell);

    std::size_t most_bytes_;
    std::string line_;
    std::string type_;
    std::string data_;
    bool has_data_ = false;
};

}  // namespace mcp
