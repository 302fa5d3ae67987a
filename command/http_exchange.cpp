#include "command/http_exchange.h"

#include <utility>

namespace velmoor {
namespace {

using clock = std::chrono::steady_clock;

// How long it takes to see that the client has gone.
constexpr std::chrono::milliseconds kBetweenLooks{200};
// Proxies end connections on which nothing comes.
constexpr std::chrono::seconds kSilence{15};

constexpr mcp::http_header kStreamHeaders[] = {{"Cache-Control", "no-cache"}, {"X-Accel-Buffering", "no"}};

struct run_at_end {
    std::function<void()> run;
    explicit run_at_end(std::function<void()> given) : run(std::move(given)) {}
    ~run_at_end() {
        if (run) run();
    }
    run_at_end(const run_at_end&) = delete;
    run_at_end& operator=(const run_at_end&) = delete;
};

}  // namespace

void http_exchange::notify(std::string message) {
    {
        const std::lock_guard lock(mutex_);
        if (is_over_) return;
        messages_.push_back(std::move(message));
    }
    changed_.notify_all();  // who wakes shall not find the lock held
}

void http_exchange::answer(std::string message) {
    {
        const std::lock_guard lock(mutex_);
        if (is_over_) return;
        messages_.push_back(std::move(message));
        is_over_ = true;
    }
    changed_.notify_all();
}

void http_exchange::give_up() {
    {
        const std::lock_guard lock(mutex_);
        is_over_ = true;
    }
    changed_.notify_all();
}

bool http_exchange::await(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [this] { return is_over_ || !messages_.empty(); });
}

std::optional<std::string> http_exchange::take_lone_answer() {
    const std::lock_guard lock(mutex_);
    if (!is_over_ || messages_.size() != 1) return std::nullopt;
    std::string text = std::move(messages_.front());
    messages_.clear();
    return text;
}

std::vector<std::string> http_exchange::take_messages() {
    const std::lock_guard lock(mutex_);
    return std::exchange(messages_, {});
}

bool http_exchange::is_over() const {
    const std::lock_guard lock(mutex_);
    return is_over_ && messages_.empty();
}

mcp::http_answer event_stream(std::shared_ptr<http_exchange> of, std::function<void()> ended) {
    mcp::http_answer answer;
    answer.content_type = "text/event-stream";
    answer.headers = kStreamHeaders;
    answer.tells_end = true;
    const auto end = std::make_shared<run_at_end>(std::move(ended));
    answer.stream = [of = std::move(of), end, last = clock::now()](mcp::frame_sink& sink) mutable {
        of->await(kBetweenLooks);
        for (const std::string& message : of->take_messages()) {
            if (!sink.write("event: message\ndata: " + message + "\n\n")) return false;
            last = clock::now();
        }
        if (clock::now() >= last + kSilence) {
            if (!sink.write(": still here\n\n")) return false;
            last = clock::now();
        }
        return !of->is_over();
    };
    return answer;
}

}  // namespace velmoor
