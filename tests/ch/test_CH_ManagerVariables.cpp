#include <ch/expr/CH_ExprDefine.h>
#include <ch/expr/CH_Expression.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <ev/EV_Engine.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <ev/EV_ExprFlags.h>

namespace {

class CHManagerVariables : public ::testing::Test
{
protected:
    void SetUp() override
    {
        myManager.setContext();
        ev_SetErrNo(0, 0);
    }
    float eval(const char *text, float t, int *timeDependent = nullptr, CH_Collection *c = nullptr)
    {
        return myManager.evaluate(text, t, c, timeDependent, 0);
    }
    std::string expand(const char *text, float t, int *result = nullptr)
    {
        UT_String out;
        int r = myManager.expandString(text, out, t, nullptr, 0);
        if (result)
            *result = r;
        return out.toStdString();
    }
    CH_Manager myManager;
};

TEST_F(CHManagerVariables, GlobalVariablesThroughOneShotEvaluation)
{
    struct Case { const char *text; float t; float expect; int timeDependent; };
    const Case cases[] = {
        {"$F", 0.0f, 1.0f, 1},            // round3(0 * 24 + 1) = 1
        {"$FF", 0.0f, 1.0f, 1},
        {"$T", 0.0f, 0.0f, 1},
        {"$F", 0.02f, 1.0f, 1},           // sample 1.48: floor(1.48 + 0.5) = 1
        {"$FF", 0.02f, 1.48f, 1},
        {"$F * 2", 11.0f / 24, 24.0f, 1}, // frame 12
        {"$NFRAMES", 3.0f, 240.0f, 0},
        {"$TLENGTH", 0.0f, 239.0f / 24, 0},
        {"$TSTART + $TEND", 0.0f, 239.0f / 24, 0},
        {"$FPS", 0.0f, 24.0f, 0},
        {"$FSTART + $FEND", 0.0f, 241.0f, 0},
        {"$RFSTART * 1000 + $RFEND", 0.0f, 1240.0f, 0},
        {"$UNITLENGTH + $UNITMASS", 0.0f, 2.0f, 0},
        {"1 + 1", 5.0f, 2.0f, 0},
    };
    for (const Case &c : cases) {
        int td = -1;
        EXPECT_FLOAT_EQ(eval(c.text, c.t, &td), c.expect) << c.text << " at " << c.t;
        EXPECT_EQ(td, c.timeDependent) << c.text;
    }
    // The integer-frame flag rounds the frame-valued settings.
    myManager.setGlobalTime(0.01f, 5.0f);
    EXPECT_FLOAT_EQ(eval("$FSTART", 0), 1.0f); // 0.01 * 24 + 1 = 1.24 -> 1
    myManager.setIntegerFrameFlag(false);
    EXPECT_FLOAT_EQ(eval("$FSTART", 0), 1.24f);
}

TEST_F(CHManagerVariables, VariableTablesAndTheirTextForms)
{
    EXPECT_EQ(myManager.getVariableValue(99, 0), 0.0f);
    EXPECT_EQ(myManager.getIntegerVariableValue(2, 0), 0);
    UT_String value;
    int td = 0;
    EXPECT_FALSE(myManager.getVariableString("NOPE", value, td, 0));
    myManager.setEvaluateTime(0.5f, 0);
    EXPECT_TRUE(myManager.getVariableString("F", value, td, 0));
    EXPECT_STREQ(value, "13"); // 0.5 * 24 + 1
    EXPECT_EQ(td, 1);
    td = 0;
    EXPECT_TRUE(myManager.getVariableString("TLENGTH", value, td, 0));
    EXPECT_STREQ(value, "9.95833");
    EXPECT_EQ(td, 0);
    myManager.getVariableValue(1, value, 0);
    EXPECT_STREQ(value, "13");

    int count = 0;
    for (const CH_LocalVariable *v = CH_Manager::getLocalVariableTable(); v->name; ++v)
        ++count;
    EXPECT_EQ(count, 14);
}

TEST_F(CHManagerVariables, ExpandStringVariablesAndExpressions)
{
    unsetenv("F300");
    unsetenv("CH_TEST_NOPE");
    const float t = 11.0f / 24; // frame 12
    struct Case { const char *text; const char *expect; int timeDependent; };
    const Case cases[] = {
        {"frame$F.pic", "frame12.pic", EV_FLAG_TIMEDEP},
        {"frame${F}x", "frame12x", EV_FLAG_TIMEDEP},
        {"$F3", "012", EV_FLAG_TIMEDEP},
        {"$F300", "$F300", 0},          // too wide to be a frame variable
        {"$CH_TEST_NOPE/x", "$CH_TEST_NOPE/x", 0},
        {"\\$F costs", "$F costs", 0},
        {"`$F * 2`.pic", "24.pic", EV_FLAG_TIMEDEP},
        {"`1 + 1`", "2", 0},
        {"`strcat(\"a\", \"\\`1+1\\`\")`", "a2", 0},
        {"`strcat(\"f\", \"\\`$F\\`\")`", "f12", EV_FLAG_TIMEDEP},
        {"$FPS fps", "24 fps", 0},
        {"plain", "plain", 0},
    };
    for (const Case &c : cases) {
        int r = -1;
        EXPECT_EQ(expand(c.text, t, &r), c.expect) << c.text;
        EXPECT_EQ(r, c.timeDependent) << c.text;
    }
    setenv("F300", "env", 1);
    EXPECT_EQ(expand("$F300", t), "env");
    unsetenv("F300");

    UT_String out;
    myManager.expandString("$F`1`", out, t, nullptr, 0, 2); // variables only
    EXPECT_STREQ(out, "12`1`");
    myManager.expandString("$F`1`", out, t, nullptr, 0, 1); // expressions only
    EXPECT_STREQ(out, "$F1");
}

// Expands a text that calls this function again: every level nests one
// back-quoted expansion deeper.
int theSelfCalls = 0;
void selfExpand(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int thread)
{
    ++theSelfCalls;
    UT_String out;
    CH_Manager::getContext()->expandString("`selfexpand()`", out, 0.0f, nullptr, thread);
    result->setString(out);
}
EV_FUNCTION theSelfExpand(0, "selfexpand", 0, EV_TYPESTRING, nullptr, selfExpand);

TEST_F(CHManagerVariables, NestedExpansionStopsAtDepthTwenty)
{
    ev_AddFunction(&theSelfExpand);
    theSelfCalls = 0;
    std::string out = expand("<`selfexpand()`>", 0.0f);
    EXPECT_EQ(theSelfCalls, 19); // the 20th nested expansion is refused
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRRECURSION);
    EXPECT_EQ(out, "<>");        // inner failures give empty strings
    EXPECT_EQ(myManager.exprDepth(0), 0);
    ev_SetErrNo(0, 0);
}

