#include "command/watch/call_log.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

#include "command/bridge/results.h"

namespace velmoor {
namespace {

using clock = std::chrono::steady_clock;

// Nobody can see a shorter way on the plan, and a head that sways a little leaves no trail.
constexpr double kShortestWay = 0.02;

std::int64_t unix_milliseconds() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

// At most so many bytes, and not a part of a character.
json shortened(std::string_view text, std::size_t most) {
    if (text.size() <= most) return std::string(text);
    std::size_t end = most;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return std::string(text.substr(0, end)) + "\n… and " + std::to_string(text.size() - end) + " bytes more";
}

bool is_picture(const json& item) {
    if (!item.is_object() || item.value("type", json()) != "image" || !item.value("data", json()).is_string()) {
        return false;
    }
    const json type = item.value("mimeType", json());
    return type == "image/png" || type == "image/jpeg";
}

std::string text_of_item(const json& item) {
    if (item.is_object() && item.value("type", json()) == "text" && item.value("text", json()).is_string()) {
        return item["text"];
    }
    const json type = item.is_object() ? item.value("type", json()) : json();
    return "(" + (type.is_string() ? type.get<std::string>() : std::string("no")) + " content)";
}

// Those whose pictures are what an eye sees.
bool shows_an_eye(const std::string& tool) {
    return tool == "openxr_capture_composited_image" || tool == "xr_picture";
}

const char* eye_in(const json& arguments) {
    const json eye = arguments.is_object() ? arguments.value("eye", json()) : json();
    return eye == "right" ? "right" : eye == "both" ? "both" : "left";
}

double way_between(const call_log::place& one, const call_log::place& other) {
    return std::hypot(one.x - other.x, one.z - other.z);
}

}  // namespace

call_log::call_log(log_limits limits)
    : limits_(limits), run_(std::to_string(unix_milliseconds())), room_(std::make_shared<const json>(nullptr)) {}

std::uint64_t call_log::begin(const std::string& tool, const json& arguments) {
    json told{{"tool", shortened(tool, 200)},
              {"arguments", shortened(arguments.is_null() ? "{}" : mcp::dump_json(arguments), limits_.text_bytes)},
              {"begun", unix_milliseconds()},
              {"result", "running"}};
    if (shows_an_eye(tool)) told["eye"] = eye_in(arguments);
    const std::lock_guard lock(mutex_);
    calls_.push_back({.id = ++last_call_, .number = 0, .bytes = 0, .begun = clock::now(), .told = nullptr});
    told["id"] = last_call_;
    replace_locked(calls_.back(), std::move(told));
    make_room_locked();
    changed_.notify_all();
    return last_call_;
}

void call_log::end(std::uint64_t call, const json& outcome) {
    json texts = json::array();
    std::vector<picture> pictures;
    std::size_t left = limits_.text_bytes;
    const auto add = [&](const std::string& text) {
        texts.push_back(shortened(text, left));
        left -= std::min(left, text.size());
    };
    const json* const error = outcome.contains("error") ? &outcome["error"] : nullptr;
    if (error) add(error->is_object() && error->contains("message") ? mcp::dump_json((*error)["message"]) : "error");
    const json* const result = outcome.contains("result") ? &outcome["result"] : nullptr;
    if (result && result->is_object() && result->contains("content") && (*result)["content"].is_array()) {
        for (const json& item : (*result)["content"]) {
            if (left == 0) break;
            if (is_picture(item)) {
                pictures.push_back({item["mimeType"], item["data"]});
            } else {
                add(text_of_item(item));
            }
        }
    }
    finish(call, {{"result", is_failure(outcome) ? "failed" : "passed"}, {"texts", std::move(texts)}},
           std::move(pictures));
}

void call_log::cancel(std::uint64_t call) {
    finish(call, {{"result", "cancelled"}}, {});
}

void call_log::finish(std::uint64_t call, json more, std::vector<picture> pictures) {
    const auto now = clock::now();
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(calls_.begin(), calls_.end(), [&](const entry& each) { return each.id == call; });
    json told = found == calls_.end() ? json{{"eye", nullptr}} : *found->told;
    if (found != calls_.end()) more["seconds"] = std::chrono::duration<double>(now - found->begun).count();
    told.update(more);
    const json eye = told.value("eye", json());
    for (picture& each : pictures) {
        const std::uint64_t kept = keep_picture_locked(std::move(each));
        told["pictures"].push_back(kept);
        if (!eye.is_string()) continue;
        // Of both, the left one comes first.
        shown_eye& shown = eyes_[eye == "right" || (eye == "both" && told["pictures"].size() > 1) ? 1 : 0];
        shown = {++last_number_, kept, {{"picture", kept}, {"tool", told["tool"]}, {"taken", unix_milliseconds()}}};
    }
    if (found != calls_.end()) replace_locked(*found, std::move(told));
    make_room_locked();
    changed_.notify_all();
}

void call_log::replace_locked(entry& changed, json told) {
    std::size_t bytes = 512;  // about what the rest takes
    bytes += told["arguments"].get_ref<const std::string&>().size();
    for (const json& text : told.value("texts", json::array())) bytes += text.get_ref<const std::string&>().size();
    call_bytes_ += bytes - changed.bytes;
    changed.bytes = bytes;
    changed.number = ++last_number_;
    changed.told = std::make_shared<const json>(std::move(told));
}

void call_log::make_room_locked() {
    while (calls_.size() > limits_.calls || (calls_.size() > 1 && call_bytes_ > limits_.call_bytes)) {
        call_bytes_ -= calls_.front().bytes;
        calls_.pop_front();
    }
    const auto is_shown = [&](const kept_picture& each) {
        return each.number == eyes_[0].picture || each.number == eyes_[1].picture;
    };
    while (picture_bytes_ > limits_.picture_bytes) {
        const auto oldest = std::find_if_not(pictures_.begin(), pictures_.end(), is_shown);
        if (oldest == pictures_.end()) break;
        picture_bytes_ -= oldest->bytes->base64.size();
        pictures_.erase(oldest);
    }
}

std::uint64_t call_log::keep_picture_locked(picture kept) {
    picture_bytes_ += kept.base64.size();
    pictures_.push_back({++last_picture_, std::make_shared<const picture>(std::move(kept))});
    return last_picture_;
}

std::shared_ptr<const call_log::picture> call_log::find_picture(std::uint64_t number) const {
    const std::lock_guard lock(mutex_);
    for (const kept_picture& each : pictures_) {
        if (each.number == number) return each.bytes;
    }
    return nullptr;
}

void call_log::set_room(json room, std::uint64_t room_number, const std::array<std::optional<place>, 3>& devices) {
    const std::lock_guard lock(mutex_);
    room["number"] = room_number;
    bool differs = room != *room_;
    if (std::exchange(room_number_, room_number) != room_number) {
        for (auto& each : trails_) each.clear();
    }
    for (std::size_t i = 0; i < devices.size(); ++i) {
        std::deque<trail_point>& trail = trails_[i];
        if (!devices[i] || (!trail.empty() && way_between(trail.back().at, *devices[i]) < kShortestWay)) continue;
        trail.push_back({++last_number_, *devices[i]});
        if (trail.size() > limits_.trail_points) trail.pop_front();
        differs = true;
    }
    if (!differs) return;
    room_changed_ = ++last_number_;
    room_ = std::make_shared<const json>(std::move(room));
    changed_.notify_all();
}

call_log::news call_log::gather_locked(std::uint64_t seen) const {
    news gathered{.whole = {{"run", run_}}, .calls = {}, .room = room_changed_ > seen ? room_ : nullptr};
    for (const entry& each : calls_) {
        if (each.number > seen) gathered.calls.push_back(each.told);
    }
    for (std::size_t i = 0; i < eyes_.size(); ++i) {
        if (eyes_[i].number > seen) gathered.whole["eyes"][kDevices[i + 1]] = eyes_[i].told;
    }
    for (std::size_t i = 0; i < trails_.size(); ++i) {
        for (const trail_point& each : trails_[i]) {
            if (each.number > seen) gathered.whole["trails"][kDevices[i]].push_back({each.at.x, each.at.z});
        }
    }
    return gathered;
}

std::optional<std::string> call_log::await_news(std::uint64_t& seen, std::chrono::milliseconds limit) {
    news found;
    {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, limit, [&] { return is_closed_ || last_number_ > seen; });
        if (is_closed_ || last_number_ <= seen) return std::nullopt;
        found = gather_locked(seen);
        seen = last_number_;
    }
    for (const auto& each : found.calls) found.whole["calls"].push_back(*each);
    if (found.room) found.whole["room"] = *found.room;
    return mcp::dump_json(found.whole);
}

void call_log::close() {
    const std::lock_guard lock(mutex_);
    is_closed_ = true;
    changed_.notify_all();
}

bool call_log::is_closed() const {
    const std::lock_guard lock(mutex_);
    return is_closed_;
}

}  // namespace velmoor
