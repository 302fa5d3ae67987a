#include "command/bridge/bridge.h"

#include <algorithm>
#include <utility>

#include "command/bridge/arguments.h"
#include "command/bridge/pictures.h"
#include "command/bridge/results.h"
#include "command/bridge/tool_list.h"

namespace velmoor {
namespace {

using std::chrono::milliseconds;

// A tool may take long. That its application has gone is seen by its stream.
constexpr milliseconds kAnswerLimit = std::chrono::hours(1);
constexpr milliseconds kBetweenWords{1000};
constexpr milliseconds kLookHolds{250};

json error_outcome(const std::string& text) {
    return outcome_of(text_result("Error: " + text, true));
}

}  // namespace

bridge::bridge(bridge_settings settings)
    : settings_(std::move(settings)),
      own_tools_(with_app_list(settings_.own_tools)),
      applications_tools_(load_tools(settings_.tools_file)),
      thread_(&bridge::look_out, this) {
    renew_list();
}

void bridge::stop() {
    std::map<std::uint64_t, own_run> runs;
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(is_stopping_, true)) return;
        runs.swap(own_runs_);
    }
    changed_.notify_all();
    thread_.join();
    for (auto& [id, each] : runs) {
        each.run->cancel();
        each.thread.join();
    }
    join_ended_runs();
    std::list<open_call_pointer> waiting;
    std::vector<std::shared_ptr<application_link>> links;
    {
        const std::lock_guard lock(mutex_);
        waiting.swap(waiting_);
        links.swap(links_);
    }
    for (const open_call_pointer& each : waiting) each->call.done(error_outcome("The call was not run: velmoor ends."));
    links.clear();  // answers what is under way
}

std::shared_ptr<const std::string> bridge::list_tools() {
    const std::lock_guard lock(mutex_);
    return list_;
}

std::uint64_t bridge::new_call_id() {
    const std::lock_guard lock(mutex_);
    return next_id_++;
}

void bridge::introduce(const json& client_info) {
    const json name = client_info.value("name", json());
    const std::lock_guard lock(mutex_);
    if (client_info_.is_null() && name.is_string()) {
        client_info_ = {{"name", name}, {"version", client_info.value("version", json("unknown"))}};
    }
}

void bridge::expect_calls() {
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(is_expecting_, true)) return;
    }
    kick();
}

void bridge::prefer(pid_t process) {
    {
        const std::lock_guard lock(mutex_);
        preferred_ = process;
    }
    kick();
}

void bridge::start(std::uint64_t id, tool_call call) {
    if (settings_.watch && !call.is_inner) call = settings_.watch(std::move(call));
    for (const own_tool& each : own_tools_) {
        // One that stands for a tool of the layer calls that.
        if (call.is_inner && is_builtin(call.name)) break;
        if (each.declaration["name"] == call.name) return start_own(id, each, std::move(call));
    }
    const auto now = clock::now();
    const auto made = std::make_shared<open_call>();
    made->id = id;
    made->app = take_app_argument(call.name, call.arguments);
    made->call = std::move(call);
    made->deadline = now + settings_.wait;
    made->next_word = now + kBetweenWords / 2;
    expect_calls();
    dispatch(made);
}

std::string bridge::take_app_argument(const std::string& tool, json& arguments) {
    if (!arguments.is_object() || !arguments.contains("app")) return {};
    {
        const std::lock_guard lock(mutex_);
        for (const json& each : applications_tools_) {
            if (each["name"] == tool && has_own_app_parameter(each)) return {};
        }
    }
    const json app = arguments["app"];
    arguments.erase("app");
    return app.is_string() ? app.get<std::string>() : mcp::dump_json(app);
}

bool bridge::has_process_locked(pid_t process) const {
    return std::any_of(links_.begin(), links_.end(), [&](const auto& each) { return each->who().pid == process; });
}

bool bridge::has_process(pid_t process) {
    const std::lock_guard lock(mutex_);
    return has_process_locked(process);
}

bool bridge::is_meant_locked(const application& one, const open_call& by) const {
    if (by.call.process != 0) return one.pid == by.call.process;
    return by.app.empty() ? preferred_ == 0 || one.pid == preferred_ : answers_to(one, by.app);
}

