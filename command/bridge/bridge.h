// Stands between clients and applications: always has a list of tools, finds the applications that serve the layer's
// port, and sends each call to the right one, once.
//
//     client_session --> bridge --> application_link --> application
//
// Threads: calls come on those of the clients' transports. One thread of the bridge looks for applications, makes and
// ends the links to them, and hands out the calls that wait. Each link has a thread, on which answers come. No lock is
// held while a call is handed on or answered. A link's own thread never holds it, as it can't end itself.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "command/applications/application.h"
#include "command/bridge/application_link.h"
#include "command/bridge/held_inputs.h"
#include "command/bridge/own_tool.h"
#include "command/bridge/tool_source.h"

namespace velmoor {

struct bridge_settings {
    surroundings around;
    std::string version;                    // of this program
    std::chrono::milliseconds wait{10000};  // for an application, with each call
    std::string pictures;                   // directory for a copy of each; none if empty
    std::string tools_file;                 // where applications' tools are kept; none if empty
    std::vector<own_tool> own_tools;        // beside app_list
    std::function<std::string()> hint;      // what to do where no application is there; may be empty
    // Sees each call of a client's, and may put its own `done` before the client's; may be empty.
    std::function<tool_call(tool_call)> watch = nullptr;
    std::function<bool()> let_frame_pass = nullptr;  // lets a frame go by where the application is held; may be empty
    // Where it is held, has frames that calls need wait, or go by; tells how many need some. Likewise.
    std::function<std::optional<std::uint64_t>(bool)> gather = nullptr;
};

class bridge final : public tool_source {
 public:
    explicit bridge(bridge_settings settings);
    ~bridge() override { stop(); }
    bridge(const bridge&) = delete;
    bridge& operator=(const bridge&) = delete;

    std::shared_ptr<const std::string> list_tools() override;
    std::uint64_t new_call_id() override;
    void start(std::uint64_t id, tool_call call) override;
    void cancel(std::uint64_t id, const std::string& why) override;
    void introduce(const json& client_info) override;
    void expect_calls() override;

    // Ends all calls, with an answer. Nothing of a client's is called any more once this returns.
    void stop();

    // Runs when the list of tools differs from what it was. To be set before the first client.
    void on_tools_changed(std::function<void()> tell) { tell_of_tools_ = std::move(tell); }
    // Calls that name no application go to that process as long as it is there; with 0, to the one that runs.
    void prefer(pid_t process);

    // True if the application is held, and one frame has gone by.
    bool let_frame_pass() const { return settings_.let_frame_pass && settings_.let_frame_pass(); }
    // As in the settings. Nothing if no application is held.
    std::optional<std::uint64_t> gather(bool is_wanted) const {
        return settings_.gather ? settings_.gather(is_wanted) : std::nullopt;
    }

    struct known_application {
        application who;
        link_state state;
        std::string problem;
    };
    std::vector<known_application> applications();
    // Where a call that names that application, or none, would go now; 0 if it would go nowhere.
    pid_t process_for(const std::string& app);
    bool has_process(pid_t process);
    // Which application took the last call, as long as it is there, or the only one that is.
    std::optional<application> last_called();
    held_inputs& held() { return held_; }

 private:
    using clock = std::chrono::steady_clock;

    struct open_call {
        std::uint64_t id = 0;
        tool_call call;
        std::string app;  // that it names; may be empty
        clock::time_point deadline;
        clock::time_point next_word;
        int steps = 0;  // of progress that were told while it waited
    };
    using open_call_pointer = std::shared_ptr<open_call>;
    struct running_call {
        std::weak_ptr<application_link> on;
        std::int64_t link_call = 0;  // 0 until the link has given it
    };
    struct own_run {
        std::shared_ptr<tool_run> run;
        std::thread thread;
    };
    // Where a call goes: to a link, or nowhere for a reason; with neither, it waits.
    struct choice {
        std::shared_ptr<application_link> link;
        std::string refusal;
        bool is_unknown = false;  // nobody has such a tool
    };

    choice choose_locked(const open_call& call) const;
    bool has_process_locked(pid_t process) const;
    bool is_meant_locked(const application& one, const open_call& by) const;
    bool is_known_locked(const std::string& tool) const;
    void dispatch(const open_call_pointer& call);
    void hand_to(const std::shared_ptr<application_link>& link, const open_call_pointer& call);
    void take_end(const open_call_pointer& call, const application& by, mcp::call_result&& end);
    void keep_pictures(const tool_call& call, json& outcome) const;
    void start_own(std::uint64_t id, const own_tool& tool, tool_call call);
    void end_own(std::uint64_t id);
    std::string take_app_argument(const std::string& tool, json& arguments);

    void look_out();
    clock::duration pause_locked(clock::time_point now);
    void reconcile(std::vector<application> found);
    void serve_waiting();
    void join_ended_runs();
    std::string why_none_locked(const open_call& call) const;
    std::string listing_locked() const;
    void renew_list();
    void kick();
    std::vector<own_tool> with_app_list(std::vector<own_tool> more);

    const bridge_settings settings_;
    const std::vector<own_tool> own_tools_;
    std::function<void()> tell_of_tools_;
    held_inputs held_;

    std::mutex mutex_;  // all below but the thread
    std::condition_variable changed_;
    bool is_expecting_ = false;
    bool is_kicked_ = false;
    bool is_stopping_ = false;
    clock::time_point looked_at_;
    clock::time_point called_at_;  // the last time
    pid_t preferred_ = 0;
    pid_t last_called_ = 0;
    json client_info_;
    std::uint64_t next_id_ = 1;
    std::vector<std::shared_ptr<application_link>> links_;
    std::list<open_call_pointer> waiting_;
    std::map<std::uint64_t, running_call> running_;
    std::map<std::uint64_t, own_run> own_runs_;
    std::vector<std::thread> ended_runs_;
    std::vector<json> applications_tools_;  // of those that are there, or were last
    std::shared_ptr<const std::string> list_;
    clock::duration pause_{};
    clock::time_point lost_at_;

    std::thread thread_;  // last: it uses all the others
};

}  // namespace velmoor
