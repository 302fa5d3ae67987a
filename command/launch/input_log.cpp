#include "command/launch/input_log.h"

#include <algorithm>
#include <cstdlib>

namespace velmoor {
namespace {

constexpr std::chrono::milliseconds kInTurn{250};  // two readings of one frame, or of the next
constexpr std::size_t kMostActions = 1000;
constexpr std::size_t kMostPaths = 100;
constexpr std::size_t kMostKept = 8;

// The word behind "name=".
std::string_view word_of(std::string_view line, std::string_view name) {
    std::size_t begin = line.find(name);
    if (begin == std::string_view::npos) return {};
    begin += name.size();
    return line.substr(begin, std::min(line.find(' ', begin), line.size()) - begin);
}

template <typename Element>
void keep_last(std::vector<Element>& of) {
    if (of.size() > kMostKept) of.erase(of.begin());
}

}  // namespace

void input_log::take(std::string_view line, time_point now) {
    const std::size_t mark = line.find("[inputdiag] ");
    if (mark == std::string_view::npos) return;
    line.remove_prefix(mark + std::string_view("[inputdiag] ").size());
    const std::string handle(word_of(line, " action="));
    if (handle.empty() || (actions_.size() >= kMostActions && !actions_.contains(handle))) return;
    if (line.starts_with("suggest ")) {
        record& of = actions_[handle];
        if (of.paths.size() < kMostPaths) of.paths.emplace(word_of(line, " path="));
    }
    if (!line.starts_with("bool ") && !line.starts_with("float ")) return;
    record& of = actions_[handle];
    of.is_read = true;
    of.last_line = now;
    if (word_of(line, " active=") != "1") return;
    of.last_active = now;
    const double value = std::strtod(std::string(word_of(line, " cur=")).c_str(), nullptr);
    const bool is_same = !of.seen.empty() && of.seen.back().value == value;
    const auto known =
        std::find_if(of.seen.begin(), of.seen.end(), [&](const auto& each) { return each.value == value; });
    const bool is_in_turn = known != of.seen.end() && now - known->last <= kInTurn;
    const int returns = is_in_turn ? known->returns + 1 : 0;
    if (known != of.seen.end()) of.seen.erase(known);
    of.seen.push_back({value, now, returns});
    keep_last(of.seen);
    if (is_same || is_in_turn) return;
    of.changes.push_back({value, now});
    keep_last(of.changes);
}

std::map<std::string, input_log::action> input_log::actions(time_point now) const {
    std::map<std::string, action> told;
    for (const auto& [handle, of] : actions_) {
        action& its = told[handle];
        its.paths = of.paths;
        its.is_read = of.is_read;
        its.is_active = of.is_read && !of.seen.empty() && of.last_line - of.last_active <= kInTurn;
        its.changes = of.changes;
        for (const seen_value& each : of.seen) {
            const bool is_last = &each == &of.seen.back();
            if (is_last || (each.returns > 0 && now - each.last <= kInTurn)) its.values.push_back(each.value);
        }
    }
    return told;
}

}  // namespace velmoor
