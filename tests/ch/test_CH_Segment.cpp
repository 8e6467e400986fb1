// Segments and keys: classification, ties, accels, lengths, knots, and
// reading and writing keys.
#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_Key.h>
#include <ch/channel/CH_ReversibleKey.h>
#include <ch/channel/CH_Segment.h>
#include <ch/expr/CH_ExprFunctions.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <support/chTestChannelBuilder.h>

#include <ev/EV_Function.h>

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>

namespace {

class CHSegment : public ::testing::Test
{
protected:
    void SetUp() override { mgr.setContext(); }
    CH_Manager mgr;
    CH_Collection obj{&mgr, nullptr, "obj"};
    CH_Channel ch{&obj, "tx"};
};

TEST_F(CHSegment, ConstructionAndClassification)
{
    CH_Segment s(2.5f, &ch, 1.0f);
    EXPECT_STREQ(s.getExpression(), "2.5");
    EXPECT_TRUE(s.getFlags().isDefault());
    EXPECT_EQ(unsigned(s.getFlags()) & 0xfc00u, 0xfc00u); // all six ties
    EXPECT_EQ(unsigned(s.getFlags()) & CH_SegmentFlags::FUNCTION_BITS, 0u);

    struct
    {
        const char *text;
        unsigned bit;
    } cases[] = {{"ease()", 0x10},  {"ease(1)", 0},      {" ease()", 0},
                 {"lock(3)", 0x80}, {"qlinear()", 0x100000}, {"spline()", 0x100},
                 {"constant()", 1}};
    for (const auto &c : cases)
    {
        s.changeExpression(c.text, CH_ORVISH);
        EXPECT_EQ(unsigned(s.getFlags()) & CH_SegmentFlags::FUNCTION_BITS, c.bit) << c.text;
    }
    EXPECT_TRUE(CH_Segment::expressionIsAnimationFunctionCall("cyclet()"));
    EXPECT_FALSE(CH_Segment::expressionIsAnimationFunctionCall("cycle(1, 24)"));
    EXPECT_FALSE(CH_Segment::expressionIsAnimationFunctionCall(nullptr));

    // The compact flag form round-trips the locks and ties only.
    CH_SegmentFlags f;
    f.set(CH_SegmentFlags::START_LOCKED | CH_SegmentFlags::BEZIER, true);
    f.set(CH_SegmentFlags::IN_SLOPE_TIED, false);
    unsigned compact = f.getFlag();
    EXPECT_EQ(compact, (0x3f0u & ~0x40u) | 0x4u); // ties in 4-9 minus in slope (6), start lock (2)
    CH_SegmentFlags g;
    g.set(CH_SegmentFlags::BEZIER, true);
    g.parseFlag(compact);
    EXPECT_EQ(unsigned(g), unsigned(f));
}

// Every library function called without arguments has one kind, whose usage
// bits are its registered record's and whose direct call (if any) is that
// record's; a segment with the text gets the kind when the text is set.
TEST_F(CHSegment, KindsAgreeWithTheRegisteredFunctions)
{
    int kinds = 0;
    CH_Segment s(0.0f, &ch, 1.0f);
    for (EV_FUNCTION **f = CHgetExpressionFunctionTable(); *f; ++f)
    {
        std::string text = std::string((*f)->getName()) + "()";
        const CH_InterpolationKind *kind = CHfindInterpolationKind(text.c_str());
        bool named = text.find("noise") == std::string::npos && text.find("turb") == std::string::npos &&
                     text.rfind("eval", 0) != 0;
        ASSERT_EQ(kind != nullptr, named) << text;
        if (!kind)
            continue;
        ++kinds;
        EXPECT_STREQ(kind->text, text.c_str());
        EXPECT_EQ(kind->usage, (*f)->getUserFlags()) << text;
        EXPECT_EQ(kind->isMatch(), text.find("match") != std::string::npos) << text;
        if (kind->call.evaluate)
        {
            EXPECT_EQ(kind->call.record, *f) << text;
        }
        s.changeExpression(text.c_str(), CH_ORVISH);
        EXPECT_EQ(s.getInterpolationKind(), kind) << text;
        EXPECT_TRUE(s.expressionIsAnimationFunctionCall()) << text;
    }
    EXPECT_EQ(kinds, 23);
    s.changeExpression("linear( )", CH_ORVISH);
    EXPECT_EQ(s.getInterpolationKind(), nullptr);
    EXPECT_FALSE(s.expressionIsAnimationFunctionCall());
}

TEST_F(CHSegment, LengthsSlopesAndAccels)
{
    CH_Segment s(0.0f, &ch, 1.0f);
    s.changeLength(-3.0f);
    EXPECT_EQ(s.getLength(), 1e-5f);
    EXPECT_FLOAT_EQ(s.getILength(), 1e5f);
    s.changeLength(0.0f);
    EXPECT_EQ(s.getILength(), 1e8f);

    s.changeLength(4.0f);
    s.setInSlope(5e9f, false);
    EXPECT_EQ(s.getInSlope(), 1e8f);
    s.setInSlope(0.0f, false);
    s.setInAccel(2.0f, false);
    EXPECT_EQ(s.getValue(true, CH_ACCEL), 0.5f); // 2 * cos(0) / 4
    // Ratio for slope 1: cos(atan 1) = 1/sqrt 2.
    EXPECT_FLOAT_EQ(CH_Segment::getAccelRatio(1.0f, 2.0f, 2.0f), 0.70710678f);
    EXPECT_FLOAT_EQ(CH_Segment::getAccelRatio(-3.0f, 1.0f, 0.0f), 0.31622777f); // 1/sqrt 10

    // A handle may not reach past the segment; below tolerance it grows.
    s.setInAccel(10.0f, false);
    EXPECT_FLOAT_EQ(s.getInAccel(), 4.0f);
    s.setInAccel(0.0f, false);
    EXPECT_EQ(s.getInAccel(), mgr.getTolerance());

    // Normalised accels cover a third of the length along the tangent.
    s.setOutSlope(1.0f, false);
    s.normalizeAccels();
    EXPECT_FLOAT_EQ(s.getOutAccelRatio(), 1.0f / 3.0f);

    // From a ratio, in single precision and in the order sqrt(s² + 1) · L · r:
    // sqrt 2 · 5 = 7.0710678 (rounded), · 0.2 = 1.41421354 (not ...366).
    s.changeLength(5.0f);
    s.setInSlope(1.0f, false);
    s.setInAccelRatio(0.2f, false);
    EXPECT_EQ(s.getInAccel(), 1.41421354f);
    // Dividing an over-long handle down is no change of the segment's own;
    // only growing one to the tolerance marks it modified.
    s.setInSlope(0.0f, false);
    s.setInAccel(4.0f, false);
    s.changeLength(2.0f, CH_SCALE_ANY, false);
    s.setModified(0);
    s.clampInAccel();
    EXPECT_EQ(s.getInAccel(), 2.0f);
    EXPECT_FALSE(s.wasModified());
}

TEST_F(CHSegment, TiesCarryChangesOneKey)
{
    chTestChannelBuilder::build(ch, {{0, 0}, {1, 1}, {2, 2}});
    CH_Segment *a = ch.getSegment(0u), *b = ch.getSegment(1u), *end = ch.getEndSegment();
    b->setInValue(5.0f);
    EXPECT_EQ(a->getOutValue(), 5.0f);
    b->setOutValue(6.0f);
    EXPECT_EQ(end->getInValue(), 6.0f);
    EXPECT_EQ(end->getOutValue(), 2.0f); // one key only

    // Tied accels keep their proportion.
    a->setOutAccel(0.2f, false);
    b->setInAccel(0.1f, false);
    b->setInAccel(0.2f);
    EXPECT_FLOAT_EQ(a->getOutAccel(), 0.4f);

    b->tieInValue(false);
    EXPECT_FALSE(a->isOutValueTied());
    b->setInValue(7.0f);
    EXPECT_EQ(a->getOutValue(), 5.0f);
    b->tieInValue(true); // the tied side adopts the neighbour's number
    EXPECT_EQ(b->getInValue(), 5.0f);

    // Hold last key: the last segment is kept flat, a NaN key included.
    mgr.setHoldLastKey(true);
    end->setInValue(9.0f, false);
    EXPECT_EQ(end->getOutValue(), 9.0f);
    end->setInValue(std::nanf(""), true);
    EXPECT_TRUE(std::isnan(end->getOutValue()));
    mgr.setHoldLastKey(false);
}

TEST_F(CHSegment, ReverseSwapsSidesAndKnotsAsStored)
{
    CH_Segment s(0.0f, &ch, 1.0f);
    s.setInValue(1.0f, false);
    s.setOutValue(2.0f, false);
    s.tieInValue(false, false);
    s.reverse();
    EXPECT_EQ(s.getInValue(), 2.0f);
    EXPECT_TRUE(s.isInValueTied());
    EXPECT_FALSE(s.isOutValueTied());

    UT_Vector3 k5[5] = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {4, 0, 0}};
    s.setSplineKnots(k5, 5);
    s.reverse(); // only knots 1 and 3 change places
    float order5[] = {0, 3, 2, 1, 4};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(s.getSplineKnot(i).x(), order5[i]);
    s.setSplineKnots(k5, 3);
    s.reverse(); // i = 1 swaps knot 1 with itself
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(s.getSplineKnot(i).x(), float(i));
}

