// Moving and stretching keys: single moves (by lengths, or copied onto and
// past a neighbour), sets of keys moved by a delta, stretching, key search,
// copying keys between channels, and the first segment.
#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_Key.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>
#include <ch/manager/CH_TimeGroup.h>

#include <support/chTestChannelBuilder.h>
#include <support/chTestUlps.h>
#include <ut/UT_FloatArray.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

class chMoveCollection : public CH_Collection
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

std::int64_t ulps(float a, float b) { return chTestUlps(a, b); }

class CHChannelMove : public ::testing::Test
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
        ch = obj.addChannel("tx", 2.5f);
        tol = mgr.getTolerance();
    }
    static void build(CH_Channel *c, const std::vector<chTestKey> &keys)
    {
        chTestChannelBuilder::build(*c, keys);
    }
    // Global key times, first to last.
    static std::vector<float> keyTimes(const CH_Channel *c)
    {
        std::vector<float> times;
        for (int i = 0; i < c->getNKeys(); ++i)
            times.push_back(c->getStart() + c->getSegment(static_cast<unsigned>(i))->getStart());
        return times;
    }
    CH_Segment *seg(unsigned i) { return ch->getSegment(i); }

    CH_Manager mgr;
    CH_Collection root{&mgr};
    chMoveCollection obj{&mgr, &root, "obj"};
    CH_Channel *ch = nullptr;
    float tol = 0.0f;
};

struct chTimedValue
{
    float time, value;
};

TEST_F(CHChannelMove, MovingOneKeyOfThree)
{
    // Keys 10 at 1, 20 at 5 and 30 at 11.
    struct Case
    {
        float from, to;
        std::vector<chTimedValue> keys; // after the move
    } const cases[] = {
        {5, 8, {{1, 10}, {8, 20}, {11, 30}}},   // halfway to the third: lengths 7 and 3
        {5, 2, {{1, 10}, {2, 20}, {11, 30}}},
        {5, 11, {{1, 10}, {11, 20}}},           // onto the third: it takes the moved key
        {5, 1, {{1, 20}, {11, 30}}},            // onto the first
        {5, 13, {{1, 10}, {11, 30}, {13, 20}}}, // past the third
        {1, 3, {{3, 10}, {5, 20}, {11, 30}}},   // the first key: the start moves
        {1, -2, {{-2, 10}, {5, 20}, {11, 30}}},
        {1, 7, {{5, 20}, {7, 10}, {11, 30}}},   // the first past the second
        {11, 14, {{1, 10}, {5, 20}, {14, 30}}}, // the last key
        {11, 7, {{1, 10}, {5, 20}, {7, 30}}},
        {11, 5, {{1, 10}, {5, 30}}},
    };
    for (const Case &c : cases)
    {
        SCOPED_TRACE(std::to_string(c.from) + " to " + std::to_string(c.to));
        build(ch, {{1, 10}, {5, 20}, {11, 30}});
        ch->moveKeyFrame(c.from, c.to);
        ASSERT_EQ(ch->getNKeys(), static_cast<int>(c.keys.size()));
        std::vector<float> times = keyTimes(ch);
        for (std::size_t i = 0; i < c.keys.size(); ++i)
        {
            EXPECT_EQ(times[i], c.keys[i].time) << i;
            EXPECT_EQ(ch->evaluate(c.keys[i].time), c.keys[i].value) << i;
        }
    }
}

TEST_F(CHChannelMove, MovesWithinTheToleranceOrOffAKeyDoNothing)
{
    for (float to : {5 + 0.5f * tol, 5 - 0.9f * tol, 5 + 0.9f * tol, 5.0f})
    {
        build(ch, {{1, 10}, {5, 20}, {11, 30}});
        obj.events = 0;
        ch->moveKeyFrame(5, to);
        EXPECT_EQ(obj.events, 0) << to - 5;
        EXPECT_EQ(keyTimes(ch), (std::vector<float>{1, 5, 11})) << to - 5;
    }
    build(ch, {{1, 10}, {5, 20}, {11, 30}});
    ch->moveKeyFrame(3, 4); // no key at 3
    ch->moveKeyFrame(5, NAN);
    ch->moveKeyFrame(5, INFINITY);
    EXPECT_EQ(keyTimes(ch), (std::vector<float>{1, 5, 11}));
}

TEST_F(CHChannelMove, MovingAOneKeyChannelMovesItsStart)
{
    ch->insertKeyFrame(3);
    ASSERT_EQ(ch->setKeyValue(6, 8, true, false, false), 0); // pending at 8
    ch->moveKeyFrame(3, -1);
    EXPECT_EQ(ch->getStart(), -1.0f);
    EXPECT_EQ(ch->getPendingEvalTime(), 8.0f); // the pending value stays put
}

