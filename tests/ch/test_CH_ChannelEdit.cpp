// Key editing: values at keys, pending values, reading and writing keys,
// inserting keys that keep the curve, and removing keys.
#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_FullKey.h>
#include <ch/channel/CH_Key.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>
#include <ch/manager/CH_TimeGroup.h>

#include <ev/EV_Engine.h>
#include <ev/EV_Function.h>
#include <ev/EV_Symbol.h>
#include <support/chTestChannelBuilder.h>
#include <support/chTestUlps.h>
#include <ut/UT_EnvControl.h>
#include <ut/UT_PtrArray.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

class chEditCollection : public CH_Collection
{
public:
    using CH_Collection::CH_Collection;
    int canAccessChannel(unsigned mask, const CH_Channel *c) const override
    {
        return refuse ? 0 : CH_Collection::canAccessChannel(mask, c);
    }
    void setChanged(CH_CHANGE_TYPE type, void *data) override
    {
        ++events;
        CH_Collection::setChanged(type, data);
    }
    bool refuse = false;
    int events = 0;
};

// chk_count(): 0, counting its calls.
int theCalls = 0;
void countCall(EV_FUNCTION *, EV_SYMBOL *r, EV_SYMBOL **, int)
{
    ++theCalls;
    r->setFloat(0.0);
}
EV_FUNCTION theCounter{0, "chk_count", 0, EV_TYPEFLOAT, nullptr, countCall, nullptr, nullptr, 0};

std::int64_t ulps(float a, float b) { return chTestUlps(a, b); }

class CHChannelEdit : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mgr.setContext();
        mgr.setAutoSplit(true);
        mgr.setAutoSlope(false);
        mgr.setDefaultSlope(0.0f);
        mgr.setHoldLastKey(false);
        mgr.setChanCreateKeyExpression("");
        mgr.setDefaultExpression("linear()");
        mgr.setDefaultSplitExpression("cubic()");
        ch = obj.addChannel("tx", 2.5f);
        tol = mgr.getTolerance();
    }
    void build(const std::vector<chTestKey> &keys) { chTestChannelBuilder::build(*ch, keys); }
    float at(float t) { return ch->evaluate(t); }
    CH_Segment *seg(unsigned i) { return ch->getSegment(i); }
    bool pendingListed()
    {
        UT_PtrArray<CH_Channel *> list;
        mgr.getPendingChannels(list);
        return list.find(ch) >= 0;
    }

    CH_Manager mgr;
    CH_Collection root{&mgr};
    chEditCollection obj{&mgr, &root, "obj"};
    CH_Channel *ch = nullptr;
    float tol = 0.0f;
};

TEST_F(CHChannelEdit, FirstValueIsPendingAndFirstKeyMovesTheStart)
{
    EXPECT_EQ(ch->setKeyValue(5, 10, false, true, true), -1);
    EXPECT_FALSE(ch->isPending());
    EXPECT_EQ(ch->setKeyValue(5, 10, true, true, true), 0);
    EXPECT_TRUE(ch->isPending() && pendingListed());
    EXPECT_EQ(ch->getPendingEvalTime(), 10.0f);
    for (float t : {-3.0f, 0.0f, 10.0f, 99.0f})
        EXPECT_EQ(at(t), 5.0f) << t;

    CH_Channel *other = obj.addChannel("ty", 2.5f);
    other->insertKeyFrame(3);
    ASSERT_EQ(other->getNKeys(), 1);
    EXPECT_EQ(other->getStart(), 3.0f);
    EXPECT_STREQ(other->getEndSegment()->getExpression(), "linear()");
    EXPECT_EQ(other->evaluate(-50), 2.5f);
    // A key-creation expression (a frame) places the first key first.
    other = obj.addChannel("tz", 1.0f);
    mgr.setChanCreateKeyExpression("13");
    CH_Key key;
    key.set(CH_VALUE, 4);
    other->putKey(3, key);
    ASSERT_EQ(other->getNKeys(), 2);
    EXPECT_FLOAT_EQ(other->getStart(), 12.0f / mgr.getSamplesPerSec());
    EXPECT_EQ(other->evaluate(3), 4.0f);
}