TEST_F(CHManagerVariables, ErrorsOfBackQuotedExpressionsInStringsAreReported)
{
    // A double-quoted string fails its expression with the error its
    // expansion raised, as expanding the same text reports it.
    const struct { const char *text, *expansion; int error; } cases[] = {
        {"\"[`nosuch()`]\" + \"[`2+2`]\"", "[`nosuch()`][`2+2`]", EV_ERRUNKNOWNFUNC},
        {"\"[`1 +`]\"", "[`1 +`]", EV_ERRSYNTAX},
        {"\"[`selfexpand()`]\"", "[`selfexpand()`]", EV_ERRRECURSION},
    };
    ev_AddFunction(&theSelfExpand);
    for (const auto &c : cases) {
        expand(c.expansion, 0.0f);
        const int expected = ev_GetErrNo(0);
        EXPECT_EQ(expected, c.error) << c.expansion;
        ev_SetErrNo(0, 0);
        UT_String s("stale");
        EXPECT_EQ(myManager.evaluateString(c.text, s, 0.0f, nullptr, 0), 0);
        EXPECT_EQ(ev_GetErrNo(0), expected) << c.text;
        EXPECT_STREQ(s, "") << c.text;
        ev_SetErrNo(0, 0);
        EXPECT_EQ(eval(c.text, 0.0f), 0.0f);
        EXPECT_EQ(ev_GetErrNo(0), expected) << c.text;
        ev_SetErrNo(0, 0);
        EXPECT_EQ(myManager.exprDepth(0), 0);
    }
}

TEST_F(CHManagerVariables, OneShotEvaluationRestoresTheContext)
{
    CH_Collection other(&myManager, nullptr, "other");
    myManager.setEvaluateTime(2.5f, 0);
    myManager.setEvalCollection(&other, 0);
    CH_Collection node(&myManager, nullptr, "geo1");
    int td = -1;
    EXPECT_EQ(eval("1 +", 7.0f, &td, &node), 0.0f);
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRSYNTAX);
    ev_SetErrNo(0, 0);
    EXPECT_EQ(myManager.getEvalCollection(0), &other);
    EXPECT_EQ(myManager.getEvaluateTime(0), 2.5);

    myManager.setEvalCollection(nullptr, 0);
    UT_String s;
    myManager.evaluateString("$OS + '/' + $T", s, 3.0f, &node, 0);
    EXPECT_STREQ(s, "geo1/3"); // the collection answers T through the manager
}

TEST_F(CHManagerVariables, DefinesKeepTheirFirstValue)
{
    myManager.addExpressionDefine(CH_ExprDefine("HALF_TURN", 180.0f));
    EXPECT_FLOAT_EQ(eval("HALF_TURN / 2", 0), 90.0f);
    testing::internal::CaptureStderr();
    myManager.addExpressionDefine(CH_ExprDefine("HALF_TURN", 180.0f));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    myManager.addExpressionDefine(CH_ExprDefine("HALF_TURN", 3.0f));
    myManager.addExpressionDefine(CH_ExprDefine("HALF_TURN", 3.0f));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "WARNING: Symbol conflict for define HALF_TURN\nWARNING: Symbol conflict for define HALF_TURN\n");
    EXPECT_FLOAT_EQ(myManager.findExpressionDefine("HALF_TURN")->getValue(), 180.0f);
}

TEST_F(CHManagerVariables, FirstManagerIsCurrentUntilSwitched)
{
    CH_Manager *before = CH_Manager::getContext();
    {
        CH_Manager second(0);
        EXPECT_EQ(CH_Manager::getContext(), before); // a later manager is not current by itself
        second.setContext();
        EXPECT_EQ(CH_Manager::getContext(), &second);
    }
    EXPECT_FALSE(CH_Manager::getContextExists()); // destroying the current one clears it
    myManager.setContext();
    EXPECT_TRUE(CH_Manager::getContextExists());
}

} // namespace
