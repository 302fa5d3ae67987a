#include "mcp/server.h"

#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

#include "diagnostics/mcp_logger.h"
#include "mcp/http_server.h"
#include "mcp/local_only.h"
#include "mcp/port_sharing.h"
#include "mcp/session_table.h"

namespace mcp {
namespace {

constexpr http_header kPreflightHeaders[] = {
    {"Access-Control-Allow-Origin", "*"},
    {"Access-Control-Allow-Methods", "GET, POST, OPTIONS"},
    {"Access-Control-Allow-Headers", "Content-Type"},
};

constexpr http_header kStreamHeaders[] = {
    {"Cache-Control", "no-cache"},
    {"Connection", "keep-alive"},
    {"Access-Control-Allow-Origin", "*"},
};

constexpr http_header kNoStreamHeaders[] = {
    {"Access-Control-Allow-Origin", "*"},
};

void log_access(const http_request& request, const http_answer& answer) {
    log_info(request.remote_address, ":", request.remote_port, " - \"", request.method, " ", request.path,
             " HTTP/1.1\" ", answer.status);
}

}  // namespace

server::server(const server_config& config)
    : config_(config),
      sessions_(std::make_shared<session_table>(config)),
      http_({.connections = config.connections,
             .timings = {.silence = config.timings.silence,
                         .request = config.timings.request_time,
                         .write = std::chrono::seconds(config.write_timeout_seconds)},
             .body_bytes = config.body_limit,
             .all_bodies_bytes = config.all_bodies_limit}),
      name_(config.name),
      version_(config.version),
      workers_(config.threadpool_size) {}

server::~server() {
    stop();
}

void server::set_server_info(const std::string& name, const std::string& version) {
    const std::lock_guard lock(mutex_);
    name_ = name;
    version_ = version;
}

void server::set_capabilities(const json& capabilities) {
    const std::lock_guard lock(mutex_);
    capabilities_ = capabilities;
}

void server::set_initialize_callback(initialize_callback callback) {
    const std::lock_guard lock(mutex_);
    initialize_callback_ = std::move(callback);
}

void server::set_client_connected_callback(client_connected_callback callback) {
    const std::lock_guard lock(mutex_);
    client_connected_callback_ = std::move(callback);
}

bool server::start(bool blocking) {
    if (sessions_->is_running()) return true;
    if (std::exchange(started_, true)) return false;
    log_info("Starting MCP server on ", config_.host, ":", config_.port);
    add_routes();
    // Set before there is a listener, which clears it when it can't bind.
    sessions_->set_running(true);
    if (blocking) {
        log_info("Starting server in blocking mode");
        return listen();
    }
    try {
        maintenance_running_ = true;
        maintenance_thread_ = std::thread(&server::run_maintenance, this);
        listener_thread_ = std::thread(&server::run_listener, this);
    } catch (const std::system_error& e) {
        log_error("Failed to start server on ", config_.host, ":", config_.port, ": ", e.what());
        sessions_->set_running(false);
        return false;
    }
    return true;
}

void server::add_routes() {
    if (config_.local_only) http_.set_gate(&server::refuse_foreign);
    http_.on_options([](const http_request&) {
        return http_answer{.status = 204, .content_type = "application/json", .headers = kPreflightHeaders};
    });
    http_.on_post(config_.msg_endpoint, [this](http_request& request, http_body& body) {
        http_answer answer = handle_jsonrpc(request, body);
        log_access(request, answer);
        return answer;
    });
    http_.on_get(config_.sse_endpoint, [this](const http_request& request, std::function<void()> cut_connection) {
        http_answer answer = handle_sse(request, std::move(cut_connection));
        log_access(request, answer);
        return answer;
    });
}

// On purpose without CORS headers: a page from elsewhere is not to read even that it was refused.
std::optional<http_answer> server::refuse_foreign(const http_request& request) {
    const char* const part = foreign_part(request.remote_address, request.headers);
    if (!part) return std::nullopt;
    log_warning("Refused ", request.remote_address, ":", request.remote_port, ": its ", part,
                " is not this machine (ORVANICXR_LOCAL_ONLY=1)");
    return http_answer{.status = 403,
                       .content_type = "application/json",
                       .headers = {},
                       .body = R"({"error":"Only this machine is served"})"};
}

http_answer server::handle_sse(const http_request& request, std::function<void()> cut_connection) {
    http_answer answer{.status = 200, .content_type = "text/event-stream", .headers = kStreamHeaders};
    if (request.method == "HEAD") return answer;
    answer.stream = sessions_->open_session(std::move(cut_connection));
    if (answer.stream) return answer;
    return {.status = 503,
            .content_type = "application/json",
            .headers = kNoStreamHeaders,
            .body = R"({"error":"Server busy"})"};
}

void server::run_listener() noexcept {
    try {
        log_info("Starting server in separate thread");
        listen();
    } catch (const std::exception& e) {
        log_error("Exception in listener thread: ", e.what());
        sessions_->set_running(false);
        set_listen_state(listen_state::failed, 0);
    }
}

bool server::listen() {
    const int port = http_.bind(config_.host, config_.port);
    if (config_.port != 0) warn_of_shared_port(config_.port);
    if (port != 0) {
        set_listen_state(listen_state::listening, port);
        if (http_.serve()) return true;
    }
    log_error("Failed to start server on ", config_.host, ":", config_.port);
    sessions_->set_running(false);
    set_listen_state(listen_state::failed, 0);
    return false;
}

void server::warn_of_shared_port(int port) const {
    const bool ipv6 = config_.host.find(':') != std::string::npos;
    if (!is_served_by_another_process(ipv6, port)) return;
    log_warning("Port ", port, ipv6 ? " (IPv6)" : " (IPv4)",
                " is already served by another process, which clients may reach instead of this one: end it and start "
                "this application again (\"ss -ltnp\" names it)");
}

void server::set_listen_state(listen_state state, int port) {
    {
        const std::lock_guard lock(listen_mutex_);
        listen_state_ = state;
        port_ = port;
    }
    listen_changed_.notify_all();
}

bool server::wait_until_listening(std::chrono::milliseconds limit) const {
    std::unique_lock lock(listen_mutex_);
    listen_changed_.wait_for(lock, limit, [this] { return listen_state_ != listen_state::idle; });
    return listen_state_ == listen_state::listening;
}

int server::port() const {
    const std::lock_guard lock(listen_mutex_);
    return port_;
}

bool server::is_running() const {
    return sessions_->is_running();
}

void server::run_maintenance() noexcept {
    try {
        std::unique_lock lock(maintenance_mutex_);
        for (;;) {
            maintenance_wake_.wait_for(lock, config_.timings.sweep_interval, [this] { return !maintenance_running_; });
            if (!maintenance_running_) {
                log_info("Maintenance thread exiting");
                return;
            }
            lock.unlock();
            sweep_inactive_sessions();
            lock.lock();
        }
    } catch (const std::exception& e) {
        log_error("Exception in maintenance thread: ", e.what());
    } catch (...) {
        log_error("Unknown exception in maintenance thread");
    }
}

void server::end_maintenance() {
    if (!maintenance_thread_.joinable()) return;
    {
        const std::lock_guard lock(maintenance_mutex_);
        maintenance_running_ = false;
    }
    maintenance_wake_.notify_all();
    maintenance_thread_.join();
}

void server::close_session(const std::string& session_id) {
    sessions_->close_session(session_id);
}

void server::sweep_inactive_sessions() {
    sessions_->sweep_inactive_sessions();
}

void server::stop() {
    const bool was_running = sessions_->set_running(false);
    if (was_running) log_info("Stopping MCP server on ", config_.host, ":", config_.port);
    // 1. Nothing is swept any more.
    end_maintenance();
    // 2. No request finds its session, and the session threads end. The streams stay open ...
    sessions_->forget_sessions();
    // 3. ... and so a tool that ends within this pause can still answer.
    if (was_running) std::this_thread::sleep_for(config_.timings.stop_pause);
    // 4. The session threads are joined, but for those that take too long.
    sessions_->join_threads();
    // 5. All connections are cut, which ends reads and writes.
    http_.stop();
    // 6. The streams that waited for something to write end as well.
    sessions_->release_streams();
    // 7. The listener ends with the last connection. One that could not bind its port has ended by itself.
    if (listener_thread_.joinable()) listener_thread_.join();
    if (was_running) log_info("MCP server stopped");
}

}  // namespace mcp
