#include "mcp/client/call_ledger.h"

#include <gmock/gmock.h>

namespace mcp {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

// Calls are to be sent within 10 and answered within 20 milliseconds after time 0.
class CallLedger : public testing::Test {
 protected:
    static call_ledger::time_point at(int ms) { return call_ledger::time_point(milliseconds(ms)); }

    void add(std::int64_t id, bool is_greeting = false) {
        call added{id, "body " + std::to_string(id), at(10), milliseconds(20), is_greeting, {}, {}};
        added.done = [this, id](call_result&& result) {
            static constexpr const char* kEnds[] = {"answered",        "not_sent",  "refused",
                                                    "outcome_unknown", "timed_out", "cancelled"};
            ends_.push_back(std::to_string(id) + " " + kEnds[static_cast<int>(result.how)]);
        };
        ledger_.add(std::move(added));
    }
    std::int64_t take(bool is_ready = true) {
        const auto next = ledger_.take_next(is_ready);
        return next ? next->id : 0;
    }
    void answer(std::int64_t id) { ledger_.answer({{"id", id}, {"result", 1}}); }

    call_ledger ledger_;
    std::vector<std::string> ends_;
};

TEST_F(CallLedger, EndsEachCallOnce) {
    add(1);
    EXPECT_EQ(take(), 1);
    ledger_.mark_sent(1, at(0));
    answer(1);
    answer(1);
    ledger_.lose_server("gone");
    EXPECT_FALSE(ledger_.cancel(1, "late"));
    ledger_.expire(at(1000), "");
    EXPECT_THAT(ends_, ElementsAre("1 answered"));
    EXPECT_EQ(ledger_.next_deadline(), std::nullopt);
}

TEST_F(CallLedger, SendsGreetingsFirstAndCallsInTheirOrder) {
    for (const std::int64_t id : {1, 2, 3}) add(id);
    EXPECT_EQ(take(false), 0);
    add(4, true);
    EXPECT_EQ(take(), 4);
    EXPECT_EQ(take(), 1);
    EXPECT_EQ(take(), 2);
    ledger_.give_back(1);  // it had not left
    EXPECT_EQ(take(), 1);
    EXPECT_EQ(take(), 3);
    EXPECT_EQ(take(), 0);
}

TEST_F(CallLedger, ALostServerEndsWhatItHasAndKeepsWhatWaits) {
    for (const std::int64_t id : {1, 2, 3}) add(id);
    add(4, true);
    take();
    take();
    ledger_.mark_sent(1, at(0));
    take();
    ledger_.give_back(2);
    add(5, true);  // for that server, and no other
    ledger_.lose_server("gone");
    EXPECT_THAT(ends_, ElementsAre("1 outcome_unknown", "4 outcome_unknown", "5 outcome_unknown"));
    answer(2);  // of the former life of a server
    EXPECT_EQ(take(), 2);
    EXPECT_EQ(take(), 3);
}

TEST_F(CallLedger, BoundsTheWaits) {
    for (const std::int64_t id : {1, 2, 3}) add(id);
    take();
    ledger_.mark_sent(1, at(5));
    take();
    ledger_.mark_sent(2, at(5));
    ledger_.doubt(2, at(15));
    EXPECT_EQ(ledger_.next_deadline(), at(10));
    ledger_.expire(at(9), "");
    EXPECT_THAT(ends_, ElementsAre());
    ledger_.expire(at(10), "no application");
    ledger_.expire(at(24), "");
    ledger_.expire(at(25), "");
    EXPECT_THAT(ends_, ElementsAre("3 not_sent", "2 timed_out", "1 timed_out"));
}

TEST_F(CallLedger, CancelsWhatTheServerMayHaveByTellingIt) {
    add(1);
    add(2);
    take();
    EXPECT_TRUE(ledger_.cancel(1, "no more"));
    EXPECT_FALSE(ledger_.cancel(2, "no more"));
    answer(1);
    EXPECT_EQ(take(), 0);
    EXPECT_THAT(ends_, ElementsAre("1 cancelled", "2 cancelled"));
}

TEST_F(CallLedger, TellsAtItsEndWhatWasRunPerhaps) {
    add(1);
    add(2);
    take();
    ledger_.end_all("bye");
    EXPECT_THAT(ends_, ElementsAre("1 outcome_unknown", "2 not_sent"));
}

}  // namespace
}  // namespace mcp
