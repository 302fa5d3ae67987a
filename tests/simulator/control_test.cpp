// The simulator under a controller: an application in a thread of its own, steered through the socket.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "tests/simulator/simulator_fixture.h"
#include "xr/simulator_frame_demand.h"

namespace simulator_test {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Controller {
 public:
    explicit Controller(const std::string& path) {
        sockaddr_un address = {AF_UNIX, {}};
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << path;
    }
    ~Controller() { close(socket_); }
    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;

    // The answer to a line.
    json Ask(const std::string& line) {
        Send(line + "\n");
        std::string answer;
        for (char byte = 0; read(socket_, &byte, 1) == 1 && byte != '\n';) answer += byte;
        return json::parse(answer, nullptr, false);
    }
    void Send(const std::string& text) {
        EXPECT_EQ(send(socket_, text.data(), text.size(), MSG_NOSIGNAL), text.size());
    }

 private:
    const int socket_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

class SimulatorControl : public SimulatorTest {
 protected:
    void SetUp() override {
        setenv("VELMOOR_SIM_CLOCK", "stepped", 1);
        setenv("VELMOOR_SIM_CONTROL", path_.c_str(), 1);
        SimulatorTest::SetUp();
        session_ = MakeFocusedSession();
        application_ = std::thread([this] {
            while (!ends_) newest_ = RunFrame(session_).predictedDisplayTime;
        });
    }
    void TearDown() override {
        ends_ = true;
        if (application_.joinable()) {
            Controller(path_).Ask(R"({"do":"run"})");
            application_.join();
        }
        SimulatorTest::TearDown();
        EXPECT_FALSE(std::filesystem::exists(path_));
        unsetenv("VELMOOR_SIM_CLOCK");
        unsetenv("VELMOOR_SIM_CONTROL");
    }

    std::vector<const char*> Extensions() const override {
        std::vector<const char*> names = SimulatorTest::Extensions();
        names.push_back(orvanic_xr::kSimulatorFrameDemandExtension);
        return names;
    }

