// The registered function table past the interpolation functions, eval and
// evals, the one-time registration, and the noise functions by their
// documented properties (docs/noise.md).
#include <ch/channel/CH_Channel.h>
#include <ch/expr/CH_ExprFunctions.h>
#include <ch/expr/CH_Expression.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <ev/EV_Engine.h>
#include <ev/EV_Function.h>
#include <ev/EV_Symbol.h>
#include <support/chTestChannelBuilder.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <ev/EV_ExprFlags.h>

namespace {

class CHExprLibrary : public ::testing::Test
{
protected:
    void SetUp() override { mgr.setContext(); ch = obj.addChannel("tx"); }
    float expr(const std::string &text, unsigned *flags = nullptr)
    {
        CH_Expression e(text.c_str(), CH_ORVISH);
        float v = e.evaluate(0);
        if (flags)
            *flags = e.getExpressionFlag();
        return v;
    }

    CH_Manager mgr;
    CH_Collection root{&mgr};
    CH_Collection obj{&mgr, &root, "obj"};
    CH_Channel *ch = nullptr;
    int i_ = 0;
};

TEST_F(CHExprLibrary, EveryEntryByNameWithItsKeyUse)
{
    std::string order;
    for (EV_FUNCTION **f = CHgetExpressionFunctionTable(); *f; ++f)
        order += std::string((*f)->getName()) + " ";
    EXPECT_NE(order.find("bezier matchin matchout match vmatchin vmatchout vmatch repeat repeatt cycle cyclet "
                         "eval evals noise turb snoise sturb "),
              std::string::npos);
    // Flat keys of 4 at 24 fps: neighbours, replayed ranges and cycle offsets
    // are all 4 or 0; noise is 0 at lattice points, snoise in [0, 1).
    // Expected use: in value, out value, match family.
    struct
    {
        const char *call;
        bool in, out, match;
    } calls[] = {{"matchin()", 0, 0, 1},        {"matchout()", 0, 0, 1},      {"match()", 0, 0, 1},
                 {"vmatchin()", 1, 0, 1},       {"vmatchout()", 0, 1, 1},     {"vmatch()", 1, 1, 1},
                 {"repeat(1, 25)", 0, 0, 0},    {"repeatt(0, 1)", 0, 0, 0},   {"cycle(1, 25)", 0, 0, 0},
                 {"cyclet(0, 1)", 0, 0, 0},     {"eval('4')", 0, 0, 0},       {"evals('4')", 0, 0, 0},
                 {"4 + noise(1, 2, 3)", 0, 0, 0}, {"4 + turb(1, 2, 3, 3)", 0, 0, 0},
                 {"4 + snoise(1, 2, 3) * 0", 0, 0, 0}, {"4 + sturb(1, 2, 3, 2) * 0", 0, 0, 0}};
    mgr.setSamplesPerSec(24);
    for (const auto &c : calls)
    {
        chTestChannelBuilder::build(*ch, {{0, 4}, {1, 4, 0, 0, c.call}, {2, 4}, {3, 4}});
        EXPECT_FLOAT_EQ(obj.evaluate(ch, 1.5f, false, 0), 4.0f) << c.call;
        CH_Segment *s = ch->getSegment(1u);
        EXPECT_EQ(s->isInValueUsed(), c.in) << c.call;
        EXPECT_EQ(s->isOutValueUsed(), c.out) << c.call;
        EXPECT_FALSE(s->isInSlopeUsed() || s->isInAccelUsed()) << c.call;
        EXPECT_EQ(s->isMatchFunction(), c.match) << c.call;
    }
    UT_String text;
    CH_Expression("evals(\"'a' + 'b'\")", CH_ORVISH).evaluateString(text, 0);
    EXPECT_STREQ(text.c_str(), "ab");
}

TEST_F(CHExprLibrary, EvalHandsOnWhatTheTextUses)
{
    unsigned flags;
    mgr.setEvaluateTime(2, 0);
    EXPECT_EQ(expr("eval('$T * 3')", &flags), 6.0f);
    EXPECT_TRUE(flags & EV_FLAG_TIMEDEP);
    expr("eval('1 + 1')", &flags); // the previous call's bits do not stick
    EXPECT_FALSE(flags & EV_FLAG_TIMEDEP);
    UT_String text;
    CH_Expression e("evals('$T')", CH_ORVISH);
    e.evaluateString(text, 0);
    EXPECT_STREQ(text.c_str(), "2");
    EXPECT_TRUE(e.getExpressionFlag() & EV_FLAG_TIMEDEP);
    // On a segment: an eval of cubic() needs the keys' values and slopes.
    chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, "eval('cubic()')"}, {2, 1}});
    EXPECT_FLOAT_EQ(obj.evaluate(ch, 1, false, 0), 0.5f); // 3u^2 - 2u^3 at u = 1/2
    EXPECT_TRUE(ch->getSegment(0u)->isInSlopeUsed() && ch->getSegment(0u)->isOutValueUsed());
}

void chFortyTwo(EV_FUNCTION *, EV_SYMBOL *r, EV_SYMBOL **, int) { r->setFloat(42); }

TEST_F(CHExprLibrary, RegistrationRunsOnce)
{
    static EV_FUNCTION mine(0, "noise", 3, EV_TYPEFLOAT, nullptr, chFortyTwo);
    EV_FUNCTION *registered = ev_FindFunction("noise");
    ev_AddFunction(&mine);
    {
        CH_Manager second(1);
        EXPECT_EQ(CH_Manager::getContext(), &mgr); // not made current either
    }
    mgr.setContext();
    EXPECT_EQ(ev_FindFunction("noise"), &mine);
    EXPECT_EQ(expr("noise(0.5, 0, 0)"), 42.0f);
    ev_AddFunction(registered);
}

TEST_F(CHExprLibrary, NoiseProperties)
{
    // depth 2, rough 0.5, atten 1: noise(p) + 0.5 noise(2p); the depth is
    // truncated to an integer, and 0 gives one octave. S(3) = 1.75.
    auto f = [&](const char *name, float k, const char *depth = "") {
        return expr(std::string(name) + "(" + std::to_string(k * (0.37 * i_ - 5.1)) + ", " +
                    std::to_string(k * 0.61 * i_) + ", " + std::to_string(k * (1.3 - 0.17 * i_)) + depth + ")");
    };
    bool differs = false;
    for (i_ = 0; i_ < 40; ++i_)
    {
        float n = f("noise", 1), s = f("snoise", 1), t3 = f("turb", 1, ", 3"), st3 = f("sturb", 1, ", 3");
        EXPECT_TRUE(std::fabs(n) <= 0.999f && s >= 0.0f && s < 1.0f) << n << " " << s;
        EXPECT_TRUE(std::fabs(t3) <= 0.999f * 1.75f && st3 >= 0.0f && st3 < 1.75f) << t3 << " " << st3;
        EXPECT_EQ(f("turb", 1, ", 0"), n);
        EXPECT_EQ(f("sturb", 1, ", 0"), s);
        EXPECT_NEAR(f("turb", 1, ", 2.7"), n + 0.5f * f("noise", 2), 1e-5);
        EXPECT_NEAR(f("sturb", 1, ", 2"), s + 0.5f * f("snoise", 2), 1e-5);
        differs |= n != s;
    }
    EXPECT_TRUE(differs);
    EXPECT_EQ(expr("noise(3, -7, 12)"), 0.0f); // a lattice point
}

} // namespace
