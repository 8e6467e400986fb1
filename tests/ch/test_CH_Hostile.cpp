// Hostile input that once broke things, kept as regressions: runaway
// nesting, huge texts, embedded NULs, bytes that are not UTF-8, millions of
// segments, odd evaluation ranges and a million fresh texts. Every test must
// finish within 1 GB of memory (checked on the peak resident size when no
// sanitizer inflates it; ctest runs each test in its own process).
#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_Segment.h>
#include <ch/expr/CH_Expression.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>
#include <ev/EV_Engine.h>

#include <support/chTestChannelBuilder.h>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool theSanitized = true;
#else
constexpr bool theSanitized = false;
#endif
// Sizes shrink under sanitizers, which run several times slower.
constexpr int scaled(int n) { return theSanitized ? n / 10 : n; }

int takeError()
{
    int n = ev_GetErrNo(0);
    ev_SetErrNo(0, 0);
    return n;
}

bool sameFloat(float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); }

class CHHostile : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mgr.setContext();
        ev_SetErrNo(0, 0);
    }
    void TearDown() override
    {
        if (theSanitized)
            return;
        rusage usage{};
        ASSERT_EQ(getrusage(RUSAGE_SELF, &usage), 0);
        EXPECT_LT(usage.ru_maxrss, 1024L * 1024L) << "peak resident KB"; // ru_maxrss is in KB
    }

    CH_Manager mgr;
    CH_Collection obj{&mgr, nullptr, "obj"};
};

std::string repeat(const char *piece, int n)
{
    std::string s;
    for (int i = 0; i < n; ++i)
        s += piece;
    return s;
}

TEST_F(CHHostile, DeepNestingIsASyntaxErrorThatKeepsItsText)
{
    const std::string deep_parens = repeat("(", 100000) + "1" + repeat(")", 100000);
    const std::string deep_calls = repeat("abs(", 50000) + "1" + repeat(")", 50000);
    const std::string deep_unary = repeat("-", 100000) + "1";
    const std::string long_chain = "1" + repeat(" + 1", 100000);
    for (const std::string *text : {&deep_parens, &deep_calls, &deep_unary, &long_chain}) {
        CH_Expression e(text->c_str(), CH_ORVISH);
        EXPECT_FALSE(e.isCompiled());
        EXPECT_EQ(e.getExpression(), *text);
        EXPECT_EQ(e.evaluate(0), 0.0f);
        EXPECT_EQ(takeError(), EV_ERRSYNTAX);
    }
    // Well inside the limits the same shapes compile and run.
    const struct { std::string text; float value; } fine[] = {
        {repeat("(", 150) + "1" + repeat(")", 150), 1.0f},
        {repeat("abs(", 50) + "-2" + repeat(")", 50), 2.0f},
        {"1" + repeat(" + 1", 500), 501.0f},
    };
    for (const auto &c : fine) {
        CH_Expression e(c.text.c_str(), CH_ORVISH);
        EXPECT_TRUE(e.isCompiled()) << c.text.substr(0, 20);
        EXPECT_EQ(e.evaluate(0), c.value);
        EXPECT_EQ(takeError(), 0);
    }
}

TEST_F(CHHostile, MegabyteTextsCompileOnceAndKeepEveryByte)
{
    const std::string spaced = std::string(1 << 20, ' ') + "2 * 21";
    const std::string literal = "\"" + std::string(1 << 20, 'q') + "\"";
    const std::string chain = "1" + repeat(" + 1", 1 << 18); // too tall a tree
    CH_Expression a(spaced.c_str(), CH_ORVISH);
    EXPECT_EQ(a.evaluate(0), 42.0f);
    CH_Expression b(literal.c_str(), CH_ORVISH);
    UT_String s;
    b.evaluateString(s, 0);
    EXPECT_EQ(std::string(s.c_str()), literal.substr(1, literal.size() - 2));
    CH_Expression c(chain.c_str(), CH_ORVISH);
    EXPECT_EQ(std::strlen(c.getExpression()), chain.size());
    EXPECT_EQ(c.evaluate(0), 0.0f);
    EXPECT_EQ(takeError(), EV_ERRSYNTAX);
    // A segment with such a text: pooled, copied, evaluated.
    CH_Channel *ch = obj.addChannel("big");
    chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, spaced.c_str()}, {10, 1, 0, 0, spaced.c_str()}});
    CH_Channel copy(&obj, *ch);
    EXPECT_EQ(obj.evaluate(&copy, 5.0f, false, 0), 42.0f);
    EXPECT_EQ(std::string(copy.getSegment(0u)->getExpression()), spaced);
    EXPECT_EQ(takeError(), 0);
}

TEST_F(CHHostile, EmbeddedNulEndsTheText)
{
    // The interfaces take C strings: the text is what precedes the NUL.
    const char text[] = "1 + 2\0 + garbage(";
    CH_Expression e(text, CH_ORVISH);
    EXPECT_STREQ(e.getExpression(), "1 + 2");
    EXPECT_EQ(e.evaluate(0), 3.0f);
    CH_Channel *ch = obj.addChannel("nul\0hidden");
    ASSERT_NE(ch, nullptr);
    EXPECT_STREQ(ch->getName(), "nul");
    EXPECT_EQ(obj.getChannel("nul"), ch);
    EXPECT_EQ(obj.addChannel("nul\0other"), ch); // the same name
    EXPECT_EQ(takeError(), 0);
}