TEST_F(CHChannelMove, KeysMovedByADeltaAreNeverLost)
{
    // Spaced one second apart: moved one second, each lands where the next was.
    for (float delta : {1.0f, -1.0f})
    {
        build(ch, {{1, 10}, {2, 20}, {3, 30}, {4, 40}});
        UT_FloatArray offsets{0, 1, 2, 3};
        CHmoveKeysWithDelta(ch, offsets, 1, 1 + delta);
        ASSERT_EQ(ch->getNKeys(), 4) << delta;
        for (int i = 0; i < 4; ++i)
        {
            EXPECT_EQ(keyTimes(ch)[static_cast<std::size_t>(i)], 1 + delta + i) << delta;
            EXPECT_EQ(ch->evaluate(1 + delta + i), 10.0f * (i + 1)) << delta;
        }
    }
}

TEST_F(CHChannelMove, StretchScalesToTheNewRange)
{
    build(ch, {{1, 10}, {3, 20}, {5, 30}});
    ASSERT_EQ(ch->setKeyValue(6, 9, true, false, false), 0); // pending at 9
    ch->stretch(10, 18);
    EXPECT_EQ(keyTimes(ch), (std::vector<float>{10, 14, 18}));
    EXPECT_EQ(ch->evaluate(14), 20.0f);
    EXPECT_EQ(ch->getPendingEvalTime(), 9.0f); // keeps its global time

    // No length, or a reversed range: as if the new length were the tolerance.
    for (float end : {7.0f, 6.0f})
    {
        build(ch, {{1, 10}, {3, 20}, {5, 30}});
        ch->stretch(7, end);
        ASSERT_EQ(ch->getNKeys(), 3);
        EXPECT_EQ(ch->getStart(), 7.0f);
        EXPECT_NEAR(ch->getLength(), tol, tol * 1e-5f) << end;
        EXPECT_EQ(seg(0)->getLength(), seg(1)->getLength());
    }
    build(ch, {{1, 10}, {3, 20}, {5, 30}});
    ch->stretch(1, NAN);
    EXPECT_EQ(keyTimes(ch), (std::vector<float>{1, 3, 5}));
}

TEST_F(CHChannelMove, StretchLeavesATiedOutSideToTheNextSegment)
{
    // Handles as lengths: slope 0, so a side that is stretched doubles with the time.
    struct Case
    {
        const char *next;        // the second segment's expression
        bool slope_tied, accel_tied;
        float out_accel;         // the first segment's, after doubling the time
        bool accel_tied_after;
    } const cases[] = {
        {"bezier()", false, false, 0.6f, false},
        {"bezier()", true, false, 0.3f, false}, // follows the next in side, which is not tied
        {"bezier()", true, true, 0.6f, true},   // takes the next in side, stretched
        {"linear()", true, true, 0.6f, true},   // a kind without accels keeps the tie
        {"if(0, bezier(), linear())", true, true, 0.3f, false}, // another kind with accels: untied
    };
    for (const Case &c : cases)
    {
        SCOPED_TRACE(std::string(c.next) + " " + std::to_string(c.slope_tied) + std::to_string(c.accel_tied));
        build(ch, {{0, 0, 0, 0.3f, "bezier()"}, {1, 1, 0, 0.3f, c.next}, {2, 0, 0, 0.3f}});
        seg(0)->tieOutSlope(c.slope_tied, true, 0);
        seg(0)->tieOutAccel(c.accel_tied, true);
        ch->stretch(0, 4);
        EXPECT_EQ(keyTimes(ch), (std::vector<float>{0, 2, 4}));
        EXPECT_FLOAT_EQ(seg(0)->getOutAccel(), c.out_accel);
        EXPECT_EQ(seg(0)->isOutAccelTied(), c.accel_tied_after);
        EXPECT_FLOAT_EQ(seg(0)->getInAccel(), 0.6f);
    }
}

