#include "command/watch/watch.h"

#include <exception>
#include <utility>

#include "command/bridge/pending_call.h"
#include "command/watch/room.h"
#include "mcp/client/blocking_client.h"

namespace velmoor {
namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kBetweenLooks{250};
// What changes seldom is asked for with each of so many looks.
constexpr std::uint64_t kLooksOfState = 4;
constexpr std::uint64_t kLooksOfEntities = 20;
constexpr milliseconds kAnswerLimit{2000};
constexpr milliseconds kBetweenWaits{50};

// The names of answers, and of what is told of them.
constexpr const char* kSession = "session";
constexpr const char* kFrames = "frames";
constexpr const char* kEntities = "entities";
constexpr std::array kDevices = {"head", "left", "right", "left_aim", "right_aim"};

double unix_seconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// A call in the log. One whose caller is never told was cancelled.
class followed_call {
 public:
    followed_call(std::shared_ptr<call_log> log, const tool_call& call)
        : log_(std::move(log)), id_(log_->begin(call.name, call.arguments)) {}
    ~followed_call() {
        if (!has_ended_) try_to([this] { log_->cancel(id_); });
    }
    followed_call(const followed_call&) = delete;
    followed_call& operator=(const followed_call&) = delete;

    void end(const json& outcome) {
        has_ended_ = true;
        try_to([&] { log_->end(id_, outcome); });
    }

 private:
    // The call goes on, even if no memory is left to tell of it.
    template <typename Work>
    static void try_to(const Work& work) noexcept {
        try {
            work();
        } catch (const std::exception&) {
            return;
        }
    }

    const std::shared_ptr<call_log> log_;
    const std::uint64_t id_;
    bool has_ended_ = false;
};

json answer_in(const json& outcome) try {
    return mcp::parse_json(mcp::text_of(outcome.at("result")));
} catch (const std::exception&) {
    return nullptr;  // a refusal is no JSON
}

std::optional<call_log::place> place_of(const json& device) {
    if (!device.is_object()) return std::nullopt;
    return call_log::place{device["position"][0], device["position"][2]};
}

std::string state_in(const json& session) {
    const json state = session.is_object() ? session.value("state", json()) : json();
    const json name = state.is_object() ? state.value("name", json()) : json();
    constexpr std::string_view kBegin = "XR_SESSION_STATE_";
    if (!name.is_string()) return {};
    const auto& text = name.get_ref<const std::string&>();
    return text.starts_with(kBegin) ? text.substr(kBegin.size()) : text;
}

json handle_in(const json& session) {
    const json handle = session.is_object() ? session.value("session", json()) : json();
    return handle.is_object() ? handle.value("handle", json()) : json();
}

}  // namespace

void watch::follow(bridge_settings& settings) const {
    settings.watch = [log = log_, earlier = std::move(settings.watch)](tool_call call) {
        if (earlier) call = earlier(std::move(call));
        const auto followed = std::make_shared<followed_call>(log, call);
        call.done = [followed, done = std::move(call.done)](json&& outcome) {
            followed->end(outcome);
            done(std::move(outcome));
        };
        return call;
    };
}

std::shared_ptr<void> watch::new_viewer() {
    {
        const std::lock_guard lock(mutex_);
        if (viewers_ == kMostViewers) return nullptr;
        ++viewers_;
    }
    changed_.notify_all();
    return {this, [this](void*) {
                const std::lock_guard lock(mutex_);
                --viewers_;
            }};
}

bool watch::await_viewer(milliseconds pause) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, pause, [this] { return is_closed_; });
    changed_.wait(lock, [this] { return is_closed_ || viewers_ > 0; });
    return !is_closed_;
}

void watch::close() {
    {
        const std::lock_guard lock(mutex_);
        is_closed_ = true;
    }
    changed_.notify_all();
    log_->close();
}

looker::looker(watch& shown, bridge& through)
    : shown_(shown), through_(through), thread_(&looker::look_again_and_again, this) {}

looker::~looker() {
    shown_.close();
    thread_.join();
}

