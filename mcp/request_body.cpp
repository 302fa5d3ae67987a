#include "mcp/request_body.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>
#include <utility>

namespace mcp {
namespace {

// Per request, so that many small bodies count as well.
constexpr std::size_t kRequestOverheadBytes = 1024;

// Of the line before a chunk, and of all trailers together.
constexpr std::size_t kLineBytes = 8192;

// When as much has come, memory is taken for all that was announced: growing bit by bit takes three times as much.
constexpr std::size_t kBelievedBytes = 64u << 10;

constexpr int kBadRequest = 400;
constexpr int kTimeout = 408;
constexpr int kTooLarge = 413;
constexpr int kUnknownEncoding = 415;
constexpr int kUnknownTransferEncoding = 501;
constexpr int kBusy = 503;

std::string_view header_value(const header_map& headers, const char* name) {
    const auto found = headers.find(name);
    return found == headers.end() ? std::string_view() : found->second;
}

bool is_lower_or_upper(std::string_view text, std::string_view lower) {
    return std::equal(text.begin(), text.end(), lower.begin(), lower.end(),
                      [](char c, char wanted) { return (c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c) == wanted; });
}

// The whole of `digits` as a number.
bool read_number(std::string_view digits, int base, std::uint64_t& number) {
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number, base);
    return !digits.empty() && error == std::errc() && stop == end;
}

class body_reader {
 public:
    body_reader(connection& from, std::size_t most_bytes, std::shared_ptr<body_budget> budget)
        : from_(from), most_bytes_(most_bytes) {
        body_.budget_share = std::make_shared<body_budget::share>(std::move(budget));
    }

    http_body read(const http_request& head) {
        const header_map& headers = head.headers;
        if (!body_.budget_share->take(kRequestOverheadBytes)) {
            refuse(kBusy);
        } else if (const auto encoding = header_value(headers, "content-encoding");
                   !encoding.empty() && !is_lower_or_upper(encoding, "identity")) {
            refuse(kUnknownEncoding);
        } else if (const auto coding = header_value(headers, "transfer-encoding"); !coding.empty()) {
            if (head.version == "HTTP/1.0") {  // knows no chunks, so somebody on the way may not have either
                refuse(kBadRequest);
            } else if (is_lower_or_upper(coding, "chunked")) {
                invite(headers);
                read_chunks();
            } else {
                refuse(kUnknownTransferEncoding);
            }
        } else if (const auto length = headers.find("content-length"); length != headers.end()) {
            std::uint64_t bytes = 0;
            if (!read_number(length->second, 10, bytes)) {
                refuse(kBadRequest);
            } else if (bytes > most_bytes_) {
                refuse(kTooLarge);
            } else {
                invite(headers);
                read_bytes(bytes);
            }
        }
        return std::move(body_);
    }

 private:
    bool refuse(int status) {
        body_.refusal = status;
        return false;
    }

    // A client may wait with the body until it is told that it is wanted.
    void invite(const header_map& headers) {
        if (!from_.has_buffered() && is_lower_or_upper(header_value(headers, "expect"), "100-continue")) {
            from_.write({"HTTP/1.1 100 Continue\r\n\r\n"});
        }
    }

    // Reads into `bytes`; at least one.
    bool read_some(char* bytes, std::size_t room, std::size_t& count) {
        const ssize_t got = from_.read(bytes, room);
        if (got <= 0) return refuse(got == 0 ? kBadRequest : kTimeout);
        count = static_cast<std::size_t>(got);
        return true;
    }

    bool read_bytes(std::uint64_t left) {
        std::array<char, 16384> piece;
        while (left > 0) {
            std::size_t count = 0;
            const std::size_t room = static_cast<std::size_t>(std::min<std::uint64_t>(left, piece.size()));
            if (!read_some(piece.data(), room, count)) return false;
            if (!body_.budget_share->take(kUnparsedCopies * count)) return refuse(kBusy);
            if (body_.text.size() >= kBelievedBytes) body_.text.reserve(body_.text.size() + left);
            body_.text.append(piece.data(), count);
            left -= count;
        }
        return true;
    }

    // Up to the end of the line, which is left out. Half an end is refused: a proxy may take it for a whole one, and
    // see other requests than we do.
    bool read_line(std::string& line) {
        line.clear();
        for (;;) {
            char c = 0;
            std::size_t count = 0;
            if (line.size() == kLineBytes) return refuse(kBadRequest);
            if (!read_some(&c, 1, count)) return false;
            const bool after_return = line.ends_with('\r');
            if (after_return != (c == '\n')) return refuse(kBadRequest);
            if (after_return) break;
            line += c;
        }
        line.pop_back();
        return true;
    }

    bool read_chunks() {
        std::string line;
        for (;;) {
            std::uint64_t bytes = 0;
            if (!read_line(line)) return false;
            // Behind the size there may be extensions, which nobody uses.
            const std::string_view size = std::string_view(line).substr(0, line.find_first_of("; \t"));
            const std::size_t behind = line.find_first_not_of(" \t", size.size());
            const bool is_extended = behind != std::string::npos && line[behind] == ';';
            if (!read_number(size, 16, bytes) || (behind != std::string::npos && !is_extended)) {
                return refuse(kBadRequest);
            }
            if (bytes == 0) return read_trailers(line);
            if (bytes > most_bytes_ - body_.text.size()) return refuse(kTooLarge);
            if (!read_bytes(bytes) || !read_line(line)) return false;
            if (!line.empty()) return refuse(kBadRequest);
        }
    }

    bool read_trailers(std::string& line) {
        std::size_t bytes = 0;
        do {
            if (!read_line(line)) return false;
            bytes += line.size() + 2;
            if (bytes > kLineBytes) return refuse(kBadRequest);
        } while (!line.empty());
        return true;
    }

    connection& from_;
    const std::size_t most_bytes_;
    http_body body_;
};

}  // namespace

bool announces_body(const header_map& headers) {
    const auto length = headers.find("content-length");
    return headers.contains("transfer-encoding") ||
           (length != headers.end() &&
            (length->second.empty() || length->second.find_first_not_of('0') != std::string::npos));
}

http_body read_body(const http_request& head, connection& from, std::size_t most_bytes,
                    std::shared_ptr<body_budget> budget) {
    return body_reader(from, most_bytes, std::move(budget)).read(head);
}

}  // namespace mcp
