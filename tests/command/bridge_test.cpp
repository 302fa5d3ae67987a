// The bridge between calls and applications, which are real servers here, found and dialled as the test says.
#include "command/bridge/bridge.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <future>
#include <set>

#include "command/bridge/tool_list.h"
#include "mcp/server.h"
#include "tests/fakes/scratch.h"

namespace velmoor {
namespace {

using namespace std::chrono_literals;

// An application whose tools "math_add" and `own_tool` tell its name, and "hang" ends with it.
class fake_application {
 public:
    fake_application(std::string name, const char* own_tool) : name_(std::move(name)), served_(config()) {
        const auto add = [this](const char* tool, auto handler) {
            mcp::tool declaration;
            declaration.name = tool;
            declaration.input_schema = {{"type", "object"}};
            served_.register_tool(declaration, handler);
        };
        const auto text = [](const std::string& said) { return json::array({{{"type", "text"}, {"text", said}}}); };
        add("math_add", [=, this](const json& arguments, const std::string&) {
            ++runs;
            ++all_runs;
            return text(arguments.contains("fail") ? "Error: as told" : name_ + mcp::dump_json(arguments));
        });
        add(own_tool, [=, this](const json&, const std::string&) { return text("Error: own text of " + name_); });
        add("hang", [=, this](const json&, const std::string&) {
            is_hanging_ = true;
            hanging.set_value();
            let_go_.get_future().wait();
            return json::array();
        });
        served_.start(false);
        EXPECT_TRUE(served_.wait_until_listening(5s));
    }
    ~fake_application() {
        std::thread stopping([this] { served_.stop(); });
        // The answer shall come too late for its stream.
        if (is_hanging_) std::this_thread::sleep_for(200ms);
        let_go_.set_value();
        stopping.join();
    }
    int port() const { return served_.port(); }

    std::promise<void> hanging;
    std::atomic<int> runs{0};
    static inline std::atomic<int> all_runs{0};

 private:
    static mcp::server_config config() {
        mcp::server_config made;
        made.host = "127.0.0.1";
        made.port = 0;
        made.threadpool_size = 2;
        made.timings.endpoint_delay = 5ms;
        made.timings.stop_pause = 5ms;
        return made;
    }
    const std::string name_;
    std::atomic<bool> is_hanging_{false};
    std::promise<void> let_go_;
    mcp::server served_;
};

// The machine as the bridge sees it.
struct fake_machine {
    surroundings seen() {
        return {.find =
                    [this] {
                        const std::lock_guard lock(mutex);
                        std::vector<application> found;
                        for (const auto& [pid, port] : ports) {
                            found.push_back({.pid = pid,
                                             .start = 1,
                                             .user = 0,
                                             .name = "app" + std::to_string(pid / 10),
                                             .network = 1,
                                             .network_process = 0,
                                             .ipv4 = true,
                                             .ipv6 = false,
                                             .sockets = {}});
                        }
                        return found;
                    },
                .dial =
                    [this](const application& to) {
                        const std::lock_guard lock(mutex);
                        const auto port = ports.find(to.pid);
                        if (port == ports.end()) return mcp::dialed{{}, "gone"};
                        return mcp::dial({"127.0.0.1", static_cast<std::uint16_t>(port->second)}, 1s);
                    }};
    }
    void Run(pid_t pid, const fake_application& application) {
        const std::lock_guard lock(mutex);
        ports[pid] = application.port();
    }
    void End(pid_t pid) {
        const std::lock_guard lock(mutex);
        ports.erase(pid);
    }