TEST_F(CHHostile, BytesThatAreNotUtf8PassThroughStringsUnchanged)
{
    // Strings are byte strings: invalid sequences, lone continuation bytes
    // and overlong forms are kept and counted as bytes.
    const char *const bytes[] = {"\xff\xfe", "\xc3(", "\x80\x80\x80", "\xc0\xaf", "\xed\xa0\x80", "a\xf4\x90\x80\x80z"};
    for (const char *b : bytes) {
        CH_Expression e((std::string("\"") + b + "\"").c_str(), CH_ORVISH);
        UT_String s;
        e.evaluateString(s, 0);
        EXPECT_STREQ(s.c_str(), b);
        CH_Expression len((std::string("strlen(\"") + b + "\")").c_str(), CH_ORVISH);
        EXPECT_EQ(len.evaluate(0), float(std::strlen(b)));
        EXPECT_EQ(takeError(), 0);
        // Outside a string such bytes are no token: a syntax error, text kept.
        std::string bare = std::string("1 + ") + b;
        CH_Expression bad(bare.c_str(), CH_ORVISH);
        EXPECT_EQ(bad.getExpression(), bare);
        EXPECT_EQ(bad.evaluate(0), 0.0f);
        EXPECT_EQ(takeError(), EV_ERRSYNTAX);
        // Channel names are ASCII letters, digits and "-_:" only.
        std::string name = std::string("ch") + b;
        EXPECT_EQ(obj.addChannel(name.c_str()), nullptr);
        EXPECT_EQ(obj.getChannel(name.c_str()), nullptr);
    }
}

TEST_F(CHHostile, TwoMillionSegments)
{
    const int n = scaled(2000000);
    CH_Channel *ch = obj.addChannel("many");
    std::vector<chTestKey> keys;
    keys.reserve(static_cast<std::size_t>(n) + 1);
    for (int i = 0; i <= n; ++i) // value 3i at time i: a line of slope 3
        keys.push_back({float(i), 3.0f * float(i)});
    chTestChannelBuilder::build(*ch, keys);
    keys = {};
    ASSERT_EQ(ch->getNKeys(), n + 1);
    for (int i : {0, 1, n / 3, n / 2, n - 1}) {
        float t = float(i) + 0.5f;
        EXPECT_EQ(ch->getSegmentIdx(t), i);
        EXPECT_FLOAT_EQ(obj.evaluate(ch, t, false, 0), 3.0f * t);
    }
    std::vector<float> out(1000);
    obj.evaluate(ch, 0.0f, float(n), out.data(), 1000, false, false, 0);
    for (int i = 0; i < 1000; ++i) {
        float t = float(i) * (float(n) / 999.0f);
        EXPECT_NEAR(out[i], 3.0f * t, 3e-6f * float(n)) << i;
    }
    EXPECT_EQ(takeError(), 0);
}

TEST_F(CHHostile, OddRangesGiveThePointValuesAtTheDocumentedTimes)
{
    CH_Channel *ch = obj.addChannel("tx");
    chTestChannelBuilder::build(*ch, {{0, 1, 0, 0, "linear()"}, {4, 5, 0, 0, "linear()"}, {8, -3, 0, 0, "linear()"}});
    ch->setLeftBehavior(CH_CHANNEL_HOLD);
    ch->setRightBehavior(CH_CHANNEL_SLOPE);
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    const struct { float from, to; int count; } ranges[] = {
        {9.0f, -1.0f, 41}, {8.0f, 0.0f, 2}, {3.0f, 3.0f, 5}, {nan, 4.0f, 5}, {0.0f, nan, 5}, {-inf, inf, 4},
        {-inf, 2.0f, 3},   {2.0f, inf, 3},  {inf, -inf, 3}, {1.0f, 5.0f, 1}, {-1e30f, 1e30f, 7},
    };
    for (const auto &r : ranges) {
        SCOPED_TRACE(std::to_string(r.from) + " .. " + std::to_string(r.to));
        std::vector<float> out(static_cast<std::size_t>(r.count), 123.0f);
        obj.evaluate(ch, r.from, r.to, out.data(), r.count, false, false, 0);
        float step = r.count > 1 ? (r.to - r.from) / float(r.count - 1) : r.to - r.from;
        for (int i = 0; i < r.count; ++i) {
            float t = float(i) * step + r.from;
            float expected = obj.evaluate(ch, t, false, 0);
            EXPECT_TRUE(sameFloat(out[i], expected)) << i << ": " << out[i] << " vs " << expected;
        }
    }
    // The point values themselves: NaN takes the right behaviour, infinities
    // the behaviour of their side.
    EXPECT_EQ(obj.evaluate(ch, -inf, false, 0), 1.0f);
    EXPECT_TRUE(sameFloat(obj.evaluate(ch, nan, false, 0), obj.evaluate(ch, inf, false, 0)));
    EXPECT_EQ(takeError(), 0);
}

TEST_F(CHHostile, AMillionFreshTextsLeaveNothingBehind)
{
    const int n = scaled(1000000);
    const std::size_t base = CH_Expression::getPooledTextCount();
    CH_Channel *ch = obj.addChannel("fresh");
    chTestChannelBuilder::build(*ch, {{0, 0}, {1, 1}});
    const std::size_t held = CH_Expression::getPooledTextCount(); // the channel's "linear()"
    EXPECT_LE(held, base + 1);
    float sum = 0.0f;
    for (int i = 0; i < n; ++i) {
        std::string text = std::to_string(i % 1000) + " + " + std::to_string(i / 1000) + " * 0";
        CH_Segment s(text.c_str(), CH_ORVISH, ch, 1.0f); // each text is new to the pool
        sum += s.getCHExpr()->evaluate(0) == float(i % 1000);
    }
    EXPECT_EQ(sum, float(n));
    EXPECT_EQ(CH_Expression::getPooledTextCount(), held); // none of them is held
    EXPECT_EQ(takeError(), 0);
}

} // namespace
