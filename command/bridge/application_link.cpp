#include "command/bridge/application_link.h"

#include <algorithm>
#include <array>
#include <utility>

#include "mcp/json_rpc.h"

#include "command/bridge/tool_list.h"

namespace velmoor {
namespace {

using std::chrono::milliseconds;

// The layer does not know the client's name if this is it.
constexpr const char* kNoName = "OrvanicXR_MCP_Proxy";
// An application adds its tools soon after it has made its instance, or at any time later.
constexpr std::array kLooks = {milliseconds(500), milliseconds(1500), milliseconds(5000), milliseconds(15000)};

json introduction(json client_info, const std::string& version) {
    const json name = client_info.is_object() ? client_info.value("name", json()) : json();
    if (name.is_string() && !name.get_ref<const std::string&>().empty()) return client_info;
    return {{"name", kNoName}, {"version", version}};
}

}  // namespace

application_link::application_link(application who, const surroundings& around, json client_info,
                                   const std::string& version, std::function<void()> changed)
    : who_(std::move(who)), changed_(std::move(changed)) {
    mcp::link_config config;
    config.dial = [dial = around.dial, to = who_] { return dial(to); };
    config.host = "127.0.0.1:8720";
    config.headers = {{"x-orvanicxr-proxy", "velmoor/" + version}};
    config.client_info = introduction(std::move(client_info), version);
    mcp::link_events events;
    events.ready = [this](const std::vector<json>& tools) {
        {
            const std::lock_guard lock(mutex_);
            state_ = link_state::ready;
            was_ready_ = true;
            looks_ = 0;
            next_look_ = std::chrono::steady_clock::now() + kLooks.front();
        }
        take_tools(tools);
        changed_();
    };
    events.lost = [this](const std::string& why) {
        {
            const std::lock_guard lock(mutex_);
            // One that has just been there may be on its way down, or come again at once.
            state_ = state_ == link_state::ready ? link_state::opening : link_state::failing;
            problem_ = why;
        }
        changed_();
    };
    events.notified = [this](const json& message) {
        // The layer of today does not say it. One that does is asked at once.
        if (message.value("method", json()) == "notifications/tools/list_changed") ask_for_tools();
    };
    client_ = std::make_unique<mcp::client_link>(std::move(config), std::move(events));
}

std::int64_t application_link::call(const std::string& tool, const json& arguments, mcp::call_limits limits,
                                    std::function<void(mcp::call_result&&)> done,
                                    std::function<void(const json&)> report, bool is_aside) {
    json params{{"name", tool}};
    if (is_aside) params["_meta"][mcp::kMetaAside] = true;
    if (!arguments.is_null()) params["arguments"] = arguments;
    return client_->call("tools/call", std::move(params), limits, std::move(done), std::move(report));
}

void application_link::look_at_tools(std::chrono::steady_clock::time_point now) {
    {
        const std::lock_guard lock(mutex_);
        if (state_ != link_state::ready || now < next_look_) return;
        looks_ = std::min<int>(looks_ + 1, kLooks.size() - 1);
        next_look_ = now + kLooks.at(static_cast<std::size_t>(looks_));
    }
    ask_for_tools();
}

void application_link::ask_for_tools() {
    const mcp::call_limits limits{.send = milliseconds(2000), .answer = milliseconds(10000)};
    client_->call("tools/list", json::object(), limits, [this](mcp::call_result&& end) {
        if (end.how != mcp::call_end::answered) return;
        const auto result = end.message.find("result");
        if (result == end.message.end() || !result->is_object() || !result->contains("tools")) return;
        take_tools((*result)["tools"]);
        changed_();
    });
}

void application_link::take_tools(const std::vector<json>& tools) {
    std::vector<json> own = own_tools_of_application(tools);
    const std::lock_guard lock(mutex_);
    tools_ = std::move(own);
}

link_state application_link::state() const {
    const std::lock_guard lock(mutex_);
    return state_;
}

std::string application_link::problem() const {
    const std::lock_guard lock(mutex_);
    return problem_;
}

std::vector<json> application_link::tools() const {
    const std::lock_guard lock(mutex_);
    return tools_;
}

bool application_link::offers(const std::string& own_tool) const {
    const std::lock_guard lock(mutex_);
    return std::any_of(tools_.begin(), tools_.end(), [&](const json& each) { return each["name"] == own_tool; });
}

}  // namespace velmoor
