// The revisions of the protocol that a client may speak.
//
// Up to 2025-11-25 a client opens with `initialize`, and a session follows. From 2026-07-28 on each request says in its
// `_meta` which revision it is of and who sends it, and stands alone. A client may try one and go on with the other, so
// that each request is looked at by itself.
#pragma once

#include <array>
#include <string_view>

#include "mcp/json.h"

namespace velmoor {

using mcp::json;

inline constexpr std::array<std::string_view, 4> kSessionRevisions = {"2025-11-25", "2025-06-18", "2025-03-26",
                                                                      "2024-11-05"};
inline constexpr std::array<std::string_view, 1> kStatelessRevisions = {"2026-07-28"};

inline constexpr const char* kMetaRevision = "io.modelcontextprotocol/protocolVersion";
inline constexpr const char* kMetaClientInfo = "io.modelcontextprotocol/clientInfo";
inline constexpr const char* kMetaCapabilities = "io.modelcontextprotocol/clientCapabilities";
inline constexpr const char* kMetaServerInfo = "io.modelcontextprotocol/serverInfo";
inline constexpr const char* kMetaSubscription = "io.modelcontextprotocol/subscriptionId";

inline constexpr std::int32_t kParseError = -32700;
inline constexpr std::int32_t kHeaderMismatch = -32020;
inline constexpr std::int32_t kUnsupportedRevision = -32022;

bool is_session_revision(std::string_view revision);
bool is_stateless_revision(std::string_view revision);

// What `initialize` is answered with: the revision that was offered, or the latest of that era.
std::string_view revision_for(std::string_view offered);

// Whether clients of that revision may send several messages in one array.
bool has_batches(std::string_view revision);

// The revision that the request itself names, or empty if it names none: then it belongs to a session.
std::string_view revision_of_request(const json& message);

// Whether requests that stand alone have such a method.
bool is_stateless_method(std::string_view method);

// What is wrong with a request that names its revision: code, message and perhaps data; null if nothing is.
json stateless_fault(const json& message);

}  // namespace velmoor
