#include "command/launch/input_log.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace velmoor {
namespace {

// An application reads the hands of a frame one right after the other.
constexpr std::chrono::milliseconds kOneFrame{5};
constexpr std::size_t kMostActions = 1000;
constexpr std::size_t kMostPaths = 100;
constexpr std::size_t kMostReadings = 8;

// The word behind "name=".
std::string_view word_of(std::string_view line, std::string_view name) {
    std::size_t begin = line.find(name);
    if (begin == std::string_view::npos) return {};
    begin += name.size();
    return line.substr(begin, std::min(line.find(' ', begin), line.size()) - begin);
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
        if (of.its.paths.size() < kMostPaths) of.its.paths.emplace(word_of(line, " path="));
    }
    if (!line.starts_with("bool ") && !line.starts_with("float ")) return;
    record& of = actions_[handle];
    if (!of.has_frame || now - of.frame.when > kOneFrame) {
        end_frame(of);
        of.frame = {{}, now};
        of.has_frame = true;
    }
    if (word_of(line, " active=") != "1") return;
    of.frame.values.insert(std::strtod(std::string(word_of(line, " cur=")).c_str(), nullptr));
}

void input_log::end_frame(record& of) {
    std::vector<reading>& known = of.its.readings;
    if (!of.has_frame || (!known.empty() && known.back().values == of.frame.values)) return;
    known.push_back(of.frame);
    if (known.size() > kMostReadings) known.erase(known.begin());
}

std::map<std::string, input_log::action> input_log::actions() const {
    std::map<std::string, action> told;
    for (auto [handle, of] : actions_) {
        end_frame(of);
        told.emplace(handle, std::move(of.its));
    }
    return told;
}

}  // namespace velmoor
