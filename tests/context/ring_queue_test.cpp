#include "context/ring_queue.h"

#include <gmock/gmock.h>

#include <vector>

namespace orvanic_xr {
namespace {

using testing::ElementsAre;

std::vector<int> Contents(const RingQueue<int>& queue) {
    std::vector<int> contents;
    for (std::size_t i = 0; i < queue.size(); ++i) contents.push_back(queue[i]);
    return contents;
}

TEST(RingQueue, KeepsItsOrderWhenItGrowsInTheMiddleOfItsMemory) {
    RingQueue<int> queue;
    for (int i = 0; i < 8; ++i) queue.push_back(i);
    for (int i = 0; i < 5; ++i) queue.pop_front();
    for (int i = 8; i < 17; ++i) queue.push_back(i);
    EXPECT_THAT(Contents(queue), ElementsAre(5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16));
    EXPECT_EQ(queue.front(), 5);
    EXPECT_EQ(queue.back(), 16);
}

TEST(RingQueue, SlotIsUsedAgainWithItsMemory) {
    RingQueue<std::vector<int>> queue;
    queue.push_back(std::vector<int>(100));
    const int* const memory = queue.front().data();
    queue.pop_front();
    for (int i = 0; i < 7; ++i) queue.push_back({});
    queue.push_back({1, 2, 3});
    EXPECT_EQ(queue.back().data(), memory);
    EXPECT_THAT(queue.back(), ElementsAre(1, 2, 3));
}

}  // namespace
}  // namespace orvanic_xr
