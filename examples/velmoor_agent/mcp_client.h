// A Model Context Protocol client over HTTP and Server-Sent Events: what an agent needs to call tools.
//
//     McpClient client("http://127.0.0.1:8720");
//     client.Connect(std::chrono::seconds(10));
//     client.Initialize("my-agent", "1.0");
//     const ToolAnswer answer = client.CallTool("openxr_get_frame_info", {{"include_history", true}});
//
// Requests are posted; answers come back on one event stream, which a thread of the client reads. Calls may
// come from several threads at once. Everything that fails throws McpError.
#pragma once

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace agent {

using json = nlohmann::ordered_json;

struct McpError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct ToolAnswer {
    bool is_error = false;            // the tool broke down; a refusal is an ordinary text
    std::string text;                 // all text items, one after the other
    std::vector<std::string> images;  // all image items, base64 as they came
};

// Takes an event stream in pieces, as the network delivers it, and tells each complete event.
class EventParser {
 public:
    using Handler = std::function<void(const std::string& event, const std::string& data)>;

    explicit EventParser(Handler handler) : handler_(std::move(handler)) {}
    void Feed(std::string_view bytes);

 private:
    void FinishLine();

    Handler handler_;
    std::string line_;
    std::string event_;
    std::string data_;
};

class McpClient {
 public:
    // `url` as http://host:port.
    explicit McpClient(const std::string& url);
    ~McpClient();
    McpClient(const McpClient&) = delete;
    McpClient& operator=(const McpClient&) = delete;

    // Opens the event stream. A server that is not there yet is tried again until `limit`.
    void Connect(std::chrono::milliseconds limit);

    // Shakes hands. Gives what the server says of itself: protocolVersion, capabilities, serverInfo.
    json Initialize(const std::string& client_name, const std::string& client_version);

    // The declarations of all tools.
    std::vector<json> ListTools();

    ToolAnswer CallTool(const std::string& name, const json& arguments);

    // Any method: `params` out, `result` back.
    json Request(const std::string& method, const json& params);
    void Notify(const std::string& method, const json& params);

 private:
    using Deadline = std::chrono::steady_clock::time_point;

    void ReadStream(Deadline deadline);
    void HandleEvent(const std::string& event, const std::string& data);
    void HandleMessage(const std::string& text);
    void Post(const json& message);

    httplib::Client stream_;
    std::thread reader_;
    std::atomic<bool> closing_{false};

    std::mutex post_mutex_;  // guards poster_
    httplib::Client poster_;

    std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    std::string post_path_;  // empty until the server named it
    bool ended_ = false;     // the stream is over; no answer will come
    std::int64_t next_id_ = 1;
    std::map<std::int64_t, std::promise<json>> pending_;
};

}  // namespace agent
