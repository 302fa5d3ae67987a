#include "command/bridge/client_session.h"

#include <exception>
#include <utility>
#include <vector>

#include "mcp/json_rpc.h"

namespace velmoor {
namespace {

constexpr const char* kListChanged = "notifications/tools/list_changed";
// How long a stateless client may keep the list without asking again. It learns of changes by its subscription.
constexpr int kListTimeToLive = 1000;

bool is_id(const json& id) {
    return id.is_string() || id.is_number_integer();
}

std::string result_text(const json& id, json result) {
    return mcp::dump_json(mcp::to_json(mcp::make_result_response(id, std::move(result))));
}

// An answer whose result has the member `tools`, of which the text is there already.
std::string list_text(const json& id, const json& rest, const std::string& tools) {
    std::string text = R"({"jsonrpc":"2.0","id":)" + mcp::dump_json(id) + R"(,"result":{"tools":)" + tools;
    const std::string members = mcp::dump_json(rest);  // "{...}"
    if (members.size() > 2) text.append(",").append(members, 1, members.size() - 2);
    return text += "}}";
}

std::string notification_text(const char* method, json params) {
    json message{{"jsonrpc", "2.0"}, {"method", method}};
    if (!params.empty()) message["params"] = std::move(params);
    return mcp::dump_json(message);
}

json object_member(const json& of, const char* name) {
    if (!of.is_object()) return json::object();
    const auto found = of.find(name);
    return found != of.end() && found->is_object() ? *found : json::object();
}

json capabilities() {
    return {{"tools", {{"listChanged", true}}}};
}

}  // namespace

std::string error_text(const json& id, std::int32_t code, const std::string& message) {
    return mcp::dump_json(mcp::to_json(mcp::make_error_response(id, code, message)));
}

// The answers to several requests that came in one array go out in one array.
class client_session::batch final : public outlet {
 public:
    batch(std::shared_ptr<outlet> to, std::size_t count) : to_(std::move(to)), left_(count) {}

    void notify(std::string message) override { to_->notify(std::move(message)); }
    void answer(std::string message) override {
        std::unique_lock lock(mutex_);
        answers_ += (answers_.empty() ? "[" : ",") + message;
        end_one(lock);
    }
    void give_up() override {
        std::unique_lock lock(mutex_);
        end_one(lock);
    }

 private:
    void end_one(std::unique_lock<std::mutex>& lock) {
        if (--left_ > 0) return;
        lock.unlock();
        answers_.empty() ? to_->give_up() : to_->answer(answers_ + "]");
    }

