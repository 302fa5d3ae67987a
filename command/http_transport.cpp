#include "command/http_transport.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <utility>

#include "command/http_rules.h"
#include "mcp/json_rpc.h"
#include "mcp/port_sharing.h"
#include "mcp/server_config.h"

namespace velmoor {
namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char* kPath = "/mcp";
constexpr const char* kSessionHeader = "mcp-session-id";
// An answer that comes so soon goes out as one text; for a later one the client is given a stream, which also shows
// when he goes.
constexpr milliseconds kSoon{100};
constexpr milliseconds kPatience = std::chrono::hours(1);  // with a client that takes no stream
constexpr std::size_t kMostSessions = 256;

mcp::http_limits limits() {
    const mcp::server_config usual;
    return {.connections = mcp::default_connection_limits(),
            .timings = {.silence = milliseconds(60000), .request = milliseconds(60000), .write = milliseconds(30000)},
            .body_bytes = usual.body_limit,
            .all_bodies_bytes = usual.all_bodies_limit};
}

std::string random_id() {
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("the system gives no random numbers");
    }
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes) (text += kDigits[byte >> 4]) += kDigits[byte & 15];
    return text;
}

mcp::http_answer only(int status) {
    mcp::http_answer answer;
    answer.status = status;
    return answer;
}

mcp::http_answer not_allowed(const char* allowed) {
    mcp::http_answer answer = refused(405, nullptr, mcp::kInvalidRequest, "Method not allowed");
    answer.own_headers.emplace_back("Allow", allowed);
    return answer;
}

mcp::http_answer json_answer(std::string body) {
    mcp::http_answer answer;
    answer.content_type = "application/json";
    answer.body = std::move(body);
    return answer;
}

bool is_stateless_head(const mcp::http_request& request) {
    return is_stateless_revision(header_of(request, "mcp-protocol-version"));
}

// Of the head of a request in a session.
std::optional<mcp::http_answer> refuse_revision(const mcp::http_request& request, const json& id) {
    const std::string revision = header_of(request, "mcp-protocol-version");
    if (revision.empty() || is_session_revision(revision) || is_stateless_revision(revision)) return std::nullopt;
    return refused(400, id, mcp::kInvalidRequest, "Unsupported protocol version: " + revision);
}

std::string method_of(const json& message) {
    const json method = message.is_object() ? message.value("method", json()) : json();
    return method.is_string() ? method.get<std::string>() : std::string();
}

json id_of(const json& message) {
    const json id = message.is_object() ? message.value("id", json()) : json();
    return id.is_string() || id.is_number_integer() ? id : json();
}

}  // namespace

http_transport::http_transport(bridge& through, http_settings settings)
    : through_(through), settings_(std::move(settings)), server_(limits()) {
    server_.set_gate([this](const mcp::http_request& request) { return look_at_head(request); });
    server_.on_options([](const mcp::http_request&) { return not_allowed("GET, POST, DELETE"); });
    server_.on_post(
        kPath, [this](const mcp::http_request& request, mcp::http_body& body) { return take_post(request, body); });
    server_.on_get(
        kPath, [this](const mcp::http_request& request, const std::function<void()>&) { return take_get(request); });
    through_.on_tools_changed([this] { tell_of_tools(); });
}

int http_transport::bind() {
    const int port = server_.bind(settings_.host, settings_.port);
    // Two of one user could bind the same port, and each would get half of the requests.
    const bool is_ipv6 = settings_.host.find(':') != std::string::npos;
    return port != 0 && mcp::is_served_by_another_process(is_ipv6, port) ? 0 : port;
}

void http_transport::stop() {
    through_.stop();
    std::vector<std::shared_ptr<client_session>> ended;
    std::vector<std::shared_ptr<http_exchange>> streams;
    {
        const std::lock_guard lock(mutex_);
        for (auto& [id, each] : sessions_) {
            ended.push_back(each.session);
            if (each.stream) streams.push_back(each.stream);
        }
        for (const auto& each : alone_) {
            if (auto session = each.lock()) ended.push_back(std::move(session));
        }
    }
    for (const auto& each : ended) each->end_subscriptions();
    for (const auto& each : streams) each->give_up();
    server_.stop();
}