TEST_F(CHSegment, KeysCompleteTieAndStretch)
{
    CH_Key key;
    key.myIn.myV[CH_VALUE] = 3.0f;
    key.myIn.myValid[CH_VALUE] = true;
    key.myIn.myTied[CH_VALUE] = true;
    key.complete();
    EXPECT_EQ(key.myOut.myV[CH_VALUE], 3.0f);
    EXPECT_TRUE(key.myOut.myTied[CH_VALUE]);
    EXPECT_FALSE(key.isSet(CH_SLOPE));

    key.myIn.myV[CH_SLOPE] = 1.0f;
    key.myOut.myV[CH_SLOPE] = 3.0f;
    key.myIn.myValid[CH_SLOPE] = key.myOut.myValid[CH_SLOPE] = true;
    key.myIn.myV[CH_ACCEL] = 1.0f;
    key.myIn.myValid[CH_ACCEL] = key.myOut.myValid[CH_ACCEL] = true;
    key.tie(0, CH_SLOPE);
    key.tie(0, CH_ACCEL);
    EXPECT_EQ(key.myIn.myV[CH_SLOPE], 2.0f);
    EXPECT_EQ(key.myOut.myV[CH_SLOPE], 2.0f);
    EXPECT_EQ(key.myIn.myV[CH_ACCEL], 1.0f); // accels only marked
    EXPECT_TRUE(key.myOut.myTied[CH_ACCEL]);

    key.myOut.myV[CH_SLOPE] = 4.0f;
    key.stretch(-1.0f, 1.0f, true); // a mirror
    EXPECT_EQ(key.myIn.myV[CH_SLOPE], -4.0f);
    EXPECT_EQ(key.myOut.myV[CH_SLOPE], -2.0f);

    float slope = 1.0f, accel = 1.0f;
    CHstretchSlopeAccel(0.0f, 1.0f, slope, accel, true);
    EXPECT_EQ(slope, -1e8f); // a zero time scale counts as negative
    slope = 0.0f;
    accel = 1.0f;
    CHstretchSlopeAccel(2.0f, 1.0f, slope, accel, false);
    EXPECT_EQ(slope, 0.0f);
    EXPECT_EQ(accel, 2.0f);

    CH_ReversibleKey rk;
    rk.myHasExpression = true;
    rk.myExpression = "linear()";
    rk.reverse();
    EXPECT_TRUE(rk.myHasReverseExpression);
    EXPECT_EQ(rk.myReverseExpression, "linear()");
    EXPECT_FALSE(rk.myHasExpression);
}