    const std::shared_ptr<outlet> to_;
    std::mutex mutex_;
    std::size_t left_;
    std::string answers_;
};

client_session::client_session(tool_source& tools, session_settings settings)
    : tools_(tools), settings_(std::move(settings)) {}

bool client_session::take_text(std::string_view text, const std::shared_ptr<outlet>& to) {
    json message;
    try {
        message = mcp::parse_json(text);
    } catch (const std::exception& e) {
        to->answer(error_text(nullptr, kParseError, "Parse error: " + mcp::reason_of(e)));
        return true;
    }
    return take(std::move(message), to);
}

bool client_session::take(json message, const std::shared_ptr<outlet>& to) {
    if (message.is_array()) return take_batch(message, to);
    const json given_id = message.is_object() ? message.value("id", json()) : json();
    const auto refuse = [&](const char* why) {
        to->answer(error_text(is_id(given_id) ? given_id : json(), mcp::kInvalidRequest,
                              std::string("Invalid request: ") + why));
        return true;
    };
    if (!message.is_object()) return refuse("no object");
    const auto method = message.find("method");
    if (method == message.end()) {
        if (message.contains("result") || message.contains("error")) return false;  // we have asked nothing
        return refuse("no method");
    }
    if (!method->is_string()) return refuse("the method is no text");
    const auto id = message.find("id");
    if (id == message.end()) {
        take_notification(message);
        return false;
    }
    if (!is_id(*id)) return refuse("the id is neither a text nor a whole number");
    take_request(message, to);
    return true;
}

bool client_session::take_batch(json& messages, const std::shared_ptr<outlet>& to) {
    const auto refuse = [&](const std::string& why) {
        to->answer(error_text(nullptr, mcp::kInvalidRequest, "Invalid request: " + why));
        return true;
    };
    if (!has_batches(revision())) return refuse("this revision of the protocol knows no batches");
    if (messages.empty()) return refuse("an empty batch");
    std::size_t wanted = 0;
    for (const json& each : messages) {
        const bool is_answer = each.is_object() && (each.contains("result") || each.contains("error"));
        const bool is_notification = each.is_object() && each.contains("method") && !each.contains("id");
        if (!is_answer && !is_notification) ++wanted;
        if (each.is_object() && each.value("method", json()) == "initialize") return refuse("initialize in a batch");
    }
    const auto answers = std::make_shared<batch>(to, wanted);
    for (json& each : messages) {
        if (each.is_array()) {
            answers->answer(error_text(nullptr, mcp::kInvalidRequest, "Invalid request: a batch in a batch"));
        } else {
            take(std::move(each), answers);
        }
    }
    return wanted > 0;
}

void client_session::take_request(json& message, const std::shared_ptr<outlet>& to) {
    const std::string method = message["method"];
    const bool is_stateless = !revision_of_request(message).empty() && method != "initialize";
    try {
        is_stateless ? take_stateless_request(message, method, to) : take_session_request(message, method, to);
    } catch (const mcp::mcp_exception& e) {
        to->answer(error_text(message["id"], e.code, e.what()));
    } catch (const std::exception& e) {
        to->answer(error_text(message["id"], mcp::kInternalError, e.what()));
    }
}

void client_session::take_session_request(json& message, const std::string& method, const std::shared_ptr<outlet>& to) {
    if (method == "initialize") return initialize(message, to);
    if (method == "ping") return to->answer(result_text(message["id"], json::object()));
    if (!is_initialized()) {
        throw mcp::mcp_exception(mcp::kInvalidParams, std::string("Missing _meta ") + kMetaRevision +
                                                          ", and no session was opened by initialize");
    }
    if (method == "tools/list") return list_tools(message, false, to);
    if (method == "tools/call") return call_tool(message, false, to);
    throw mcp::mcp_exception(mcp::kMethodNotFound, "Method not found: " + method);
}

void client_session::take_stateless_request(json& message, const std::string& method,
                                            const std::shared_ptr<outlet>& to) {
    if (const json fault = stateless_fault(message); !fault.is_null()) {
        return to->answer(mcp::dump_json({{"jsonrpc", "2.0"}, {"id", message["id"]}, {"error", fault}}));
    }
    if (method == "server/discover") {
        json result{{"supportedVersions", kStatelessRevisions}, {"capabilities", capabilities()}};
        if (!settings_.instructions.empty()) result["instructions"] = settings_.instructions;
        result["ttlMs"] = 0;
        result["cacheScope"] = "private";
        stamp(result);
        return to->answer(result_text(message["id"], std::move(result)));
    }
    tools_.introduce(object_member(object_member(message["params"], "_meta"), kMetaClientInfo));
    tools_.expect_calls();
    if (method == "tools/list") return list_tools(message, true, to);
    if (method == "tools/call") return call_tool(message, true, to);
    if (method == "subscriptions/listen") return listen(message, to);
    throw mcp::mcp_exception(mcp::kMethodNotFound, "Method not found: " + method);
}

void client_session::take_notification(const json& message) {
    const json& method = message["method"];
    if (method == "notifications/cancelled") cancel(object_member(message, "params"));
    // What is wanted is known once the client is in earnest: some start a server only to see what it is.
    if (method == "notifications/initialized") tools_.expect_calls();
}

void client_session::initialize(const json& message, const std::shared_ptr<outlet>& to) {
    const json params = object_member(message, "params");
    const json offered = params.value("protocolVersion", json());
    const std::string revision(revision_for(offered.is_string() ? offered.get<std::string>() : std::string()));
    {
        const std::lock_guard lock(mutex_);
        revision_ = revision;
    }
    tools_.introduce(object_member(params, "clientInfo"));
    json result{{"protocolVersion", revision}, {"capabilities", capabilities()}, {"serverInfo", settings_.server_info}};
    if (!settings_.instructions.empty()) result["instructions"] = settings_.instructions;
    to->answer(result_text(message["id"], std::move(result)));
}

void client_session::list_tools(const json& message, bool is_stateless, const std::shared_ptr<outlet>& to) {
    if (!object_member(message, "params").value("cursor", json()).is_null()) {
        throw mcp::mcp_exception(mcp::kInvalidParams, "Invalid cursor: all tools are in the first answer");
    }
    if (!is_stateless) tools_.expect_calls();
    json rest = json::object();
    if (is_stateless) {
        rest = {{"ttlMs", kListTimeToLive}, {"cacheScope", "private"}};
        stamp(rest);
    }
    to->answer(list_text(message["id"], rest, *tools_.list_tools()));
}

void client_session::call_tool(json& message, bool is_stateless, const std::shared_ptr<outlet>& to) {
    const auto params = message.find("params");
    if (params == message.end() || !params->is_object() || !params->value("name", json()).is_string()) {
        throw mcp::mcp_exception(mcp::kInvalidParams, "Missing 'name' parameter");
    }
    const std::uint64_t id = tools_.new_call_id();
    const json token = object_member(*params, "_meta").value("progressToken", json());
    tool_call call{.name = (*params)["name"], .arguments = nullptr, .done = nullptr, .report = nullptr};
    if (const auto arguments = params->find("arguments"); arguments != params->end()) {
        call.arguments = std::move(*arguments);
    }
    call.done = [self = shared_from_this(), id](json&& outcome) { self->finish(id, std::move(outcome)); };
    if (is_id(token)) {
        call.report = [self = shared_from_this(), id](json&& progress) { self->report(id, std::move(progress)); };
    }
    {
        const std::lock_guard lock(mutex_);
        calls_[id] = {message["id"], is_id(token) ? token : json(), is_stateless, to};
    }
    if (!is_stateless) tools_.expect_calls();
    tools_.start(id, std::move(call));
}

void client_session::listen(const json& message, const std::shared_ptr<outlet>& to) {
    const json wanted = object_member(object_member(message, "params"), "notifications");
    const bool wants_tools = wanted.value("toolsListChanged", json()) == true;
    const json& id = message["id"];
    json heard = json::object();
    if (wants_tools) heard["toolsListChanged"] = true;
    to->notify(notification_text("notifications/subscriptions/acknowledged",
                                 {{"_meta", {{kMetaSubscription, id}}}, {"notifications", heard}}));
    const std::lock_guard lock(mutex_);
    subscriptions_[mcp::dump_json(id)] = {id, wants_tools, to};
}

void client_session::finish(std::uint64_t call, json&& outcome) {
    pending_call ended;
    {
        const std::lock_guard lock(mutex_);
        const auto found = calls_.find(call);
        if (found == calls_.end()) return;
        ended = std::move(found->second);
        calls_.erase(found);
    }
    json answer{{"jsonrpc", "2.0"}, {"id", std::move(ended.id)}};
    if (const auto error = outcome.find("error"); error != outcome.end()) {
        answer["error"] = std::move(*error);
    } else {
        json result = std::move(outcome["result"]);
        if (ended.is_stateless && result.is_object()) stamp(result);
        answer["result"] = std::move(result);
    }
    ended.to->answer(mcp::dump_json(answer));
}

void client_session::report(std::uint64_t call, json&& progress) {
    std::shared_ptr<outlet> to;
    json params = json::object();
    {
        const std::lock_guard lock(mutex_);
        const auto found = calls_.find(call);
        if (found == calls_.end()) return;
        params["progressToken"] = found->second.progress_token;
        to = found->second.to;
    }
    for (auto& [name, value] : progress.items()) params[name] = std::move(value);
    to->notify(notification_text("notifications/progress", std::move(params)));
}

void client_session::cancel(const json& params) {
    const json id = params.value("requestId", json());
    std::uint64_t call = 0;
    std::shared_ptr<outlet> to;
    {
        const std::lock_guard lock(mutex_);
        if (const auto found = subscriptions_.find(mcp::dump_json(id)); found != subscriptions_.end()) {
            to = found->second.to;
            subscriptions_.erase(found);
        }
        for (auto each = calls_.begin(); each != calls_.end(); ++each) {
            if (each->second.id != id) continue;
            call = each->first;
            to = each->second.to;
            calls_.erase(each);
            break;
        }
    }
    const json reason = params.value("reason", json());
    if (call != 0) tools_.cancel(call, reason.is_string() ? reason.get<std::string>() : "cancelled by the client");
    if (to) to->give_up();
}

void client_session::forget(const outlet* to) {
    std::vector<std::uint64_t> calls;
    {
        const std::lock_guard lock(mutex_);
        std::erase_if(subscriptions_, [&](const auto& each) { return each.second.to.get() == to; });
        for (const auto& [call, pending] : calls_) {
            if (pending.to.get() == to) calls.push_back(call);
        }
        for (const std::uint64_t call : calls) calls_.erase(call);
    }
    for (const std::uint64_t call : calls) tools_.cancel(call, "the client has closed the request");
}

void client_session::tell_of_tools() {
    std::vector<subscription> told;
    bool tells_session = false;
    {
        const std::lock_guard lock(mutex_);
        tells_session = !revision_.empty();
        for (const auto& [text, each] : subscriptions_) {
            if (each.wants_tools) told.push_back(each);
        }
    }
    if (tells_session && settings_.unasked) settings_.unasked(notification_text(kListChanged, nullptr));
    for (const subscription& each : told) {
        each.to->notify(notification_text(kListChanged, {{"_meta", {{kMetaSubscription, each.id}}}}));
    }
}

void client_session::end_subscriptions() {
    std::map<std::string, subscription> ended;
    {
        const std::lock_guard lock(mutex_);
        ended.swap(subscriptions_);
    }
    for (const auto& [text, each] : ended) {
        json result{{"_meta", {{kMetaSubscription, each.id}}}};
        stamp(result);
        each.to->answer(result_text(each.id, std::move(result)));
    }
}

void client_session::stamp(json& result) const {
    result["resultType"] = "complete";
    result["_meta"][kMetaServerInfo] = settings_.server_info;
}

bool client_session::is_initialized() const {
    const std::lock_guard lock(mutex_);
    return !revision_.empty();
}

std::string client_session::revision() const {
    const std::lock_guard lock(mutex_);
    return revision_;
}

std::size_t client_session::waiting() const {
    const std::lock_guard lock(mutex_);
    return calls_.size();
}

}  // namespace velmoor
