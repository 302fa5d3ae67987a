// What passed lately, for those who watch: calls, the last pictures, and where things are. Bounded, whatever passes.
//
// All that changes gets a number, which rises. A viewer keeps the last number that it has seen and asks for what came
// behind it, so that nothing is kept for any viewer, and a slow one gets the newest state with its next question.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "mcp/json.h"

namespace velmoor {

using mcp::json;

struct log_limits {
    std::size_t calls = 200;
    std::size_t call_bytes = std::size_t{2} << 20;      // of all calls' texts together
    std::size_t text_bytes = std::size_t{16} << 10;     // of one call's arguments, and of its texts
    std::size_t picture_bytes = std::size_t{32} << 20;  // of pictures, as base64, beside those of the eyes
    std::size_t trail_points = 600;                     // of each device
};

// Any thread. Under the lock are copies of a few values only, whoever watches.
class call_log {
 public:
    explicit call_log(log_limits limits = {});

    std::uint64_t begin(const std::string& tool, const json& arguments);
    void end(std::uint64_t call, const json& outcome);
    void cancel(std::uint64_t call);

    struct place {
        double x = 0;  // metres, to the right
        double z = 0;  // and to the back
    };
    static constexpr std::array<const char*, 3> kDevices = {"head", "left", "right"};
    // What the application told of itself, and where its devices are. The trails begin anew with another `room_number`.
    void set_room(json room, std::uint64_t room_number, const std::array<std::optional<place>, 3>& devices);

    struct picture {
        std::string type;    // image/png or image/jpeg
        std::string base64;  // its bytes
    };
    // Null if it is not kept any more, or never was.
    std::shared_ptr<const picture> find_picture(std::uint64_t number) const;

    // All that changed behind number `seen`, as JSON text, and `seen` is moved on. Nothing if nothing does so in that
    // time, or the log is closed.
    std::optional<std::string> await_news(std::uint64_t& seen, std::chrono::milliseconds limit);
    void close();
    bool is_closed() const;

 private:
    struct entry {
        std::uint64_t id = 0;
        std::uint64_t number = 0;  // of its last change
        std::size_t bytes = 0;
        std::chrono::steady_clock::time_point begun;
        std::shared_ptr<const json> told;  // replaced, never changed
    };
    struct kept_picture {
        std::uint64_t number = 0;
        std::shared_ptr<const picture> bytes;
    };
    struct shown_eye {
        std::uint64_t number = 0;
        std::uint64_t picture = 0;
        json told;
    };
    struct trail_point {
        std::uint64_t number = 0;
        place at;
    };
    struct news {
        json whole;
        std::vector<std::shared_ptr<const json>> calls;
        std::shared_ptr<const json> room;
    };

    void finish(std::uint64_t call, json more, std::vector<picture> pictures);
    void replace_locked(entry& changed, json told);
    void make_room_locked();
    std::uint64_t keep_picture_locked(picture kept);
    news gather_locked(std::uint64_t seen) const;

    const log_limits limits_;
    const std::string run_;  // tells this log from one of another process

    mutable std::mutex mutex_;  // all below
    std::condition_variable changed_;
    bool is_closed_ = false;
    std::uint64_t last_number_ = 0;
    std::uint64_t last_call_ = 0;
    std::uint64_t last_picture_ = 0;
    std::deque<entry> calls_;
    std::size_t call_bytes_ = 0;
    std::deque<kept_picture> pictures_;
    std::size_t picture_bytes_ = 0;
    std::array<shown_eye, 2> eyes_;
    std::uint64_t room_number_ = 0;
    std::uint64_t room_changed_ = 0;
    std::shared_ptr<const json> room_;
    std::array<std::deque<trail_point>, 3> trails_;
};

}  // namespace velmoor
