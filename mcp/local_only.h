// Who counts as this machine, for a server that serves nobody else.
#pragma once

#include <string>

#include "mcp/http_message.h"

namespace mcp {

// What of a request is not this machine's: "address", "Host" or "Origin"; null if all of it is.
//
// The peer's address has to be one of 127.0.0.0/8, also as mapped into IPv6, or ::1. `Host` has to be localhost, an
// address of 127.0.0.0/8 written in full, or [::1], with any port or none, and must not lack: any web page can have a
// name of its own lead here, but its browser then sends that name. `Origin` may lack, as clients other than browsers
// send none; else it has to be http or https on such a host, which "null" is not.
const char* foreign_part(const std::string& peer_address, const header_map& headers);

}  // namespace mcp
