// Answers as they go over the wire.
#pragma once

#include <string>
#include <string_view>

#include "mcp/connection.h"
#include "mcp/http_message.h"

namespace mcp {

// Status line and headers of `answer`, to the empty line behind them. `is_last` tells the client that no more of its
// requests is read on the connection, unless the answer says something else about that itself. `head_only` is for HEAD,
// where no body follows and no length is told.
std::string response_head(const http_answer& answer, bool is_last, bool head_only);

// The body of a stream, each write as one chunk.
class chunked_sink final : public frame_sink {
 public:
    explicit chunked_sink(connection& to) : connection_(to) {}

    bool write(std::string_view bytes) override;
    bool has_room() override { return connection_.has_room(); }

 private:
    connection& connection_;
};

}  // namespace mcp
