// The soak's book-keeping must see what it is there to see.
#include "tests/soak/tally.h"

#include <gtest/gtest.h>

namespace soak {
namespace {

std::string AnswerTo(const mcp::json& id) {
    return mcp::dump_json({{"jsonrpc", "2.0"}, {"id", id}, {"result", mcp::json::object()}});
}

TEST(Ledger, TellsAnsweredLostAndRefusedApart) {
    Ledger ledger(7);
    const mcp::json first = ledger.Post("a");
    const mcp::json second = ledger.Post("b");
    ledger.Post("c");
    ledger.Post("d");
    ledger.Refuse();
    EXPECT_EQ(first, 7'000'000'000);
    EXPECT_EQ(second, "7000000001");
    ledger.Receive(AnswerTo(second));
    ledger.Receive(R"({"jsonrpc":"2.0","id":7000000000,"error":{"code":-32602,"message":"no"}})");
    EXPECT_EQ(ledger.in_flight(), 1);
    const Tally tally = ledger.Close();
    EXPECT_EQ(tally.answered, 2);
    EXPECT_EQ(tally.lost, 1);
    EXPECT_EQ(tally.refused, 1);
    EXPECT_EQ(tally.duplicates, 0);
    EXPECT_EQ(tally.strays, 0);
    EXPECT_EQ(tally.latencies_ms.at("a").size(), 1u);
    EXPECT_FALSE(tally.is_clean());
}

TEST(Ledger, SeesWhatComesTwiceAndWhatNobodyAskedFor) {
    Ledger ledger(1);
    const mcp::json id = ledger.Post("a");
    ledger.Receive(AnswerTo(id));
    ledger.Receive(AnswerTo(id));
    for (const char* const stray : {
             R"({"jsonrpc":"2.0","id":"1000000000","result":{}})",  // posted as a number
             R"({"jsonrpc":"2.0","id":2000000000,"result":{}})",    // of another client
             R"({"jsonrpc":"2.0","id":1000000001,"result":{}})",    // not yet posted
             R"({"jsonrpc":"2.0","id":1000000000})",                // no answer
             R"({"jsonrpc":"2.0","id":100000)",                     // cut
         }) {
        ledger.Receive(stray);
    }
    const Tally tally = ledger.Close();
    EXPECT_EQ(tally.answered, 1);
    EXPECT_EQ(tally.duplicates, 1);
    EXPECT_EQ(tally.strays, 5);
    EXPECT_EQ(tally.lost, 0);
}

}  // namespace
}  // namespace soak
