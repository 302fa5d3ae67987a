#include "doctor/finding.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <set>

#include "context/context_manager.h"
#include "doctor/child.h"
#include "doctor/wanted_extensions.h"
#include "layer/instance_extensions.h"
#include "tests/fakes/renew.h"
#include "tools/builtin_tools.h"
#include "tools/tool_registry.h"

namespace orvanic_xr {
namespace {

const Findings kMixed = {{Mark::Ok, "loader", "1.0.20", ""},
                         {Mark::Warn, "extension", "\x1b[2Jone\nis missing", "do without"}};

TEST(Report, IsAlignedAndLetsNothingAtTheTerminal) {
    EXPECT_EQ(ReportText(kMixed, false),
              "ok    loader     1.0.20\n"
              "warn  extension  ?[2Jone?is missing\n"
              "                 -> do without\n"
              "An agent could work here.\n");
    EXPECT_EQ(ReportText({{Mark::Bad, "port", "held", "end it"}}, true),
              "\x1b[31mbad   \x1b[0mport       held\n"
              "                 -> end it\n"
              "An agent could not work here.\n");
}

TEST(Report, IsJsonForMachines) {
    EXPECT_EQ(ReportJson({kMixed[0]}), R"({
  "agent_could_work": true,
  "findings": [
    {
      "mark": "ok",
      "subject": "loader",
      "text": "1.0.20",
      "advice": ""
    }
  ]
}
)");
}

TEST(Extensions, AllThatTheLayerAsksForAreMissed) {
    std::string texts;
    for (const Finding& finding : JudgeExtensions({}, AutomationLayer::kMissing)) texts += finding.text + "\n";
    for (const char* wanted : kWantedExtensions) EXPECT_THAT(texts, testing::HasSubstr(wanted));
}

class ToolNames : public IToolRegistry {
 public:
    void registerTool(mcp::tool tool, ToolHandler) override { names.insert(tool.name); }
    std::set<std::string> names;
};

std::set<std::string> RegisteredWith(std::set<std::string> extensions) {
    InstanceState instance;
    instance.valid = true;
    instance.enabledExtensions = std::move(extensions);
    Renew(ContextManager::instance());
    ContextManager::instance().setInstanceState(instance);
    ToolNames registered;
    register_builtin_tools(registered);
    Renew(ContextManager::instance());
    return registered.names;
}

TEST(Extensions, NameTheToolsThatTheLayerLeavesOut) {
    const std::set<std::string> all = {"XR_EXT_conformance_automation",
                                       "XR_KESTX1_simulator_compositor_output_capture"};
    for (const std::string& lacking : all) {
        SCOPED_TRACE(lacking);
        std::set<std::string> offered = all;
        offered.erase(lacking);
        std::set<std::string> left_out = RegisteredWith(all);
        for (const std::string& name : RegisteredWith(offered)) left_out.erase(name);
        EXPECT_EQ(MissingTools(offered), left_out);
    }
}

TEST(Child, TellsHowItsWorkEnded) {
    const auto say = [](int output) { [[maybe_unused]] const ssize_t n = write(output, "half", 4); };
    const auto well = [&](int output) {
        say(output);
        [[maybe_unused]] const ssize_t n = write(STDERR_FILENO, "pain", 4);
    };
    const auto crash = [&](int output) {
        say(output);
        std::signal(SIGILL, SIG_DFL);
        std::raise(SIGILL);
    };
    const auto hang = [](int) {
        for (;;) pause();
    };
    const struct {
        std::function<void(int)> work;
        std::chrono::seconds limit;
        std::string output, complaints, accident;
    } rows[] = {
        {well, std::chrono::seconds(30), "half", "pain", ""},
        {crash, std::chrono::seconds(30), "half", "", "crashed with signal 4"},
        {[](int) { _exit(3); }, std::chrono::seconds(30), "", "", "ended its process with 3"},
        {hang, std::chrono::seconds(0), "", "", "gave no answer in 0 seconds"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.accident);
        const ChildOutcome outcome = RunInChild(row.work, row.limit);
        EXPECT_EQ(outcome.output, row.output);
        EXPECT_EQ(outcome.complaints, row.complaints);
        EXPECT_EQ(outcome.accident, row.accident);
    }
}

}  // namespace
}  // namespace orvanic_xr
