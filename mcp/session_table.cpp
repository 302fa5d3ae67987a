#include "mcp/session_table.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <random>
#include <utility>

#include "diagnostics/clock.h"
#include "diagnostics/mcp_logger.h"

namespace mcp {
namespace {

// Enough for the calls that are still in flight when their session ends.
constexpr std::size_t kRememberedSessions = 1000;

}  // namespace

session_table::session_thread::~session_thread() {
    if (thread.joinable()) thread.detach();
}

session_table::open_stream::open_stream(std::shared_ptr<session_table> of, std::shared_ptr<event_dispatcher> from)
    : table(std::move(of)), dispatcher(std::move(from)) {}

session_table::open_stream::~open_stream() {
    if (!session_id.empty()) table->end_stream(session_id);
}

session_table::session_table(const server_config& config, std::function<std::string()> draw_id)
    : timings_(config.timings),
      msg_endpoint_(config.msg_endpoint),
      untaken_answer_limit_(config.untaken_answer_limit),
      untaken_total_(std::make_shared<untaken_total>(config.all_untaken_limit)),
      stream_limit_(config.connections.streams),
      draw_id_(std::move(draw_id)) {}

stream_source session_table::open_session(std::function<void()> cut_connection) {
    const auto dispatcher = std::make_shared<event_dispatcher>(untaken_answer_limit_, untaken_total_);
    const auto stream = std::make_shared<open_stream>(shared_from_this(), dispatcher);
    {
        // Held until the thread is in its place: the thread takes it out when it ends.
        const std::lock_guard lock(mutex_);
        if (streams_ >= stream_limit_) return {};
        stream->session_id = new_id_locked();
        ++streams_;
        session& opened = sessions_[stream->session_id];
        opened.dispatcher = dispatcher;
        opened.cut_connection = std::move(cut_connection);
        std::packaged_task<void()> body([table = stream->table, session_id = stream->session_id, dispatcher] {
            run_session(table, session_id, *dispatcher);
        });
        opened.thread.ended = body.get_future();
        opened.thread.thread = std::thread(std::move(body));
    }
    return [stream](frame_sink& sink) {
        return stream->table->write_stream(stream->session_id, *stream->dispatcher, sink);
    };
}

void session_table::end_stream(const std::string& session_id) noexcept {
    close_session(session_id);
    const std::lock_guard lock(mutex_);
    --streams_;
}

// New among those that ended of late as well: it is not to begin with what another one left, nor to lose what it has
// when that is forgotten.
std::string session_table::new_id_locked() const {
    for (;;) {
        std::string id = draw_id_();
        if (!sessions_.contains(id) && std::find(closed_.begin(), closed_.end(), id) == closed_.end()) return id;
    }
}

std::shared_ptr<event_dispatcher> session_table::find(const std::string& session_id) const {
    const std::lock_guard lock(mutex_);
    const auto found = sessions_.find(session_id);
    return found == sessions_.end() ? nullptr : found->second.dispatcher;
}

void session_table::run_session(const std::shared_ptr<session_table>& table, const std::string& session_id,
                                event_dispatcher& dispatcher) noexcept {
    try {
        dispatcher.pause(table->timings_.endpoint_delay, table->running_);
        dispatcher.post_answer(endpoint_frame(session_uri(table->msg_endpoint_, session_id)));
        dispatcher.touch();
        table->send_heartbeats(session_id, dispatcher);
    } catch (const std::exception& e) {
        log_error("SSE session thread exception: ", session_id, ", ", e.what());
    } catch (...) {
        log_error("SSE session thread exception: ", session_id, ", unknown exception");
    }
    table->close_session(session_id);
}

void session_table::send_heartbeats(const std::string& session_id, event_dispatcher& dispatcher) {
    // Not rand(), whose state is the host application's.
    std::minstd_rand generator(std::random_device("default")());
    std::uniform_int_distribution<std::int64_t> spread(0, timings_.heartbeat_spread.count() - 1);
    std::uint64_t counter = 0;
    try {
        while (running_ && !dispatcher.is_closed()) {
            dispatcher.pause(timings_.heartbeat_pause + std::chrono::milliseconds(spread(generator)), running_);
            if (dispatcher.is_closed() || !running_) return;
            if (!dispatcher.post_frame(heartbeat_frame(counter))) {
                log_warning("Failed to send heartbeat, client may have closed connection: ", session_id);
                return;
            }
            dispatcher.touch();
            ++counter;
        }
    } catch (const std::exception& e) {
        log_error("Failed to send heartbeat: ", e.what());
    }
}

bool session_table::write_stream(const std::string& session_id, event_dispatcher& dispatcher,
                                 frame_sink& sink) noexcept {
    try {
        if (continue_stream(session_id, dispatcher, sink)) return true;
    } catch (const std::exception& e) {
        log_error("SSE content provider exception: ", e.what());
    } catch (...) {
        log_error("SSE content provider exception: unknown exception");
    }
    close_session(session_id);
    return false;
}

bool session_table::continue_stream(const std::string& session_id, event_dispatcher& dispatcher, frame_sink& sink) {
    if (dispatcher.is_closed()) return false;
    dispatcher.touch();
    if (!dispatcher.await_frame(&sink, timings_.keepalive_after)) {
        if (dispatcher.is_closed()) {
            log_info("SSE session closed by dispatcher: ", session_id);
            return false;
        }
        if (!running_) return false;
        if (!sink.write(kKeepaliveComment)) {
            log_warning("SSE keepalive write failed, closing connection: ", session_id);
            return false;
        }
    }
    dispatcher.touch();
    return true;
}

void session_table::close_session(const std::string& session_id) noexcept {
    try {
        std::map<std::string, session, std::less<>>::node_type closed;
        {
            const std::lock_guard lock(mutex_);
            closed = sessions_.extract(session_id);
            if (!closed.empty()) remember_locked(session_id);
        }
        if (closed.empty()) return;
        closed.mapped().dispatcher->close();
        closed.mapped().cut_connection();
    } catch (const std::exception& e) {
        log_error("Exception while cleaning up session resources: ", e.what());
    } catch (...) {
        log_error("Unknown exception while cleaning up session resources: ");
    }
}

void session_table::remember_locked(const std::string& session_id) {
    closed_.push_back(session_id);
    if (closed_.size() <= kRememberedSessions) return;
    session_initialized_.erase(closed_.front());
    session_protocol_versions_.erase(closed_.front());
    closed_.pop_front();
}

void session_table::sweep_inactive_sessions() {
    if (!running_) return;
    const std::int64_t inactive_ns = std::chrono::nanoseconds(timings_.inactive_after).count();
    std::vector<std::string> inactive;
    {
        const std::lock_guard lock(mutex_);
        const std::int64_t now_ns = orvanic_xr::MonotonicNanoseconds();
        for (const auto& [session_id, open] : sessions_) {
            if (now_ns - open.dispatcher->last_activity_ns() > inactive_ns) inactive.push_back(session_id);
        }
    }
    for (const std::string& session_id : inactive) {
        log_info("Closing inactive session: ", session_id);
        close_session(session_id);
    }
}

void session_table::mark_session_initialized(const std::string& session_id, bool value) noexcept {
    try {
        if (session_id.empty()) {
            log_warning("Cannot set initialization state for empty session_id");
            return;
        }
        const std::lock_guard lock(mutex_);
        if (!sessions_.contains(session_id)) {
            log_warning("Cannot set initialization state for non-existent session: ", session_id);
            return;
        }
        session_initialized_[session_id] = value;
    } catch (const std::exception& e) {
        log_error("Exception setting session initialization state: ", e.what());
    }
}

bool session_table::is_session_ready(const std::string& session_id) const noexcept {
    try {
        if (session_id.empty()) return false;
        const std::lock_guard lock(mutex_);
        const auto found = session_initialized_.find(session_id);
        return found != session_initialized_.end() && found->second;
    } catch (const std::exception& e) {
        log_error("Exception checking if session is initialized: ", e.what());
        return false;
    }
}

void session_table::set_protocol_version(const std::string& session_id, const std::string& version) {
    const std::lock_guard lock(mutex_);
    if (sessions_.contains(session_id)) session_protocol_versions_[session_id] = version;
}

void session_table::forget_sessions() {
    const std::lock_guard lock(mutex_);
    for (auto& [session_id, open] : sessions_) {
        // On purpose not closed: what is still answered goes out.
        open.dispatcher->wake();
        forgotten_.push_back(std::move(open.dispatcher));
        threads_.push_back(std::move(open.thread));
    }
    sessions_.clear();
    closed_.clear();
    session_initialized_.clear();
    session_protocol_versions_.clear();
}

void session_table::join_threads() {
    std::vector<session_thread> threads;
    {
        const std::lock_guard lock(mutex_);
        threads.swap(threads_);
    }
    const auto start = std::chrono::steady_clock::now();
    for (session_thread& open : threads) {
        if (std::chrono::steady_clock::now() - start >= timings_.join_budget) {
            log_warning("Thread join timeout reached, detaching remaining threads");
            open.thread.detach();
        } else if (open.ended.wait_for(timings_.join_patience) == std::future_status::ready) {
            open.thread.join();
        } else {
            open.thread.detach();
        }
    }
}

void session_table::release_streams() {
    const std::lock_guard lock(mutex_);
    for (const auto& dispatcher : forgotten_) dispatcher->release_reader();
    forgotten_.clear();
}

}  // namespace mcp