TEST_F(CHSegment, KeysOnSegments)
{
    CH_Key key;
    for (CH_ValueTypes t : {CH_VALUE, CH_SLOPE, CH_ACCEL})
        key.set(t, 0.0f);
    key.tie(0, CH_VALUE);
    key.myTime = 0.0f;
    std::ostringstream os;
    key.opscript(os, false, false);
    EXPECT_EQ(os.str(), " -f 1 -v 0 -V 0 -m 0 -M 0 -a 0 -A 0 -T v");

    chTestChannelBuilder::build(ch, {{2, 1, 0.5f}, {4, 3, -0.5f}, {6, 0}});
    CH_Key got;
    got.get(ch.getSegment(0u), nullptr, false);
    EXPECT_EQ(got.myTime, 4.0f); // the left segment's end, global
    EXPECT_EQ(got.myIn.myV[CH_VALUE], 3.0f);
    EXPECT_EQ(got.myIn.myV[CH_SLOPE], -0.5f);

    ch.setLocked(true);
    got.myIn.myV[CH_VALUE] = 8.0f;
    got.put(ch.getSegment(0u), ch.getSegment(1u), false);
    EXPECT_EQ(ch.getSegment(0u)->getOutValue(), 3.0f);
    ch.setLocked(false);
    got.put(ch.getSegment(0u), ch.getSegment(1u), false);
    EXPECT_EQ(ch.getSegment(0u)->getOutValue(), 8.0f);
}