    const std::string path_ = testing::TempDir() + "sim_control_" + std::to_string(getpid());
    XrSession session_ = XR_NULL_HANDLE;
    std::thread application_;
    std::atomic<bool> ends_{false};
    std::atomic<XrTime> newest_{0};
};

TEST_F(SimulatorControl, AThousandPausesAndStepsDriftByNothing) {
    Controller controller(path_);
    struct stat status = {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    json state = controller.Ask(R"({"do":"step","frames":5})");
    ASSERT_EQ(state["frame"], 5) << state;
    const XrDuration period = state["period"];
    const XrTime begin = newest_;
    for (int cycle = 1; cycle <= 1000; ++cycle) {
        ASSERT_EQ(controller.Ask(R"({"do":"pause"})")["frame"], 4 + cycle);
        state = controller.Ask(R"({"do":"step"})");
        ASSERT_EQ(state["frame"], 5 + cycle);
        ASSERT_EQ(newest_, begin + cycle * period);
    }
    EXPECT_EQ(state["time"], newest_ - 2 * period);
    EXPECT_EQ(state["held"], true);
    EXPECT_EQ(controller.Ask(R"({"do":"step","frames":500})")["frame"], 1505);
}

TEST_F(SimulatorControl, BadInputIsToldAndChangesNothing) {
    Controller controller(path_);
    const json before = controller.Ask(R"({"do":"step"})");
    for (const auto& [line, told] : {std::pair{"nonsense", "no JSON"},
                                     {"[]", "one JSON object"},
                                     {R"({"do":"fly"})", "do must be"},
                                     {R"({"do":"step","frames":0})", "frames must be"},
                                     {R"({"do":"step","frames":"2"})", "frames must be"},
                                     {R"({"do":"rate","rate":-1})", "rate must be"},
                                     {R"({"do":"gather"})", "wanted must be"},
                                     {R"({"do":"event","event":"rain"})", "event must be one of focus_lost"},
                                     {R"({"do":"event","event":"tracking_lost"})", "hand must be"},
                                     {R"({"do":"event","event":"tracking_lost","hand":"left"})", "no left controller"},
                                     {"\xff\xfe", "no JSON"}}) {
        const json answer = controller.Ask(line);
        EXPECT_EQ(answer["ok"], false) << line;
        EXPECT_THAT(answer["error"].get<std::string>(), HasSubstr(told));
    }
    EXPECT_EQ(controller.Ask(R"({"do":"state"})"), before);
    Controller other(path_);
    EXPECT_THAT(other.Ask(std::string(5000, '['))["error"].get<std::string>(), HasSubstr("too long"));
    EXPECT_EQ(controller.Ask(R"({"do":"state"})"), before) << "who goes away and held nothing changes nothing";
}

TEST_F(SimulatorControl, WhatNeedsFramesAtTheSameTimeIsGatheredFirst) {
    const auto change =
        FunctionOf<orvanic_xr::PFN_xrChangeSimulatorFrameDemandKESTX1>("xrChangeSimulatorFrameDemandKESTX1");
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    const auto await_frame_behind = [&](XrTime time) {
        while (newest_ == time && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
        EXPECT_GT(newest_, time);
    };
    Controller controller(path_);
    controller.Ask(R"({"do":"step"})");
    const XrTime held = newest_;
    Controller gatherer(path_);
    EXPECT_EQ(gatherer.Ask(R"({"do":"gather","wanted":true})")["wanted"], 0);
    for (int calls = 1; calls <= 2; ++calls) ASSERT_EQ(change(session_, 1), XR_SUCCESS);
    EXPECT_EQ(gatherer.Ask(R"({"do":"gather","wanted":true})")["wanted"], 2);
    EXPECT_EQ(newest_, held);
    gatherer.Ask(R"({"do":"gather","wanted":false})");
    await_frame_behind(held);
    Controller(path_).Ask(R"({"do":"gather","wanted":true})");  // and goes
    await_frame_behind(newest_);
    for (int calls = 1; calls <= 2; ++calls) ASSERT_EQ(change(session_, -1), XR_SUCCESS);
}

TEST_F(SimulatorControl, TheApplicationRunsOnWhenTheOneWhoHeldItIsGone) {
    {
        Controller controller(path_);
        controller.Ask(R"({"do":"step"})");
        Controller(path_).Ask(R"({"do":"state"})");
        EXPECT_EQ(controller.Ask(R"({"do":"state"})")["paused"], true);
        controller.Send(R"({"do":"step","frames":2)");  // half a request
    }
    const XrTime held = newest_;
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (newest_ < held + 1'000'000'000 && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
    EXPECT_GE(newest_, held + 1'000'000'000);
    Controller controller(path_);
    const int begin = controller.Ask(R"({"do":"pause"})")["frame"];
    controller.Ask(R"({"do":"run"})");  // it holds it no more
    const auto await = [&](bool is_paused) {
        json state;
        while ((state = controller.Ask(R"({"do":"state"})"))["paused"] != is_paused) {
            if (std::chrono::steady_clock::now() > limit) break;
        }
        EXPECT_EQ(state["paused"], is_paused);
    };
    {
        Controller other(path_);
        other.Send("{\"do\":\"step\",\"frames\":1000000}\n");
        await(true);
        EXPECT_LT(Controller(path_).Ask(R"({"do":"pause"})")["frame"], begin + 1'000'000);
    }
    await(false);
    const json paused = controller.Ask(R"({"do":"pause"})");
    EXPECT_EQ(paused["held"], true);
    EXPECT_EQ(controller.Ask(R"({"do":"rate","rate":0.5})")["rate"], 0.5);
    EXPECT_EQ(controller.Ask(R"({"do":"step","frames":3})")["frame"], paused["frame"].get<int>() + 3);
    // The instance goes while the controller waits.
    controller.Send("{\"do\":\"step\",\"frames\":1000000}\n");
}

TEST_F(SimulatorControl, WhatHappensToTheHeadsetIsTold) {
    Controller controller(path_);
    const auto happen = [&](const char* event) {
        const json answer = controller.Ask(R"({"do":"event","event":")" + std::string(event) + "\"}");
        EXPECT_EQ(answer["ok"], true) << answer;
        return StatesTold();
    };
    EXPECT_THAT(happen("focus_lost"), ElementsAre(XR_SESSION_STATE_VISIBLE));
    EXPECT_THAT(happen("headset_off"), ElementsAre(XR_SESSION_STATE_SYNCHRONIZED));
    EXPECT_THAT(happen("focus_gained"), ElementsAre());
    EXPECT_THAT(happen("headset_on"), ElementsAre(XR_SESSION_STATE_VISIBLE, XR_SESSION_STATE_FOCUSED));
    const XrSpace stage = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_STAGE);
    const XrSpace local = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_LOCAL);
    const XrSpace view = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_VIEW);
    controller.Ask(R"({"do":"event","event":"recentre"})");
    const auto told = NextEvent();
    ASSERT_TRUE(told);
    XrEventDataReferenceSpaceChangePending change;
    std::memcpy(&change, &*told, sizeof change);
    ASSERT_EQ(change.type, XR_TYPE_EVENT_DATA_REFERENCE_SPACE_CHANGE_PENDING);
    EXPECT_EQ(change.referenceSpaceType, XR_REFERENCE_SPACE_TYPE_LOCAL);
    EXPECT_EQ(Locate(local, stage, change.changeTime - 1).pose.position.x, 0);
    const XrTime now = controller.Ask(R"({"do":"state"})")["time"];
    EXPECT_NEAR(Locate(local, stage, change.changeTime).pose.position.x, Locate(view, stage, now).pose.position.x,
                1e-6f);
    EXPECT_NE(Locate(local, stage, change.changeTime).pose.position.x, 0);
    EXPECT_THAT(happen("session_loss"), ElementsAre(XR_SESSION_STATE_LOSS_PENDING));
    EXPECT_EQ(RequestExitSession(session_), XR_SUCCESS);
}

TEST_F(SimulatorControl, AControllerIsLostAndFallsAsleep) {
    Controller controller(path_);
    const XrActionSet set = MakeActionSet("set");
    const XrAction grip = MakeAction(set, "grip", XR_ACTION_TYPE_POSE_INPUT);
    ASSERT_EQ(Suggest(kTouchProfile, {{grip, "/user/hand/left/input/grip/pose"}}), XR_SUCCESS);
    ASSERT_EQ(Attach(session_, {set}), XR_SUCCESS);
    const XrPath left = Path("/user/hand/left");
    const XrSpace stage = MakeSpace(session_, XR_REFERENCE_SPACE_TYPE_STAGE);
    const XrSpace space = MakeActionSpace(session_, grip);
    ASSERT_EQ(SetInputDeviceActiveEXT(session_, Path(kTouchProfile), left, XR_TRUE), XR_SUCCESS);
    SetInputDeviceLocationEXT(session_, left, Path("/user/hand/left/input/grip/pose"), stage, kIdentity);
    struct Case {
        const char* event;
        bool is_active;
        bool is_located;
    };
    for (const Case& row : {Case{"tracking_lost", true, false}, Case{"controller_asleep", false, false},
                            Case{"tracking_found", false, false}, Case{"controller_awake", true, true}}) {
        controller.Ask(R"({"do":"event","hand":"left","event":")" + std::string(row.event) + "\"}");
        Sync(session_, {set});
        const auto state = StateOf<XrActionStatePose>(GetActionStatePose, XR_TYPE_ACTION_STATE_POSE, session_, grip);
        EXPECT_EQ(state.isActive == XR_TRUE, row.is_active) << row.event;
        EXPECT_EQ(Locate(space, stage).locationFlags != 0, row.is_located) << row.event;
    }
}

TEST(SimulatorControlSocket, ReplacesWhatWasLeftBehindAndNothingElse) {
    const std::string path = testing::TempDir() + "sim_left_" + std::to_string(getpid());
    struct Case : SimulatorTest {
        void TestBody() override {}
        using SimulatorTest::SetUp;
        using SimulatorTest::TearDown;
    } life;
    setenv("VELMOOR_SIM_CONTROL", path.c_str(), 1);
    {
        const int dead = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address = {AF_UNIX, {}};
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(bind(dead, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        close(dead);
    }
    life.SetUp();
    EXPECT_EQ(Controller(path).Ask(R"({"do":"pause"})")["error"], "no session runs: there are no frames");
    life.TearDown();
    std::ofstream(path) << "a file";
    life.SetUp();
    life.TearDown();
    EXPECT_TRUE(std::filesystem::is_regular_file(path));
    std::filesystem::remove(path);
    unsetenv("VELMOOR_SIM_CONTROL");
}

}  // namespace
}  // namespace simulator_test
