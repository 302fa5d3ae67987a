#include "mcp/event_dispatcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace mcp {
namespace {

using namespace std::chrono_literals;
using post_result = event_dispatcher::post_result;

class recording_sink final : public frame_sink {
 public:
    bool write(std::string_view bytes) override {
        if (throws) throw std::runtime_error("broken");
        if (fails) return false;
        const std::lock_guard lock(mutex_);
        written_ += bytes;
        writers_.push_back(std::this_thread::get_id());
        return true;
    }
    bool has_room() override { return room; }

    std::string written() const {
        const std::lock_guard lock(mutex_);
        return written_;
    }
    std::vector<std::thread::id> writers() const {
        const std::lock_guard lock(mutex_);
        return writers_;
    }

    std::atomic<bool> fails = false;
    std::atomic<bool> throws = false;
    std::atomic<bool> room = true;

 private:
    mutable std::mutex mutex_;
    std::string written_;
    std::vector<std::thread::id> writers_;
};

class EventDispatcher : public testing::Test {
 protected:
    // Has a worker wait, and gives it the time to get there.
    static std::future<bool> WaitElsewhere(event_dispatcher& dispatcher, recording_sink& sink) {
        const auto starts = std::make_shared<std::promise<void>>();
        auto waiting = std::async(std::launch::async, [&dispatcher, &sink, starts] {
            starts->set_value();
            return dispatcher.await_frame(&sink, 30s);
        });
        starts->get_future().wait();
        std::this_thread::sleep_for(50ms);
        return waiting;
    }

