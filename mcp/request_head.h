#pragma once

#include <memory>
#include <optional>

#include "mcp/connection.h"
#include "mcp/http_message.h"

namespace mcp {

// Reads the heads of requests. The implementation is the one file that sees cpp-httplib.
class head_reader {
 public:
    // Leaves SIGPIPE as it is.
    head_reader();
    ~head_reader();
    head_reader(const head_reader&) = delete;
    head_reader& operator=(const head_reader&) = delete;

    // The next head that comes on `from`. Nothing if none came in time, or one that can't be read, which is answered
    // here with 400, 414 or 416: what follows is no request, since a web page can write such a one, headers and all,
    // into the body of another. Any thread; one at a time for one connection.
    std::optional<http_request> read(connection& from);

 private:
    class parser;
    std::unique_ptr<parser> parser_;
};

}  // namespace mcp