// Random unit-sized channels, start not 0.
TEST_F(CHChannelMove, RandomMovesAndStretchesComeBack)
{
    std::mt19937 rng(20261125);
    std::uniform_real_distribution<float> value(-1, 1), slope(-1, 1), gap(0.25f, 1.25f),
        origin(-20, 20), unit(0, 1), scale(0.2f, 5.0f), delta(0.1f, 3.0f);
    const char *const kinds[] = {"constant()", "linear()", "cubic()", "bezier()"};
    for (int round = 0; round < 80; ++round)
    {
        const char *kind = kinds[round % 4];
        SCOPED_TRACE(std::string(kind) + " round " + std::to_string(round));
        std::vector<chTestKey> keys;
        float t = origin(rng);
        int n = 2 + round % 5;
        for (int i = 0; i < n; ++i)
        {
            keys.push_back({t, value(rng), slope(rng), 0, kind});
            t += gap(rng);
        }
        build(ch, keys);
        const std::vector<float> times = keyTimes(ch);
        std::vector<float> local;
        for (int i = 0; i < n; ++i)
            local.push_back(seg(static_cast<unsigned>(i))->getStart());

        // One key there and back, strictly between its neighbours.
        std::size_t k = static_cast<std::size_t>(rng() % static_cast<unsigned>(n));
        float lo = k ? times[k - 1] : times[k] - 1, hi = k + 1 < times.size() ? times[k + 1] : times[k] + 1;
        float to = lo + 4 * tol + (hi - lo - 8 * tol) * unit(rng);
        ch->moveKeyFrame(times[k], to);
        ASSERT_EQ(ch->getNKeys(), n);
        EXPECT_NEAR(keyTimes(ch)[k], to, tol / 100);
        ch->moveKeyFrame(keyTimes(ch)[k], times[k]);
        ASSERT_EQ(ch->getNKeys(), n);
        // Local times: a global time near 0 would count the start's rounding.
        EXPECT_EQ(ch->getStart(), times.front());
        for (int i = 0; i < n; ++i)
        {
            float now = seg(static_cast<unsigned>(i))->getStart(), was = local[static_cast<std::size_t>(i)];
            EXPECT_LE(ulps(now, was), 2) << i << ": " << now << " was " << was;
        }

        // All keys by a delta, either way, often more than a key's gap.
        build(ch, keys);
        float d = (round % 2 ? 1 : -1) * delta(rng);
        UT_FloatArray offsets;
        for (float k_time : times)
            offsets.append(k_time - times.front());
        CHmoveKeysWithDelta(ch, offsets, times.front(), times.front() + d);
        ASSERT_EQ(ch->getNKeys(), n) << d;
        std::vector<float> moved = keyTimes(ch);
        for (std::size_t i = 0; i < times.size(); ++i)
            EXPECT_NEAR(moved[i], times[i] + d, tol / 100) << i;

        // Stretched (every segment stays longer than 1e-5) and back.
        build(ch, keys);
        float start = origin(rng), length = (times.back() - times.front()) * scale(rng);
        ch->stretch(start, start + length);
        EXPECT_EQ(ch->getStart(), start);
        EXPECT_NEAR(ch->getEnd(), start + length, tol / 100);
        ch->stretch(times.front(), times.back());
        std::vector<float> back = keyTimes(ch);
        for (std::size_t i = 0; i < times.size(); ++i)
            EXPECT_NEAR(back[i], times[i], tol / 100) << i;
    }
}

TEST_F(CHChannelMove, FindKeyInEachDirection)
{
    struct Case
    {
        float time, direction, found;
    } const cases[] = {
        {5, 1, 11}, {5, -1, 1}, {5 + 0.5f, 1, 11}, {5 - 0.5f, -1, 1}, // a key at time is skipped
        {5 - 0.5f, 1, 11}, {5 + 0.5f, -1, 1},
        {3, 1, 5},  {3, -1, 1}, {0, 1, 1},         {0, -1, 0},        // beyond the first key
        {20, -1, 11}, {20, 1, 20}, {11, 1, 11}, {11, -1, 5},          // the end segment is a key
        {5, 0, 5},  {1, -1, 1}, {3, 0.25f, 5},
    };
    build(ch, {{1, 10}, {5, 20}, {11, 30}});
    for (const Case &c : cases)
    {
        // Half steps stand for half a tolerance.
        float time = c.time == 5.5f ? 5 + 0.5f * tol : c.time == 4.5f ? 5 - 0.5f * tol : c.time;
        EXPECT_EQ(ch->findKey(time, c.direction), c.found) << c.time << " " << c.direction;
    }
    ch->clear();
    EXPECT_EQ(ch->findKey(3, 1), 3.0f);
    ch->insertKeyFrame(4); // one key
    struct One
    {
        float time, direction, found;
    } const one[] = {{2, 1, 4}, {2, -1, 2}, {6, -1, 4}, {6, 1, 6}, {4, 1, 4}, {4, -1, 4}};
    for (const One &c : one)
        EXPECT_EQ(ch->findKey(c.time, c.direction), c.found) << c.time << " " << c.direction;
}

