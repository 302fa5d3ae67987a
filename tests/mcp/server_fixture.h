// A server on a free port with short pauses, a few tools, and its log as lines of level and message.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "diagnostics/mcp_logger.h"
#include "mcp/server.h"
#include "tests/fakes/sse_client.h"

namespace mcp {

class log_lines {
 public:
    log_lines() {
        logger::instance().set_sink([this](const std::string& line) {
            const std::size_t tag = line.find("\x1b[3");
            const std::size_t text = line.find("\x1b[0m ", tag);
            const std::lock_guard lock(mutex_);
            lines_.push_back(line.substr(tag + 6, text - tag - 7) + " " + line.substr(text + 5));
        });
    }
    ~log_lines() { logger::instance().set_sink({}); }
    log_lines(const log_lines&) = delete;
    log_lines& operator=(const log_lines&) = delete;

    std::vector<std::string> take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }
    // Waits for a line.
    bool has(const std::string& text) {
        for (int tries = 0; tries < 6000; ++tries) {
            {
                const std::lock_guard lock(mutex_);
                const auto found = std::find_if(lines_.begin(), lines_.end(), [&](const std::string& line) {
                    return line.find(text) != std::string::npos;
                });
                if (found != lines_.end()) return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }

 private:
    std::mutex mutex_;  // lines_
    std::vector<std::string> lines_;
};

inline server_timings short_timings() {
    server_timings timings;
    timings.endpoint_delay = std::chrono::milliseconds(5);
    timings.stop_pause = std::chrono::milliseconds(5);
    timings.silence = std::chrono::hours(1);  // who waits for that where he need not is seen
    return timings;
}

inline server_config local_config() {
    server_config config;
    config.host = "127.0.0.1";
    config.port = 0;
    config.write_timeout_seconds = 30;
    config.timings = short_timings();
    return config;
}

inline json text_content(const std::string& text) {
    return json::array({{{"type", "text"}, {"text", text}}});
}

inline tool tool_named(const std::string& name) {
    tool declaration;
    declaration.name = name;
    declaration.description = "Does " + name;
    declaration.input_schema = {{"type", "object"}};
    return declaration;
}

class ServerTest : public testing::Test {
 protected:
    void Start(const server_config& config = local_config()) {
        server_ = std::make_unique<server>(config);
        server_->set_server_info("Tested", "1.2");
        server_->set_capabilities({{"tools", json::object()}});
        AddTools();
        server_->start(false);
        if (!server_->wait_until_listening(std::chrono::seconds(10))) throw std::runtime_error("not listening");
    }

    void AddTools() {
        server_->register_tool(tool_named("echo"), [](const json& arguments, const std::string&) {
            return text_content(dump_json(arguments));
        });
        server_->register_tool(tool_named("who"),
                               [](const json&, const std::string& session_id) { return text_content(session_id); });
        server_->register_tool(tool_named("fail"),
                               [](const json&, const std::string&) -> json { throw std::runtime_error("it broke"); });
        server_->register_tool(tool_named("throw_int"), [](const json&, const std::string&) -> json { throw 5; });
        // Runs until the test lets it go on.
        server_->register_tool(tool_named("wait"), [this](const json&, const std::string&) {
            waiting_.set_value();
            go_on_.get_future().wait();
            return text_content("waited");
        });
    }

    int Port() const { return server_->port(); }

    log_lines log_;
    std::promise<void> waiting_;
    std::promise<void> go_on_;
    std::unique_ptr<server> server_;
};

}  // namespace mcp
