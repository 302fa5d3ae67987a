#include "mcp/client/client_link.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <string_view>

namespace mcp {
namespace {

using clock = std::chrono::steady_clock;

constexpr const char* kProtocolVersion = "2025-11-25";
constexpr std::int32_t kNotInitializedYet = -32600;
// More connections make room for calls whose POST the server is slow to read.
constexpr std::size_t kMostPosts = 4;
constexpr std::size_t kMostTools = 10000;
constexpr std::size_t kReadBytes = 262144;

}  // namespace

client_link::client_link(link_config config, link_events events)
    : config_(std::move(config)),
      events_(std::move(events)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      pause_(config_.first_pause),
      thread_(&client_link::run, this) {}

client_link::~client_link() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    eventfd_write(wake_.get(), 1);
    thread_.join();
}

std::int64_t client_link::call(const std::string& method, json params, call_limits limits,
                               std::function<void(call_result&&)> done, std::function<void(const json&)> report) {
    const auto now = clock::now();
    std::int64_t id = 0;
    {
        const std::lock_guard lock(mutex_);
        id = next_id_++;
    }
    if (report) params["_meta"]["progressToken"] = id;
    mcp::call added{.id = id,
                    .body = dump_json({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}}),
                    .send_by = now + limits.send,
                    .answer_within = limits.answer,
                    .is_greeting = false,
                    .done = std::move(done),
                    .report = std::move(report)};
    command([this, made = std::make_shared<mcp::call>(std::move(added))] {
        if (stage_ == stage::ended) return made->done({call_end::not_sent, {}, problem_});
        calls_.add(std::move(*made));
        // Whoever waits now shall not wait for a pause that grew while nobody did.
        pause_ = config_.first_pause;
        next_try_ = std::min(next_try_, clock::now() + pause_);
    });
    return id;
}

void client_link::cancel(std::int64_t id, const std::string& why) {
    command([this, id, why] {
        if (calls_.cancel(id, why)) notify("notifications/cancelled", {{"requestId", id}, {"reason", why}});
    });
}

void client_link::command(std::function<void()> added) {
    {
        const std::lock_guard lock(mutex_);
        commands_.push_back(std::move(added));
        // Before others the link was woken already, and has not taken them yet.
        if (commands_.size() > 1) return;
    }
    eventfd_write(wake_.get(), 1);
}

void client_link::run() {
    for (;;) {
        {
            const std::lock_guard lock(mutex_);
            if (stopping_) break;
        }
        try {
            run_commands();
            look_at_clock();
            post_what_waits();
            wait_for_events();
        } catch (const std::exception& e) {
            go_away(std::string("the client failed: ") + e.what());
        }
    }
    run_commands();
    calls_.end_all("the client ends");
}

void client_link::run_commands() {
    eventfd_t count = 0;
    eventfd_read(wake_.get(), &count);
    std::vector<std::function<void()>> commands;
    {
        const std::lock_guard lock(mutex_);
        commands.swap(commands_);
    }
    for (const auto& each : commands) each();
}

void client_link::wait_for_events() {
    std::vector<pollfd> sources{{wake_.get(), POLLIN, 0}, {stream_.get(), POLLIN, 0}};
    for (const post_connection& each : posts_) sources.push_back({each.socket(), each.wanted_events(), 0});
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next_look() - clock::now()).count();
    poll(sources.data(), sources.size(), static_cast<int>(std::clamp<std::int64_t>(left, 0, 1000)));

    std::size_t source = 2;
    // An answer may come before the reply to its POST: that one first, so that a call is known to have left.
    for (auto each = posts_.begin(); each != posts_.end() && source < sources.size(); ++source) {
        if (sources[source].revents != 0) proceed(*each);
        if (!stream_) return;  // the server is lost, and its connections with it
        each = each->where() == post_connection::state::broken ? posts_.erase(each) : std::next(each);
    }
    if (sources[1].revents != 0) read_stream();
}

