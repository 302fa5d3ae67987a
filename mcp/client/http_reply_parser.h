// Takes the reply to one HTTP/1.1 request apart as it comes, in pieces of any size.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace mcp {

class http_reply_parser {
 public:
    enum class state { head, body, complete, broken };

    // Takes from the front of `bytes` what belongs to this reply, and appends what of it is content to `content`.
    state feed(std::string_view& bytes, std::string& content);

    // All below are known once the state is past the head.
    int status() const { return status_; }
    bool is_event_stream() const { return is_event_stream_; }
    // Whether another request may follow on the connection.
    bool keeps_connection() const { return keeps_connection_ && length_ != length::until_close; }

 private:
    enum class length { counted, chunked, until_close };
    enum class chunk_part { size, content, end_of_content, trailer };

    bool take_line(std::string_view& bytes);
    void read_head_line();
    void end_head();
    void take_chunk(std::string_view& bytes, std::string& content);
    void take_counted(std::string_view& bytes, std::string& content);
    void read_chunk_size();

    state state_ = state::head;
    std::string line_;
    std::size_t head_bytes_ = 0;
    int status_ = 0;
    bool is_event_stream_ = false;
    bool keeps_connection_ = true;
    length length_ = length::until_close;
    chunk_part chunk_part_ = chunk_part::size;
    std::size_t left_ = 0;  // of the content, or of this chunk
};

}  // namespace mcp
