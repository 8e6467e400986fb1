// An error pending on a thread is kept whole (number, custom text,
// position) while other evaluations run, and running out of memory while
// keeping or reporting an error never lets an exception out of the engine.
#include "evTestUtil.h"

#include <ut/UT_Thread.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>

namespace {

void customFail(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int thread)
{
    ev_SetCustomErrorMessage("raised inside", thread);
    result->setFloat(0);
}
EV_FUNCTION theCustomFail(0, "asidecustomfail", 0, EV_TYPEFLOAT, nullptr, customFail);

class EvErrorAside : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        ev_InitFloat();
        ev_InitString();
        ev_AddFunction(&theCustomFail);
    }
    void SetUp() override { ev_SetErrNo(0, 0); }
    void TearDown() override
    {
        evTestFailFrom = 0;
        ev_SetErrNo(0, 0);
    }
};

TEST_F(EvErrorAside, APendingCustomErrorKeepsItsTextThroughAnEvaluation)
{
    evTestExpr fails = evTestCompile("asidecustomfail() + 1");
    float f;
    ev_SetCustomErrorMessage("pending outside", 0);
    EXPECT_FALSE(ev_EvaluateFloat(fails.get(), &f, 0));
    // The first error is the one reported, with its own text.
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRCUSTOM);
    EXPECT_STREQ(ev_GetErrorText(EV_ERRCUSTOM), "pending outside");
}

TEST_F(EvErrorAside, SetAsideAndTakenBackWhole)
{
    evTestExpr bad = evTestCompile("1 + + )");
    evTestExpr fails = evTestCompile("asidecustomfail()");
    float f;
    struct
    {
        const char *name;
        void (*leave)(EV_EXPRESSION *bad);
        int error, offset;
        const char *token, *custom;
    } cases[] = {
        {"compile error", [](EV_EXPRESSION *e) { float g; ev_EvaluateFloat(e, &g, 0); }, EV_ERRSYNTAX, 6, ")", ""},
        {"custom error", [](EV_EXPRESSION *) { ev_SetCustomErrorMessage("mine", 0); }, EV_ERRCUSTOM, -1, "", "mine"},
        {"plain number", [](EV_EXPRESSION *) { ev_SetErrNo(EV_ERRDIVZERO, 0); }, EV_ERRDIVZERO, -1, "", ""},
    };
    for (const auto &c : cases)
    {
        SCOPED_TRACE(c.name);
        ev_SetErrNo(0, 0);
        c.leave(bad.get());
        EV_ErrorAside aside = ev_SetErrorAside(0);
        EXPECT_EQ(aside.errNo(), c.error);
        EXPECT_EQ(ev_GetErrNo(0), 0);
        EXPECT_EQ(ev_GetErrorOffset(0), -1);
        // Whatever happens meanwhile ...
        EXPECT_FALSE(ev_EvaluateFloat(fails.get(), &f, 0));
        EXPECT_EQ(ev_GetErrNo(0), EV_ERRCUSTOM);
        // ... the error comes back as it was.
        ev_TakeErrorBack(std::move(aside), 0);
        EXPECT_EQ(ev_GetErrNo(0), c.error);
        EXPECT_EQ(ev_GetErrorOffset(0), c.offset);
        EXPECT_STREQ(ev_GetErrorToken(0), c.token);
        if (c.error == EV_ERRCUSTOM) {
            EXPECT_STREQ(ev_GetErrorText(EV_ERRCUSTOM), c.custom);
        }
    }
}

// A thread number no other test uses: its engine state is fresh, so keeping
// a pending error aside has to allocate.
constexpr int theFreshThread = 4000;

TEST_F(EvErrorAside, NoMemoryToKeepAPendingErrorDropsOnlyItsText)
{
    evTestExpr good = evTestCompile("1 + 1");
    ev_SetErrNo(0, theFreshThread); // the thread's state exists from here
    ev_SetCustomErrorMessage("a pending text longer than any short string", theFreshThread);
    float f = 0;
    evTestFailFrom = 1;
    EXPECT_NO_THROW(EXPECT_TRUE(ev_EvaluateFloat(good.get(), &f, theFreshThread)));
    EXPECT_EQ(evTestFailFrom.load(), 0u) << "nothing was allocated";
    EXPECT_EQ(f, 2.0f);
    EXPECT_EQ(ev_GetErrNo(theFreshThread), EV_ERRCUSTOM); // the number stays
    ev_SetErrNo(0, theFreshThread);
}

TEST_F(EvErrorAside, NoMemoryForTheTokenReportsTheCompileErrorWithoutPosition)
{
    const std::string name(64, 'u');
    evTestExpr bad = evTestCompile(("1 + " + name).c_str());
    ASSERT_EQ(bad->getCompileErrorOffset(), 4);
    float f;
    evTestFailFrom = name.size();
    EXPECT_NO_THROW(EXPECT_FALSE(ev_EvaluateFloat(bad.get(), &f, 0)));
    EXPECT_EQ(evTestFailFrom.load(), 0u) << "nothing was allocated";
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRUNDEFINED);
    EXPECT_EQ(ev_GetErrorOffset(0), -1);
    EXPECT_STREQ(ev_GetErrorToken(0), "");
}

// A thread that ends with an error pending does not hand it to the next
// thread given its number.
TEST_F(EvErrorAside, AnEndingThreadLeavesNoErrorToItsNumbersNextOwner)
{
    int first = 0, second = 0, seen = -1;
    std::thread([&] {
        first = UT_Thread::getMySequentialThreadIndex();
        ev_SetCustomErrorMessage("left behind", first);
    }).join();
    std::thread([&] {
        second = UT_Thread::getMySequentialThreadIndex();
        seen = ev_GetErrNo(second);
    }).join();
    ASSERT_EQ(first, second); // numbers are reused, smallest first
    EXPECT_EQ(seen, 0);
}

} // namespace
