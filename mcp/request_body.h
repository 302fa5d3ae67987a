#pragma once

#include <cstddef>
#include <memory>

#include "mcp/body_budget.h"
#include "mcp/connection.h"
#include "mcp/http_message.h"

namespace mcp {

// Whether something follows the head that belongs to the same request.
bool announces_body(const header_map& headers);

// Reads the body that the head announces, which may be none. Where it is refused, for its length, its encoding, want
// of memory, or because it doesn't come in time, some of it may be left on the connection.
http_body read_body(const http_request& head, connection& from, std::size_t most_bytes,
                    std::shared_ptr<body_budget> budget);

}  // namespace mcp
