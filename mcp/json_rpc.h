// The JSON-RPC 2.0 records of the server, as plain values.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "mcp/json.h"

namespace mcp {

inline constexpr std::int32_t kInvalidRequest = -32600;
inline constexpr std::int32_t kMethodNotFound = -32601;
inline constexpr std::int32_t kInvalidParams = -32602;
inline constexpr std::int32_t kInternalError = -32603;

// In the `_meta` of a call: true for one of a read-only tool that the log need not tell.
inline constexpr const char* kMetaAside = "velmoor/aside";

struct json_rpc_request {
    std::string jsonrpc = "2.0";  // as the client sent it; never compared
    json id;                      // any JSON value, echoed as it came; null in a notification
    std::string method;
    json params;

    bool is_notification() const { return id.is_null(); }
};

struct json_rpc_response {
    std::string jsonrpc = "2.0";
    json id;
    json result;
    json error;                    // null, {} or [] in a response that tells a result
    std::string result_text = {};  // the compact text of `result`, where that was made already
};

// Carries a JSON-RPC error code to where the request is answered.
class mcp_exception : public std::runtime_error {
 public:
    mcp_exception(std::int32_t error_code, const std::string& message)
        : std::runtime_error(message), code(error_code) {}

    std::int32_t code;
};

json_rpc_response make_result_response(json id, json result);

// `data` is left out if it is null, {} or [].
json_rpc_response make_error_response(json id, std::int32_t code, const std::string& message, json data = nullptr);

// `jsonrpc`, `id`, and then either `result` or `error`.
json to_json(const json_rpc_response& response);

// Appends the compact text of to_json(response) to `text`. Neither copies the result, nor makes a text that is there.
void append_text(std::string& text, const json_rpc_response& response);

}  // namespace mcp
