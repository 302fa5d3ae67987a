#include "mcp/session_table.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace mcp {
namespace {

struct Sessions {
    Sessions() { table->set_running(true); }  // else they end at once

    // Opens a session with the first of `ids` that is new.
    stream_source Open(std::vector<std::string> ids) {
        drawn = std::move(ids);
        return table->open_session([] {});
    }
    std::string Draw() {
        std::string id = drawn.front();
        drawn.erase(drawn.begin());
        return id;
    }

    std::vector<std::string> drawn;
    std::shared_ptr<session_table> table = std::make_shared<session_table>(server_config{}, [this] { return Draw(); });
};

TEST(SessionTable, IdThatWasDrawnBeforeIsDrawnAgain) {
    Sessions sessions;
    const stream_source first = sessions.Open({"a"});
    stream_source second = sessions.Open({"a", "a", "b"});
    EXPECT_NE(sessions.table->find("a"), sessions.table->find("b"));
    second = {};
    const stream_source third = sessions.Open({"b", "c"});  // what is kept of the first "b" would end its successor's
    EXPECT_TRUE(sessions.table->find("c"));
}

TEST(SessionTable, OnlyTheLastSessionsThatEndedAreRemembered) {
    Sessions sessions;
    for (int i = 0; i < 1001; ++i) {
        const std::string id = std::to_string(i);
        const stream_source stream = sessions.Open({id});
        sessions.table->mark_session_initialized(id, true);
    }
    EXPECT_FALSE(sessions.table->is_session_ready("0"));
    EXPECT_TRUE(sessions.table->is_session_ready("1"));
    EXPECT_TRUE(sessions.table->is_session_ready("1000"));
}

}  // namespace
}  // namespace mcp
