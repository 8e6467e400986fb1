// Channel structure and evaluation over hand-built channels. Segments use
// variable expressions, so each value can be worked out from the keys.
#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <ch/auxiliary/CH_ScriptAccessManager.h>

#include <ev/EV_Engine.h>
#include <ev/EV_Function.h>
#include <ev/EV_Symbol.h>
#include <ut/UT_Interrupt.h>
#include <support/chTestChannelBuilder.h>

#include <ut/UT_Thread.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

// Linear interpolation between the segment's keys, through local variables.
const char *const LIN = "$IV + ($OV - $IV) * ($LT - $LIT) / ($LOT - $LIT)";

class chErrorCollection : public CH_Collection
{
public:
    using CH_Collection::CH_Collection;
    void reportError(const char *table, int code, const char *message) override
    {
        errors.push_back(std::string(table) + ":" + std::to_string(code) + ":" + message);
    }
    int canAccessChannel(unsigned mask, const CH_Channel *channel) const override
    {
        return channel == locked ? 0 : CH_Collection::canAccessChannel(mask, channel);
    }
    std::vector<std::string> errors;
    const CH_Channel *locked = nullptr; ///< refuses every edit of this one
};

// chx_chval(t): the channel theOther at time t, evaluated through its
// collection from inside an expression.
CH_Channel *theOther = nullptr;
const int theOneFloat[] = {EV_TYPEFLOAT};
void chval(EV_FUNCTION *, EV_SYMBOL *r, EV_SYMBOL **a, int thread)
{
    r->setFloat(theOther->getCollection()->evaluate(theOther, float(a[0]->getFloat()), false, thread));
}
EV_FUNCTION theChval{0, "chx_chval", 1, EV_TYPEFLOAT, theOneFloat, chval, nullptr, nullptr, 0};

// Counts pushes and pops around segment evaluations.
struct chCountingAccess : CH_ScriptAccessManager
{
    int depth = 0, pushes = 0, pops = 0;
    void pushChEvalContext() override { ++pushes, ++depth; }
    void popChEvalContext() override { ++pops, --depth; }
};
class chAccessManager : public CH_Manager
{
public:
    CH_ScriptAccessManager *getAccessManager(int) override { return &access; }
    chCountingAccess access;
};

class CHChannel : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mgr.setContext();
        ev_SetErrNo(0, 0);
        ch = obj.addChannel("tx", 7.0f, "\"none\"");
        // Keys (0, 0), (10, 10), (20, 30); the end segment holds its in value.
        chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, LIN}, {10, 10, 0, 0, LIN}, {20, 30, 0, 0, "$IV"}});
    }
    float at(float t) { return obj.evaluate(ch, t, false, 0); }

    chAccessManager mgr;
    CH_Collection root{&mgr};
    chErrorCollection obj{&mgr, &root, "obj"};
    CH_Channel *ch = nullptr;
};

TEST_F(CHChannel, SegmentLookupGivesKeysToTheLaterSegment)
{
    float tol = mgr.getTolerance();
    ASSERT_EQ(ch->getNKeys(), 3);
    EXPECT_EQ(ch->getLength(), 20.0f);
    EXPECT_EQ(ch->getSegmentIdx(5), 0);
    EXPECT_EQ(ch->getSegmentIdx(10), 1);
    EXPECT_EQ(ch->getSegmentIdx(10 - tol / 2), 1);
    EXPECT_EQ(ch->getSegmentIdx(10 - 2 * tol), 0);
    EXPECT_EQ(ch->getSegmentIdx(20), 2); // the end segment
    EXPECT_EQ(ch->getSegmentIdx(-5), 0);
    EXPECT_EQ(ch->getSegment(2u), ch->getEndSegment());
    EXPECT_EQ(ch->getSegment(~0u), ch->getEndSegment());
    EXPECT_EQ(ch->getSegment(3u), nullptr);

    CH_Segment *left, *right;
    EXPECT_TRUE(ch->getSurroundingSegs(10, left, right));
    EXPECT_EQ(left, ch->getSegment(0u));
    EXPECT_EQ(right, ch->getSegment(1u));
    EXPECT_FALSE(ch->getSurroundingSegs(5, left, right));

    // Without cycling the end segment stands in as the neighbour at both ends.
    EXPECT_EQ(ch->getPrevSegment(0u), ch->getEndSegment());
    EXPECT_EQ(ch->getNextSegment(1u), ch->getEndSegment());
    ch->setRightBehavior(CH_CHANNEL_CYCLE);
    EXPECT_EQ(ch->getNextSegment(1u), ch->getSegment(0u));
    // Cycling with no list segment has no neighbour before the first key.
    chTestChannelBuilder::build(*ch, {{3, 1}});
    ch->setLeftBehavior(CH_CHANNEL_CYCLE);
    EXPECT_EQ(ch->getPrevSegment(0u), nullptr);
    // The end segment follows the collection's word on this very channel.
    ch->clear();
    obj.locked = ch;
    ch->updateEndSegment();
    EXPECT_EQ(ch->getEndSegment(), nullptr);
    obj.locked = nullptr;
    ch->updateEndSegment();
    EXPECT_NE(ch->getEndSegment(), nullptr);
}

