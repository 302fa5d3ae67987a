#include "examples/velmoor_demo/game.h"

#include <algorithm>
#include <utility>

namespace demo {
namespace {

constexpr std::int64_t kWeatherSettlesMs = 500;
constexpr int kGoodScore = 10;
constexpr std::size_t kCubesToSee = 200;

}  // namespace

void Game::AdvanceFrame(XrTime shown) {
    const std::lock_guard lock(mutex_);
    ++frame_;
    now_ = shown;
    const std::int64_t now_ms = AgeLocked(sequence_began_);
    while (!upcoming_.empty() && upcoming_.front().at_ms <= now_ms) {
        TakeStepLocked(upcoming_.front(), now_ms);
        upcoming_.erase(upcoming_.begin());
    }
    changed_.notify_all();
}

void Game::TakeStepLocked(const SequenceStep& step, std::int64_t now_ms) {
    if (step.action == "add_score") score_ += step.amount + (fault_ == Fault::kScore ? 1 : 0);
    if (step.action == "set_weather") {
        weather_ = step.weather;
        weather_changed_ = now_;
    }
    happened_.push_back({step.action, frame_, now_ms});
}

Game::Standing Game::standing() const {
    const std::lock_guard lock(mutex_);
    return {score_, weather_, cubes_.size()};
}

std::vector<Cube> Game::LatestCubes() const {
    const std::lock_guard lock(mutex_);
    const std::size_t count = std::min(cubes_.size(), kCubesToSee);
    return {cubes_.end() - static_cast<std::ptrdiff_t>(count), cubes_.end()};
}

std::size_t Game::SpawnCube(const Cube& cube) {
    const std::lock_guard lock(mutex_);
    cubes_.push_back(cube);
    if (fault_ == Fault::kColour) cubes_.back().color = "purple";
    return cubes_.size();
}

void Game::SetWeather(const std::string& weather) {
    const std::lock_guard lock(mutex_);
    weather_ = weather;
    weather_changed_ = now_;
}

const std::vector<std::string>& Game::ConditionNames() {
    static const std::vector<std::string> names = {"weather_settled", "score_is_good", "cube_is_there"};
    return names;
}

bool Game::HoldsLocked(const std::string& condition) const {
    if (condition == "weather_settled") return !weather_changed_ || AgeLocked(*weather_changed_) >= kWeatherSettlesMs;
    if (condition == "score_is_good") return score_ >= kGoodScore;
    return !cubes_.empty();
}

std::optional<bool> Game::WaitUntil(const std::string& condition, std::chrono::milliseconds limit) {
    const auto& names = ConditionNames();
    if (std::find(names.begin(), names.end(), condition) == names.end()) return std::nullopt;
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return HoldsLocked(condition); });
}

std::vector<SequenceEvent> Game::PlaySequence(std::vector<SequenceStep> steps, std::chrono::milliseconds limit) {
    std::stable_sort(steps.begin(), steps.end(), [](const auto& a, const auto& b) { return a.at_ms < b.at_ms; });
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::unique_lock lock(mutex_);
    if (!changed_.wait_until(lock, deadline, [&] { return !playing_; })) return {};
    playing_ = true;
    happened_.clear();
    upcoming_ = std::move(steps);
    sequence_began_ = now_;
    changed_.wait_until(lock, deadline, [&] { return upcoming_.empty(); });
    upcoming_.clear();
    playing_ = false;
    changed_.notify_all();
    return std::move(happened_);
}

}  // namespace demo