TEST_F(CHChannelEdit, SetKeyValueAtAKeyGoesToTheSegmentStartingThere)
{
    // Keys at 2, 12 and 22 (start 2), untied so that each write stays where it lands.
    struct Case
    {
        float time;
        int control;      // integer control 124
        int segment;      // whose in value takes 7; -1: nothing set
    } const cases[] = {
        {12, 0, 1}, {12 + 0.4f * tol, 0, 1}, {12 - 0.4f * tol, 0, 1}, {22, 0, 2}, {2, 0, 0},
        {7, 0, -1}, {17, 0, -1}, {7, 1, -1}, {17, 1, 1}, // the control: constant segments only
    };
    int old = UT_EnvControl::getInt(124);
    for (const Case &c : cases)
    {
        build({{2, 0}, {12, 10, 0, 0, "constant()"}, {22, 30}});
        for (unsigned i = 0; i < 3; ++i)
            seg(i)->tieInValue(false, false), seg(i)->tieOutValue(false, false);
        UT_EnvControl::setInt(124, c.control);
        SCOPED_TRACE(c.time);
        EXPECT_EQ(ch->setKeyValue(7, c.time, false, true, false), c.segment < 0 ? -1 : 0);
        const float in[] = {0, 10, 30}, out[] = {10, 30, 30};
        for (unsigned i = 0; i < 3; ++i)
        {
            EXPECT_EQ(seg(i)->getInValue(), static_cast<int>(i) == c.segment ? 7.0f : in[i]) << i;
            EXPECT_EQ(seg(i)->getOutValue(), out[i]) << i;
        }
    }
    UT_EnvControl::setInt(124, old);
}

TEST_F(CHChannelEdit, PutKeyMakesTheKeyWhereverItFalls)
{
    struct Probe { float time, value; };
    struct Case
    {
        std::vector<chTestKey> keys; // empty: one key at 5 holding the default 2.5
        float time, value, start, end;
        std::vector<Probe> probes;
    } const cases[] = {
        {{}, 2, 7, 2, 5, {{2, 7}, {3.5f, 4.75f}, {5, 2.5f}}},           // before a lone key
        {{}, 9, 1, 5, 9, {{5, 2.5f}, {7, 1.75f}, {9, 1}}},              // after a lone key
        {{{0, 0}, {10, 10}}, 4, 1, 0, 10, {{2, 0.5f}, {4, 1}, {7, 5.5f}}}, // inside
        {{{0, 0}, {10, 10}}, 14, 3, 0, 14, {{5, 5}, {12, 6.5f}, {14, 3}}}, // after the last key
        // Before the first: the new segment ends as the end segment's out half says.
        {{{0, 0}, {10, 10}}, -4, 2, -4, 10, {{-4, 2}, {-2, 4}, {0, 0}, {5, 5}}},
    };
    for (const Case &c : cases)
    {
        SCOPED_TRACE(c.time);
        ch->clear();
        if (c.keys.empty())
            ch->insertKeyFrame(5);
        else
            build(c.keys), ch->getEndSegment()->setOutValue(6, false);
        CH_Key key;
        key.set(CH_VALUE, c.value);
        ch->putKey(c.time, key);
        EXPECT_EQ(ch->getNKeys(), c.keys.empty() ? 2 : 3);
        EXPECT_EQ(ch->getStart(), c.start);
        EXPECT_EQ(ch->getEnd(), c.end);
        for (const Probe &p : c.probes)
            EXPECT_FLOAT_EQ(at(p.time), p.value) << p.time;
    }
}

