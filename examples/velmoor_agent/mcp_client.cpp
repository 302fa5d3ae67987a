#include "examples/velmoor_agent/mcp_client.h"

#include <algorithm>
#include <utility>

namespace agent {
namespace {

constexpr auto kAnswerLimit = std::chrono::seconds(60);
constexpr auto kRetryPause = std::chrono::milliseconds(100);
// The server sends a heartbeat every two to three seconds, so a stream silent for so long is dead.
constexpr auto kStreamSilence = std::chrono::seconds(30);
constexpr const char* kProtocolVersion = "2025-11-25";

std::string ToText(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

void EventParser::Feed(std::string_view bytes) {
    for (;;) {
        const std::size_t end = bytes.find('\n');
        line_.append(bytes.substr(0, end));
        if (end == std::string_view::npos) return;
        FinishLine();
        line_.clear();
        bytes.remove_prefix(end + 1);
    }
}

void EventParser::FinishLine() {
    if (!line_.empty() && line_.back() == '\r') line_.pop_back();
    if (line_.empty()) {
        if (!data_.empty()) handler_(event_, data_);
        event_.clear();
        data_.clear();
        return;
    }
    const std::size_t colon = std::min(line_.find(':'), line_.size());
    const std::string_view field = std::string_view(line_).substr(0, colon);
    std::string_view value = std::string_view(line_).substr(std::min(colon + 1, line_.size()));
    if (!value.empty() && value.front() == ' ') value.remove_prefix(1);
    if (field == "event") event_ = value;
    if (field == "data") {
        if (!data_.empty()) data_ += '\n';
        data_ += value;
    }
}

McpClient::McpClient(const std::string& url) : stream_(url), poster_(url) {
    stream_.set_read_timeout(kStreamSilence);
    poster_.set_keep_alive(true);
    poster_.set_tcp_nodelay(true);
}

McpClient::~McpClient() {
    closing_ = true;
    changed_.notify_all();
    stream_.stop();
    if (reader_.joinable()) reader_.join();
}

void McpClient::Connect(std::chrono::milliseconds limit) {
    const Deadline deadline = std::chrono::steady_clock::now() + limit;
    reader_ = std::thread(&McpClient::ReadStream, this, deadline);

    std::unique_lock lock(mutex_);
    const bool known = changed_.wait_until(lock, deadline, [this] { return ended_ || !post_path_.empty(); });
    if (!known || post_path_.empty()) throw McpError("no server answered");
}

void McpClient::ReadStream(Deadline deadline) {
    EventParser parser([this](const std::string& event, const std::string& data) { HandleEvent(event, data); });
    const auto take_bytes = [&](const char* data, std::size_t size) {
        parser.Feed({data, size});
        return !closing_;
    };
    const auto may_try_again = [&] {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, kRetryPause, [this] { return closing_.load(); });
        return !closing_ && post_path_.empty() && std::chrono::steady_clock::now() < deadline;
    };
    do {
        stream_.Get("/sse", {{"Accept", "text/event-stream"}}, take_bytes);
    } while (may_try_again());

    std::lock_guard lock(mutex_);
    ended_ = true;
    // Whoever still waits is told by the broken promise.
    pending_.clear();
    changed_.notify_all();
}

void McpClient::HandleEvent(const std::string& event, const std::string& data) {
    if (event == "message") return HandleMessage(data);
    if (event != "endpoint") return;  // heartbeats
    std::lock_guard lock(mutex_);
    post_path_ = data;
    changed_.notify_all();
}

void McpClient::HandleMessage(const std::string& text) {
    json message = json::parse(text, nullptr, false);
    if (!message.is_object() || !message.contains("id") || !message["id"].is_number_integer()) return;

    std::lock_guard lock(mutex_);
    const auto found = pending_.find(message["id"].get<std::int64_t>());
    if (found == pending_.end()) return;
    found->second.set_value(std::move(message));
    pending_.erase(found);
}

json McpClient::Initialize(const std::string& client_name, const std::string& client_version) {
    json told = Request("initialize", {{"protocolVersion", kProtocolVersion},
                                       {"capabilities", json::object()},
                                       {"clientInfo", {{"name", client_name}, {"version", client_version}}}});
    Notify("notifications/initialized", json::object());
    return told;
}

std::vector<json> McpClient::ListTools() {
    const json result = Request("tools/list", json::object());
    if (!result.contains("tools") || !result["tools"].is_array()) throw McpError("tools/list gave no list");
    return result["tools"];
}

ToolAnswer McpClient::CallTool(const std::string& name, const json& arguments) {
    const json result = Request("tools/call", {{"name", name}, {"arguments", arguments}});
    ToolAnswer answer;
    answer.is_error = result.value("isError", false);
    for (const json& item : result.value("content", json::array())) {
        const std::string type = item.value("type", "");
        if (type == "text") answer.text += item.value("text", "");
        if (type == "image") answer.images.push_back(item.value("data", ""));
    }
    return answer;
}

json McpClient::Request(const std::string& method, const json& params) {
    std::int64_t id = 0;
    std::future<json> arrival;
    {
        std::lock_guard lock(mutex_);
        if (ended_) throw McpError("the event stream has ended");
        id = next_id_++;
        arrival = pending_[id].get_future();
    }
    try {
        Post({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}});
        if (arrival.wait_for(kAnswerLimit) != std::future_status::ready) throw McpError(method + " got no answer");
        const json message = arrival.get();
        if (message.contains("error")) throw McpError(method + " was refused: " + ToText(message["error"]));
        return message.value("result", json());
    } catch (const std::future_error&) {
        throw McpError("the event stream ended before " + method + " was answered");
    } catch (const McpError&) {
        std::lock_guard lock(mutex_);
        pending_.erase(id);
        throw;
    }
}

void McpClient::Notify(const std::string& method, const json& params) {
    Post({{"jsonrpc", "2.0"}, {"method", method}, {"params", params}});
}

void McpClient::Post(const json& message) {
    std::string path;
    {
        std::lock_guard lock(mutex_);
        path = post_path_;
    }
    std::lock_guard lock(post_mutex_);
    const httplib::Result acknowledged = poster_.Post(path, ToText(message), "application/json");
    if (!acknowledged) throw McpError("the POST failed: " + httplib::to_string(acknowledged.error()));
    if (acknowledged->status != httplib::StatusCode::Accepted_202) {
        throw McpError("the POST was refused with status " + std::to_string(acknowledged->status));
    }
}

}  // namespace agent
