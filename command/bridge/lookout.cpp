// The bridge's own thread: which applications are there, and what becomes of the calls that wait for one.
#include <algorithm>
#include <exception>
#include <utility>

#include "command/bridge/bridge.h"
#include "command/bridge/results.h"
#include "command/bridge/tool_list.h"
#include "mcp/json_rpc.h"

namespace velmoor {
namespace {

using std::chrono::milliseconds;

// Between two looks: while calls wait, soon after an application went, and while one is there. With none, it grows.
constexpr milliseconds kWaitingPause{50};
constexpr milliseconds kLostPause{100};
constexpr milliseconds kConnectedPause{1000};
// While calls come, so often that none has to wait for a look (kLookHolds): they go on meanwhile.
constexpr milliseconds kBusyPause{150};
constexpr milliseconds kBusyTime{1000};  // since the last call
constexpr milliseconds kFirstPause{200};
constexpr milliseconds kLongestPause{5000};
constexpr milliseconds kRestartTime{10000};
constexpr milliseconds kBetweenWords{1000};

}  // namespace

void bridge::kick() {
    {
        const std::lock_guard lock(mutex_);
        is_kicked_ = true;
    }
    changed_.notify_all();
}

void bridge::look_out() {
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            const auto is_due = [this] { return is_stopping_ || is_kicked_; };
            if (is_expecting_) {
                changed_.wait_for(lock, pause_locked(clock::now()), is_due);
            } else {
                changed_.wait(lock, is_due);
            }
            if (is_stopping_) return;
            is_kicked_ = false;
            if (!is_expecting_) continue;
        }
        try {
            reconcile(settings_.around.find());
            renew_list();
            serve_waiting();
        } catch (const std::exception&) {
            // The system is short of something: the next look may go better.
        }
    }
}

bridge::clock::duration bridge::pause_locked(clock::time_point now) {
    if (!waiting_.empty()) return kWaitingPause;
    if (!links_.empty()) {
        pause_ = kFirstPause;
        return now < called_at_ + kBusyTime ? kBusyPause : kConnectedPause;
    }
    if (now < lost_at_ + kRestartTime) return kLostPause;
    pause_ = std::clamp<clock::duration>(pause_ * 2, kFirstPause, kLongestPause);
    return pause_;
}

void bridge::reconcile(std::vector<application> found) {
    std::vector<std::shared_ptr<application_link>> gone;  // ends outside the lock: a link waits for its thread
    std::vector<std::shared_ptr<application_link>> looked_at;
    json client_info;
    {
        const std::lock_guard lock(mutex_);
        client_info = client_info_;
        const auto is_gone = [&](const std::shared_ptr<application_link>& link) {
            return std::none_of(found.begin(), found.end(), [&](const application& each) {
                // Without the sockets of then it is another server in the same process, which knows no old session.
                const std::set<ino_t>& sockets = link->who().sockets;
                return is_same(each, link->who()) &&
                       std::includes(each.sockets.begin(), each.sockets.end(), sockets.begin(), sockets.end());
            });
        };
        const auto first_gone = std::stable_partition(links_.begin(), links_.end(), std::not_fn(is_gone));
        gone.assign(std::make_move_iterator(first_gone), std::make_move_iterator(links_.end()));
        links_.erase(first_gone, links_.end());
        if (!gone.empty()) lost_at_ = clock::now();
        for (const auto& each : gone) {
            if (each->who().pid == preferred_) preferred_ = 0;
        }
        for (application& each : found) {
            const auto is_known = [&](const auto& link) { return is_same(each, link->who()); };
            if (std::any_of(links_.begin(), links_.end(), is_known)) continue;
            links_.push_back(std::make_shared<application_link>(std::move(each), settings_.around, client_info,
                                                                settings_.version, [this] { kick(); }));
        }
        looked_at_ = clock::now();
        looked_at = links_;
    }
    for (const auto& each : looked_at) each->look_at_tools(clock::now());
}