    event_dispatcher dispatcher_{100};
    recording_sink sink_;
};

TEST_F(EventDispatcher, ReaderIsWokenThoughTheNextFrameComesBeforeItLooks) {
    auto waiting = WaitElsewhere(dispatcher_, sink_);
    dispatcher_.post_frame("one");
    dispatcher_.post_frame("two");
    EXPECT_EQ(waiting.wait_for(10s), std::future_status::ready);
    dispatcher_.close();
}

TEST_F(EventDispatcher, FramePostedBeforeTheWaitIsReplacedByTheNext) {
    dispatcher_.post_frame("old");
    EXPECT_FALSE(dispatcher_.await_frame(&sink_, 1ms));
    EXPECT_EQ(sink_.written(), "");
    auto waiting = WaitElsewhere(dispatcher_, sink_);
    dispatcher_.post_frame("new");
    EXPECT_TRUE(waiting.get());
    EXPECT_EQ(sink_.written(), "new");
}

TEST_F(EventDispatcher, AnswersPostedBeforeTheWaitAreAllWrittenInOneGo) {
    dispatcher_.post_frame("lost");
    EXPECT_EQ(dispatcher_.post_answer("one "), post_result::stored);
    EXPECT_EQ(dispatcher_.post_answer("two "), post_result::stored);
    EXPECT_EQ(dispatcher_.post_answer("three"), post_result::stored);
    EXPECT_TRUE(dispatcher_.await_frame(&sink_, 0ms));
    EXPECT_EQ(sink_.written(), "one two three");
    EXPECT_EQ(sink_.writers().size(), 1u);
    EXPECT_FALSE(dispatcher_.await_frame(&sink_, 1ms));
}

TEST_F(EventDispatcher, WhoPostsAnAnswerWritesItOnlyWhereThereIsRoom) {
    auto waiting = WaitElsewhere(dispatcher_, sink_);
    dispatcher_.post_answer("one ");
    EXPECT_EQ(sink_.writers(), std::vector{std::this_thread::get_id()});
    sink_.room = false;
    dispatcher_.post_answer("two");
    EXPECT_TRUE(waiting.get());
    EXPECT_EQ(sink_.written(), "one two");
    EXPECT_NE(sink_.writers().back(), std::this_thread::get_id());
}

TEST_F(EventDispatcher, RefusesToPost) {
    EXPECT_FALSE(dispatcher_.post_frame(""));
    dispatcher_.close();
    EXPECT_FALSE(dispatcher_.post_frame("beat"));
    EXPECT_EQ(dispatcher_.post_answer("answer"), post_result::closed);
    EXPECT_FALSE(dispatcher_.await_frame(&sink_, 10s));
    EXPECT_FALSE(event_dispatcher(100).await_frame(nullptr, 10s));
}

TEST_F(EventDispatcher, UntakenAnswersAreBounded) {
    EXPECT_EQ(dispatcher_.post_answer(std::string(500, 'x')), post_result::stored);  // alone, it may be larger
    EXPECT_EQ(dispatcher_.post_answer("y"), post_result::too_much);
    EXPECT_TRUE(dispatcher_.await_frame(&sink_, 0ms));
    EXPECT_EQ(dispatcher_.post_answer(std::string(60, 'x')), post_result::stored);
    EXPECT_EQ(dispatcher_.post_answer(std::string(40, 'x')), post_result::stored);
    EXPECT_EQ(dispatcher_.post_answer("y"), post_result::too_much);
}

TEST_F(EventDispatcher, UntakenAnswersOfAllAreBounded) {
    const auto total = std::make_shared<untaken_total>(150);
    auto gone = std::make_unique<event_dispatcher>(100, total);
    event_dispatcher closed(100, total), lagging(100, total), other(100, total);
    EXPECT_EQ(gone->post_answer(std::string(30, 'x')), post_result::stored);
    EXPECT_EQ(closed.post_answer(std::string(60, 'x')), post_result::stored);
    EXPECT_EQ(lagging.post_answer(std::string(50, 'x')), post_result::stored);
    EXPECT_EQ(lagging.post_answer(std::string(20, 'x')), post_result::too_much_of_all);
    EXPECT_EQ(other.post_answer(std::string(60, 'x')), post_result::stored);  // of a client that does not lag
    EXPECT_TRUE(other.await_frame(&sink_, 0ms));
    closed.close();
    gone.reset();
    EXPECT_EQ(total->bytes, 50u);
}

// Of who posts, where it was lent the sink, or else of who waits.
TEST_F(EventDispatcher, FailedWriteCloses) {
    for (const auto& [lent, throws] : {std::pair(false, false), {false, true}, {true, false}, {true, true}}) {
        SCOPED_TRACE(lent ? "lent" : "not lent");
        SCOPED_TRACE(throws ? "throws" : "fails");
        event_dispatcher dispatcher(100);
        recording_sink sink;
        sink.throws = throws;
        sink.fails = true;
        sink.room = lent;
        auto waiting = WaitElsewhere(dispatcher, sink);
        const auto is_thrown_from = [](const auto& work) {
            try {
                work();
                return false;
            } catch (const std::runtime_error&) {
                return true;
            }
        };
        EXPECT_EQ(is_thrown_from([&] { dispatcher.post_answer("answer"); }), lent && throws);
        EXPECT_EQ(is_thrown_from([&] { EXPECT_FALSE(waiting.get()); }), !lent && throws);
        EXPECT_TRUE(dispatcher.is_closed());
    }
}

TEST_F(EventDispatcher, CloseAndReleaseEndAWait) {
    auto released = WaitElsewhere(dispatcher_, sink_);
    dispatcher_.release_reader();
    EXPECT_FALSE(released.get());
    EXPECT_EQ(dispatcher_.post_answer("late"), post_result::stored);
    EXPECT_TRUE(dispatcher_.await_frame(&sink_, 10s));
    EXPECT_EQ(sink_.written(), "late");
    EXPECT_FALSE(dispatcher_.await_frame(&sink_, 10s));

    event_dispatcher other(100);
    auto waiting = std::async(std::launch::async, [&] { return other.await_frame(&sink_, 10s); });
    other.close();
    EXPECT_FALSE(waiting.get());
}

TEST_F(EventDispatcher, PauseEndsWithTheSession) {
    std::atomic<bool> keep_on = true;
    auto paused = std::async(std::launch::async, [&] { dispatcher_.pause(1h, keep_on); });
    keep_on = false;
    dispatcher_.wake();
    EXPECT_EQ(paused.wait_for(30s), std::future_status::ready);
    keep_on = true;
    paused = std::async(std::launch::async, [&] { dispatcher_.pause(1h, keep_on); });
    dispatcher_.close();
    EXPECT_EQ(paused.wait_for(30s), std::future_status::ready);
}

// Many post while one waits again and again, with a sink that has room only now and then.
TEST_F(EventDispatcher, LosesAndReordersNothingUnderLoad) {
    constexpr int kPosters = 4;
    constexpr int kAnswers = 20000;
    event_dispatcher dispatcher(1 << 20);
    recording_sink sink;
    std::atomic<bool> done = false;
    auto reader = std::async(std::launch::async, [&] {
        while (dispatcher.await_frame(&sink, 1ms) || !done) sink.room = !sink.room;
    });
    std::vector<std::thread> posters;
    for (int poster = 0; poster < kPosters; ++poster) {
        posters.emplace_back([&, poster] {
            for (int i = 0; i < kAnswers; ++i) {
                dispatcher.post_answer(std::to_string(poster) + ":" + std::to_string(i) + "\n");
                if (i % 100 == 0) dispatcher.post_frame("beat\n");
            }
        });
    }
    for (std::thread& poster : posters) poster.join();
    done = true;
    reader.get();

    std::vector<int> next(kPosters, 0);
    std::string line;
    for (const char c : sink.written()) {
        if (c != '\n') {
            line += c;
            continue;
        }
        if (line != "beat") {
            const std::size_t poster = static_cast<std::size_t>(line[0] - '0');
            ASSERT_EQ(line.substr(2), std::to_string(next[poster]++));
        }
        line.clear();
    }
    EXPECT_EQ(next, std::vector(kPosters, kAnswers));
}

}  // namespace
}  // namespace mcp
