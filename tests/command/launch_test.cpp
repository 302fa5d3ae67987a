// In which environment an application is started, and how its output is read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <vector>

#include "command/applications/proc.h"
#include "command/launch/input_log.h"
#include "command/launch/launch_environment.h"
#include "command/launch/started_application.h"

namespace velmoor {
namespace {

using namespace std::chrono_literals;

TEST(LaunchEnvironment, SwitchesTheLayerOnAndKeepsWhatIsThere) {
    const own_files built{.layers = "/b/layers", .layers_known = false, .simulator = "/b/sim.json"};
    const own_files installed{.layers = "/usr/share/x", .layers_known = true, .simulator = "/s.json"};
    const launch_options on_simulator{};
    EXPECT_EQ(launch_environment({{"A", "1"}}, built, on_simulator),
              (environment{{"A", "1"},
                           {"ORVANICXR_VERBOSE", "1"},
                           {"VELMOOR_RUN", "1"},
                           {"XR_API_LAYER_PATH", "/b/layers"},
                           {"XR_ENABLE_API_LAYERS", "XR_APILAYER_KESTX_velmoor"},
                           {"XR_RUNTIME_JSON", "/b/sim.json"}}));
    const environment own{{"ORVANICXR_VERBOSE", "0"},
                          {"XR_API_LAYER_PATH", "/mine"},
                          {"XR_ENABLE_API_LAYERS", "XR_APILAYER_KESTX_velmoor_x:mine"},
                          {"XR_RUNTIME_JSON", "/mine.json"}};
    environment expected = own;
    expected["VELMOOR_RUN"] = std::string("1");
    expected["XR_API_LAYER_PATH"] += ":/usr/share/x";
    expected["XR_ENABLE_API_LAYERS"] += ":XR_APILAYER_KESTX_velmoor";
    const launch_options on_active_runtime{.simulator = false, .own_network = true};
    EXPECT_EQ(launch_environment(own, installed, on_active_runtime), expected);
    EXPECT_EQ(launch_environment(expected, installed, on_active_runtime), expected)
        << "what is there is not added again";
    EXPECT_FALSE(launch_environment({}, installed, on_simulator).contains("XR_API_LAYER_PATH"));
    for (const auto& [clock, options, moves_by_frames] : {std::tuple{"fixed", on_simulator, true},
                                                          {"real", on_simulator, false},
                                                          {"fixed", on_active_runtime, false}}) {
        const environment made = launch_environment({{"VELMOOR_SIM_CLOCK", clock}}, installed, options);
        EXPECT_EQ(made.contains("ORVANICXR_FRAME_CLOCK"), moves_by_frames) << clock;
    }
    const own_files whole{.layers = "/b", .simulator = "/s.json", .automation = true};
    for (const auto& [enabled, made] :
         {std::tuple{"", "XR_APILAYER_KESTX_velmoor:XR_APILAYER_VELMOOR_automation"},
          {"XR_APILAYER_VELMOOR_automation:mine", "mine:XR_APILAYER_KESTX_velmoor:XR_APILAYER_VELMOOR_automation"}}) {
        EXPECT_EQ(launch_environment({{"XR_ENABLE_API_LAYERS", enabled}}, whole, on_active_runtime)
                      .at("XR_ENABLE_API_LAYERS"),
                  made);
    }
    EXPECT_EQ(launch_environment({}, whole, on_simulator).at("XR_ENABLE_API_LAYERS"), "XR_APILAYER_KESTX_velmoor");
    const environment controlled = launch_environment({}, installed, {.control = "/socket"});
    EXPECT_EQ(controlled.at("VELMOOR_SIM_CONTROL"), "/socket");
    EXPECT_TRUE(controlled.contains("ORVANICXR_FRAME_CLOCK"));
}

TEST(OutputLine, TellsTheLayersLevelsWithoutColours) {
    struct row {
        const char* printed;
        const char* text;
        bool is_layers;
        int level;
    };
    for (const row& each : {row{"\x1b[90mT\x1b[0m [Velmoor] \x1b[32m[INFO]\x1b[0m x", "T [Velmoor] [INFO] x", true, 1},
                            row{"T [Velmoor] \x1b[33m[WARNING]\x1b[0m x", "T [Velmoor] [WARNING] x", true, 2},
                            row{"T [cpp-mcp] [DEBUG] x", "T [cpp-mcp] [DEBUG] x", true, 0},
                            row{"[ERROR] its own\tx\r", "[ERROR] its own\tx", false, 1}}) {
        const output_line line = parse_output_line(each.printed);
        EXPECT_EQ(line.text, each.text);
        EXPECT_EQ(line.is_layers, each.is_layers) << each.text;
        EXPECT_EQ(line.level, each.level) << each.text;
    }
}

// Whoever asks for what at the same time: each ends, no start is lost, and nothing is left behind.
TEST(StartedApplication, IsStartedAndEndedByManyAtATime) {
    launch_options options{};
    options.keeper = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "velmoor";
    options.own_network = false;
    started_application application({"sleep", "60"}, options);
    std::atomic<int> started{0}, ended{0}, restarted{0};
    std::vector<std::thread> callers;
    for (int caller = 0; caller < 4; ++caller) {
        callers.emplace_back([&] {
            for (int i = 0; i < 5; ++i) {
                try {
                    application.start();
                    ++started;
                } catch (const std::runtime_error& e) {
                    EXPECT_STREQ(e.what(), "the application runs already");
                }
                if (i % 2 == 0) application.restart(), ++restarted;
                if (application.stop() == 128 + SIGTERM) ++ended;
            }
        });
    }
    for (std::thread& each : callers) each.join();
    EXPECT_EQ(application.last_start(), started + restarted);
    EXPECT_FALSE(application.is_running());
    EXPECT_GT(ended, 0);
    EXPECT_TRUE(descendants_of(getpid()).empty());
}

// An action that is read for two hands has a line for each in every frame in which they differ.
TEST(InputLog, TellsTheActiveValuesOfBothHandsAndWhenTheyChanged) {
    input_log log;
    const auto at = [](int when) { return input_log::time_point() + std::chrono::milliseconds(when); };
    const auto read = [&](int when, const char* cur, const char* active) {
        log.take(std::string("[Velmoor] [DEBUG] [inputdiag] float action=0x7 cur=") + cur + " active=" + active +
                     " changed=0",
                 at(when));
    };
    log.take("[Velmoor] [DEBUG] [inputdiag] suggest action=0x7 path=/p/a profile=/q", at(0));
    EXPECT_TRUE(log.actions().at("0x7").readings.empty());
    read(1000, "0.000000", "0");
    for (int when = 2000; when < 3000; when += 20) {
        read(when, "0.000000", "0");
        read(when, when < 2400 || when > 2500 ? "0.000000" : "0.500000", "1");
    }
    for (int when = 3000; when < 4000; when += 20) {
        read(when, "0.000000", "1");
        read(when + 1, "0.700000", "1");
    }
    read(4000, "0.000000", "1");
    const auto seen = log.actions().at("0x7");
    std::vector<std::pair<int, std::set<double>>> readings;
    for (const auto& each : seen.readings) readings.emplace_back((each.when - at(0)) / 1ms, each.values);
    EXPECT_THAT(readings, testing::ElementsAre(std::pair(1000, std::set<double>{}), std::pair(2000, std::set{0.0}),
                                               std::pair(2400, std::set{0.5}), std::pair(2520, std::set{0.0}),
                                               std::pair(3000, std::set{0.0, 0.7}), std::pair(4000, std::set{0.0})));
    EXPECT_EQ(seen.paths, std::set<std::string>{"/p/a"});
}

}  // namespace
}  // namespace velmoor