TEST_F(CHChannel, InsideAndAtTheLastKey)
{
    float tol = mgr.getTolerance();
    EXPECT_FLOAT_EQ(at(5), 5.0f);
    EXPECT_FLOAT_EQ(at(15), 20.0f); // 10 + 20 * 0.5
    // At the last key (and within tolerance of it) the right behaviour
    // answers: the end segment's $IV is 30.
    EXPECT_EQ(at(20), 30.0f);
    EXPECT_EQ(at(20 - tol / 2), 30.0f);
    EXPECT_FLOAT_EQ(at(-tol / 2), -tol / 2); // the first segment, extrapolated
    ch->setLeftBehavior(CH_CHANNEL_HOLD);
    EXPECT_EQ(at(-tol / 2), -tol / 2);      // still the segment ...
    EXPECT_EQ(at(-2 * tol), 0.0f);          // ... but here the behaviour
}

TEST_F(CHChannel, Behaviours)
{
    ch->setLeftBehavior(CH_CHANNEL_EXTEND);
    EXPECT_FLOAT_EQ(at(-5), -5.0f); // the first segment's line continued
    ch->setLeftBehavior(CH_CHANNEL_HOLD);
    EXPECT_FLOAT_EQ(at(-5), 0.0f);
    ch->setLeftBehavior(CH_CHANNEL_DEFAULT);
    ch->setRightBehavior(CH_CHANNEL_DEFAULT);
    EXPECT_EQ(at(-5), 7.0f);
    EXPECT_EQ(at(25), 7.0f);

    ch->setLeftBehavior(CH_CHANNEL_CYCLE);
    ch->setRightBehavior(CH_CHANNEL_CYCLE);
    EXPECT_FLOAT_EQ(at(-2.5f), 25.0f); // at 17.5: 10 + 20 * 0.75
    EXPECT_FLOAT_EQ(at(25), 5.0f);     // at 5

    // Slope: a line through the values at the end and 0.001 inside, with
    // the 999.99994 factor standing for 1/0.001. Both ends evaluate their end
    // segment: give the last one a slope of 2.
    ch->getEndSegment()->changeExpression("$IV + 2 * ($LT - $LIT)", CH_ORVISH);
    ch->setLeftBehavior(CH_CHANNEL_SLOPE);
    ch->setRightBehavior(CH_CHANNEL_SLOPE);
    EXPECT_NEAR(at(-1), -1.0f, 1e-4);
    EXPECT_NEAR(at(21), 32.0f, 3e-3); // 30 - v(19.999) is 0.002 to float precision
}

TEST_F(CHChannel, CyclingStringsWrapLikeValues)
{
    // The channel's text at -2.5 is its text at 17.5 (10 + 20 * 0.75), at 25
    // its text at 5.
    ch->setLeftBehavior(CH_CHANNEL_CYCLE);
    ch->setRightBehavior(CH_CHANNEL_CYCLE);
    const struct
    {
        float t;
        const char *text;
    } cases[] = {{-2.5f, "25"}, {-22.5f, "25"}, {25.0f, "5"}};
    for (const auto &c : cases)
    {
        UT_String s;
        obj.evaluateString(s, ch, c.t, 0);
        EXPECT_EQ(s, c.text) << c.t;
        EXPECT_FLOAT_EQ(at(c.t), std::stof(c.text)) << c.t;
    }
}

