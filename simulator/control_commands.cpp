#include "simulator/control_commands.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "simulator/happenings.h"
#include "simulator/runtime.h"
#include "simulator/session.h"
#include "xr/enum_names.h"

namespace simulator {
namespace {

using nlohmann::json;

constexpr std::int64_t kMostFrames = 1'000'000;
constexpr double kLeastRate = 0.001;
constexpr double kMostRate = 1000;
constexpr std::string_view kStatePrefix = "XR_SESSION_STATE_";

// The session whose frames are counted: null if none runs.
std::shared_ptr<Session> RunningSession(const Runtime& runtime) {
    return runtime.handles.FindIf<Session>([](const Session& session) { return session.running; });
}

Session& RequireRunning(const Runtime& runtime) {
    const auto session = RunningSession(runtime);
    if (!session) throw std::runtime_error("no session runs: there are no frames");
    return *session;
}

std::string TextOf(const json& request, const char* name) {
    const auto found = request.find(name);
    return found != request.end() && found->is_string() ? found->get<std::string>() : std::string();
}

Obeyed Pause(Runtime& runtime, const json& /*request*/) {
    RequireRunning(runtime);
    runtime.clock.Hold(RealNow());
    return {.waits = true, .holds = true};
}

Obeyed StepFrames(Runtime& runtime, const json& request) {
    const json frames = request.value("frames", json(1));
    if (!frames.is_number_integer() || frames < 1 || frames > kMostFrames) {
        throw std::runtime_error("frames must be a whole number from 1 to " + std::to_string(kMostFrames));
    }
    RequireRunning(runtime);
    runtime.clock.Allow(frames.get<std::uint64_t>(), RealNow());
    return {.waits = true, .holds = true};
}

Obeyed Gather(Runtime& runtime, const json& request) {
    const json wanted = request.value("wanted", json());
    if (!wanted.is_boolean()) throw std::runtime_error("wanted must be true or false");
    runtime.gathers = wanted.get<bool>();
    return {.gathers = runtime.gathers};
}

Obeyed Run(Runtime& runtime, const json& /*request*/) {
    runtime.gathers = false;
    runtime.clock.Run(RealNow());
    return {};
}

Obeyed SetRate(Runtime& runtime, const json& request) {
    const json rate = request.value("rate", json());
    const bool is_fastest = rate == "fastest";
    if (!is_fastest && (!rate.is_number() || rate < kLeastRate || rate > kMostRate)) {
        throw std::runtime_error("rate must be \"fastest\", or a number from 0.001 to 1000");
    }
    runtime.clock.SetRate(is_fastest ? 0 : rate.get<double>(), RealNow());
    return {};
}

Obeyed TellState(Runtime& /*runtime*/, const json& /*request*/) {
    return {};
}

Obeyed HaveHappen(Runtime& runtime, const json& request) {
    Happen(RequireRunning(runtime), TextOf(request, "event"), TextOf(request, "hand"));
    return {};
}

constexpr struct {
    const char* name;
    Obeyed (*obey)(Runtime&, const json&);
} kCommands[] = {
    {"pause", Pause},     {"step", StepFrames},  {"run", Run},       {"rate", SetRate},
    {"state", TellState}, {"event", HaveHappen}, {"gather", Gather},
};

}  // namespace

Obeyed Obey(Runtime& runtime, const json& request) {
    if (!request.is_object()) throw std::runtime_error("a request is one JSON object in a line");
    const std::string name = TextOf(request, "do");
    const auto* const found =
        std::find_if(std::begin(kCommands), std::end(kCommands), [&](const auto& row) { return name == row.name; });
    if (found == std::end(kCommands)) {
        throw std::runtime_error("do must be pause, step, run, rate, state, event or gather");
    }
    const Obeyed obeyed = found->obey(runtime, request);
    runtime.frame_changed.notify_all();
    return obeyed;
}

bool IsStill(const Runtime& runtime) {
    const auto session = RunningSession(runtime);
    if (!session) return true;
    return session->frames.is_held && !session->frames.begun && !runtime.clock.LetsPass();
}

json DescribeState(const Runtime& runtime) {
    const Clock& clock = runtime.clock;
    json state = {{"ok", true}, {"paused", clock.IsHeld()}, {"time", clock.At(RealNow())}};
    state["rate"] = clock.rate() > 0 ? json(clock.rate()) : json("fastest");
    const auto session = RunningSession(runtime);
    state["session"] = session ? json(orvanic_xr::session_state_name(session->state) + kStatePrefix.size()) : json();
    if (session) {
        state["frame"] = session->frames.released;
        state["period"] = session->frames.period();
        state["held"] = session->frames.is_held;
        state["wanted"] = session->frames.demand;
    }
    return state;
}

}  // namespace simulator