TEST_F(CHChannelMove, CollectionFindKeyTakesTheNearestOverChannels)
{
    build(ch, {{1, 10}, {5, 20}, {11, 30}});
    CH_Channel *other = obj.addChannel("ty");
    build(other, {{3, 0}, {5, 1}, {8, 2}});
    struct Case
    {
        float time;
        int direction;
        float found;
    } const cases[] = {
        {4, 1, 5}, {6, -1, 5},            // both channels have a key at 5
        {4, -1, 3}, {6, 1, 8}, {5, 1, 8}, // from the other channel
        {9, 1, 11}, {2, -1, 1}, {0, 1, 1}, {12, 1, 12}, {0, -1, 0}, {5, 0, 5},
    };
    for (const Case &c : cases)
        EXPECT_EQ(obj.findKey(c.time, c.direction), c.found) << c.time << " " << c.direction;
}

TEST_F(CHChannelMove, TransferredKeysCarryTheirTimeGroup)
{
    CH_Channel *source = obj.addChannel("ty");
    build(source, {{0, 0}, {10, 7, 0, 0, "ease()"}, {20, 5}});
    build(ch, {{0, 0}, {30, 3}});
    CH_TimeGroup group("walk", 0);
    ASSERT_TRUE(group.addEntry(source->getSegment(1u), true));

    ch->transferKey(12, source, 10);
    ASSERT_EQ(ch->getNKeys(), 3);
    EXPECT_EQ(ch->evaluate(12), 7.0f);
    EXPECT_STREQ(seg(1)->getExpression(), "ease()");
    EXPECT_EQ(seg(1)->getTimeGroup(), &group);
    EXPECT_TRUE(group.findEntry(seg(1)));
    EXPECT_EQ(group.numEntries(ch), 1);
    EXPECT_EQ(group.numEntries(source), 1);

    // Away from a key: the sampled curve, no group.
    ch->transferKey(20, source, 5);
    EXPECT_EQ(ch->evaluate(20), 3.5f);
    EXPECT_EQ(group.numEntries(ch), 1);

    // A key moved onto its neighbour takes its group along.
    build(ch, {{1, 10}, {5, 20}, {11, 30}});
    CH_TimeGroup run("run", 0);
    ASSERT_TRUE(run.addEntry(seg(1), true));
    ch->moveKeyFrame(5, 11);
    ASSERT_EQ(ch->getNKeys(), 2);
    EXPECT_EQ(ch->getEndSegment()->getTimeGroup(), &run);
    EXPECT_EQ(run.numEntries(ch), 1);
}

TEST_F(CHChannelMove, FirstSegmentAtTheGlobalStart)
{
    mgr.setGlobalTime(-2, 50);
    ASSERT_EQ(ch->setKeyValue(4, 8, true, false, false), 0); // pending 4 at 8
    ch->initializeFirstSegment("constant()", CH_ORVISH);
    ASSERT_EQ(ch->getNKeys(), 1);
    EXPECT_EQ(ch->getStart(), mgr.getGlobalStart());
    EXPECT_STREQ(ch->getEndSegment()->getExpression(), "constant()");
    EXPECT_EQ(ch->getEndSegment()->getInValue(), 4.0f);
    for (float t : {-10.0f, -2.0f, 30.0f})
        EXPECT_EQ(ch->evaluate(t), 4.0f) << t;
    EXPECT_EQ(ch->getPendingEvalTime(), 8.0f);
}

TEST_F(CHChannelMove, RefusedEditsChangeNothing)
{
    CH_Channel *source = obj.addChannel("ty");
    build(source, {{0, 0}, {10, 7}});
    CH_Channel *empty = obj.addChannel("tz");
    build(ch, {{1, 10}, {5, 20}, {11, 30}});
    obj.refuse = true;
    obj.events = 0;
    ch->moveKeyFrame(5, 8);
    ch->moveKeyFrame(5, 11);
    ch->moveKeyFrame(1, 0);
    CHmoveKeysWithDelta(ch, UT_FloatArray{0, 4, 10}, 1, 2);
    ch->stretch(0, 40);
    ch->transferKey(3, source, 10);
    empty->initializeFirstSegment("constant()", CH_ORVISH);
    EXPECT_EQ(obj.events, 0);
    EXPECT_EQ(keyTimes(ch), (std::vector<float>{1, 5, 11}));
    EXPECT_EQ(ch->evaluate(3), 15.0f);
    EXPECT_TRUE(empty->isEmpty());
}

} // namespace