void bridge::serve_waiting() {
    std::vector<std::pair<open_call_pointer, choice>> decided;
    std::vector<std::pair<open_call_pointer, std::string>> talked_of;
    {
        const std::lock_guard lock(mutex_);
        const auto now = clock::now();
        for (auto each = waiting_.begin(); each != waiting_.end();) {
            choice chosen = choose_locked(**each);
            if (!chosen.link && chosen.refusal.empty() && now >= (*each)->deadline) {
                chosen.refusal = why_none_locked(**each);
            }
            chosen.is_unknown = links_.empty() && !is_known_locked((*each)->call.name);
            if (chosen.link || chosen.is_unknown || !chosen.refusal.empty()) {
                decided.emplace_back(std::move(*each), std::move(chosen));
                each = waiting_.erase(each);
                continue;
            }
            if ((*each)->call.report && now >= (*each)->next_word) {
                (*each)->next_word = now + kBetweenWords;
                talked_of.emplace_back(*each, links_.empty() ? "no application runs with the layer yet"
                                                             : "the application does not take calls yet");
            }
            ++each;
        }
    }
    for (const auto& [call, chosen] : decided) {
        if (chosen.link) {
            hand_to(chosen.link, call);
        } else if (chosen.is_unknown) {
            call->call.done(
                {{"error", {{"code", mcp::kInvalidParams}, {"message", "Unknown tool: " + call->call.name}}}});
        } else {
            call->call.done(outcome_of(text_result("Error: " + chosen.refusal, true)));
        }
    }
    for (const auto& [call, text] : talked_of) {
        call->call.report({{"progress", ++call->steps}, {"message", "Waiting: " + text}});
    }
}

std::string bridge::why_none_locked(const open_call& call) const {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(settings_.wait).count();
    std::string text = "The call was not run: ";
    if (links_.empty()) {
        text += "no application with the Velmoor layer came up in " + std::to_string(seconds) +
                " s: nothing serves port 8720 on this machine. ";
        if (settings_.hint) return text + settings_.hint();
        return text +
               "Start the application with XR_ENABLE_API_LAYERS=XR_APILAYER_KESTX_velmoor, or by `velmoor run -- "
               "APPLICATION`; `velmoor doctor` tells what else is missing.";
    }
    if (!call.app.empty())
        return text + "no application answers to \"" + call.app + "\". There are:" + listing_locked();
    return text + "the application did not become ready in " + std::to_string(seconds) + " s:" + listing_locked() +
           "\n`velmoor doctor` tells more.";
}

std::string bridge::listing_locked() const {
    std::string text;
    for (const auto& each : links_) {
        text += "\n- " + label(each->who());
        if (each->state() != link_state::ready) text += ", which does not answer: " + each->problem();
    }
    return text;
}

void bridge::renew_list() {
    std::vector<json> kept;
    {
        const std::lock_guard lock(mutex_);
        std::vector<json> seen;
        bool is_known = false;
        for (const auto& each : links_) {
            if (each->state() != link_state::ready) continue;
            is_known = true;
            for (json& tool : each->tools()) {
                const auto is_same_name = [&](const json& other) { return other["name"] == tool["name"]; };
                if (std::none_of(seen.begin(), seen.end(), is_same_name)) seen.push_back(std::move(tool));
            }
        }
        // While none is there, its tools are those that it had: a list that shrinks and grows again helps nobody.
        const bool differs = is_known && seen != applications_tools_;
        if (list_ && !differs) return;
        if (differs) applications_tools_ = kept = std::move(seen);
        std::vector<json> own;
        for (const own_tool& each : own_tools_) own.push_back(each.declaration);
        const bool is_first = !list_;
        list_ = std::make_shared<const std::string>(merged_list(own, applications_tools_));
        if (is_first) return;
    }
    save_tools(settings_.tools_file, kept);
    if (tell_of_tools_) tell_of_tools_();
}

std::vector<bridge::known_application> bridge::applications() {
    std::vector<application> found = settings_.around.find();
    const std::lock_guard lock(mutex_);
    std::vector<known_application> known;
    for (application& each : found) {
        const auto link =
            std::find_if(links_.begin(), links_.end(), [&](const auto& one) { return is_same(each, one->who()); });
        const bool has_link = link != links_.end();
        known.push_back({std::move(each), has_link ? (*link)->state() : link_state::opening,
                         has_link ? (*link)->problem() : std::string()});
    }
    return known;
}

std::vector<own_tool> bridge::with_app_list(std::vector<own_tool> more) {
    json declaration{{"name", "app_list"},
                     {"description",
                      "Lists the XR applications that can be operated now: name, pid, and whether each "
                      "takes calls."},
                     {"inputSchema", {{"type", "object"}, {"properties", json::object()}}},
                     {"annotations", {{"readOnlyHint", true}}}};
    more.insert(more.begin(), {std::move(declaration), [this](const json&, tool_run&) {
                                   json list = json::array();
                                   for (const known_application& each : applications()) {
                                       json row{{"name", each.who.name}, {"pid", each.who.pid}};
                                       row["takes_calls"] = each.state == link_state::ready;
                                       if (!each.problem.empty()) row["problem"] = each.problem;
                                       list.push_back(std::move(row));
                                   }
                                   return text_result(mcp::dump_json({{"applications", list}}, 2), false);
                               }});
    return more;
}

}  // namespace velmoor
