// Match, repeat and cycle segments, against values worked out by hand from
// the neighbours' keys. Segments are evaluated through the engine, by name.
#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <support/chTestChannelBuilder.h>

#include <ev/EV_Engine.h>
#include <ev/EV_Function.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

class chErrorCollection : public CH_Collection
{
public:
    using CH_Collection::CH_Collection;
    void reportError(const char *, int, const char *message) override { errors.push_back(message); }
    std::vector<std::string> errors;
};

// "replayread()" counts the segment evaluations of a runaway replay and
// returns 0. Past the bound the work would be exponential, and it cannot be
// stopped from outside, so the test program ends there with a failure.
constexpr long theReplayBound = 10000;
long theReplayReads = 0;
void replayRead(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int)
{
    if (++theReplayReads > theReplayBound)
    {
        ADD_FAILURE() << "more than " << theReplayBound << " nested reads";
        std::fflush(stdout);
        std::_Exit(1);
    }
    result->setFloat(0);
}
EV_FUNCTION theReplayRead(0, "replayread", 0, EV_TYPEFLOAT, nullptr, replayRead);

class CHMatch : public ::testing::Test
{
protected:
    void SetUp() override { mgr.setContext(); ch = obj.addChannel("tx"); }
    void keys(std::vector<chTestKey> k) { chTestChannelBuilder::build(*ch, k); }
    float at(float t) { return obj.evaluate(ch, t, false, 0); }
    // Segment i at local time t, also where the channel would pick another.
    float seg(unsigned i, float t) { return ch->evaluateSegment(ch->getSegment(i), t, false, 0); }

    CH_Manager mgr;
    CH_Collection root{&mgr};
    chErrorCollection obj{&mgr, &root, "obj"};
    CH_Channel *ch = nullptr;
};

// Linear 0 -> 2 over [0, 1] (slope 2), match() over [1, 2], the function
// under test over [2, 4] (keys 10 -> 6, out value then set to 7), linear
// 6 -> 4 over [4, 5] (slope -2). Both lookups from [2, 4] skip the match()
// segment: previous (1, 2, slope 2), next (4, 6, slope -2).
TEST_F(CHMatch, MiddleSegmentAndGaps)
{
    auto middle = [&](const char *e) {
        keys({{0, 0}, {1, 2, 0, 0, "match()"}, {2, 10, 0, 0, e}, {4, 6}, {5, 4}});
        ch->getSegment(2u)->setOutValue(7, false);
        return at(3);
    };
    EXPECT_FLOAT_EQ(middle("matchin()"), 6.0f);   // 2 + 2 (3 - 1)
    EXPECT_FLOAT_EQ(middle("matchout()"), 8.0f);  // 6 + 2 (4 - 3)
    EXPECT_FLOAT_EQ(middle("vmatchin()"), 12.0f); // own in 10 + 2 (3 - 2)
    EXPECT_FLOAT_EQ(middle("vmatchout()"), 9.0f); // own out 7 + 2 (4 - 3)
    // Two calls: the first one's sampling must not move the second's time.
    EXPECT_FLOAT_EQ(middle("matchin() + matchout()"), 14.0f);
    // Hermite at u = 1/2, L = 2: (in + out)/2 + (L si - L so)/8. match carries
    // 2 along slope 2 to in' = 4 (out' = 6): 5 + (4 + 4)/8 = 6; vmatch keeps
    // 10 and 7: 8.5 + 1 = 9.5.
    EXPECT_FLOAT_EQ(middle("match()"), 6.0f);
    EXPECT_FLOAT_EQ(middle("vmatch()"), 9.5f);
    // The match() over [1, 2] looks past [2, 4] (a match segment) to (4, 6):
    // out' = 6 + 2 * 2 = 10, L = 1: 6 + (2 + 2)/8 = 6.5.
    EXPECT_FLOAT_EQ(at(1.5f), 6.5f);
    // vmatchout on [1, 2] keeps its out 10, slope -2 from 4: 10 + 2 * 0.5.
    keys({{0, 0}, {1, 2, 0, 0, "vmatchout()"}, {2, 10, 0, 0, "match()"}, {4, 6}, {5, 4}});
    EXPECT_FLOAT_EQ(at(1.5f), 11.0f);
}

