#include <ut/UT_Thread.h>
#include <ut/UT_ThreadSlots.h>

#include <gtest/gtest.h>

#include <climits>

namespace {

int countSlots(UT_ThreadSlots<int> &slots)
{
    int n = 0;
    slots.forEach([&n](int, int &) { ++n; });
    return n;
}

TEST(UT_ThreadSlots, StoreEndsAtTheLargestThreadNumber)
{
    const int max = UT_Thread::theMaxThreadNumber;
    UT_ThreadSlots<int> slots;
    slots.get(max) = 7;
    EXPECT_EQ(slots.get(max), 7);
    // The inline slots and the last block, which holds half of all numbers.
    const int held = UT_ThreadSlots<int>::theInlineSlots + max / 2;
    EXPECT_EQ(countSlots(slots), held);

    // Beyond it nothing grows (an OS thread id of 4 million once asked for
    // millions of slots, INT_MAX for gigabytes); the slot works, but is
    // not kept apart.
    for (int thread : {max + 1, 4000000, INT_MAX})
    {
        slots.get(thread) = thread;
        EXPECT_EQ(slots.at(thread), thread);
    }
    EXPECT_EQ(countSlots(slots), held);
    EXPECT_EQ(slots.get(max), 7);
}

} // namespace