TEST_F(CHChannelEdit, PutKeyTakesThePendingValueAndFillsSlopes)
{
    build({{0, 0}, {10, 10}, {20, 30}});
    mgr.setAutoSlope(true);
    // Auto slope: the line through the neighbours, or through an end key and its neighbour.
    struct Case { float time, value, slope; };
    for (const Case &c : {Case{10, 10, 1.5f}, Case{20, 40, 3.0f}, Case{0, -10, 2.0f}})
    {
        CH_Key key;
        key.set(CH_VALUE, c.value);
        ch->putKey(c.time, key);
        CH_Key back;
        ASSERT_TRUE(ch->getKey(c.time, back));
        if (c.time != 0) // the first key has no in half
        {
            EXPECT_FLOAT_EQ(back.myIn.myV[CH_SLOPE], c.slope) << c.time;
        }
        EXPECT_FLOAT_EQ(back.myOut.myV[CH_SLOPE], c.slope) << c.time;
        EXPECT_TRUE(back.myOut.myTied[CH_SLOPE]);
    }
    build({{0, 0}, {10, 10}, {20, 30}});
    mgr.setAutoSlope(false);
    mgr.setDefaultSlope(0.25f);
    CH_Key key;
    key.set(CH_VALUE, 1);
    key.myOut.myV[CH_SLOPE] = -2;
    key.myOut.myValid[CH_SLOPE] = true;
    ch->putKey(10, key);
    EXPECT_EQ(seg(0)->getOutSlope(), 0.25f); // only the unset half
    EXPECT_EQ(seg(1)->getInSlope(), -2.0f);
    EXPECT_NEAR(seg(1)->getInAccelRatio(), 1.0f / 3, 1e-6);

    // A pending value at the key's time becomes its value, and stops pending.
    ASSERT_EQ(ch->setKeyValue(9, 5, true, true, false), 0);
    ch->putKey(7, key); // elsewhere: still pending
    EXPECT_TRUE(ch->isPending());
    ch->putKey(5, key);
    EXPECT_EQ(at(5), 9.0f);
    EXPECT_FALSE(ch->isPending());
    EXPECT_FALSE(pendingListed());
}

TEST_F(CHChannelEdit, FullKeysCarryTheExpression)
{
    build({{0, 0, 0, 0, "linear()"}, {10, 10, 0, 0, "ease()"}, {20, 30}});
    CH_FullKey key;
    ASSERT_TRUE(ch->getFullKey(10, key) && key.myHasExpression);
    EXPECT_STREQ(key.myExpression, "ease()");
    ASSERT_TRUE(ch->getFullKey(10, key, true));
    EXPECT_STREQ(key.myExpression, "linear()");
    key.myExpression = "cubic()";
    ch->putFullKey(10, key);
    EXPECT_STREQ(seg(1)->getExpression(), "cubic()");
    EXPECT_STREQ(seg(0)->getExpression(), "linear()");
}

TEST_F(CHChannelEdit, DestroyingKeys)
{
    // Keys at 0, 4 and 10: the first goes and the start follows.
    build({{0, 1}, {4, 5}, {10, 2}});
    std::vector<float> before;
    for (int i = 0; i <= 24; ++i)
        before.push_back(at(4 + 0.25f * i));
    ch->destroyKeyFrame(0);
    ASSERT_EQ(ch->getNKeys(), 2);
    EXPECT_EQ(ch->getStart(), 4.0f);
    for (int i = 0; i <= 24; ++i)
        EXPECT_EQ(at(4 + 0.25f * i), before[static_cast<std::size_t>(i)]) << i;

    // The middle key goes: one segment, the first one's expression, ending as
    // the right one ended.
    build({{0, 1, 0, 0, "linear()"}, {4, 5, 0, 0, "ease()"}, {10, 2, 0.5f}});
    ch->destroyKeyFrame(4);
    ASSERT_EQ(ch->getNKeys(), 2);
    EXPECT_EQ(seg(0)->getLength(), 10.0f);
    EXPECT_STREQ(seg(0)->getExpression(), "linear()");
    EXPECT_EQ(seg(0)->getOutValue(), 2.0f);
    EXPECT_EQ(seg(0)->getOutSlope(), 0.5f);
    EXPECT_EQ(at(5), 1.5f);

    // The last key goes: the key before it becomes the last.
    build({{0, 1}, {4, 5}, {10, 2}});
    ch->destroyKeyFrame(10);
    ASSERT_EQ(ch->getNKeys(), 2);
    EXPECT_EQ(ch->getLength(), 4.0f);
    EXPECT_EQ(at(4), 5.0f);

    // No key there, or a locked segment: nothing changes.
    build({{0, 1}, {4, 5, 0, 0, "lock(5)"}, {10, 2}});
    ch->destroyKeyFrame(6);
    ch->destroyKeyFrame(4);
    EXPECT_EQ(ch->getNKeys(), 3);
}

