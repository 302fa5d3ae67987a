// What there is to play with in the demo: a score, the weather, cubes, and timed sequences of steps that the
// frame loop carries out. The frame loop advances it; anybody may ask and wait from any thread.
#pragma once

#include <openxr/openxr.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace demo {

struct Cube {
    float position[3];  // metres in the stage
    float size;         // metres
    std::string color;
};

struct SequenceStep {
    std::int64_t at_ms;   // since the sequence began
    std::string action;   // "add_score" or "set_weather"
    int amount;           // for add_score
    std::string weather;  // for set_weather
};

// What became of a step: in which frame, counted from the game's first, and when.
struct SequenceEvent {
    std::string action;
    std::uint64_t frame;
    std::int64_t at_ms;
};

// What the demo does wrong when it is told to, for who tries out tests of it.
enum class Fault { kNone, kColour, kPose, kScore };

class Game {
 public:
    explicit Game(Fault fault) : fault_(fault) {}

    struct Standing {
        int score = 0;
        std::string weather = "sun";
        std::size_t cubes = 0;
    };

    // The frame loop's part: the game goes on to the time at which this frame is shown, and steps of a sequence that
    // are due happen in it.
    void AdvanceFrame(XrTime shown);

    Standing standing() const;
    // Those to be seen: the latest, for an agent may have any number.
    std::vector<Cube> LatestCubes() const;
    // The number of the cube, from 1.
    std::size_t SpawnCube(const Cube& cube);
    // The weather changes at once and settles within half a second.
    void SetWeather(const std::string& weather);

    // The conditions that WaitUntil knows, for who asks for another.
    static const std::vector<std::string>& ConditionNames();
    // Waits for a condition, at most for `limit`. False if it did not come to hold; nothing if there is no such
    // condition. Not on the frame thread, which would wait for itself.
    std::optional<bool> WaitUntil(const std::string& condition, std::chrono::milliseconds limit);

    // Has the frame loop carry out `steps`, and waits for the last; an earlier sequence is waited for first. The
    // events are fewer than the steps if `limit` ran out. Not on the frame thread.
    std::vector<SequenceEvent> PlaySequence(std::vector<SequenceStep> steps, std::chrono::milliseconds limit);

 private:
    // Milliseconds that the game's time is behind its present.
    std::int64_t AgeLocked(XrTime then) const { return (now_ - then) / 1'000'000; }
    void TakeStepLocked(const SequenceStep& step, std::int64_t now_ms);
    bool HoldsLocked(const std::string& condition) const;

    const Fault fault_;
    mutable std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    std::uint64_t frame_ = 0;
    XrTime now_ = 0;  // of the newest frame: the game's time
    int score_ = 0;
    std::string weather_ = Standing().weather;
    std::optional<XrTime> weather_changed_;
    std::vector<Cube> cubes_;
    bool playing_ = false;
    XrTime sequence_began_ = 0;
    std::vector<SequenceStep> upcoming_;
    std::vector<SequenceEvent> happened_;
};

}  // namespace demo
