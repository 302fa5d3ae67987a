// What a request over Streamable HTTP has to look like. Pure work on heads and messages.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "command/bridge/revision.h"
#include "mcp/http_message.h"

namespace velmoor {

// A refusal with a JSON-RPC error as its body.
mcp::http_answer refused(int status, const json& id, std::int32_t code, const std::string& message,
                         json data = nullptr);

// The header of that lower-cased name; empty if there is none.
std::string header_of(const mcp::http_request& request, const std::string& name);

bool brings_json(const mcp::http_request& request);
bool accepts(const mcp::http_request& request, std::string_view type);

// Who is served: this machine alone, or, with a token, whoever has it.
std::optional<mcp::http_answer> refuse_stranger(const mcp::http_request& request, const std::string& token);

// Whether both are the same, which takes the same time wherever they differ.
bool is_equal_secret(std::string_view one, std::string_view other);

// Whether the header Mcp-Name of 2026-07-28 says that name, as it is or written as "=?base64?...?=".
bool is_name_in_header(const std::string& given, const std::string& name);

// Whether the head of a request that stands alone fits what its body says.
std::optional<mcp::http_answer> refuse_mismatch(const mcp::http_request& request, const json& message);

}  // namespace velmoor