    std::mutex mutex;
    std::map<pid_t, int> ports;
};

class Bridge : public testing::Test {
 protected:
    std::unique_ptr<bridge> Make(std::chrono::milliseconds wait = 10s, std::vector<own_tool> own_tools = {}) {
        auto made = std::make_unique<bridge>(bridge_settings{.around = machine_.seen(),
                                                             .version = "1",
                                                             .wait = wait,
                                                             .pictures = {},
                                                             .tools_file = scratch_.path() + "/cache/tools.json",
                                                             .own_tools = std::move(own_tools),
                                                             .hint = nullptr});
        made->on_tools_changed([this] { ++changes_; });
        return made;
    }
    // The outcome of a call that is made now.
    static std::future<json> Start(bridge& through, const std::string& tool, json arguments = json::object(),
                                   std::function<void(json&&)> report = nullptr) {
        const auto come = std::make_shared<std::promise<json>>();
        through.start(through.new_call_id(), {.name = tool,
                                              .arguments = std::move(arguments),
                                              .done = [come](json&& outcome) { come->set_value(std::move(outcome)); },
                                              .report = std::move(report)});
        return come->get_future();
    }
    // The text of its outcome, behind "E " if it is an error.
    static std::string Text(std::future<json> come) {
        if (come.wait_for(20s) != std::future_status::ready) return "no answer";
        const json outcome = come.get();
        if (outcome.contains("error")) return "E " + outcome["error"]["message"].get<std::string>();
        const json& result = outcome["result"];
        return (result["isError"] == true ? "E " : "") + result["content"][0]["text"].get<std::string>();
    }
    static std::string Call(bridge& through, const std::string& tool, json arguments = json::object()) {
        return Text(Start(through, tool, std::move(arguments)));
    }
    static void Await(const std::function<bool()>& is_so) {
        for (int i = 0; i < 1000 && !is_so(); ++i) std::this_thread::sleep_for(10ms);
        EXPECT_TRUE(is_so());
    }
    static bool Lists(bridge& through, const std::string& tool) {
        return through.list_tools()->find("\"name\":\"" + tool + "\"") != std::string::npos;
    }