// A bezier neighbour's tangent at its end is its out handle's direction,
// whatever the time cubic's roots there: before 1.5 = 1 + 0.5 * -3, the
// in handle's direction (-4) gave -1.
TEST_F(CHMatch, MatchTakesTheBezierTangentAtTheKey)
{
    mgr.setSamplesPerSec(24);
    keys({{0, 0, -4, 0.1f, "bezier()"}, {1, 1, -3, 0.1f, "matchin()"}, {2, 0}});
    EXPECT_NEAR(at(1.5f), -0.5f, 1e-5);
    // The mirror image: matchout before a bezier that leaves its key at slope 2.
    keys({{0, 0}, {1, 1, 0, 0, "matchout()"}, {2, 3, 2, 0.1f, "bezier()"}, {3, 0, 5, 0.1f}});
    EXPECT_NEAR(at(1.5f), 2.0f, 1e-5); // 3 - 2 * 0.5
}

TEST_F(CHMatch, FirstAndLastSegments)
{
    // No previous segment: value and slope 0.
    keys({{0, 3, 0, 0, "matchin()"}, {2, 5}, {3, 7}});
    EXPECT_EQ(at(0.5f) + at(1.5f), 0.0f);
    keys({{0, 3, 0, 0, "vmatchin()"}, {2, 5}, {3, 7}});
    EXPECT_EQ(at(0.5f), 3.0f);
    EXPECT_EQ(at(1.5f), 3.0f);
    // The last list segment's next is the end segment holding the last key:
    // value 8, slope 0 (no length) - unless it is a match segment itself.
    keys({{0, 1}, {1, 3, 0, 0, "matchout()"}, {2, 8}});
    EXPECT_EQ(at(1.5f), 8.0f);
    keys({{0, 1}, {1, 3, 0, 0, "matchout()"}, {2, 8, 0, 0, "matchout()"}});
    EXPECT_EQ(at(1.5f), 0.0f);
}

TEST_F(CHMatch, MatchJoinsLinearNeighboursAndShortSegments)
{
    // Between slope 2 ending at (1, 2) and slope -2 starting at (3, 5).
    keys({{0, 0}, {1, 2, 0, 0, "match()"}, {3, 5}, {4, 3}});
    const float h = 1e-3f;
    EXPECT_FLOAT_EQ(seg(1, 1), 2.0f);
    EXPECT_FLOAT_EQ(seg(1, 3), 5.0f);
    EXPECT_NEAR((seg(1, 1 + h) - seg(1, 1)) / h, 2.0f, 2e-2);
    EXPECT_NEAR((seg(1, 3) - seg(1, 3 - h)) / h, -2.0f, 2e-2);
    // Bezier neighbour: its handle's direction, slope 3, at its end (2, 2).
    keys({{0, 0, 1, 0, "bezier()"}, {2, 2, 3, 0.5f, "matchin()"}, {4, 9}, {5, 9}});
    EXPECT_NEAR(at(3), 5.0f, 1e-4);
    // t^2 neighbours have no exact form: one-sided differences of step L/100
    // inside them, (1 - 0.99^2)/0.01 = 1.99 at 1 and (3.01^2 - 9)/0.01 = 6.01
    // at 3, so at 2 both 1 + 1.99 and 9 - 6.01 give 2.99 (exact: 3).
    keys({{0, 0, 0, 0, "$T * $T"}, {1, 1, 0, 0, "matchin()"}, {3, 9, 0, 0, "$T * $T"}, {4, 16}});
    EXPECT_NEAR(at(2), 2.99f, 1e-3);
    keys({{0, 0, 0, 0, "$T * $T"}, {1, 1, 0, 0, "matchout()"}, {3, 9, 0, 0, "$T * $T"}, {4, 16}});
    EXPECT_NEAR(at(2), 2.99f, 1e-3);
    // Shorter than 0.001: the mean of in and out (the Hermite gives 2.625 at u = 1/4).
    keys({{0, 0}, {1, 2, 0, 0, "match()"}, {1.0005f, 6}, {2, 0}});
    EXPECT_FLOAT_EQ(seg(1, 1.000125f), 4.0f);
}

