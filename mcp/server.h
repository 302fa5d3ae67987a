// A Model Context Protocol server: JSON-RPC over HTTP POST, answers over Server-Sent Events.
//
// A client opens a session with GET on `sse_endpoint`; the first event names the address to which it posts its
// requests. A POST is checked and acknowledged on an HTTP worker, run on a worker of the pool, and its answer
// is queued at the session's event_dispatcher, from where the HTTP worker that holds the open stream writes it.
// Nothing here knows OpenXR.
//
// Threads of one server: the listener; HTTP workers, one of them held by each open stream; `threadpool_size`
// pool workers, which run the tools; the maintenance thread; one session thread per session for the endpoint
// frame and the heartbeats. All are joined by stop() or the destructor, but for session threads, which may be
// detached: they know the session_table, which they own a share of, and never the server.
//
// Lock order: McpServerHost, then the server or its session_table (never both), then an event_dispatcher. No
// lock is held while a tool or a callback runs, or while a socket is written.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "mcp/http_server.h"
#include "mcp/json.h"
#include "mcp/json_rpc.h"
#include "mcp/server_config.h"
#include "mcp/thread_pool.h"
#include "mcp/tool.h"

namespace mcp {

class session_table;

class server {
 public:
    // Runs a JSON-RPC method: params and session id in, result out. May throw.
    using method_handler = std::function<json(const json& params, const std::string& session_id)>;
    // Told of each `initialize`: session id, the client's `clientInfo` (null if it sent none), request headers.
    using initialize_callback =
        std::function<void(const std::string& session_id, const json& client_info, const header_map& headers)>;
    // Told of each client that shook hands: its name and version.
    using client_connected_callback = std::function<void(const std::string& name, const std::string& version)>;

    explicit server(const server_config& config);
    // Stops, then waits for tool calls that still run, however long they take.
    ~server();
    server(const server&) = delete;
    server& operator=(const server&) = delete;

    void set_server_info(const std::string& name, const std::string& version);
    void set_capabilities(const json& capabilities);
    void set_initialize_callback(initialize_callback callback);
    void set_client_connected_callback(client_connected_callback callback);

    // A server is started once: false if it has stopped.
    // Not blocking: starts the threads and returns true at once; whether the port could be bound shows in the
    // log, in is_running() and in wait_until_listening(). Blocking: serves on the calling thread until stop(),
    // and returns false if the port could not be bound.
    bool start(bool blocking);
    // Ends all threads but for the pool's workers, and all connections. Does no harm when there are none.
    void stop();

    // False before start, after stop, and after the port could not be bound.
    bool is_running() const;
    // Waits until the port is bound and served. False if that failed or took longer.
    bool wait_until_listening(std::chrono::milliseconds limit) const;
    // The port that is served, which tells what became of a configured 0. 0 until it is bound.
    int port() const;

    // Adds a tool, or replaces the one of that name. At any time, also while calls run.
    void register_tool(const tool& declaration, tool_handler handler);
    // Every tool, in ascending byte order of the names.
    std::vector<tool> get_tools() const;

    void close_session(const std::string& session_id);
    void sweep_inactive_sessions();

    // The POST route: checks `request`, hands it to the pool and gives the acknowledgement.
    http_answer handle_jsonrpc(http_request& request, http_body& body);
    // The GET route: opens a session, whose stream is part of the answer. `cut_connection` ends that stream's
    // connection, from any thread.
    http_answer handle_sse(const http_request& request, std::function<void()> cut_connection);

 private:
    enum class listen_state { idle, listening, failed };
    struct registered_tool {
        tool declaration;
        tool_handler handler;
    };

    void add_routes();
    static std::optional<http_answer> refuse_foreign(const http_request& request);
    bool listen();
    void warn_of_shared_port(int port) const;
    void set_listen_state(listen_state state, int port);
    void run_listener() noexcept;
    void run_maintenance() noexcept;
    void end_maintenance();

    json parse_arguments(std::string_view text) const;
    json parse_text(std::string_view text) const;
    http_answer accept_request(http_request& request, http_body& posted);
    void answer_request(const json_rpc_request& request, const std::string& session_id, const header_map& headers,
                        event_dispatcher& dispatcher) noexcept;
    void deliver(std::string frame, const std::string& session_id, event_dispatcher& dispatcher);

    // Nothing for a notification.
    std::optional<json_rpc_response> dispatch_request(const json_rpc_request& request, const std::string& session_id,
                                                      const header_map& headers);
    json_rpc_response run_method(const json_rpc_request& request, const std::string& session_id,
                                 const header_map& headers);
    method_handler find_method(const std::string& method) const;
    json_rpc_response handle_initialize(const json_rpc_request& request, const std::string& session_id,
                                        const header_map& headers);
    void tell_initialize(const std::string& session_id, const json& client_info, const header_map& headers);

    std::shared_ptr<const registered_tool> find_tool(const std::string& name) const;
    bool is_aside(const json_rpc_request& request) const;
    json list_tools() const;
    json call_tool(const json& params, const std::string& session_id) const;

    template <typename Callback>
    Callback copy_locked(const Callback& callback) const {
        const std::lock_guard lock(mutex_);
        return callback;
    }

    const server_config config_;
    const std::shared_ptr<session_table> sessions_;
    http_server http_;
    std::thread listener_thread_;
    bool started_ = false;

    mutable std::mutex listen_mutex_;  // the two below
    mutable std::condition_variable listen_changed_;
    listen_state listen_state_ = listen_state::idle;
    int port_ = 0;

    std::mutex maintenance_mutex_;  // maintenance_running_
    std::condition_variable maintenance_wake_;
    bool maintenance_running_ = false;
    std::thread maintenance_thread_;

    mutable std::mutex mutex_;  // all below, but for the workers
    std::string name_;
    std::string version_;
    json capabilities_ = json::object();
    std::map<std::string, method_handler, std::less<>> method_handlers_;
    std::map<std::string, std::shared_ptr<const registered_tool>, std::less<>> tools_;  // shared with running calls
    initialize_callback initialize_callback_;
    client_connected_callback client_connected_callback_;

    // Of one thread, which parses large texts. The allocator keeps much of what a thread has freed for that thread, and
    // parsing takes several times the text: many threads that do so would keep hundreds of megabytes for good.
    mutable std::once_flag parser_started_;
    mutable std::unique_ptr<thread_pool> parser_;

    thread_pool workers_;  // the last member: its tasks use all others
};

}  // namespace mcp
