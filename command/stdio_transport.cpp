#include "command/stdio_transport.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>

#include "command/bridge/client_session.h"
#include "command/line_writer.h"
#include "mcp/json_rpc.h"

namespace velmoor {
namespace {

constexpr std::size_t kMostLineBytes = std::size_t{64} << 20;
constexpr std::size_t kReadBytes = 65536;
// What is still under way when the client has closed its end.
constexpr std::chrono::milliseconds kLastAnswers{1500};
constexpr int kPollMilliseconds = 500;

class stdio_outlet final : public outlet {
 public:
    explicit stdio_outlet(line_writer& writer) : writer_(writer) {}
    void notify(std::string message) override { writer_.write(std::move(message)); }
    void answer(std::string message) override { writer_.write(std::move(message)); }
    void give_up() override {}

 private:
    line_writer& writer_;
};

// Lines as they come; of one that is too long nothing is kept but the fact.
class line_reader {
 public:
    explicit line_reader(int input) : input_(input) {}

    // False at the end of the input, or once `is_over`.
    template <typename Tell>
    bool read_some(const std::atomic<bool>& is_over, const Tell& tell) {
        pollfd waiting{input_, POLLIN, 0};
        while (poll(&waiting, 1, kPollMilliseconds) <= 0) {
            if (is_over) return false;
        }
        const ssize_t count = read(input_, bytes_.data(), bytes_.size());
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) return !is_over;
        if (count <= 0) {
            if (!line_.empty()) tell(line_, false);
            return false;
        }
        std::string_view rest(bytes_.data(), static_cast<std::size_t>(count));
        for (std::size_t end; (end = rest.find('\n')) != std::string_view::npos; rest.remove_prefix(end + 1)) {
            add(rest.substr(0, end));
            if (line_.ends_with('\r')) line_.pop_back();
            if (!line_.empty() || is_too_long_) tell(line_, is_too_long_);
            line_.clear();
            is_too_long_ = false;
        }
        add(rest);
        return !is_over;
    }

 private:
    void add(std::string_view bytes) {
        is_too_long_ |= line_.size() + bytes.size() > kMostLineBytes;
        if (is_too_long_) line_.clear();
        if (!is_too_long_) line_.append(bytes);
    }

    const int input_;
    std::array<char, kReadBytes> bytes_{};
    std::string line_;
    bool is_too_long_ = false;
};

}  // namespace

void serve_stdio(bridge& through, const json& server_info, int input, int output) {
    std::atomic<bool> is_over{false};
    line_writer writer(output, [&is_over] { is_over = true; });
    const auto answers = std::make_shared<stdio_outlet>(writer);
    const auto session = std::make_shared<client_session>(
        through, session_settings{.server_info = server_info,
                                  .instructions = {},
                                  .unasked = [&writer](std::string message) { writer.write(std::move(message)); }});
    through.on_tools_changed([session] { session->tell_of_tools(); });

    line_reader lines(input);
    const auto take = [&](const std::string& line, bool is_too_long) {
        if (is_too_long) {
            answers->answer(error_text(nullptr, mcp::kInvalidRequest, "Invalid request: more than 64 MiB"));
        } else {
            session->take_text(line, answers);
        }
    };
    while (lines.read_some(is_over, take)) {
    }
    const auto deadline = std::chrono::steady_clock::now() + kLastAnswers;
    while (!is_over && session->waiting() > 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    session->end_subscriptions();
    through.stop();
}

}  // namespace velmoor