TEST_F(CHSegment, PutWritesAsIfHoldLastKeyWereOffAndLeavesTheSettingAlone)
{
    chTestChannelBuilder::build(ch, {{0, 1, 0.5f}, {2, 3, 0.5f}, {4, 5, 2.0f}});
    CH_Segment *last = ch.getSegment(1u), *end = ch.getEndSegment();
    const float end_out_value = end->getOutValue(), end_out_slope = end->getOutSlope();
    CH_Key key;
    key.get(last, end, false);
    key.myIn.myV[CH_VALUE] = 7.0f;
    key.myOut.myV[CH_VALUE] = 6.0f;
    key.myOut.myV[CH_SLOPE] = 0.25f;
    mgr.setHoldLastKey(true);
    key.put(last, end, false);
    EXPECT_EQ(mgr.getHoldLastKey(), 1);
    EXPECT_EQ(last->getOutValue(), 7.0f);
    EXPECT_EQ(end->getInValue(), 6.0f);
    EXPECT_EQ(end->getInSlope(), 0.25f);
    EXPECT_EQ(end->getOutValue(), end_out_value); // not flattened to the new key
    EXPECT_EQ(end->getOutSlope(), end_out_slope);
    end->setInValue(9.0f, false); // an ordinary setter still holds the last key
    EXPECT_EQ(end->getOutValue(), 9.0f);
    EXPECT_EQ(end->getOutSlope(), 0.0f);
    mgr.setHoldLastKey(false);
}

} // namespace

namespace {

TEST_F(CHSegment, EqualTextsShareCodeButNeverEditsOfEachOther)
{
    CH_Segment a("$IV * 2", CH_ORVISH, &ch, 1.0f), b("$IV * 2", CH_ORVISH, &ch, 1.0f);
    CH_Expression copy(*a.getCHExpr());
    b.changeExpression("$IV * 3", CH_ORVISH);
    EXPECT_STREQ(a.getExpression(), "$IV * 2");
    EXPECT_STREQ(copy.getExpression(), "$IV * 2");
    copy.setExpression("7", CH_ORVISH); // a pooled copy leaves the pool rather than edit it
    EXPECT_STREQ(a.getExpression(), "$IV * 2");
    EXPECT_EQ(copy.evaluate(0), 7.0f);
    a.getCHExpr()->unresolveLocalVars(0);
    CH_Segment c("$IV * 2", CH_ORVISH, &ch, 1.0f);
    EXPECT_STREQ(c.getExpression(), "$IV * 2");
}

} // namespace
