#include <ut/UT_ScopeExit.h>

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

// Sets a value for the length of a call and restores it on the way out.
int setDuring(int &slot, int value, bool fail)
{
    const int saved = slot;
    slot = value;
    UT_ScopeExit restore([&slot, saved] { slot = saved; });
    if (fail)
        throw std::runtime_error("fail");
    return slot;
}

auto scopedSet(int &slot, int value)
{
    const int saved = slot;
    slot = value;
    return UT_ScopeExit([&slot, saved] { slot = saved; });
}

TEST(UT_ScopeExit, RestoresOnReturnAndOnException)
{
    int slot = 1;
    EXPECT_EQ(setDuring(slot, 2, false), 2);
    EXPECT_EQ(slot, 1);
    EXPECT_THROW(setDuring(slot, 3, true), std::runtime_error);
    EXPECT_EQ(slot, 1);
}

TEST(UT_ScopeExit, ReturnedGuardsRunOnceInReverseOrder)
{
    int slot = 1;
    {
        auto outer = scopedSet(slot, 2);
        {
            auto inner = scopedSet(slot, 3);
            EXPECT_EQ(slot, 3);
        }
        EXPECT_EQ(slot, 2);
    }
    EXPECT_EQ(slot, 1);
}

} // namespace