void looker::look_again_and_again() {
    while (shown_.await_viewer(kBetweenLooks)) {
        try {
            look();
        } catch (const std::exception&) {
            // An answer like none of the layer's: the next look may go better.
        }
    }
}

void looker::begin_room(const application& who, const json& session, const std::string& space) {
    process_ = who.pid;
    session_ = session;
    space_ = space;
    looks_ = 0;
    ++room_number_;
    room_ = {{"application", {{"name", who.name}, {"pid", who.pid}}}, {"space", space}};
}

void looker::look() {
    through_.expect_calls();
    const auto who = through_.last_called();
    if (!who) {
        process_ = 0;
        return shown_.log().set_room(nullptr, 0, {});
    }
    if (who->pid != process_) begin_room(*who, nullptr, "stage");
    const std::uint64_t room = room_number_;
    const json answers = ask(questions());
    room_["answers"] = !answers.is_null();
    if (!answers.is_null()) take(*who, answers);
    if (room == room_number_) ++looks_;
    shown_.log().set_room(room_, room_number_,
                          {place_of(room_["head"]), place_of(room_["left"]), place_of(room_["right"])});
}

std::vector<looker::question> looker::questions() const {
    std::vector<question> asked;
    if (looks_ % kLooksOfState == 0) {
        asked.push_back({kSession, "openxr_get_session_info", json::object()});
        asked.push_back({kFrames, "openxr_get_frame_info", {{"include_history", true}}});
    }
    if (session_.is_null()) return asked;  // nothing is anywhere, and the layer would log each refusal
    const json where{{"base_space", space_}};
    asked.push_back({kDevices[0], "openxr_get_head_pose", where});
    const auto ask_for_hand = [&](const char* name, const char* hand, const char* pose) {
        asked.push_back(
            {name, "openxr_get_controller_pose", {{"base_space", space_}, {"hand", hand}, {"pose_type", pose}}});
    };
    ask_for_hand(kDevices[1], "left", "grip");
    ask_for_hand(kDevices[2], "right", "grip");
    ask_for_hand(kDevices[3], "left", "aim");
    ask_for_hand(kDevices[4], "right", "aim");
    if (looks_ % kLooksOfEntities == 1) asked.push_back({kEntities, "openxr_list_spatial_entities", where});
    return asked;
}

void looker::take(const application& who, const json& answers) {
    if (answers.contains(kSession)) {
        const json session = handle_in(answers[kSession]);
        if (session != session_ && !session_.is_null()) begin_room(who, session, space_);
        session_ = session;
        room_["state"] = state_in(answers[kSession]);
        room_["frames"] = frames_in(answers[kFrames], unix_seconds());
    }
    if (answers.contains(kEntities)) room_["entities"] = entities_on_plan(answers[kEntities]);
    for (const char* const each : kDevices) {
        room_[each] = answers.contains(each) ? device_on_plan(answers[each]) : json();
    }
    // Not every runtime has a stage.
    if (answers.contains(kDevices[0]) && room_[kDevices[0]].is_null() && looks_ % kLooksOfState == 1) {
        begin_room(who, session_, space_ == "stage" ? "local" : "stage");
    }
}

json looker::ask(const std::vector<question>& questions) {
    std::vector<pending_call> pending;
    pending.reserve(questions.size());
    for (const question& each : questions) {
        tool_call call{.name = each.tool, .arguments = each.arguments, .done = nullptr, .report = nullptr};
        call.process = process_;
        call.is_inner = call.is_aside = true;
        pending.emplace_back(through_, std::move(call));
    }
    json answers = json::object();
    const auto deadline = clock::now() + kAnswerLimit;
    while (answers.size() < pending.size()) {
        const std::size_t next = answers.size();
        if (auto outcome = pending[next].wait_for(kBetweenWaits)) {
            answers[questions[next].name] = answer_in(*outcome);
        } else if (clock::now() > deadline || shown_.is_closed()) {
            for (std::size_t i = next; i < pending.size(); ++i) pending[i].cancel("nobody waits any more");
            return nullptr;
        }
    }
    return answers;
}

}  // namespace velmoor