// Deliberately no fmod by a zero length (NaN): a single key cycles as if
// held at its own time.
TEST_F(CHChannel, SingleKeyCyclesAtItsKey)
{
    chTestChannelBuilder::build(*ch, {{3, 4, 0, 0, "$IV + $LT"}});
    for (CH_ChannelBehavior left : {CH_CHANNEL_CYCLE, CH_CHANNEL_HOLD})
    {
        ch->setLeftBehavior(left);
        ch->setRightBehavior(left == CH_CHANNEL_CYCLE ? CH_CHANNEL_HOLD : CH_CHANNEL_CYCLE);
        for (float t : {-1.0f, 2.0f, 3.0f, 5.0f, 100.0f})
        {
            EXPECT_EQ(at(t), 4.0f) << t;
            UT_String s;
            obj.evaluateString(s, ch, t, 0);
            EXPECT_EQ(s, "4") << t;
        }
    }
    EXPECT_TRUE(obj.errors.empty());
}

TEST_F(CHChannel, EmptyChannelGivesItsDefaults)
{
    CH_Channel *empty = obj.addChannel("ty", 3.0f, "1+1"); // the default string is an expression
    EXPECT_EQ(obj.addChannel("ty"), empty); // a taken name gives its channel
    empty->setLeftBehavior(CH_CHANNEL_CYCLE);
    for (float t : {-10.0f, 0.0f, 100.0f})
        EXPECT_EQ(obj.evaluate(empty, t, false, 0), 3.0f);
    UT_String s;
    obj.evaluateString(s, empty, 0, 0);
    EXPECT_EQ(s, "2");
    EXPECT_FALSE(empty->isTimeDependent());
}

TEST_F(CHChannel, LocalVariablesSeeTheEvaluatedSegment)
{
    // Keys at 5, 15, 25: the channel starts at 5 and its times are local.
    chTestChannelBuilder::build(*ch, {{5, 0, 0, 0, "$LIT"}, {15, 1, 0, 0, "$PREV_IT * 1000 + $NEXT_OT"},
                                      {25, 2, 0, 0, "$IT"}});
    EXPECT_EQ(at(6), 0.0f);           // LIT of the first segment
    EXPECT_EQ(at(16), 5 * 1000 + 25); // previous starts at 5, next (end) ends at 25
    EXPECT_EQ(at(25), 25.0f);         // end segment: IT is the global key time

    chTestChannelBuilder::build(*ch, {{0, 4, 0, 0, "$LT * 100 + $IV"}, {10, 9, 0, 0, "$IV"}});
    EXPECT_FLOAT_EQ(at(2.5f), 254.0f);
    UT_String s;
    ch->getEndSegment()->changeExpression("\"$CH\"", CH_ORVISH);
    obj.evaluateString(s, ch, 10, 0);
    EXPECT_EQ(s, "tx");
    // As text: "CH" is the evaluating channel's name (its own when none was
    // given), empty with no channel; other variables print with %g, so the
    // frame 1234567 reads 1.23457e+06.
    obj.setEvalChannel(ch, 0, nullptr);
    obj.getVariableValue(1, 1, s, 0);
    EXPECT_EQ(s, "tx");
    obj.setEvalChannel(nullptr, 0, "zz");
    obj.getVariableValue(1, 1, s, 0);
    EXPECT_EQ(s, "");
    mgr.setEvaluateTime(1234566.0f / 24, 0);
    obj.getVariableValue(0, 0, s, 0);
    EXPECT_EQ(s, "1.23457e+06");
}

TEST_F(CHChannel, EvaluationErrorsReachTheCollectionOnce)
{
    chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, "nosuchfunction(1)"}, {1, 0, 0, 0, "$IV"}});
    at(0.5f);
    ASSERT_EQ(obj.errors.size(), 1u);
    EXPECT_NE(obj.errors[0].find("CH:0:"), std::string::npos);
    EXPECT_NE(obj.errors[0].find("(/obj/tx)"), std::string::npos) << obj.errors[0];
    EXPECT_EQ(ev_GetErrNo(0), 0); // cleared after reporting
    at(1);
    EXPECT_EQ(obj.errors.size(), 1u);
}