std::optional<mcp::http_answer> http_transport::look_at_head(const mcp::http_request& request) {
    if (settings_.page) {
        if (auto answer = settings_.page(request)) return answer;
    }
    if (auto refusal = refuse_stranger(request, settings_.token)) return refusal;
    if (request.path != kPath) return only(404);
    if (request.method == "DELETE") return take_delete(request);
    if (request.method == "POST" || request.method == "GET" || request.method == "OPTIONS") return std::nullopt;
    return not_allowed("GET, POST, DELETE");
}

mcp::http_answer http_transport::take_post(const mcp::http_request& request, mcp::http_body& body) {
    if (body.refusal != 0) return only(body.refusal);
    if (!brings_json(request)) {
        return refused(415, nullptr, mcp::kInvalidRequest, "The content type must be application/json");
    }
    if (!accepts(request, "application/json") && !accepts(request, "text/event-stream")) {
        return refused(406, nullptr, mcp::kInvalidRequest, "Accept application/json and text/event-stream");
    }
    json message;
    try {
        message = mcp::parse_json(body.text);
    } catch (const std::exception& e) {
        return refused(400, nullptr, kParseError, "Parse error: " + mcp::reason_of(e));
    }
    const std::string method = method_of(message);
    const bool stands_alone = !revision_of_request(message).empty();
    if (method == "initialize" && !stands_alone && !is_stateless_head(request)) return open(std::move(message));
    if (stands_alone) return serve_alone(request, std::move(message));
    if (is_stateless_head(request) && header_of(request, kSessionHeader).empty()) {
        if (!method.empty() && !message.contains("id")) return only(202);
        return refused(400, id_of(message), mcp::kInvalidParams, std::string("Missing _meta ") + kMetaRevision);
    }
    return serve_in_session(request, std::move(message));
}

mcp::http_answer http_transport::serve_alone(const mcp::http_request& request, json message) {
    if (method_of(message).empty()) return refused(400, id_of(message), mcp::kInvalidRequest, "Invalid request");
    if (auto refusal = refuse_mismatch(request, message)) return std::move(*refusal);
    const std::string method = method_of(message);
    if (!is_stateless_method(method) && message.contains("id")) {
        return refused(404, id_of(message), mcp::kMethodNotFound, "Method not found: " + method);
    }
    const auto session = make_session(nullptr);
    if (method == "subscriptions/listen") {
        const std::lock_guard lock(mutex_);
        std::erase_if(alone_, [](const auto& each) { return each.expired(); });
        alone_.push_back(session);
    }
    const auto exchange = std::make_shared<http_exchange>();
    if (!session->take(std::move(message), exchange)) return only(202);
    // To close the stream is how such a client cancels.
    return answer_with(request, exchange, [session, exchange] { session->forget(exchange.get()); });
}

mcp::http_answer http_transport::open(json message) {
    if (id_of(message).is_null()) return refused(400, nullptr, mcp::kInvalidRequest, "Invalid request: no id");
    const std::string id = random_id();
    const auto session = make_session([this, id](std::string text) { push(id, std::move(text)); });
    {
        const std::lock_guard lock(mutex_);
        make_room_locked();
        sessions_[id] = {session, nullptr, clock::now()};
    }
    const auto exchange = std::make_shared<http_exchange>();
    session->take(std::move(message), exchange);
    mcp::http_answer answer = json_answer(exchange->take_lone_answer().value_or(std::string()));
    answer.own_headers.emplace_back("Mcp-Session-Id", id);
    return answer;
}

mcp::http_answer http_transport::serve_in_session(const mcp::http_request& request, json message) {
    const std::string id = header_of(request, kSessionHeader);
    if (id.empty()) {
        return refused(400, id_of(message), mcp::kInvalidRequest, "No Mcp-Session-Id: a session opens with initialize");
    }
    const auto session = find(id);
    if (!session) return refused(404, id_of(message), mcp::kInvalidRequest, "Session not found");
    if (auto refusal = refuse_revision(request, id_of(message))) return std::move(*refusal);
    const auto exchange = std::make_shared<http_exchange>();
    if (!session->take(std::move(message), exchange)) return only(202);
    return answer_with(request, exchange, nullptr);
}

