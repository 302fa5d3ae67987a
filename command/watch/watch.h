// Follows what passes the bridge, for a page that shows it: sees each call, and while somebody watches, it asks the
// application now and then where things are.
//
//     bridge --calls--> watch --> call_log --> viewers
//       ^----looks--------'
//
// It takes no pictures and changes nothing. Nobody waits for it: a look goes out beside the calls of agents, one at a
// time, and is given up when the application does not answer it soon.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "command/bridge/bridge.h"
#include "command/watch/call_log.h"

namespace velmoor {

class watch {
 public:
    watch() = default;
    watch(const watch&) = delete;
    watch& operator=(const watch&) = delete;

    // Has the bridge show its calls here, behind whoever sees them already.
    void follow(bridge_settings& settings) const;
    call_log& log() { return *log_; }

    // Somebody watches, as long as one of these is kept; none if so many do already. It must not outlive the watch.
    std::shared_ptr<void> new_viewer();
    // Waits for `pause`, and then until somebody does. False once it is closed, at once.
    bool await_viewer(std::chrono::milliseconds pause);
    // Nothing is shown any more.
    void close();
    bool is_closed() const { return log_->is_closed(); }

 private:
    static constexpr int kMostViewers = 8;

    const std::shared_ptr<call_log> log_ = std::make_shared<call_log>();  // calls that are under way keep it

    std::mutex mutex_;  // all below
    std::condition_variable changed_;
    int viewers_ = 0;
    bool is_closed_ = false;
};

// Looks at the application while somebody watches, on a thread of its own.
class looker {
 public:
    looker(watch& shown, bridge& through);
    // Closes the watch.
    ~looker();
    looker(const looker&) = delete;
    looker& operator=(const looker&) = delete;

 private:
    struct question {
        const char* name;  // of its answer
        const char* tool;
        json arguments;
    };

    void look_again_and_again();
    void look();
    void begin_room(const application& who, const json& session, const std::string& space);
    void take(const application& who, const json& answers);
    // What the layer is asked for with this look.
    std::vector<question> questions() const;
    // The answers by name, null where one is no JSON; null if the application did not answer in time.
    json ask(const std::vector<question>& questions);

    watch& shown_;
    bridge& through_;

    // Of the thread alone.
    pid_t process_ = 0;
    json session_;  // its handle; null while there is none
    std::uint64_t room_number_ = 0;
    std::string space_ = "stage";
    std::uint64_t looks_ = 0;  // in this room
    json room_;                // what is told of it

    std::thread thread_;  // last: it uses all the others
};

}  // namespace velmoor