TEST_F(CHChannel, RangeEvaluationAndInterruption)
{
    float out[5];
    obj.evaluate(ch, 0, 20, out, 5, false, false, 0);
    EXPECT_FLOAT_EQ(out[1], 5.0f);
    EXPECT_FLOAT_EQ(out[3], 20.0f);
    EXPECT_EQ(out[4], 30.0f);

    // Range evaluation finds segments from the previous sample's; it must
    // agree with evaluating each time alone, also around keys closer than
    // the tolerance and for samples landing on keys.
    float tol = mgr.getTolerance();
    // The sample at 1 lies within the tolerance before the key at 1 + tol/2.
    chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, "$LIT"}, {1 + tol / 2, 0, 0, 0, "$LIT"},
                                      {1 + tol, 0, 0, 0, "$LIT"}, {1.5f, 0, 0, 0, "$LIT"},
                                      {2.25f, 0, 0, 0, "$LIT"}, {3, 0, 0, 0, "$IV"}});
    std::vector<float> range(301);
    obj.evaluate(ch, 0.0f, 3.0f, range.data(), 301, false, false, 0);
    for (int i = 0; i < 301; ++i)
        ASSERT_EQ(range[i], at(i * (3.0f / 300))) << i;
    chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, LIN}, {10, 10, 0, 0, LIN}, {20, 30, 0, 0, "$IV"}});

    // Interrupted at the poll of sample 256: the rest is zero.
    std::vector<float> big(600, -1.0f);
    UTgetInterrupt()->setProgressCallback(
        [](const char *, int percent, void *) { return percent > 0; }, nullptr);
    obj.evaluate(ch, 0, 10, big.data(), 600, false, false, 0);
    UTgetInterrupt()->setProgressCallback(nullptr, nullptr);
    UTgetInterrupt()->clearInterrupt();
    EXPECT_FLOAT_EQ(big[256], 256 * 10.0f / 599);
    EXPECT_EQ(big[257], 0.0f);
    EXPECT_EQ(big[599], 0.0f);
}

TEST_F(CHChannel, PendingStateFollowsTheTime)
{
    chTestChannelBuilder::setPending(*ch, true, 4.0f);
    UT_PtrArray<CH_Channel *> pending;
    mgr.getPendingChannels(pending);
    ASSERT_EQ(pending.entries(), 1);
    UT_String s;
    obj.evaluateString(s, ch, 4.0f, 0);
    EXPECT_EQ(s, "none"); // the default string stands for the pending value
    ch->updatePending(4.000005f);
    EXPECT_TRUE(ch->isPending());
    ch->updatePending(4.00002f);
    EXPECT_FALSE(ch->isPending());
    mgr.getPendingChannels(pending);
    EXPECT_EQ(pending.entries(), 0);

    // The manager clears what it lists, and forgets deleted channels.
    chTestChannelBuilder::setPending(*ch, true, 4.0f);
    mgr.clearPendingChannels();
    EXPECT_FALSE(ch->isPending());
    CH_Channel *other = obj.addChannel("ty");
    chTestChannelBuilder::setPending(*other, true, 1.0f);
    obj.deleteChannel(other);
    mgr.getPendingChannels(pending);
    EXPECT_EQ(pending.entries(), 0);
}

TEST_F(CHChannel, QueriesAndCopies)
{
    EXPECT_TRUE(ch->isTimeDependent());
    EXPECT_EQ(ch->match("tx"), 1);
    EXPECT_EQ(ch->match("obj/tx"), 1);
    EXPECT_EQ(ch->match("a/obj/tx"), 0);
    ch->setName("rx");
    EXPECT_TRUE(ch->isRotationChannel());
    ch->setName("rx1");
    EXPECT_FALSE(ch->isRotationChannel());
    EXPECT_STREQ(CH_Channel::getChannelTypeName(9), "Unknown");

    CH_Channel copy(&obj, *ch);
    EXPECT_EQ(copy.getNKeys(), 3);
    EXPECT_FLOAT_EQ(obj.evaluate(&copy, 15, false, 0), 20.0f);
    EXPECT_NE(copy.getSegment(0u), ch->getSegment(0u));
    EXPECT_EQ(copy.getSegment(0u)->getChannel(), &copy);
    EXPECT_GT(ch->getMemUsage(false), ch->getMemUsage(true));

    // Removing the end segment promotes the last list segment.
    CH_Segment *middle = ch->getSegment(1u);
    chTestChannelBuilder::removeSegment(*ch, ch->getEndSegment());
    EXPECT_EQ(ch->getEndSegment(), middle);
    EXPECT_EQ(ch->getLength(), 10.0f);
    EXPECT_EQ(middle->getLength(), 0.0f);
}

} // namespace