TEST_F(CHMatch, Repeat)
{
    mgr.setSamplesPerSec(24);
    // From global 1: linear 0 -> 4 -> 0 over local [0, 2], replayed on [2, 6].
    for (const char *e : {"repeatt(1, 3)", "repeat(25, 73)"}) // frame 25 at 24 fps = 1 s
    {
        keys({{1, 0}, {2, 4}, {3, 0, 0, 0, e}, {7, 0}});
        EXPECT_FLOAT_EQ(at(3.5f), 2.0f) << e;  // local 2.5 -> 0.5
        EXPECT_FLOAT_EQ(at(6.25f), 3.0f) << e; // local 5.25 -> 3.25 - 2 = 1.25
        EXPECT_EQ(seg(2, 1), 0.0f) << e;       // inside the range it replays
    }
    // A replayed time on the repeating segment itself evaluates it again,
    // inside its range: 0. At 2 (local 2): m = 3 + 1 = 4 lies on [1, 11).
    keys({{0, 0}, {1, 5, 0, 0, "repeatt(3, 6)"}, {11, 0}});
    EXPECT_EQ(at(2), 0.0f);
    // Before the first key the channel's left behaviour answers.
    keys({{0, 3, 0, 0, "repeatt(-2, 0)"}, {4, 7}, {5, 1}});
    ch->setLeftBehavior(CH_CHANNEL_DEFAULT);
    ch->setDefaultValue(9);
    EXPECT_EQ(at(1), 9.0f); // m = -1
    ch->setLeftBehavior(CH_CHANNEL_EXTEND);
    EXPECT_EQ(at(1), 0.0f); // the segment itself at -1, inside its range
    // Hold re-enters the segment at 0, outside its range, without end: the
    // engine's nesting limit stops it with an error, not a crash.
    ch->setLeftBehavior(CH_CHANNEL_HOLD);
    EXPECT_TRUE(std::isfinite(at(1)));
}

// Local [0, 2] of a linear 0 -> 3 and a bezier 3 -> 1 with zero accels (a
// straight line, slope -2), cycled on [2, 8]: in value 1, and each cycle
// adds v(2-) - v(0) = 1, so boundaries 2, 4, 6 give 1, 2, 3.
TEST_F(CHMatch, CycleContinuesAcrossBoundaries)
{
    keys({{1, 0}, {2, 3, 0, 0, "bezier()"}, {3, 1, 0, 0, "cyclet(1, 3)"}, {9, 0}});
    for (int n = 0; n < 3; ++n)
    {
        float b = 2.0f * n + 3; // global time of local boundary 2n + 2
        EXPECT_NEAR(at(b), 1.0f + n, 1e-4) << n;
        if (n > 0) // 5e-5 before: m just below 2, where the map snaps to 0
        {
            EXPECT_NEAR(at(b - 5e-5f), 1.0f + n, 1e-3) << n;
        }
    }
    EXPECT_NEAR(at(3.5f), 2.5f, 1e-4);  // m = 0.5 on the linear: 1 + 1.5
    EXPECT_NEAR(at(6.5f), 4.0f, 1e-3);  // m = 1.5 on the line (2), n = 1: 1 + 2 + 1
    EXPECT_EQ(seg(2, 1), 0.0f);         // inside the range
    // A range ending on a key where the value jumps (4 to 10) ends at its left
    // limit: at 3.5, m = 0.5, n = 1: 5 + 2 + (4 - 0) = 11.
    keys({{0, 0}, {1, 4}, {2, 5, 0, 0, "cyclet(0, 1)"}, {4, 0}});
    ch->getSegment(1u)->setInValue(10, false);
    EXPECT_FLOAT_EQ(at(3.5f), 11.0f);
    keys({{1, 0}, {2, 4, 0, 0, "cyclet(2, 2.000001)"}, {3, 8}});
    EXPECT_EQ(at(2.5f), 6.0f); // degenerate range: (4 + 8) / 2

    // Frame-aligned at 30 fps: cycle(1, 21) is local [0, 2/3] of 0 -> 3 -> 1
    // (the second piece slope -6), cycled from frame 21; boundaries at frames
    // 21, 41, 61, 81 give 1 .. 4, one frame before 1 + 1.2 + (n - 1).
    mgr.setSamplesPerSec(30);
    keys({{0, 0}, {1 / 3.0f, 3, 0, 0, "bezier()"}, {2 / 3.0f, 1, 0, 0, "cycle(1, 21)"}, {3, 0}});
    for (int n = 0; n < 4; ++n)
    {
        float frame = 21.0f + 20 * n;
        EXPECT_NEAR(at(mgr.getTime(frame)), 1.0f + n, 1e-3) << frame;
        if (n > 0)
        {
            EXPECT_NEAR(at(mgr.getTime(frame - 1)), 1.2f + n, 1e-3) << frame;
        }
    }
}

