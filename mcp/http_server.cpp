#include "mcp/http_server.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "diagnostics/mcp_logger.h"
#include "mcp/connection_server.h"
#include "mcp/http_response.h"
#include "mcp/request_body.h"
#include "mcp/request_head.h"

namespace mcp {
namespace {

constexpr int kRequestsOfOneConnection = 100;
constexpr std::string_view kLastChunk = "0\r\n\r\n";

bool wants_close(const http_request& request) {
    const auto header = request.headers.find("connection");
    std::string wish = header == request.headers.end() ? std::string() : header->second;
    for (char& c : wish) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    if (request.version == "HTTP/1.0") return wish != "keep-alive";
    return wish.find("close") != std::string::npos;
}

}  // namespace

class http_server::implementation {
 public:
    explicit implementation(const http_limits& limits)
        : body_bytes(limits.body_bytes),
          budget(std::make_shared<body_budget>(limits.all_bodies_bytes)),
          connections(limits.connections, limits.timings,
                      [this](const std::shared_ptr<connection>& served) { serve_requests(served); }) {}

    http_gate gate;
    http_handler on_options;
    std::string post_path;
    http_post_handler on_post;
    std::string get_path;
    http_get_handler on_get;
    head_reader heads;
    const std::size_t body_bytes;
    const std::shared_ptr<body_budget> budget;
    connection_server connections;  // the last member: its workers use all others

 private:
    void serve_requests(const std::shared_ptr<connection>& on) {
        for (int left = kRequestsOfOneConnection; left > 0 && serve_request(on, left == 1); --left) {
        }
    }

    // False if that was the last one.
    bool serve_request(const std::shared_ptr<connection>& on, bool is_last) {
        on->begin_request();
        std::optional<http_request> request = heads.read(*on);
        if (!request) return false;
        bool is_read = !announces_body(request->headers);
        is_last |= wants_close(*request);  // now, since a handler may take the headers
        const http_answer answer = answer_or_fail(*request, on, is_read);
        // What is left of a request must not be taken for the next one. When many wait, they need not do so until this
        // connection has idled for too long; but what has come already is answered.
        const bool makes_room = !answer.stream && !on->has_buffered() && connections.is_crowded();
        is_last |= !is_read || answer.status >= 400 || makes_room;
        const bool head_only = request->method == "HEAD";
        request.reset();  // a stream may be long
        if (!on->write({response_head(answer, is_last, head_only), head_only ? std::string_view() : answer.body}))
            return false;
        if (!answer.stream) return !is_last;
        chunked_sink sink(*on);
        while (on->peer_is_alive() && answer.stream(sink)) {
        }
        // Behind a stream that tells its end another request may follow, as the head has announced.
        return answer.tells_end && on->peer_is_alive() && on->write({kLastChunk}) && !is_last;
    }

    http_answer answer_or_fail(http_request& request, const std::shared_ptr<connection>& on, bool& is_read) {
        try {
            return answer_request(request, on, is_read);
        } catch (const std::exception& e) {
            log_error("Exception while answering a request: ", e.what());
        } catch (...) {
            log_error("Unknown exception while answering a request");
        }
        return {.status = 500};
    }

    http_answer answer_request(http_request& request, const std::shared_ptr<connection>& on, bool& is_read) {
        if (gate) {
            if (auto refusal = gate(request)) return std::move(*refusal);
        }
        if (request.method == "OPTIONS") return on_options(request);
        if (request.method == "POST" && request.path == post_path) {
            http_body body = read_body(request, *on, body_bytes, budget);
            is_read = body.refusal == 0;
            return on_post(request, body);
        }
        if ((request.method == "GET" || request.method == "HEAD") && request.path == get_path) {
            if (!is_read) return {.status = 400};
            return on_get(request, [on] { on->cut(); });
        }
        return {.status = 404};
    }
};

http_server::http_server(const http_limits& limits) : implementation_(std::make_unique<implementation>(limits)) {}

http_server::~http_server() = default;

void http_server::set_gate(http_gate gate) {
    implementation_->gate = std::move(gate);
}

void http_server::on_options(http_handler handler) {
    implementation_->on_options = std::move(handler);
}

void http_server::on_post(const std::string& path, http_post_handler handler) {
    implementation_->post_path = path;
    implementation_->on_post = std::move(handler);
}

void http_server::on_get(const std::string& path, http_get_handler handler) {
    implementation_->get_path = path;
    implementation_->on_get = std::move(handler);
}

int http_server::bind(const std::string& host, int port) {
    return implementation_->connections.bind(host, port);
}

bool http_server::serve() {
    return implementation_->connections.serve();
}

void http_server::stop() {
    implementation_->connections.stop();
}

}  // namespace mcp
