#include "mcp/client/http_reply_parser.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <system_error>

namespace mcp {
namespace {

// What a stranger may send as head, or as the size of a chunk.
constexpr std::size_t kMostHeadBytes = 65536;

std::string lower(std::string_view text) {
    std::string result(text);
    for (char& c : result) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

bool read_number(std::string_view text, std::size_t& number, int base) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end != text.data();
}

}  // namespace

http_reply_parser::state http_reply_parser::feed(std::string_view& bytes, std::string& content) {
    while (!bytes.empty() && (state_ == state::head || state_ == state::body)) {
        if (state_ == state::head) {
            if (take_line(bytes)) read_head_line();
        } else if (length_ == length::chunked) {
            take_chunk(bytes, content);
        } else if (length_ == length::counted) {
            take_counted(bytes, content);
            if (left_ == 0) state_ = state::complete;
        } else {
            content.append(bytes);
            bytes = {};
        }
    }
    return state_;
}

// True if `line_` is whole, without its end.
bool http_reply_parser::take_line(std::string_view& bytes) {
    const std::size_t end = bytes.find('\n');
    line_.append(bytes.substr(0, end));
    bytes.remove_prefix(std::min(end == std::string_view::npos ? end : end + 1, bytes.size()));
    if (line_.size() > kMostHeadBytes) state_ = state::broken;
    if (end == std::string_view::npos || state_ == state::broken) return false;
    if (line_.ends_with('\r')) line_.pop_back();
    return true;
}

void http_reply_parser::read_head_line() {
    const std::string line = lower(line_);
    head_bytes_ += line_.size();
    line_.clear();
    if (head_bytes_ > kMostHeadBytes) {
        state_ = state::broken;
    } else if (status_ == 0) {
        std::size_t status = 0;
        if (!line.starts_with("http/1.") || line.size() < 12 || !read_number(line.substr(9, 3), status, 10)) {
            state_ = state::broken;
        }
        status_ = static_cast<int>(status);
    } else if (line.empty()) {
        end_head();
    } else {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) return;
        const std::string name = line.substr(0, colon);
        const std::size_t begin = std::min(line.find_first_not_of(" \t", colon + 1), line.size());
        const std::string value = line.substr(begin);
        if (name == "content-type") is_event_stream_ = value.starts_with("text/event-stream");
        if (name == "connection") keeps_connection_ = value != "close";
        if (name == "transfer-encoding" && value.find("chunked") != std::string::npos) length_ = length::chunked;
        if (name == "content-length" && length_ != length::chunked) {
            length_ = length::counted;
            if (!read_number(value, left_, 10)) state_ = state::broken;
        }
    }
}

void http_reply_parser::end_head() {
    if (status_ < 200) {  // an interim reply, before the one that counts
        status_ = 0;
        return;
    }
    state_ = state::body;
    if (status_ == 204 || (length_ == length::counted && left_ == 0)) {
        length_ = length::counted;
        state_ = state::complete;
    }
}

void http_reply_parser::take_chunk(std::string_view& bytes, std::string& content) {
    if (chunk_part_ == chunk_part::content) {
        take_counted(bytes, content);
        if (left_ == 0) chunk_part_ = chunk_part::end_of_content;
        return;
    }
    if (!take_line(bytes)) return;
    if (chunk_part_ == chunk_part::size) {
        read_chunk_size();
    } else if (chunk_part_ == chunk_part::end_of_content) {
        chunk_part_ = chunk_part::size;
        if (!line_.empty()) state_ = state::broken;
    } else if (line_.empty()) {
        state_ = state::complete;
    }
    line_.clear();
}

void http_reply_parser::take_counted(std::string_view& bytes, std::string& content) {
    const std::size_t count = std::min(left_, bytes.size());
    content.append(bytes.substr(0, count));
    bytes.remove_prefix(count);
    left_ -= count;
}

void http_reply_parser::read_chunk_size() {
    if (!read_number(line_, left_, 16)) {
        state_ = state::broken;
    } else {
        chunk_part_ = left_ == 0 ? chunk_part::trailer : chunk_part::content;
    }
}

}  // namespace mcp