namespace {

TEST_F(CHChannel, NestedEvaluationKeepsTheCallersContext)
{
    ev_AddFunction(&theChval);
    CH_Collection other_obj(&mgr, &root, "other");
    theOther = other_obj.addChannel("ty");
    chTestChannelBuilder::build(*theOther, {{0, 100, 0, 0, "$IV + $LT"}, {50, 150, 0, 0, "$IV"}});
    // The nested call runs first; $LT and $T read afterwards must be this
    // channel's again.
    chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, "chx_chval(7) * 1000 + $LT + $T * 10"},
                                      {4, 0, 0, 0, "$LT * 3"}, {8, 0, 0, 0, "$IV"}});
    EXPECT_FLOAT_EQ(at(2), 107 * 1000 + 2 + 2 * 10);
    EXPECT_EQ(mgr.access.pushes, 2); // one per segment evaluation

    // This channel at another time, from inside itself.
    theOther = ch;
    ch->getSegment(0u)->changeExpression("chx_chval(5) * 1000 + $LT", CH_ORVISH);
    EXPECT_FLOAT_EQ(at(1), 15 * 1000 + 1);
    EXPECT_EQ(mgr.access.pushes, mgr.access.pops);
    EXPECT_EQ(mgr.access.depth, 0);
    EXPECT_EQ(obj.getEvalChannel(0), nullptr);
    EXPECT_EQ(mgr.getEvalCollection(0), nullptr);
    // Thread 0 is the calling thread here too.
    EXPECT_EQ(&mgr.evalCollectionRef(0), &mgr.evalCollectionRef(UT_Thread::getMySequentialThreadIndex()));

    // Endless self-reference stops at the engine's depth limit.
    ch->getSegment(0u)->changeExpression("chx_chval(1)", CH_ORVISH);
    at(1);
    EXPECT_FALSE(obj.errors.empty());
}

} // namespace

namespace {

// linear() segments call the library's function directly; a host that
// registers its own "linear" must still be the one called.
void hostLinear(EV_FUNCTION *, EV_SYMBOL *r, EV_SYMBOL **, int) { r->setFloat(42); }
EV_FUNCTION theHostLinear{0, "linear", 0, EV_TYPEFLOAT, nullptr, hostLinear, nullptr, nullptr, 0};

TEST_F(CHChannel, ReplacedFunctionRecordsWinOverDirectCalls)
{
    chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, "linear()"}, {10, 10, 0, 0, "linear()"}});
    EXPECT_FLOAT_EQ(at(5), 5.0f);
    EXPECT_TRUE(ch->getSegment(0u)->isInValueUsed());
    EV_FUNCTION *library = ev_FindFunction("linear");
    ev_AddFunction(&theHostLinear);
    EXPECT_EQ(at(5), 42.0f);
    ev_AddFunction(library);
    EXPECT_FLOAT_EQ(at(5), 5.0f);
}

} // namespace

namespace {

TEST_F(CHChannel, DisabledRangesHoldTheValueAtTheirStart)
{
    // ch: 0 -> 10 over [0, 10], 10 -> 30 over [10, 20].
    ch->disable(4, 6);
    EXPECT_FLOAT_EQ(at(5), 4.0f);
    EXPECT_FLOAT_EQ(at(4), 4.0f);
    EXPECT_FLOAT_EQ(at(6), 4.0f); // the end of the last range counts as disabled
    EXPECT_FLOAT_EQ(at(6.5f), 6.5f);
    ch->disable(7, 8);
    ch->disable(6, 7); // touching ranges merge
    ASSERT_EQ(ch->getNDisableSegments(), 1);
    EXPECT_FLOAT_EQ(at(7), 4.0f);
    EXPECT_TRUE(ch->isDisabled(6));
    EXPECT_FLOAT_EQ(obj.evaluate(ch, 7, true, 0), 7.0f); // ignoring disabled ranges

    ch->enable(5, 7); // split: [4, 5) holds 4, [7, 8) holds the value at 7
    ASSERT_EQ(ch->getNDisableSegments(), 2);
    EXPECT_FLOAT_EQ(at(4.5f), 4.0f);
    EXPECT_FLOAT_EQ(at(6), 6.0f);
    EXPECT_FLOAT_EQ(at(7.5f), 7.0f);

    // A change of the channel refreshes the held values.
    ch->getSegment(0u)->setInValue(2.0f, false); // now 2 -> 10 over [0, 10]
    ch->setChanged(true);
    EXPECT_FLOAT_EQ(at(4.5f), 2.0f + 8.0f * 0.4f);

    ch->enable(0, 20);
    EXPECT_TRUE(ch->isAllEnabled());
    ch->disable(-1, 25); // the whole channel: keeps the value it had at -1 (extend)
    EXPECT_TRUE(ch->isAllDisabled());
    EXPECT_FLOAT_EQ(at(15), 2.0f - 0.8f);
}

} // namespace