void client_link::begin() {
    stage_since_ = last_heard_ = clock::now();
    stage_ = stage::opening;
    dialed made = config_.dial();
    if (!made.socket) return go_away(made.problem);
    stream_ = std::move(made.socket);
    stream_reply_ = {};
    events_parser_.emplace(config_.most_event_bytes);
    post_path_.clear();
    const std::string request = head("GET " + config_.path) + "Accept: text/event-stream\r\n\r\n";
    // It fits into the buffers of a fresh connection.
    if (send(stream_.get(), request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) {
        go_away("the connection does not take a request");
    }
}

void client_link::go_away(const std::string& why) {
    problem_ = why;
    stream_.reset();
    for (post_connection& each : posts_) {
        if (each.where() == post_connection::state::sending) calls_.give_back(each.id());
    }
    posts_.clear();
    notices_.clear();
    next_try_ = clock::now() + pause_;
    pause_ = calls_.has_next(true) ? config_.first_pause : std::min(pause_ * 2, config_.longest_pause);
    stage_ = config_.begin_again ? stage::away : stage::ended;
    calls_.lose_server(why);
    if (stage_ == stage::ended) calls_.end_all(why);
    if (events_.lost) events_.lost(why);
}

void client_link::read_stream() {
    static thread_local std::array<char, kReadBytes> bytes;
    const ssize_t count = recv(stream_.get(), bytes.data(), bytes.size(), 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0) return go_away("the server has ended the connection");
    last_heard_ = clock::now();
    std::string_view received(bytes.data(), static_cast<std::size_t>(count));
    std::string content;
    const auto state = stream_reply_.feed(received, content);
    if (state == http_reply_parser::state::head) return;
    if (stream_reply_.status() != 200 || !stream_reply_.is_event_stream()) {
        return go_away("the server offers no event stream at " + config_.path + ": status " +
                       std::to_string(stream_reply_.status()));
    }
    const auto tell = [this](const std::string& type, std::string&& data) { take_event(type, std::move(data)); };
    if (!events_parser_->feed(content, tell)) return go_away("the server sent an event that is too large");
    if (state != http_reply_parser::state::body) go_away("the server has ended the stream");
}

void client_link::take_event(const std::string& type, std::string&& data) {
    if (type == "endpoint" && stage_ == stage::opening) {
        // An address with a scheme leads to the same server, or nowhere that we go.
        const std::size_t host = data.find("://");
        const std::size_t path = host == std::string::npos ? 0 : data.find('/', host + 3);
        post_path_ = path == std::string::npos ? "/" : data.substr(path);
        stage_ = stage::greeting;
        greet();
    }
    if (type != "message" && !type.empty()) return;
    try {
        json message = parse_json(data);
        if (!message.is_object()) return;
        if (message.contains("result") || message.contains("error")) return calls_.answer(std::move(message));
        if (message.value("method", "") == "notifications/progress") {
            return calls_.report(message.value("params", json::object()));
        }
        if (events_.notified) events_.notified(message);
    } catch (const std::exception&) {
        // What is no JSON answers nobody.
    }
}

void client_link::greet() {
    const json params{
        {"protocolVersion", kProtocolVersion}, {"capabilities", json::object()}, {"clientInfo", config_.client_info}};
    greet_with("initialize", params, [this](const json& message) {
        const auto result = message.find("result");
        if (result == message.end()) return go_away("the server refuses to talk: " + dump_json(message));
        if (events_.introduced) events_.introduced(*result);
        notify("notifications/initialized", json::object());
        tools_.clear();
        list_tools(nullptr);
    });
}

// The server does not say when it has taken in that we are initialized: until then it refuses.
void client_link::list_tools(const json& cursor) {
    json params = json::object();
    if (!cursor.is_null()) params["cursor"] = cursor;
    greet_with("tools/list", std::move(params), [this, cursor](const json& message) {
        if (const auto result = message.find("result"); result != message.end()) return take_tools(*result);
        const json error = message.value("error", json::object());
        if (!error.is_object() || error.value("code", json()) != kNotInitializedYet) {
            // A server without tools.
            return take_tools({{"tools", json::array()}});
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        list_tools(cursor);
    });
}

void client_link::take_tools(const json& result) {
    const auto tools = result.find("tools");
    if (tools != result.end() && tools->is_array()) tools_.insert(tools_.end(), tools->begin(), tools->end());
    const json cursor = result.value("nextCursor", json());
    if (cursor.is_string() && tools_.size() < kMostTools) return list_tools(cursor);
    stage_ = stage::ready;
    pause_ = config_.first_pause;
    if (events_.ready) events_.ready(tools_);
}

void client_link::greet_with(const std::string& method, json params, std::function<void(const json&)> next) {
    std::int64_t id = 0;
    {
        const std::lock_guard lock(mutex_);
        id = next_id_++;
    }
    const auto limit = stage_since_ + config_.greeting_limit;
    calls_.add({.id = id,
                .body = dump_json({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}}),
                .send_by = limit,
                .answer_within = config_.greeting_limit,
                .is_greeting = true,
                .done =
                    [next = std::move(next)](call_result&& result) {
                        if (result.how == call_end::answered) next(result.message);
                    },
                .report = nullptr});
}

void client_link::notify(const std::string& method, json params) {
    notices_.push_back(dump_json({{"jsonrpc", "2.0"}, {"method", method}, {"params", params}}));
}

void client_link::post_what_waits() {
    while (stage_ == stage::greeting || stage_ == stage::ready) {
        if (notices_.empty() && !calls_.has_next(stage_ == stage::ready)) return;
        post_connection* const free = free_post();
        if (!free) return;
        if (!notices_.empty()) {
            const std::string body = std::move(notices_.front());
            notices_.erase(notices_.begin());
            start_post(*free, body, 0);
        } else if (const auto next = calls_.take_next(stage_ == stage::ready)) {
            start_post(*free, next->body, next->id);
        }
        posts_.remove_if([](const post_connection& each) { return each.where() == post_connection::state::broken; });
    }
}

// An idle connection, or a new one; null if all are busy or none can be had.
post_connection* client_link::free_post() {
    for (post_connection& each : posts_) {
        if (each.where() == post_connection::state::idle) return &each;
    }
    if (posts_.size() >= kMostPosts) return nullptr;
    dialed made = config_.dial();
    if (!made.socket) {
        go_away(made.problem);
        return nullptr;
    }
    return &posts_.emplace_back(std::move(made.socket));
}

void client_link::start_post(post_connection& on, const std::string& body, std::int64_t id) {
    on.start(head("POST " + post_path_) + "Content-Type: application/json\r\nAccept: application/json\r\n" +
                 "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body,
             id, clock::now());
    proceed(on);
}

void client_link::proceed(post_connection& with) {
    const auto before = with.where();
    const auto now_is = with.proceed();
    if (before == post_connection::state::sending && with.has_sent_all()) calls_.mark_sent(with.id(), clock::now());
    if (now_is == post_connection::state::replied) take_reply(with);
    if (now_is != post_connection::state::broken || before == post_connection::state::idle) return;
    if (with.has_sent_all()) {
        calls_.doubt(with.id(), clock::now() + config_.unread_limit);
    } else {
        calls_.give_back(with.id());
    }
}

void client_link::take_reply(post_connection& of) {
    const int status = of.status();
    const std::int64_t id = of.id();
    if (status == 404) {
        // The session is gone, and the call with it: it may go to the next one.
        calls_.give_back(id);
        return go_away("the server does not know the session any more");
    }
    if (status >= 300) {
        calls_.end(id, call_end::refused,
                   "the server refused the request with status " + std::to_string(status) + ": " + of.content());
    }
    if (of.may_go_on() && of.has_sent_all()) {
        of.rest(clock::now());
    } else {
        of.give_up();
    }
}

void client_link::look_at_clock() {
    const auto now = clock::now();
    calls_.expire(now, problem_);
    if (stage_ == stage::away && now >= next_try_) return begin();
    if (stage_ == stage::away || stage_ == stage::ended) return;
    if (stage_ != stage::ready && now >= stage_since_ + config_.greeting_limit) {
        return go_away("the server did not introduce itself in time");
    }
    if (now >= last_heard_ + config_.silence_limit) return go_away("the server has fallen silent");
    posts_.remove_if([&](const post_connection& each) {
        if (each.where() == post_connection::state::idle) return now >= each.since() + config_.post_idle_limit;
        if (now < each.since() + config_.unread_limit) return false;
        if (each.has_sent_all()) {
            calls_.doubt(each.id(), now);
        } else {
            calls_.end(each.id(), call_end::refused, "the server did not read the request in time");
        }
        return true;
    });
}

client_link::time_point client_link::next_look() const {
    auto next = clock::now() + std::chrono::milliseconds(500);
    if (stage_ == stage::away) next = std::min(next, next_try_);
    if (const auto deadline = calls_.next_deadline()) next = std::min(next, *deadline);
    return next;
}

std::string client_link::head(const std::string& request_line) const {
    std::string text = request_line + " HTTP/1.1\r\nHost: " + config_.host + "\r\n";
    for (const auto& [name, value] : config_.headers) text.append(name).append(": ").append(value).append("\r\n");
    return text;
}

}  // namespace mcp