bridge::choice bridge::choose_locked(const open_call& call) const {
    const pid_t process = call.call.process;
    if (process != 0 && !has_process_locked(process)) {
        return {nullptr, "The call was not run: the application (pid " + std::to_string(process) + ") is gone."};
    }
    std::vector<std::shared_ptr<application_link>> fit;
    bool all_ready = true;
    for (const auto& each : links_) {
        if (each->state() == link_state::failing) continue;
        if (!is_meant_locked(each->who(), call)) continue;
        fit.push_back(each);
        all_ready &= each->state() == link_state::ready;
    }
    if (!all_ready || fit.empty()) return {};
    // A tool that one application alone has says by its name which is meant.
    if (fit.size() > 1 && !is_builtin(call.call.name)) {
        const auto lacks = [&](const auto& each) { return !each->offers(call.call.name); };
        if (std::count_if(fit.begin(), fit.end(), lacks) + 1 == static_cast<std::ptrdiff_t>(fit.size())) {
            std::erase_if(fit, lacks);
        }
    }
    if (fit.size() == 1) return {fit.front(), {}};
    return {nullptr, "The call was not run: " + std::to_string(fit.size()) +
                         " applications run, and it does not say which is meant. Give the argument \"app\" one of "
                         "these names or pids:" +
                         listing_locked()};
}

bool bridge::is_known_locked(const std::string& tool) const {
    const auto is_it = [&](const json& each) { return each["name"] == tool; };
    return is_builtin(tool) || std::any_of(applications_tools_.begin(), applications_tools_.end(), is_it);
}

pid_t bridge::process_for(const std::string& app) {
    open_call asked;
    asked.app = app;
    const std::lock_guard lock(mutex_);
    const auto link = choose_locked(asked).link;
    return link ? link->who().pid : 0;
}

std::optional<application> bridge::last_called() {
    const std::lock_guard lock(mutex_);
    for (const auto& each : links_) {
        if (each->state() != link_state::ready) continue;
        if (each->who().pid == last_called_ || links_.size() == 1) return each->who();
    }
    return std::nullopt;
}

void bridge::dispatch(const open_call_pointer& call) {
    std::shared_ptr<application_link> link;
    bool is_over = false;  // nobody will run it
    {
        const std::lock_guard lock(mutex_);
        is_over = is_stopping_;
        // Who is there may have changed since the last look. Then the call waits for the next one, which comes at once;
        // so does a call that is to be refused.
        const auto now = clock::now();
        const bool is_aside = call->call.is_aside;
        if (!is_aside) called_at_ = now;
        if (is_aside || now < looked_at_ + kLookHolds) link = choose_locked(*call).link;
        is_over |= is_aside && !link;
        if (!link && !is_over) waiting_.push_back(call);
    }
    if (is_over) return call->call.done(error_outcome("The call was not run: velmoor ends."));
    link ? hand_to(link, call) : kick();
}

void bridge::hand_to(const std::shared_ptr<application_link>& link, const open_call_pointer& call) {
    {
        const std::lock_guard lock(mutex_);
        running_[call->id] = {link, 0};
        if (!call->call.is_aside) last_called_ = link->who().pid;
    }
    std::function<void(const json&)> report;
    if (call->call.report) {
        report = [call](const json& params) {
            json progress = params;
            progress.erase("progressToken");
            const json value = params.value("progress", json());
            if (value.is_number_integer()) {
                progress["progress"] = value.get<std::int64_t>() + call->steps;
            } else if (value.is_number()) {
                progress["progress"] = value.get<double>() + call->steps;
            }
            call->call.report(std::move(progress));
        };
    }
    const auto left = std::chrono::duration_cast<milliseconds>(call->deadline - clock::now());
    const mcp::call_limits limits{.send = std::max(left, milliseconds(1000)), .answer = kAnswerLimit};
    const std::int64_t link_call = link->call(
        call->call.name, call->call.arguments, limits,
        [this, call, who = link->who()](mcp::call_result&& end) { take_end(call, who, std::move(end)); },
        std::move(report), call->call.is_aside);
    {
        const std::lock_guard lock(mutex_);
        const auto found = running_.find(call->id);
        if (found != running_.end()) {
            found->second.link_call = link_call;
            return;
        }
    }
    link->cancel(link_call, "cancelled");  // unless it has ended already
}

