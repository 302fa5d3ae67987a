#include "command/launch/started_application.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "command/applications/proc.h"

namespace velmoor {
namespace {

constexpr std::size_t kMostLines = 5000;
constexpr std::size_t kMostLineBytes = 4000;
constexpr std::size_t kMostBytesOfTheEnd = std::size_t{1} << 20;
constexpr int kPollMilliseconds = 100;

std::string shown(const std::vector<std::string>& command) {
    std::string text;
    for (const std::string& each : command) text += (text.empty() ? "" : " ") + each;
    return text;
}

// Takes away what colours a terminal, and other control bytes.
std::string plain(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\x1b') {
            while (i + 1 < text.size() && text[i] != 'm') ++i;
        } else if (static_cast<unsigned char>(text[i]) >= 0x20 || text[i] == '\t') {
            result += text[i];
        }
    }
    return result;
}

}  // namespace

output_line parse_output_line(const std::string& text) {
    output_line line{.text = plain(text), .is_layers = false, .level = 1};
    constexpr std::array<std::string_view, 4> kLevels = {"[DEBUG]", "[INFO]", "[WARNING]", "[ERROR]"};
    line.is_layers =
        line.text.find("[Velmoor]") != std::string::npos || line.text.find("[cpp-mcp]") != std::string::npos;
    for (std::size_t level = 0; line.is_layers && level < kLevels.size(); ++level) {
        if (line.text.find(kLevels[level]) != std::string::npos) line.level = static_cast<int>(level);
    }
    return line;
}

started_application::started_application(std::vector<std::string> command, launch_options options)
    : command_(std::move(command)), options_(std::move(options)), shown_command_(shown(command_)) {}

int started_application::start() {
    const std::lock_guard change(change_mutex_);
    return start_alone();
}

std::optional<int> started_application::stop() {
    const std::lock_guard change(change_mutex_);
    return stop_alone();
}

int started_application::restart() {
    const std::lock_guard change(change_mutex_);
    stop_alone();
    return start_alone();
}

int started_application::start_alone() {
    if (is_running()) throw std::runtime_error("the application runs already");
    std::array<int, 2> output{-1, -1};
    if (pipe2(output.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe can be had");
    mcp::descriptor read_end(output[0]);
    const mcp::descriptor write_end(output[1]);
    keeper started = start_keeper(command_, options_, write_end.get());
    {
        const std::lock_guard lock(output_mutex_);
        lines_.clear();
        inputs_ = {};
    }
    const std::lock_guard lock(mutex_);
    if (reader_.joinable()) reader_.join();
    keeper_ = started.process;
    channel_ = std::move(started.channel);
    input_ = std::move(started.input);
    exit_code_.reset();
    is_ended_ = false;
    reader_ = std::thread([this, from = read_end.release()] { read_output(from); });
    return ++starts_;
}

std::optional<int> started_application::stop_alone() {
    const bool was_running = is_running();
    const std::lock_guard lock(mutex_);
    if (keeper_ != 0) {
        input_.reset();
        take_end_locked(end_keeper({keeper_, std::move(channel_), {}}));
    }
    // Whoever holds the other end has ended.
    if (reader_.joinable()) reader_.join();
    return was_running ? exit_code_ : std::nullopt;
}

bool started_application::is_running() {
    const std::lock_guard lock(mutex_);
    int status = 0;
    if (keeper_ != 0 && waitpid(keeper_, &status, WNOHANG) == keeper_) take_end_locked(status);
    return keeper_ != 0;
}

void started_application::take_end_locked(int status) {
    keeper_ = 0;
    is_ended_ = true;
    exit_code_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

std::optional<int> started_application::exit_code() {
    is_running();
    const std::lock_guard lock(mutex_);
    return exit_code_;
}

bool started_application::is_part(pid_t process) {
    const std::lock_guard lock(mutex_);
    if (keeper_ == 0) return false;
    const std::vector<pid_t> below = descendants_of(keeper_);
    return std::find(below.begin(), below.end(), process) != below.end();
}

std::vector<output_line> started_application::output(std::size_t most, int level) const {
    const std::lock_guard lock(output_mutex_);
    std::vector<output_line> last;
    for (auto each = lines_.rbegin(); each != lines_.rend() && last.size() < most; ++each) {
        if (!each->is_layers || each->level >= level) last.push_back(*each);
    }
    std::reverse(last.begin(), last.end());
    return last;
}

void started_application::read_output(int from) {
    const mcp::descriptor source(from);
    std::array<char, 65536> bytes;
    std::string line;
    // Somebody who was left behind may print for ever.
    for (std::size_t left = kMostBytesOfTheEnd; left > 0;) {
        pollfd waiting{source.get(), POLLIN, 0};
        if (poll(&waiting, 1, kPollMilliseconds) == 0) {
            if (is_ended_) break;
            continue;
        }
        const ssize_t count = read(source.get(), bytes.data(), bytes.size());
        if (count <= 0) break;
        if (is_ended_) left -= std::min(left, static_cast<std::size_t>(count));
        const std::lock_guard lock(output_mutex_);
        for (const char byte : std::string_view(bytes.data(), static_cast<std::size_t>(count))) {
            if (byte != '\n' && line.size() < kMostLineBytes) {
                line += byte;
                continue;
            }
            take_line_locked(line);
            line.clear();
        }
    }
    const std::lock_guard lock(output_mutex_);
    if (!line.empty()) take_line_locked(line);
}

void started_application::take_line_locked(const std::string& line) {
    lines_.push_back(parse_output_line(line));
    if (lines_.size() > kMostLines) lines_.pop_front();
    if (lines_.back().is_layers) inputs_.take(lines_.back().text, std::chrono::steady_clock::now());
}

std::map<std::string, input_log::action> started_application::inputs() const {
    const std::lock_guard lock(output_mutex_);
    return inputs_.actions();
}

}  // namespace velmoor
