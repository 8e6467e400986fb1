#include <ut/UT_EnvControl.h>
#include <ut/UT_Interrupt.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

TEST(UT_Interrupt, RequestBeforeStartInterruptsTheNextOperationOnly)
{
    UT_Interrupt in;
    in.interrupt();
    EXPECT_FALSE(in.opStart("first"));
    EXPECT_TRUE(in.opInterrupt());
    in.opEnd();
    EXPECT_TRUE(in.opStart("second"));
    EXPECT_FALSE(in.opInterrupt());
    in.opEnd();
}

TEST(UT_Interrupt, NestedOperationsAllSeeTheRequestUntilTheOutermostEnds)
{
    UT_Interrupt in;
    in.opStart("outer");
    in.opStart("inner");
    in.interrupt();
    EXPECT_TRUE(in.opInterrupt());
    in.opEnd();
    EXPECT_TRUE(in.opInterrupt()); // the outer loop must unwind too
    in.opEnd();
    EXPECT_FALSE(in.isInterrupted());
    in.opEnd(); // unbalanced: ignored
    EXPECT_EQ(in.getActiveOperations(), 0);
}

TEST(UT_Interrupt, ProgressCallbackSeesInnermostLabelAndCanStop)
{
    struct Seen { std::string label; int percent = -2; int calls = 0; } seen;
    UT_Interrupt in;
    in.setProgressCallback([](const char *label, int percent, void *data) {
        Seen *s = static_cast<Seen *>(data);
        s->label = label;
        s->percent = percent;
        return ++s->calls == 3;
    }, &seen);
    UT_AutoInterrupt outer("Baking", &in);
    {
        UT_AutoInterrupt inner("Channel array evaluation", &in);
        EXPECT_FALSE(inner.wasInterrupted(10));
        EXPECT_EQ(seen.label, "Channel array evaluation");
        EXPECT_EQ(seen.percent, 10);
    }
    EXPECT_FALSE(outer.wasInterrupted());
    EXPECT_EQ(seen.label, "Baking");
    EXPECT_TRUE(outer.wasInterrupted(50));
    EXPECT_TRUE(in.isInterrupted());
    in.setProgressCallback(nullptr, nullptr);
}

TEST(UT_EnvControl, ReadsNamedVariablesOnceAndRejectsJunk)
{
    struct Case { const char *value; int expect; };
    const Case cases[] = {{"30", 30}, {" 25 ", 25}, {"-3", -3}, {"12abc", 0}, {"", 0},
                          {"99999999999999", 0}, {"0x10", 0}};
    for (const Case &c : cases) {
        setenv("CHANLIB_DEFAULT_FPS", c.value, 1);
        UT_EnvControl::reload();
        EXPECT_EQ(UT_EnvControl::getInt(UT_EnvControl::DEFAULT_FPS), c.expect) << '"' << c.value << '"';
    }
    setenv("CHANLIB_DEFAULT_FPS", "48", 1);
    UT_EnvControl::reload();
    EXPECT_EQ(UT_EnvControl::getInt(92), 48);
    setenv("CHANLIB_DEFAULT_FPS", "60", 1);
    EXPECT_EQ(UT_EnvControl::getInt(92), 48); // kept until reload
    UT_EnvControl::setInt(92, 12);
    EXPECT_EQ(UT_EnvControl::getInt(92), 12);
    unsetenv("CHANLIB_DEFAULT_FPS");
    UT_EnvControl::reload();
    EXPECT_EQ(UT_EnvControl::getInt(92), 0);
    EXPECT_EQ(UT_EnvControl::getInt(7), 0);
    EXPECT_STREQ(UT_EnvControl::getName(113), "CHANLIB_REVERSE_CHANNEL_SEARCH");
}

} // namespace