void bridge::take_end(const open_call_pointer& call, const application& by, mcp::call_result&& end) {
    {
        const std::lock_guard lock(mutex_);
        running_.erase(call->id);
        // It has not been run: another application, or the same one started again, may do that.
        if (end.how == mcp::call_end::not_sent && !is_stopping_ && !call->call.is_aside &&
            clock::now() < call->deadline) {
            waiting_.push_back(call);
            is_kicked_ = true;
            changed_.notify_all();
            return;
        }
    }
    const bool was_answered = end.how == mcp::call_end::answered;
    json outcome = was_answered ? passed_on(std::move(end.message), call->call.name) : unanswered(end, label(by));
    // One that was not answered may have been run all the same.
    if (!was_answered || !is_failure(outcome)) held_.note(by.pid, call->call.name, call->call.arguments);
    if (end.how == mcp::call_end::cancelled) return;
    if (was_answered) keep_pictures(call->call, outcome);
    call->call.done(std::move(outcome));
}

void bridge::keep_pictures(const tool_call& call, json& outcome) const {
    if (!settings_.pictures.empty() && !call.is_inner) name_pictures(outcome, settings_.pictures, call.name);
}

void bridge::cancel(std::uint64_t id, const std::string& why) {
    std::shared_ptr<application_link> link;
    std::shared_ptr<tool_run> run;
    std::int64_t link_call = 0;
    {
        const std::lock_guard lock(mutex_);
        waiting_.remove_if([&](const open_call_pointer& each) { return each->id == id; });
        if (const auto found = running_.find(id); found != running_.end()) {
            link = found->second.on.lock();
            link_call = found->second.link_call;
            running_.erase(found);
        }
        if (const auto found = own_runs_.find(id); found != own_runs_.end()) run = found->second.run;
    }
    if (link && link_call != 0) link->cancel(link_call, why);
    if (run) run->cancel();
}

void bridge::start_own(std::uint64_t id, const own_tool& tool, tool_call call) {
    join_ended_runs();
    const auto run = std::make_shared<tool_run>(*this, std::move(call.report), call.process);
    if (call.arguments.is_null()) call.arguments = json::object();
    auto work = [this, id, run, &tool, call] {
        try {
            // One that stands for a tool of the layer takes what that takes.
            if (!is_builtin(call.name)) refuse_unknown(tool.declaration, call.arguments);
            json outcome = outcome_of(tool.handler(call.arguments, *run));
            keep_pictures(call, outcome);
            call.done(std::move(outcome));
        } catch (const tool_run::cancelled&) {
            call.done(error_outcome("cancelled"));  // which is of no use to whoever cancelled, nor does harm
        } catch (const json::exception& e) {
            call.done(error_outcome("the application's answer was not understood: " + mcp::reason_of(e)));
        } catch (const std::exception& e) {
            const std::string text = e.what();
            call.done(text.starts_with("Error:") ? outcome_of(text_result(text, true)) : error_outcome(text));
        }
        end_own(id);
    };
    const std::lock_guard lock(mutex_);
    if (is_stopping_) return call.done(error_outcome("velmoor ends."));
    own_runs_[id] = {run, std::thread(std::move(work))};
}

// On the run's own thread, as the last that it does.
void bridge::end_own(std::uint64_t id) {
    const std::lock_guard lock(mutex_);
    const auto found = own_runs_.find(id);
    if (found == own_runs_.end()) return;  // the bridge ends, and joins it
    ended_runs_.push_back(std::move(found->second.thread));
    own_runs_.erase(found);
}

void bridge::join_ended_runs() {
    std::vector<std::thread> ended;
    {
        const std::lock_guard lock(mutex_);
        ended.swap(ended_runs_);
    }
    for (std::thread& each : ended) each.join();
}

}  // namespace velmoor
