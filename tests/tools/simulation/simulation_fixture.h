// A session that is, or can be, taken over from the user.
#pragma once

#include <chrono>
#include <string>
#include <thread>

#include "mcp/json.h"
#include "tests/tools/session_fixture.h"
#include "tools/simulation/pose_animation_manager.h"
#include "tools/simulation/simulation_tools.h"
#include "xr/pose_math.h"

namespace orvanic_xr {

class SimulationTest : public SessionTest {
 protected:
    ~SimulationTest() override { PoseAnimationManager::instance().CancelAll("the test"); }

    static std::string Call(ToolEntry (*make)(), const mcp::json& arguments) {
        return Answer(make, mcp::dump_json(arguments));
    }

    // Whether a line that holds `text` comes into the log, within ten seconds.
    bool WaitFor(const std::string& text) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            for (const std::string& line : log_.lines()) {
                if (line.find(text) != std::string::npos) return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

    void Activate() { context_->conformance_automation_active = true; }
};

}  // namespace orvanic_xr