TEST_F(CHChannelEdit, SplitExpressionFollowsAutoSplit)
{
    struct Case
    {
        bool auto_split;
        float time;
        unsigned made; // the segment made by the split
        const char *expr;
    } const cases[] = {
        {true, 5, 1, "bezier()"}, {false, 5, 1, "cubic()"},   // inside
        {true, -5, 0, "bezier()"}, {false, -5, 0, "cubic()"}, // before the first key
        {true, 15, 1, "bezier()"}, {false, 15, 1, "cubic()"}, // after the last key
    };
    for (const Case &c : cases)
    {
        build({{0, 0, 0, 0, "bezier()"}, {10, 10, 0, 0, "bezier()"}});
        mgr.setAutoSplit(c.auto_split);
        ch->insertKeyFrame(c.time);
        ASSERT_EQ(ch->getNKeys(), 3);
        EXPECT_STREQ(seg(c.made)->getExpression(), c.expr) << c.auto_split << " " << c.time;
    }
}

TEST_F(CHChannelEdit, RefusedEditsChangeNothingAndRaiseNothing)
{
    build({{1, 0}, {5, 4}, {9, 1}});
    ASSERT_EQ(ch->setKeyValue(3, 7, true, false, true), 0); // pending at 7
    obj.refuse = true;
    obj.events = 0;
    CH_Key key;
    key.set(CH_VALUE, 9);
    EXPECT_EQ(ch->setKeyValue(8, 5), -1);
    EXPECT_EQ(ch->setKeyValue(8, 3), -1);
    ch->putKey(3, key);
    ch->putKey(5, key);
    ch->insertKeyFrame(2);
    ch->destroyKeyFrame(5);
    ch->destroyKeyFrame(1);
    ch->scroll(4);
    EXPECT_EQ(obj.events, 0);
    EXPECT_EQ(ch->getNKeys(), 3);
    EXPECT_EQ(ch->getStart(), 1.0f);
    EXPECT_EQ(at(5), 4.0f);
    EXPECT_EQ(at(3), 2.0f);
    EXPECT_TRUE(ch->isPending(7));
}

TEST_F(CHChannelEdit, TimeGroupEntryStaysWithItsKeyAcrossASplit)
{
    build({{0, 0}, {10, 10}});
    CH_TimeGroup group("walk", 0);
    ASSERT_TRUE(group.addEntry(ch->getEndSegment(), true));
    ch->insertKeyFrame(15); // the end segment moves to the new key
    ASSERT_EQ(ch->getNKeys(), 3);
    EXPECT_EQ(seg(1)->getStart(), 10.0f);
    EXPECT_TRUE(group.findEntry(seg(1)));
    EXPECT_EQ(seg(1)->getTimeGroup(), &group);
    EXPECT_EQ(ch->getEndSegment()->getTimeGroup(), nullptr);
}

TEST_F(CHChannelEdit, KeyEditsNeverRunTheExpression)
{
    ev_AddFunction(&theCounter);
    build({{0, 0, 0, 0, "linear() + chk_count()"}, {10, 10, 0, 0, "chk_count() + bezier()"}, {20, 5}});
    theCalls = 0;
    CH_Key key;
    key.set(CH_VALUE, 3);
    key.set(CH_SLOPE, 1);
    EXPECT_EQ(ch->setKeyValue(4, 0, false, true, true), 0);
    EXPECT_EQ(ch->setKeyValue(6, 10, false, true, true), 0);
    ch->putKey(10, key);
    ch->putKey(4, key);  // splits a segment that does not use accels
    ch->putKey(14, key); // and one that does
    EXPECT_EQ(ch->getNKeys(), 5);
    EXPECT_EQ(theCalls, 0);
    EXPECT_FLOAT_EQ(at(14), 3.0f); // and the expression does run when evaluated
    EXPECT_GT(theCalls, 0);

    // What a segment uses is known from the names in its text, unevaluated.
    struct Use
    {
        const char *text;
        bool in_value, out_value, slopes, accels;
    } const uses[] = {
        {"1", false, false, false, false},
        {"$IV * 2", true, false, false, false},
        {"if(1, $OV, $OM)", false, true, true, false},
        {"if(0, bezier(), 1)", true, true, true, true},
    };
    for (const Use &u : uses)
    {
        CH_Segment s(u.text, CH_ORVISH, ch, 1.0f);
        EXPECT_EQ(s.isInValueUsed(), u.in_value) << u.text;
        EXPECT_EQ(s.isOutValueUsed(), u.out_value) << u.text;
        EXPECT_EQ(s.isInSlopeUsed(), u.slopes) << u.text;
        EXPECT_EQ(s.isInAccelUsed(), u.accels) << u.text;
        EXPECT_TRUE(s.getCHExpr()->modified()) << u.text; // never ran
    }
}