mcp::http_answer http_transport::answer_with(const mcp::http_request& request,
                                             const std::shared_ptr<http_exchange>& exchange,
                                             std::function<void()> ended) {
    const bool takes_stream = accepts(request, "text/event-stream");
    const auto deadline = clock::now() + (takes_stream ? kSoon : kPatience);
    while (!exchange->is_over() && clock::now() < deadline) {
        exchange->await(std::chrono::duration_cast<milliseconds>(deadline - clock::now()));
        if (accepts(request, "application/json")) {
            if (auto text = exchange->take_lone_answer()) return json_answer(std::move(*text));
        }
        if (takes_stream) break;
        // What comes before the answer has no place in a single text.
        const std::vector<std::string> passed = exchange->take_messages();
        if (exchange->is_over() && !passed.empty()) return json_answer(passed.back());
    }
    if (!takes_stream) return only(202);  // cancelled
    return event_stream(exchange, std::move(ended));
}

mcp::http_answer http_transport::take_get(const mcp::http_request& request) {
    const std::string id = header_of(request, kSessionHeader);
    if (id.empty() || is_stateless_head(request)) return not_allowed("POST");
    if (auto refusal = refuse_revision(request, nullptr)) return std::move(*refusal);
    if (!accepts(request, "text/event-stream")) {
        return refused(406, nullptr, mcp::kInvalidRequest, "Accept text/event-stream");
    }
    const auto stream = std::make_shared<http_exchange>();
    {
        const std::lock_guard lock(mutex_);
        const auto found = sessions_.find(id);
        if (found == sessions_.end()) return refused(404, nullptr, mcp::kInvalidRequest, "Session not found");
        // A client that has lost its stream may come again before that is seen.
        if (found->second.stream) found->second.stream->give_up();
        found->second.stream = stream;
        found->second.used = clock::now();
    }
    return event_stream(stream, [this, id, stream] {
        const std::lock_guard lock(mutex_);
        const auto found = sessions_.find(id);
        if (found == sessions_.end() || found->second.stream != stream) return;
        found->second.stream = nullptr;
        found->second.used = clock::now();
    });
}

mcp::http_answer http_transport::take_delete(const mcp::http_request& request) {
    const std::string id = header_of(request, kSessionHeader);
    if (id.empty() || is_stateless_head(request)) return not_allowed("POST");
    if (auto refusal = refuse_revision(request, nullptr)) return std::move(*refusal);
    std::shared_ptr<http_exchange> stream;
    {
        const std::lock_guard lock(mutex_);
        const auto found = sessions_.find(id);
        if (found == sessions_.end()) return refused(404, nullptr, mcp::kInvalidRequest, "Session not found");
        stream = found->second.stream;
        sessions_.erase(found);
    }
    if (stream) stream->give_up();
    return only(204);
}

std::shared_ptr<client_session> http_transport::make_session(std::function<void(std::string)> unasked) {
    return std::make_shared<client_session>(
        through_,
        session_settings{.server_info = settings_.server_info, .instructions = {}, .unasked = std::move(unasked)});
}

std::shared_ptr<client_session> http_transport::find(const std::string& id) {
    const std::lock_guard lock(mutex_);
    const auto found = sessions_.find(id);
    if (found == sessions_.end()) return nullptr;
    found->second.used = clock::now();
    return found->second.session;
}

void http_transport::push(const std::string& id, std::string message) {
    std::shared_ptr<http_exchange> stream;
    {
        const std::lock_guard lock(mutex_);
        const auto found = sessions_.find(id);
        if (found != sessions_.end()) stream = found->second.stream;
    }
    if (stream) stream->notify(std::move(message));
}

// Clients that don't say that they go leave their sessions behind.
void http_transport::make_room_locked() {
    while (sessions_.size() >= kMostSessions) {
        const auto is_older = [](const auto& one, const auto& other) {
            return std::pair(one.second.stream != nullptr, one.second.used) <
                   std::pair(other.second.stream != nullptr, other.second.used);
        };
        const auto oldest = std::min_element(sessions_.begin(), sessions_.end(), is_older);
        if (oldest->second.stream) oldest->second.stream->give_up();
        sessions_.erase(oldest);
    }
}

void http_transport::tell_of_tools() {
    std::vector<std::shared_ptr<client_session>> told;
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [id, each] : sessions_) told.push_back(each.session);
        for (const auto& each : alone_) {
            if (auto session = each.lock()) told.push_back(std::move(session));
        }
    }
    for (const auto& each : told) each->tell_of_tools();
}

}  // namespace velmoor
