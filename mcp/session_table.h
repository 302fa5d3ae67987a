#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "mcp/event_dispatcher.h"
#include "mcp/http_message.h"
#include "mcp/server_config.h"
#include "mcp/sse.h"

namespace mcp {

// The sessions of one server, and what each of them remembers. Session threads and open streams share the
// table, so it lives on behind a server that is gone, for as long as one of them still sleeps.
class session_table : public std::enable_shared_from_this<session_table> {
 public:
    // `draw_id` gives random ids, of which one may come twice.
    explicit session_table(const server_config& config, std::function<std::string()> draw_id = make_session_id);

    bool is_running() const { return running_; }
    // Sets whether the server runs, and returns whether it did.
    bool set_running(bool running) { return running_.exchange(running); }

    // Opens a session with its thread. `cut_connection` is called when the session is closed. Returns what its
    // stream writes, which closes the session when it is destroyed; empty, with nothing opened, if there are as many
    // streams as there may be.
    stream_source open_session(std::function<void()> cut_connection);

    // Null if there is no such session.
    std::shared_ptr<event_dispatcher> find(const std::string& session_id) const;

    // Closing one that is closed does nothing.
    void close_session(const std::string& session_id) noexcept;
    void sweep_inactive_sessions();

    // On purpose what these store outlives the session's end, for the last thousand sessions that ended.
    void mark_session_initialized(const std::string& session_id, bool value) noexcept;
    bool is_session_ready(const std::string& session_id) const noexcept;
    void set_protocol_version(const std::string& session_id, const std::string& version);

    // With `running` cleared: forgets all sessions, whose threads end. Their streams stay open.
    void forget_sessions();
    // Waits for the threads of the forgotten sessions, within the time that the settings give.
    void join_threads();
    // Wakes the streams of the forgotten sessions. They end once they have nothing to write.
    void release_streams();

 private:
    // A thread that is joined only by join_threads(), and runs on by itself otherwise.
    struct session_thread {
        session_thread() = default;
        session_thread(session_thread&&) = default;
        session_thread& operator=(session_thread&&) = delete;
        ~session_thread();

        std::thread thread;
        std::future<void> ended;
    };

    struct session {
        std::shared_ptr<event_dispatcher> dispatcher;
        std::function<void()> cut_connection;
        session_thread thread;
    };

    // Ends its session when it ends itself.
    struct open_stream {
        open_stream(std::shared_ptr<session_table> of, std::shared_ptr<event_dispatcher> from);
        open_stream(const open_stream&) = delete;
        open_stream& operator=(const open_stream&) = delete;
        ~open_stream();

        const std::shared_ptr<session_table> table;
        const std::shared_ptr<event_dispatcher> dispatcher;
        std::string session_id;  // empty until it counts
    };

    static void run_session(const std::shared_ptr<session_table>& table, const std::string& session_id,
                            event_dispatcher& dispatcher) noexcept;
    void send_heartbeats(const std::string& session_id, event_dispatcher& dispatcher);
    bool write_stream(const std::string& session_id, event_dispatcher& dispatcher, frame_sink& sink) noexcept;
    bool continue_stream(const std::string& session_id, event_dispatcher& dispatcher, frame_sink& sink);
    std::string new_id_locked() const;
    void end_stream(const std::string& session_id) noexcept;
    void remember_locked(const std::string& session_id);

    const server_timings timings_;
    const std::string msg_endpoint_;
    const std::size_t untaken_answer_limit_;
    const std::shared_ptr<untaken_total> untaken_total_;
    const std::size_t stream_limit_;
    const std::function<std::string()> draw_id_;

    std::atomic<bool> running_{false};

    mutable std::mutex mutex_;  // all below
    std::map<std::string, session, std::less<>> sessions_;
    std::size_t streams_ = 0;         // a stream may end later than its session
    std::deque<std::string> closed_;  // the sessions that ended and are remembered below, the oldest first
    std::map<std::string, bool, std::less<>> session_initialized_;
    std::map<std::string, std::string, std::less<>> session_protocol_versions_;
    std::vector<std::shared_ptr<event_dispatcher>> forgotten_;  // with streams still open
    std::vector<session_thread> threads_;                       // of the forgotten sessions
};

}  // namespace mcp
