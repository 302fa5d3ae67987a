#include "examples/velmoor_agent/application_view.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <thread>

namespace agent {
namespace {

constexpr auto kBetweenLooks = std::chrono::milliseconds(20);
// An effect takes a frame or two; a report, once a second, should not keep the next step waiting.
constexpr auto kSilence = std::chrono::milliseconds(160);
constexpr auto kLongestSettling = std::chrono::milliseconds(600);

bool StartsWith(const std::string& line, const char* start) {
    return line.rfind(start, 0) == 0;
}

}  // namespace

ApplicationView::ApplicationView(const std::string& file, Transcript& transcript) : transcript_(transcript) {
    if (file.empty()) return;
    stream_.open(file);
    if (!stream_) throw mcp::client_error("cannot read " + file);
}

std::vector<std::string> ApplicationView::NewLines() {
    stream_.clear();
    unfinished_.append(std::istreambuf_iterator<char>(stream_), {});
    std::vector<std::string> lines;
    for (std::size_t end; (end = unfinished_.find('\n')) != std::string::npos; unfinished_.erase(0, end + 1)) {
        lines.push_back(unfinished_.substr(0, end));
    }
    return lines;
}

void ApplicationView::ShowLine(const std::string& line) {
    if (line.find("[Velmoor]") != std::string::npos) return;
    double seconds = 0.0;
    double rate = 0.0;
    if (std::sscanf(line.c_str(), "[%lf s] FOCUSED, %lf frames", &seconds, &rate) == 2) frame_rates_.push_back(rate);
    if (StartsWith(line, "[")) {
        report_ = line;
    } else if (StartsWith(line, "    head   ")) {
        transcript_.Application(report_ + ", head " + line.substr(11));
    } else if (StartsWith(line, "  * ")) {
        transcript_.Application(line.substr(4));
    } else if (!StartsWith(line, "    ")) {  // what a report says of the hands is much, and seldom new
        transcript_.Application(line);
    }
}

void ApplicationView::Show() {
    if (!stream_.is_open()) return;
    for (const std::string& line : NewLines()) ShowLine(line);
}

void ApplicationView::Settle() {
    if (!stream_.is_open()) return;
    const auto begin = std::chrono::steady_clock::now();
    auto heard = begin;
    for (auto now = begin; now - heard < kSilence && now - begin < kLongestSettling;
         now = std::chrono::steady_clock::now()) {
        const std::vector<std::string> lines = NewLines();
        for (const std::string& line : lines) ShowLine(line);
        if (!lines.empty()) heard = now;
        std::this_thread::sleep_for(kBetweenLooks);
    }
}

void ApplicationView::Summary() {
    if (frame_rates_.empty()) return;
    const auto [lowest, highest] = std::minmax_element(frame_rates_.begin(), frame_rates_.end());
    char text[128];
    std::snprintf(text, sizeof text, "The application went on at %.1f to %.1f frames a second all the while.", *lowest,
                  *highest);
    transcript_.Say(text);
}

}  // namespace agent