// Random channels: inserting a key keeps the curve, removing it restores the keys.
TEST_F(CHChannelEdit, InsertThenDestroyKeepsTheCurve)
{
    std::mt19937 rng(20261125);
    // Unit-sized keys: the float rounding of a stored key number (value, or
    // slope times length) stays well below the 1e-6 the curve may move.
    std::uniform_real_distribution<float> value(-1, 1), slope(-1, 1), gap(0.25f, 1.25f),
        origin(-20, 20), ratio(0.05f, 0.3f);
    const char *const kinds[] = {"constant()", "linear()", "cubic()", "bezier()"};
    for (int round = 0; round < 60; ++round)
    {
        const char *kind = kinds[round % 4];
        SCOPED_TRACE(std::string(kind) + " round " + std::to_string(round));
        std::vector<chTestKey> keys;
        float t = origin(rng); // start not 0
        int n = 3 + round % 4;
        for (int i = 0; i < n; ++i)
        {
            keys.push_back({t, value(rng), slope(rng), 0, kind});
            t += gap(rng);
        }
        build(keys);
        if (!std::strcmp(kind, "bezier()"))
            for (unsigned i = 0; i + 1 < static_cast<unsigned>(n); ++i)
            {
                seg(i)->setInAccelRatio(ratio(rng), false);
                seg(i)->setOutAccelRatio(ratio(rng), false);
            }
        // Key times and values, and the curve, before.
        std::vector<float> times, local, values, samples;
        for (int i = 0; i < n; ++i)
        {
            local.push_back(seg(static_cast<unsigned>(i))->getStart());
            times.push_back(ch->getStart() + seg(static_cast<unsigned>(i))->getStart());
            values.push_back(seg(static_cast<unsigned>(i))->getInValue());
        }
        std::vector<float> when;
        for (int i = 0; i <= 200; ++i)
            when.push_back(times.front() + (times.back() - times.front()) * i / 200.0f);
        for (float w : when)
            samples.push_back(at(w));

        // A time at least 4 tolerances from every key.
        std::uniform_real_distribution<float> anywhere(times.front(), times.back());
        float insert;
        bool clear;
        do
        {
            insert = anywhere(rng);
            clear = true;
            for (float k : times)
                clear &= std::fabs(insert - k) >= 4 * tol;
        } while (!clear);

        ch->insertKeyFrame(insert);
        ASSERT_EQ(ch->getNKeys(), n + 1);
        ASSERT_TRUE(ch->isAtHardKey(insert));
        for (std::size_t i = 0; i < when.size(); ++i)
        {
            // Within the tolerance of the new key a time reads the key itself.
            if (std::fabs(when[i] - insert) <= tol)
                continue;
            float v = at(when[i]);
            EXPECT_TRUE(std::fabs(v - samples[i]) <= 1e-6f || ulps(v, samples[i]) <= 4)
                << "at " << when[i] << ": " << v << " was " << samples[i];
        }

        ch->destroyKeyFrame(insert);
        ASSERT_EQ(ch->getNKeys(), n);
        EXPECT_EQ(ch->getStart(), times.front());
        if (!std::strcmp(kind, "linear()") || !std::strcmp(kind, "cubic()"))
            for (int i = 0; i < n; ++i)
            {
                const CH_Segment *s = seg(static_cast<unsigned>(i));
                // Local times: the start itself is never touched.
                EXPECT_LE(ulps(s->getStart(), local[static_cast<std::size_t>(i)]), 2) << i;
                EXPECT_LE(ulps(s->getInValue(), values[static_cast<std::size_t>(i)]), 2) << i;
            }
    }
}

} // namespace
