// The clock alone, in a time that the tests make up; and what of the runtime goes by one that stands.
#include "simulator/clock.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <vector>

#define XR_USE_TIMESPEC
#include <openxr/openxr_platform.h>

#include "tests/simulator/simulator_fixture.h"
#include "xr/spatial_entity_ks.h"

namespace simulator_test {
namespace {

using simulator::Clock;
using simulator::ClockMode;

constexpr XrDuration kPeriod = 10;
constexpr XrTime kBeginning = Clock::kBeginning;

TEST(SimulatorClock, RealOneShowsTheMachinesTime) {
    Clock clock;
    EXPECT_EQ(clock.At(1234), 1234);
    EXPECT_EQ(clock.RealTimeOf(1234), 1234);
    EXPECT_FALSE(clock.Reach(1235, 1234));
    EXPECT_TRUE(clock.Reach(1234, 1234));
    EXPECT_EQ(clock.TimeOf(INT64_MAX, 5), INT64_MAX);
}

TEST(SimulatorClock, FixedOneIsMovedByFramesAlone) {
    Clock clock(ClockMode::kFixed);
    EXPECT_EQ(clock.At(777), kBeginning);
    EXPECT_TRUE(clock.Reach(kBeginning + kPeriod, 1000));
    EXPECT_EQ(clock.At(99999), kBeginning + kPeriod);
    clock.SkipTo(kBeginning, 2000);
    EXPECT_EQ(clock.At(99999), kBeginning + kPeriod) << "it never goes back";
    // Between two frames no time has passed; a display time comes back as it went.
    EXPECT_EQ(clock.TimeOf(1500, 1500), kBeginning + kPeriod);
    EXPECT_EQ(clock.TimeOf(990, 1500), kBeginning);
    EXPECT_EQ(clock.MomentOf(kBeginning + 100 * kPeriod), 1000 + 99 * kPeriod);
    EXPECT_EQ(clock.TimeOf(1000 + 99 * kPeriod, 1500), kBeginning + 100 * kPeriod);
    EXPECT_EQ(clock.TimeOf(INT64_MAX, 1500), INT64_MAX);
}

class SimulatorFixedClock : public SimulatorTest {
 protected:
    void SetUp() override {
        setenv("VELMOOR_SIM_CLOCK", "fixed", 1);
        SimulatorTest::SetUp();
    }
    void TearDown() override {
        SimulatorTest::TearDown();
        unsetenv("VELMOOR_SIM_CLOCK");
    }
    std::vector<const char*> Extensions() const override {
        return {"XR_MND_headless", "XR_KHR_convert_timespec_time", "XR_KS_spatial_entity",
                "XR_KS_spatial_entity_query"};
    }
};

TEST_F(SimulatorFixedClock, AFrameIsAPeriodHoweverLongItTakes) {
    const XrSession session = MakeFocusedSession();
    const XrFrameState first = RunFrame(session);
    EXPECT_EQ(first.predictedDisplayTime, kBeginning + 3 * first.predictedDisplayPeriod);
    timespec pause = {0, 20'000'000};
    nanosleep(&pause, nullptr);
    // In real time, 20 s.
    for (int frame = 1; frame <= 10'000; ++frame) {
        ASSERT_EQ(RunFrame(session).predictedDisplayTime,
                  first.predictedDisplayTime + frame * first.predictedDisplayPeriod);
    }
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    XrTime time = 0;
    const auto convert = FunctionOf<PFN_xrConvertTimespecTimeToTimeKHR>("xrConvertTimespecTimeToTimeKHR");
    EXPECT_EQ(convert(instance_, &now, &time), XR_SUCCESS);
    EXPECT_EQ(time, kBeginning + 10'001 * first.predictedDisplayPeriod);
}

TEST_F(SimulatorFixedClock, GoesOnToTheNextEventWhereThereAreNoFrames) {
    const XrSession session = MakeSession();
    StatesTold();
    const auto query = FunctionOf<PFN_xrQuerySpacesKS>("xrQuerySpacesKS");
    const XrSpaceQueryInfoKS info = {
        XR_TYPE_SPACE_QUERY_INFO_KS, nullptr, XR_SPACE_QUERY_ACTION_LOAD_KS, 100, 0, nullptr, nullptr};
    XrAsyncRequestIdKS request = 0;
    const auto ask = [&] {
        return query(session, reinterpret_cast<const XrSpaceQueryInfoBaseHeaderKS*>(&info), &request);
    };
    ASSERT_EQ(ask(), XR_SUCCESS);
    EXPECT_TRUE(NextEvent());
    EXPECT_TRUE(NextEvent());
    Begin(session);
    StatesTold();
    ASSERT_EQ(ask(), XR_SUCCESS);
    EXPECT_FALSE(NextEvent()) << "the session runs, and its frame is not there yet";
    RunFrame(session);
    EXPECT_TRUE(NextEvent());
}

}  // namespace
}  // namespace simulator_test
