// What passes through the HTTP server, as plain values.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "mcp/body_budget.h"
#include "mcp/event_dispatcher.h"
#include "mcp/page_allocator.h"

namespace mcp {

// Request headers under their lower-cased names. Several of one name are joined by ", ".
using header_map = std::map<std::string, std::string>;

// The head of a request.
struct http_request {
    std::string remote_address = {};
    int remote_port = 0;
    std::string method;  // as it was sent, and so are the others but for the path
    std::string version = "HTTP/1.1";
    std::string path = {};        // decoded, without the query
    std::string session_id = {};  // the query key of that name; empty if absent
    header_map headers = {};
};

// The body of a request, as far as it was taken.
struct http_body {
    page_string text = {};
    int refusal = 0;  // the status to answer with, where the body could not be taken; else 0
    // What it takes of the memory for requests, to be kept until the request is done with. Null where a test makes it.
    std::shared_ptr<body_budget::share> budget_share = nullptr;
};

struct http_header {
    const char* name;
    const char* value;
};

// Called again and again to write to an open stream, for as long as it returns true. It is destroyed when the
// stream has ended, for whatever reason.
using stream_source = std::function<bool(frame_sink& sink)>;

struct http_answer {
    int status = 200;
    std::string content_type = {};                                      // none if empty
    std::span<const http_header> headers = {};                          // go out in this order, behind the content type
    std::vector<std::pair<std::string, std::string>> own_headers = {};  // of this answer alone; behind the others
    std::string body = {};
    stream_source stream = {};  // set if the body is a stream
    bool tells_end = false;     // of the stream by a last chunk; otherwise the connection's end alone tells it
};

}  // namespace mcp
