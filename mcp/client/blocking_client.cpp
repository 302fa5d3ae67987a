#include "mcp/client/blocking_client.h"

#include <future>
#include <utility>

namespace mcp {
namespace {

constexpr std::chrono::milliseconds kDialLimit{2000};

link_config config_for(const std::string& url, json client_info) {
    const server_address address = parse_server_url(url);
    link_config config;
    config.dial = [address] { return dial(address, kDialLimit); };
    config.host = host_header(address);
    config.client_info = std::move(client_info);
    return config;
}

}  // namespace

blocking_client::blocking_client(const std::string& url, json client_info)
    : blocking_client(config_for(url, std::move(client_info))) {}

blocking_client::blocking_client(link_config config)
    : link_([&] {
          const bool begins_again = config.begin_again;
          return std::make_unique<client_link>(std::move(config), make_events(begins_again));
      }()) {}

link_events blocking_client::make_events(bool begins_again) {
    return {.introduced =
                [this](const json& result) {
                    const std::lock_guard lock(mutex_);
                    introduction_ = result;
                    changed_.notify_all();
                },
            .ready =
                [this](const std::vector<json>& tools) {
                    const std::lock_guard lock(mutex_);
                    tools_ = tools;
                    changed_.notify_all();
                },
            .lost =
                [this, begins_again](const std::string& why) {
                    const std::lock_guard lock(mutex_);
                    problem_ = why;
                    tools_.reset();
                    has_ended_ = !begins_again;
                    changed_.notify_all();
                },
            .notified = nullptr};
}

json blocking_client::await_introduction(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, limit, [this] { return introduction_ || has_ended_; });
    if (!introduction_) throw client_error(problem_);
    return *introduction_;
}

std::vector<json> blocking_client::await_ready(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, limit, [this] { return tools_ || has_ended_; });
    if (!tools_) throw client_error(problem_);
    return *tools_;
}

json blocking_client::request(const std::string& method, json params, call_limits limits) {
    const auto arrival = std::make_shared<std::promise<call_result>>();
    auto result = arrival->get_future();
    link_->call(method, std::move(params), limits,
                [arrival](call_result&& come) { arrival->set_value(std::move(come)); });
    const call_result come = result.get();
    if (come.how != call_end::answered) throw client_error(method + ": " + come.why);
    if (const auto error = come.message.find("error"); error != come.message.end()) {
        throw call_error(method + " was refused: " + dump_json(*error));
    }
    return come.message.at("result");
}

json blocking_client::call_tool(const std::string& name, json arguments, call_limits limits) {
    return request("tools/call", {{"name", name}, {"arguments", std::move(arguments)}}, limits);
}

std::string text_of(const json& result) {
    std::string text;
    const json content = result.is_object() ? result.value("content", json::array()) : json::array();
    for (const json& item : content) {
        if (item.is_object() && item.value("type", "") == "text") text += item.value("text", "");
    }
    return text;
}

}  // namespace mcp
