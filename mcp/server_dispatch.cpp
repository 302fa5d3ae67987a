// From a POST to its answer on the stream.
#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <optional>
#include <utility>

#include "diagnostics/clock.h"
#include "diagnostics/mcp_logger.h"
#include "mcp/server.h"
#include "mcp/session_table.h"
#include "mcp/sse.h"

namespace mcp {

using orvanic_xr::kErrorTextBytes;
using orvanic_xr::PeerText;
using orvanic_xr::ShownPeerText;

namespace {

constexpr http_header kPostHeaders[] = {
    {"Access-Control-Allow-Origin", "*"},
    {"Access-Control-Allow-Methods", "POST, OPTIONS"},
    {"Access-Control-Allow-Headers", "Content-Type"},
};

constexpr std::array kSupportedProtocolVersions = {"2025-11-25", "2025-06-18", "2024-11-05"};

// See server::parse_text.
constexpr std::size_t kLargeText = 1u << 20;

// The answer of a request whose dispatch gave none.
constexpr const char* kNullFrame = "event: message\r\ndata: null\r\n\r\n";

http_answer accepted() {
    return {.status = 202, .content_type = "text/plain", .headers = kPostHeaders, .body = "Accepted"};
}

http_answer refused(int status, const std::string& error) {
    return {.status = status,
            .content_type = "application/json",
            .headers = kPostHeaders,
            .body = R"({"error":")" + error + R"("})"};
}

http_answer refused_body(int status) {
    switch (status) {
        case 408:
            return refused(status, "Request timeout");
        case 413:
            return refused(status, "Payload too large");
        case 415:
        case 501:
            return refused(status, "Unsupported encoding");
        case 503:
            return refused(status, "Server busy");
        default:
            return refused(status, "Invalid JSON");
    }
}

// Takes `params` out of `body`. Throws if that is no request.
json_rpc_request take_request(json& body) {
    json_rpc_request request;
    if (body.contains("jsonrpc")) request.jsonrpc = body["jsonrpc"].get<std::string>();
    request.method = body.at("method").get<std::string>();
    if (body.contains("id")) request.id = body["id"];
    if (body.contains("params")) request.params = std::move(body["params"]);
    return request;
}

// False if the budget has no room for that.
bool charge(const http_body& posted, std::size_t bytes) {
    return !posted.budget_share || posted.budget_share->take(bytes);
}

// What the arguments of a call will take when they are parsed, if they are text.
std::size_t arguments_bytes(const json_rpc_request& request) {
    if (request.method != "tools/call" || !request.params.is_object()) return 0;
    const auto arguments = request.params.find("arguments");
    if (arguments == request.params.end() || !arguments->is_string()) return 0;
    const auto& text = arguments->get_ref<const std::string&>();
    return kUnparsedCopies * text.size() + json_overhead(text);
}

std::size_t headers_bytes(const header_map& headers) {
    std::size_t bytes = 0;
    for (const auto& [name, value] : headers) bytes += name.size() + value.size() + kJsonValueBytes;
    return bytes;
}

// For log lines: the tool that is called, behind its key, or nothing.
std::string name_part(const json_rpc_request& request) {
    if (request.method != "tools/call" || !request.params.is_object()) return {};
    const auto name = request.params.find("name");
    if (name == request.params.end() || !name->is_string()) return {};
    return " name=" + ShownPeerText(name->get_ref<const std::string&>());
}

// Likewise the arguments of the call.
std::string arguments_part(const json_rpc_request& request) {
    if (request.method != "tools/call" || !request.params.is_object()) return {};
    const auto arguments = request.params.find("arguments");
    return arguments == request.params.end() ? std::string() : " args=" + ShownPeerText(dump_json(*arguments));
}

std::string message_frame(const json_rpc_response& response) {
    std::string frame;
    frame.reserve(kMessageFrameBegin.size() + response.result_text.size() + kFrameEnd.size() + 128);
    frame += kMessageFrameBegin;
    append_text(frame, response);
    frame += kFrameEnd;
    return frame;
}

}  // namespace

http_answer server::handle_jsonrpc(http_request& request, http_body& body) {
    try {
        return body.refusal == 0 ? accept_request(request, body) : refused_body(body.refusal);
    } catch (const std::exception& e) {
        log_error("Exception while accepting a request: ", e.what());
    } catch (...) {
        log_error("Unknown exception while accepting a request");
    }
    return refused(500, "Internal server error");
}

json server::parse_text(std::string_view text) const {
    if (text.size() < kLargeText) return parse_json(text);
    std::call_once(parser_started_, [this] { parser_ = std::make_unique<thread_pool>(1); });
    json value;
    std::exception_ptr failure;
    parser_
        ->enqueue([&] {
            try {
                value = parse_json(text);
            } catch (...) {
                failure = std::current_exception();
            }
        })
        .wait();
    if (failure) std::rethrow_exception(failure);
    return value;
}

// Who looks again and again does not want to fill the log with that. What changes something is always in it.
bool server::is_aside(const json_rpc_request& request) const {
    if (request.method != "tools/call" || !request.params.is_object()) return false;
    const auto meta = request.params.find("_meta");
    const auto name = request.params.find("name");
    if (meta == request.params.end() || !meta->is_object() || meta->value(kMetaAside, json()) != true) return false;
    const auto entry = name != request.params.end() && name->is_string() ? find_tool(*name) : nullptr;
    return entry && entry->declaration.read_only_hint;
}

http_answer server::accept_request(http_request& request, http_body& posted) {
    const std::string& session_id = request.session_id;
    if (const auto open = sessions_->find(session_id)) open->touch();
    const std::size_t body_bytes = posted.text.size();
    if (!charge(posted, json_overhead(posted.text))) return refused_body(503);
    json body;
    try {
        body = parse_text(posted.text);
        page_string().swap(posted.text);
        // What is left of its share stands for what was made of it.
        if (posted.budget_share) posted.budget_share->give_back((kUnparsedCopies - 1) * body_bytes);
    } catch (const std::exception& e) {
        log_error("Failed to parse JSON request: ", PeerText{e.what(), kErrorTextBytes});
        return refused(400, "Invalid JSON");
    }
    auto dispatcher = sessions_->find(session_id);
    if (!dispatcher) {
        if (body.is_object() && body.value("method", json()) == "ping") return accepted();
        log_error("Session not found: ", PeerText{session_id});
        return refused(404, "Session not found");
    }
    json_rpc_request rpc;
    try {
        rpc = take_request(body);
    } catch (const std::exception& e) {
        log_error("Failed to create request object: ", PeerText{e.what(), kErrorTextBytes});
        return refused(400, "Invalid request format");
    }
    header_map headers;
    if (rpc.method == "initialize") headers = std::move(request.headers);
    if (!charge(posted, arguments_bytes(rpc) + headers_bytes(headers))) return refused_body(503);
    const orvanic_xr::QuietLines quiet(is_aside(rpc));
    if (rpc.method != "ping") {
        log_info("POST /message accepted: method=", PeerText{rpc.method}, name_part(rpc), " session=", session_id,
                 " body_bytes=", body_bytes);
    }
    workers_.enqueue([this, rpc = std::move(rpc), session_id, headers = std::move(headers),
                      dispatcher = std::move(dispatcher),
                      budget_share = posted.budget_share] { answer_request(rpc, session_id, headers, *dispatcher); });
    return accepted();
}

void server::answer_request(const json_rpc_request& request, const std::string& session_id, const header_map& headers,
                            event_dispatcher& dispatcher) noexcept {
    try {
        const orvanic_xr::QuietLines quiet(is_aside(request));
        const auto response = dispatch_request(request, session_id, headers);
        if (request.is_notification()) return;
        if (response && response->id.is_null()) {
            log_error("Refusing to emit JSON-RPC response with id:null over SSE — method=", PeerText{request.method},
                      " session_id=", session_id, " payload=", PeerText{dump_json(to_json(*response))});
            return;
        }
        deliver(response ? message_frame(*response) : kNullFrame, session_id, dispatcher);
    } catch (...) {
        // No memory for an answer of that size. A small one keeps the client from waiting for ever.
        log_error("Failed to build response: session_id=", session_id);
        try {
            const auto response =
                make_error_response(request.id, kInternalError, "Internal error: no memory for the answer");
            deliver(message_frame(response), session_id, dispatcher);
        } catch (...) {
            log_error("Failed to send response via SSE: session_id=", session_id);
        }
    }
}

void server::deliver(std::string frame, const std::string& session_id, event_dispatcher& dispatcher) {
    const auto outcome = dispatcher.post_answer(std::move(frame));
    if (outcome == event_dispatcher::post_result::stored) return;
    log_error("Failed to send response via SSE: session_id=", session_id);
    if (outcome == event_dispatcher::post_result::too_much) {
        log_warning("SSE session leaves more than ", config_.untaken_answer_limit,
                    " bytes of answers unread, closing: ", session_id);
        sessions_->close_session(session_id);
    } else if (outcome == event_dispatcher::post_result::too_much_of_all) {
        log_warning("All SSE sessions together leave more than ", config_.all_untaken_limit,
                    " bytes of answers unread, closing one of them: ", session_id);
        sessions_->close_session(session_id);
    }
}

std::optional<json_rpc_response> server::dispatch_request(const json_rpc_request& request,
                                                          const std::string& session_id, const header_map& headers) {
    if (request.is_notification()) {
        if (request.method == "notifications/initialized") sessions_->mark_session_initialized(session_id, true);
        return std::nullopt;
    }
    try {
        return run_method(request, session_id, headers);
    } catch (const mcp_exception& e) {
        log_error("MCP exception: ", PeerText{e.what(), kErrorTextBytes}, ", code: ", e.code);
        return make_error_response(request.id, e.code, e.what());
    } catch (const std::exception& e) {
        log_error("Exception while processing request: ", PeerText{e.what(), kErrorTextBytes});
        return make_error_response(request.id, kInternalError, std::string("Internal error: ") + e.what());
    } catch (...) {
        log_error("Unknown exception while processing request");
        return make_error_response(request.id, kInternalError, "Unknown internal error");
    }
}

json_rpc_response server::run_method(const json_rpc_request& request, const std::string& session_id,
                                     const header_map& headers) {
    const std::string& method = request.method;
    const std::string name = name_part(request);
    if (method != "ping") log_info("Processing method call: ", PeerText{method}, name, arguments_part(request));
    if (method == "initialize") return handle_initialize(request, session_id, headers);
    if (method == "ping") return make_result_response(request.id, json::object());
    if (!sessions_->is_session_ready(session_id)) {
        log_warning("Session not initialized: ", session_id);
        return make_error_response(request.id, kInvalidRequest, "Session not initialized");
    }
    const method_handler handler = find_method(method);
    if (!handler) {
        log_warning("Method not found: ", PeerText{method});
        return make_error_response(request.id, kMethodNotFound, "Method not found: " + method);
    }
    log_info("Calling method handler: ", PeerText{method}, name);
    const std::int64_t start_ns = orvanic_xr::MonotonicNanoseconds();
    json_rpc_response response = make_result_response(request.id, handler(request.params, session_id));
    const std::int64_t end_ns = orvanic_xr::MonotonicNanoseconds();
    if (!response.result.is_null()) response.result_text = dump_json(response.result);
    log_info("Method call successful: ", PeerText{method}, name, " duration_ms=", (end_ns - start_ns) / 1'000'000,
             " result_bytes=", response.result_text.size());
    return response;
}

server::method_handler server::find_method(const std::string& method) const {
    const std::lock_guard lock(mutex_);
    const auto found = method_handlers_.find(method);
    return found == method_handlers_.end() ? nullptr : found->second;
}

json_rpc_response server::handle_initialize(const json_rpc_request& request, const std::string& session_id,
                                            const header_map& headers) {
    const json& params = request.params;
    if (!params.is_object() || !params.contains("protocolVersion") || !params["protocolVersion"].is_string()) {
        log_error("Missing or invalid protocolVersion parameter");
        return make_error_response(request.id, kInvalidParams, "Expected string for 'protocolVersion' parameter");
    }
    const std::string version = params["protocolVersion"].get<std::string>();
    log_info("Client requested protocol version: ", PeerText{version});
    if (std::find(kSupportedProtocolVersions.begin(), kSupportedProtocolVersions.end(), version) ==
        kSupportedProtocolVersions.end()) {
        const json supported(kSupportedProtocolVersions);
        log_error("Unsupported protocol version: ", PeerText{version}, ", server supports: ", dump_json(supported));
        return make_error_response(request.id, kInvalidParams, "Unsupported protocol version",
                                   {{"supported", supported}, {"requested", version}});
    }
    sessions_->set_protocol_version(session_id, version);
    log_info("Negotiated protocol version: ", version, " for session: ", session_id);

    const json client_info = params.value("clientInfo", json());
    std::string client_name = "UnknownClient";
    std::string client_version = "UnknownVersion";
    if (client_info.is_object()) {
        if (client_info.contains("name")) client_name = client_info["name"].get<std::string>();
        if (client_info.contains("version")) client_version = client_info["version"].get<std::string>();
    }
    log_info("Client connected: ", PeerText{client_name}, " ", PeerText{client_version});
    tell_initialize(session_id, client_info, headers);
    if (const auto callback = copy_locked(client_connected_callback_)) callback(client_name, client_version);
    log_info("Initialization successful, waiting for notifications/initialized notification");

    const std::lock_guard lock(mutex_);
    return make_result_response(request.id, {{"protocolVersion", version},
                                             {"capabilities", capabilities_},
                                             {"serverInfo", {{"name", name_}, {"version", version_}}}});
}

void server::tell_initialize(const std::string& session_id, const json& client_info, const header_map& headers) {
    const auto callback = copy_locked(initialize_callback_);
    if (!callback) return;
    try {
        callback(session_id, client_info, headers);
    } catch (const std::exception& e) {
        log_error("initialize_callback threw: ", e.what());
    } catch (...) {
        log_error("initialize_callback threw an unknown exception");
    }
}

}  // namespace mcp