// A range ending within the tolerance before the last key ends on that key,
// as the range ending on it does: the constant 1 over [1, 2] replayed from
// the cycling end segment (in value 3) with no per-cycle offset.
TEST_F(CHMatch, CycleEndingJustBeforeTheLastKey)
{
    for (const char *e : {"cyclet(1, 2)", "cyclet(1, 1.9999)"})
    {
        keys({{0, 0}, {1, 1, 0, 0, "constant()"}, {2, 3, 0, 0, e}});
        ch->setRightBehavior(CH_CHANNEL_EXTEND);
        for (float t : {2.5f, 4.5f, 10.5f})
            EXPECT_EQ(at(t), 3.0f) << e << " at " << t;
        EXPECT_TRUE(obj.errors.empty()) << e << ": " << obj.errors.front();
    }
}

// Replays that re-enter themselves without end read the channel three times
// per nesting level. Once the nesting limit is reached the evaluation ends
// at once, with one error for the whole of it.
TEST_F(CHMatch, EndlessReplayStopsAtTheNestingLimit)
{
    mgr.setSamplesPerSec(24);
    struct
    {
        std::vector<chTestKey> keys;
        CH_ChannelBehavior left;
    } cases[] = {
        {{{0, 0, 0, 0, "cycle(25, 49) + replayread()"}, {1, 10, 0, 0, "cycle(1, 25)"}, {2, 5}}, CH_CHANNEL_HOLD},
        {{{0, 0, 0, 0, "cycle(-47, -23) + replayread()"}, {1, 10}}, CH_CHANNEL_HOLD},
    };
    ev_AddFunction(&theReplayRead);
    for (auto &c : cases)
    {
        keys(c.keys);
        ch->setLeftBehavior(c.left);
        obj.errors.clear();
        theReplayReads = 0;
        float v = at(0.5f);
        int pending = ev_GetErrNo(0); // reported, so cleared
        // Each of the 64 levels reads the channel a few times at most.
        EXPECT_LE(theReplayReads, 64 * 4);
        // The next evaluation on the thread starts afresh.
        ch->setLeftBehavior(CH_CHANNEL_DEFAULT);
        keys({{0, 0}, {1, 10}});
        float fresh = at(0.5f);
        EXPECT_TRUE(std::isfinite(v));
        EXPECT_EQ(pending, 0);
        EXPECT_EQ(fresh, 5.0f);
        ASSERT_EQ(obj.errors.size(), 1u);
        EXPECT_NE(obj.errors[0].find(ev_GetErrorText(EV_ERRRECURSION)), std::string::npos) << obj.errors[0];
    }
}

TEST_F(CHMatch, CycleOfTimeDependentRange)
{
    // $T over [0, 1], cycled: the range's end is read at its own time (1), so
    // the ramp continues: at 2.5, 1 + 0.5 + 1 = 2.5. The cycle segment's own
    // local time survives the call: linear 1 -> 0 over [1, 5] at 2.5 is 0.625.
    keys({{0, 0, 0, 0, "$T"}, {1, 1, 0, 0, "cyclet(0, 1)"}, {5, 0}});
    EXPECT_NEAR(at(2.5f), 2.5f, 1e-5);
    keys({{0, 0, 0, 0, "$T"}, {1, 1, 0, 0, "cyclet(0, 1) + linear()"}, {5, 0}});
    EXPECT_NEAR(at(2.5f), 3.125f, 1e-5);
    // No evaluating collection: 0.
    EXPECT_EQ(mgr.evalMatchFunc(0) + mgr.evalCycletFunc(0, 1, 0) + mgr.evalRepeatFunc(1, 2, 0), 0.0f);
}

} // namespace