    orvanic_xr::ScratchDirectory scratch_;
    fake_machine machine_;
    std::atomic<int> changes_{0};
};

TEST_F(Bridge, ListsAllToolsBeforeAnyApplicationAndThoseThatWereSeenLast) {
    EXPECT_EQ(builtin_declarations().size(), 26u);
    {
        const auto through = Make();
        EXPECT_TRUE(Lists(*through, "app_list") && Lists(*through, "openxr_capture_composited_image"));
        EXPECT_EQ(through->list_tools()->find("\"sentiment\""), std::string::npos);
        EXPECT_NE(through->list_tools()->find("\"app\":{\"type\":\"string\""), std::string::npos);
        EXPECT_FALSE(Lists(*through, "score"));
        fake_application one("one", "score");
        machine_.Run(10, one);
        through->expect_calls();
        Await([&] { return Lists(*through, "score") && changes_ != 0; });
        EXPECT_EQ(changes_, 1);
        machine_.End(10);
        Await([&] { return through->applications().empty(); });
        EXPECT_TRUE(Lists(*through, "score"));
    }
    EXPECT_TRUE(Lists(*Make(), "score"));
    std::ofstream(scratch_.path() + "/cache/tools.json") << "{\"tools\":[{\"name\":";
    EXPECT_FALSE(Lists(*Make(), "score"));
}

TEST_F(Bridge, WaitsForAnApplicationAndSaysWhatIsMissing) {
    const auto impatient = Make(300ms);
    const std::string missing = Call(*impatient, "math_add");
    EXPECT_TRUE(missing.starts_with("E Error: The call was not run: no application")) << missing;
    EXPECT_NE(missing.find("XR_ENABLE_API_LAYERS=XR_APILAYER_KESTX_velmoor"), std::string::npos);

    const auto patient = Make();
    std::promise<json> aside;
    tool_call look{.name = "math_add", .arguments = nullptr, .done = nullptr, .report = nullptr};
    look.is_aside = true;
    look.done = [&aside](json&& outcome) { aside.set_value(std::move(outcome)); };
    patient->start(patient->new_call_id(), std::move(look));
    EXPECT_EQ(aside.get_future().wait_for(0s), std::future_status::ready) << "a look waits for no application";
    const json unknown = Start(*patient, "nonsense").get();
    EXPECT_EQ(unknown["error"]["code"], -32602);
    std::promise<json> word;
    std::atomic<bool> has_word{false};
    auto answer = Start(*patient, "math_add", {{"a", 1}, {"reason", "r"}}, [&](json&& progress) {
        if (!has_word.exchange(true)) word.set_value(std::move(progress));
    });
    EXPECT_EQ(word.get_future().get(),
              json({{"progress", 1}, {"message", "Waiting: no application runs with the layer yet"}}));
    fake_application one("one", "score");
    machine_.Run(10, one);
    EXPECT_EQ(Text(std::move(answer)), R"(one{"a":1,"reason":"r"})");
}

TEST_F(Bridge, MarksFailuresOfTheLayersToolsAlone) {
    fake_application one("one", "score");
    machine_.Run(10, one);
    const auto through = Make();
    EXPECT_EQ(Call(*through, "math_add", {{"fail", 1}}), "E Error: as told");
    EXPECT_EQ(Call(*through, "score"), "Error: own text of one");
    EXPECT_EQ(Call(*through, "nonsense"), "E Tool not found: nonsense");
}

TEST_F(Bridge, ReachesTheApplicationThatIsMeantOrNone) {
    fake_application one("one", "score");
    fake_application two("two", "lives");
    machine_.Run(10, one);
    machine_.Run(20, two);
    const auto through = Make(500ms);
    const std::string refused = Call(*through, "math_add");
    EXPECT_NE(refused.find("E Error: The call was not run: 2 applications run"), std::string::npos) << refused;
    EXPECT_NE(refused.find("\n- app1 (pid 10)\n- app2 (pid 20)"), std::string::npos) << refused;
    EXPECT_FALSE(through->last_called());
    EXPECT_EQ(Call(*through, "math_add", {{"app", "app2"}}), "two{}");
    EXPECT_EQ(through->last_called()->pid, 20);
    EXPECT_EQ(Call(*through, "math_add", {{"app", "10"}}), "one{}");
    EXPECT_EQ(through->last_called()->pid, 10);
    EXPECT_EQ(Call(*through, "lives"), "Error: own text of two");
    EXPECT_TRUE(Call(*through, "math_add", {{"app", "app3"}})
                    .starts_with("E Error: The call was not run: no application answers to"));
    machine_.End(20);
    EXPECT_EQ(Call(*through, "math_add"), "one{}");
    machine_.Run(20, two);
    std::this_thread::sleep_for(300ms);  // so long what was seen is taken to hold
    EXPECT_NE(Call(*through, "math_add").find("2 applications run"), std::string::npos);
    through->prefer(20);
    EXPECT_EQ(Call(*through, "math_add"), "two{}");
    EXPECT_EQ(one.runs + two.runs, 4);
}

TEST_F(Bridge, AnswersAtOnceWhenTheApplicationGoesAndServesTheNextOne) {
    auto one = std::make_unique<fake_application>("one", "score");
    machine_.Run(10, *one);
    const auto through = Make();
    auto hanging = Start(*through, "hang");
    one->hanging.get_future().wait();
    machine_.End(10);
    one.reset();
    const std::string lost = Text(std::move(hanging));
    EXPECT_TRUE(lost.starts_with("E Error: app1 (pid 10) went away while the call ran")) << lost;
    EXPECT_NE(lost.find("The outcome is unknown; the call was not repeated."), std::string::npos);
    auto waiting = Start(*through, "math_add");
    fake_application two("two", "score");
    machine_.Run(11, two);
    EXPECT_EQ(Text(std::move(waiting)), "two{}");
}

TEST_F(Bridge, CancelledCallsAreNotAnsweredAndAllOthersAreWhenItEnds) {
    fake_application one("one", "score");
    machine_.Run(10, one);
    auto through = Make();
    std::atomic<int> answers{0};
    const auto start = [&](const char* tool, const char* app) {
        const std::uint64_t id = through->new_call_id();
        through->start(
            id, {.name = tool, .arguments = {{"app", app}}, .done = [&](json&&) { ++answers; }, .report = nullptr});
        return id;
    };
    const std::uint64_t running = start("hang", "app1");
    one.hanging.get_future().wait();
    const std::uint64_t waiting = start("math_add", "app9");
    through->cancel(running, "test");
    through->cancel(waiting, "test");
    start("math_add", "app8");
    EXPECT_EQ(Call(*through, "math_add", {{"app", "app1"}}), "one{}");
    EXPECT_EQ(answers, 0);
    through.reset();
    EXPECT_EQ(answers, 1);
}

TEST_F(Bridge, RunsAToolOfItsOwnWithArgumentsThatItKnowsAndWithOneApplication) {
    std::promise<void> stays;
    const auto handler = [&](const json& arguments, tool_run& run) {
        if (arguments.contains("n")) return arguments["n"].get<json>()["of a number"];
        run.stay_with(arguments);
        stays.set_value();
        run.wait_for(60s);
        return json();
    };
    const json declaration{{"name", "xr_own"}, {"inputSchema", {{"properties", {{"n", json::object()}}}}}};
    const auto through = Make(10s, {{declaration, handler}});
    EXPECT_EQ(Call(*through, "xr_own", {{"x", 1}}),
              "E Error: xr_own takes no argument \"x\"; it takes: n, app, reason, sentiment");
    EXPECT_EQ(Call(*through, "xr_own", json::array()), "E Error: arguments must be an object");
    const std::string not_understood = Call(*through, "xr_own", {{"n", 1}, {"reason", "r"}});
    EXPECT_TRUE(not_understood.starts_with("E Error: the application's answer was not understood: cannot"))
        << not_understood;
    auto one = std::make_unique<fake_application>("one", "score");
    machine_.Run(10, *one);
    auto waiting = Start(*through, "xr_own");
    stays.get_future().wait();
    const auto begin = std::chrono::steady_clock::now();
    machine_.End(10);
    fake_application two("two", "score");
    machine_.Run(20, two);
    one.reset();
    EXPECT_EQ(Text(std::move(waiting)),
              "E Error: the application (pid 10) is gone: it has ended, or has destroyed its OpenXR instance");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
}

// Applications come and go at any moment of a call.
TEST_F(Bridge, AnswersEveryCallExactlyOnceWhileApplicationsAreKilled) {
    const auto through = Make();
    std::atomic<bool> is_over{false};
    std::atomic<int> asked{0}, answered{0}, succeeded{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&] {
            while (!is_over) {
                ++asked;
                const auto counted = std::make_shared<std::promise<void>>();
                through->start(through->new_call_id(), {.name = "math_add",
                                                        .arguments = json::object(),
                                                        .done =
                                                            [&, counted](json&& outcome) {
                                                                ++answered;
                                                                succeeded += outcome["result"]["isError"] == false;
                                                                counted->set_value();  // throws the second time
                                                            },
                                                        .report = nullptr});
                counted->get_future().wait();
            }
        });
    }
    const int before = fake_application::all_runs;
    for (pid_t pid = 10; pid < 16; ++pid) {
        fake_application one("one", "score");
        machine_.Run(pid, one);
        std::this_thread::sleep_for(std::chrono::milliseconds(100 + pid * 7 % 50));
        machine_.End(pid);
    }
    is_over = true;
    fake_application last("last", "score");
    machine_.Run(20, last);
    for (std::thread& each : callers) each.join();
    EXPECT_EQ(asked, answered);
    EXPECT_GT(succeeded, 100);
    const int ran = fake_application::all_runs - before;
    EXPECT_GE(ran, succeeded);
    EXPECT_LE(ran, asked);
}

}  // namespace
}  // namespace velmoor
