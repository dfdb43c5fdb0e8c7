#include "history/history.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

using pulsebar::History;

TEST(History, KeepsTheNewestUpToCapacityAndZeroesNonFinite)
{
    History h;
    EXPECT_EQ(h.capacity(), 120);
    for (int i = 0; i < 121; ++i)
        h.add(i);
    ASSERT_EQ(h.size(), 120);
    EXPECT_EQ(h.values().front(), 1);
    EXPECT_EQ(h.values().back(), 120);

    History small(3);
    small.add(std::nan(""));
    small.add(std::numeric_limits<double>::infinity());
    small.add(-std::numeric_limits<double>::infinity());
    small.add(5);
    EXPECT_EQ(std::vector<double>(small.values().begin(), small.values().end()), (std::vector<double>{0, 0, 5}));
    EXPECT_EQ(small.lastValues(2), (std::vector<double>{0, 5}));
    EXPECT_EQ(small.lastValues(20).size(), 3u);
    EXPECT_TRUE(History(0).lastValues(5).empty());
}
