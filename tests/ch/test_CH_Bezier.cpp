#include <ch/channel/CH_Bezier.h>
#include <ch/channel/CH_Cubic.h>
#include <ch/channel/CH_Segment.h>
#include <ch/channel/CH_SegmentValues.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

void expectCVs(const CH_Bezier &b, const float (&x)[4], const float (&y)[4], float tol)
{
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(b.myX[i], x[i], tol) << "x" << i;
        EXPECT_NEAR(b.myY[i], y[i], tol) << "y" << i;
    }
}

void expectValues(const CH_SegmentValues &v, const CH_SegmentValues &w, float tol)
{
    const float got[8] = {v.myStart, v.myEnd, v.myInValue, v.myOutValue, v.myInSlope, v.myOutSlope,
                          v.myInAccel, v.myOutAccel};
    const float want[8] = {w.myStart, w.myEnd, w.myInValue, w.myOutValue, w.myInSlope, w.myOutSlope,
                           w.myInAccel, w.myOutAccel};
    for (int i = 0; i < 8; ++i)
        EXPECT_NEAR(got[i], want[i], tol) << "field " << i;
}

// L = 6. In: slope 2 (the 1/|s| path): cos = 0.5/sqrt(1.25) = 1/sqrt5, so 2·sqrt5 long gives
// extents (2, 4). Out: slope −1: sin = −1/sqrt2, cos = 1/sqrt2, 2·sqrt2 long gives (2, −2).
// Both time extents are L/3, so time is 10 + 6u.
const CH_SegmentValues kThirds(10, 16, 1, 4, 2, -1, 2 * std::sqrt(5.0f), 2 * std::sqrt(2.0f));

TEST(CH_Bezier, InitAndGetValuesAreInverse)
{
    CH_Bezier b(kThirds);
    expectCVs(b, {10, 12, 14, 16}, {1, 5, 6, 4}, 1e-5f);
    CH_SegmentValues v;
    b.getValues(v);
    expectValues(v, kThirds, 1e-5f);

    CH_SegmentValues negative = kThirds;
    negative.myInAccel = -negative.myInAccel; // only the length counts
    expectCVs(CH_Bezier(negative), {10, 12, 14, 16}, {1, 5, 6, 4}, 1e-5f);
    // Slope −3, sqrt10 long: cos = (1/3)/sqrt(1/9 + 1) = 1/sqrt10, extents (1, −3).
    expectCVs(CH_Bezier({0, 4, 0, 0, -3, 0, std::sqrt(10.0f), 0}), {0, 1, 4, 4}, {0, -3, 0, 0}, 1e-5f);
    // Slope 1e30 (its square overflows a float): cos ~ 1e-30, a vertical handle.
    expectCVs(CH_Bezier({0, 4, 0, 0, 1e30f, 0, 2, 0}), {0, 0, 4, 4}, {0, 2, 0, 0}, 1e-5f);

    // Too long for L = 2: in (4, 4) scaled by 2/4 to (2, 2), out (5, 0) to (2, 0); each ends on
    // the other key exactly, and getValues gives the shortened lengths 2·sqrt2 and 2.
    b.init({0, 2, 0, 1, 1, 0, 4 * std::sqrt(2.0f), 5});
    expectCVs(b, {0, 2, 0, 2}, {0, 2, 1, 1}, 1e-5f);
    b.init({-0.3f, 1.9f, 0, 0, 0, 0, 5, 5}); // -0.3f + (1.9f − -0.3f) rounds to just above 1.9f
    EXPECT_EQ(b.myX[1], 1.9f);
    EXPECT_EQ(b.myX[2], -0.3f);
    b.init({0, 2, 0, 1, 1, 0, 4 * std::sqrt(2.0f), 5});
    b.getValues(v);
    expectValues(v, {0, 2, 0, 1, 1, 0, 2 * std::sqrt(2.0f), 2}, 1e-5f);

    // No time extent: slope 0, the accel is the value extent.
    b.myX[0] = b.myX[1] = 0; b.myX[2] = b.myX[3] = 1;
    b.myY[0] = 0; b.myY[1] = 3; b.myY[2] = b.myY[3] = 1;
    b.getValues(v);
    expectValues(v, {0, 1, 0, 1, 0, 0, 3, 0}, 0);

    // From a segment: its numbers, as the Bezier function reads them.
    CH_Segment seg("bezier()", CH_ORVISH, nullptr, 6);
    seg.changeTimes(10, 16);
    seg.setInValue(1, false); seg.setOutValue(4, false);
    seg.setInSlope(2, false); seg.setOutSlope(-1, false);
    seg.setInAccel(2 * std::sqrt(5.0f), false); seg.setOutAccel(2 * std::sqrt(2.0f), false);
    expectCVs(CH_Bezier(seg), {10, 12, 14, 16}, {1, 5, 6, 4}, 1e-5f);
}

TEST(CH_Bezier, EvalAgainstHandDerivedCurves)
{
    // Time 10 + 6u. Bernstein of y = (1, 5, 6, 4): u = 1/2 gives (1 + 15 + 18 + 4)/8 = 4.75;
    // u = 1/3 gives (8·1 + 12·5 + 6·6 + 4)/27 = 4.
    CH_Bezier b(kThirds);
    EXPECT_NEAR(b.timeToParametric(11.5f), 0.25f, 1e-6f);
    EXPECT_NEAR(b.eval(13), 4.75f, 1e-5f);
    EXPECT_NEAR(b.evalP(0.5f), 4.75f, 1e-5f);
    EXPECT_NEAR(b.eval(12), 4, 1e-5f);
    for (float t : {9.0f, 10.0f}) // the start key and before it: the in value
        EXPECT_EQ(b.eval(t), 1.0f);
    for (float t : {16.0f, 17.0f})
        EXPECT_EQ(b.eval(t), 4.0f);

    // L = 0.3, accel (L/3)·sqrt(s² + 1): cubic and square terms of time are rounding noise.
    b.init({0.1f, 0.4f, 0, 1, 0.5f, 0.5f, 0.1f * std::sqrt(1.25f), 0.1f * std::sqrt(1.25f)});
    EXPECT_NEAR(b.timeToParametric(0.1f + 0.3f * 0.37f), 0.37f, 1e-5f);

    // Zero accels: x = 2 + 4s(u) and y = 1 + 8s(u) with the same s = 3u² − 2u³, so y = 2t − 3.
    b.init({2, 6, 1, 9, 5, -7, 0, 0});
    expectCVs(b, {2, 2, 6, 6}, {1, 1, 9, 9}, 0);
    for (float t : {2.0f, 2.5f, 3.7f, 5.9f, 6.0f})
        EXPECT_NEAR(b.eval(t), 2 * t - 3, 1e-5f) << t;

    // Zero length: no handle keeps a time extent, and every time gives the in value.
    b.init({3, 3, 2, 7, 1, -1, 1, 1});
    expectCVs(b, {3, 3, 3, 3}, {2, 2, 7, 7}, 0);
    EXPECT_EQ(b.eval(3), 2.0f);
    EXPECT_EQ(b.eval(4), 2.0f);
    b.init({5, 3, 2, 7, 1, -1, 1, 1}); // end before start: handles as for zero length
    expectCVs(b, {5, 5, 3, 3}, {2, 2, 7, 7}, 0);
}

// An independent model of eval(t): bisection on the parameter with de
// Casteljau points in long double, to far below float precision.
long double chCasteljau(const float (&p)[4], long double u)
{
    long double a = p[0], b = p[1], c = p[2], d = p[3], v = 1 - u;
    a = v * a + u * b, b = v * b + u * c, c = v * c + u * d;
    a = v * a + u * b, b = v * b + u * c;
    return v * a + u * b;
}

long double chModelEval(const CH_Bezier &b, float t)
{
    if (t <= b.myX[0])
        return b.myY[0];
    if (t >= b.myX[3])
        return b.myY[3];
    long double lo = 0, hi = 1;
    for (int i = 0; i < 64; ++i) {
        long double mid = (lo + hi) / 2;
        (chCasteljau(b.myX, mid) < t ? lo : hi) = mid;
    }
    return chCasteljau(b.myY, (lo + hi) / 2);
}

// eval() against the model over many random segments: lengths from 0.01 to
// 100, slopes up to 5 (every seventh side up to 1000), handles up to half
// and up to all of the length. The error is taken against the curve's value
// span (the largest distance of a value control point from the in value, at
// least 1); the worst seen is just under 1e-5, from float rounding of the
// time cubic's coefficients and of the parameter where steep values magnify
// it. (Both handles flat and as long as the segment stop time at the middle,
// where that rounding moves the parameter by its cube root: see the next
// test.)
TEST(CH_Bezier, EvalMatchesADenseModelOverRandomSegments)
{
    std::mt19937 rng(20241124);
    std::uniform_real_distribution<float> unit(0, 1), sym(-1, 1);
    for (float max_ratio : {0.5f, 1.0f}) { // handle time extent / length
        double worst = 0;
        for (int n = 0; n < 3000; ++n) {
            float start = 200 * sym(rng), length = std::pow(10.0f, 4 * unit(rng) - 2);
            float in = 50 * sym(rng), out = 50 * sym(rng);
            float slopes[2], accels[2];
            for (int side = 0; side < 2; ++side) {
                float s = n % 7 == 0 ? 1000 * sym(rng) : 5 * sym(rng);
                slopes[side] = s;
                // The accel that gives this time extent along slope s.
                accels[side] = max_ratio * unit(rng) * length * std::sqrt(1 + s * s);
            }
            CH_Bezier b(CH_SegmentValues(start, start + length, in, out, slopes[0], slopes[1], accels[0],
                                         accels[1]));
            double span = 1;
            for (float y : b.myY)
                span = std::max(span, double(std::fabs(y - b.myY[0])));
            for (int k = 0; k <= 20; ++k) {
                float t = start + length * k / 20.0f;
                worst = std::max(worst, double(std::fabs(b.eval(t) - chModelEval(b, t))) / span);
            }
        }
        EXPECT_LE(worst, 2e-5) << "handles up to " << max_ratio << " of the length";
    }
}

// Slope 0, accel L: x1 = end, x2 = start, so x(u) = start + (L/2)(1 + (2u − 1)³), a triple root
// at mid time, and y = in + (out − in)(3u² − 2u³). So u = 1/2 + cbrt(2δ/L)/2 at t = mid + δ.
TEST(CH_Bezier, FullLengthHandlesPassTheFlatMiddleWithoutJumps)
{
    CH_Bezier b({100, 124, 0, 10, 0, 0, 24, 24});
    EXPECT_NEAR(b.eval(112), 5, 1e-5f);
    float prev = b.eval(111.9f);
    for (int i = -99; i <= 100; ++i) {
        float t = 112 + 0.001f * i;
        double u = 0.5 + std::cbrt((double(t) - 112) / 12) / 2;
        float v = b.eval(t);
        EXPECT_NEAR(v, 10 * (3 * u * u - 2 * u * u * u), 2e-3) << t;
        EXPECT_GT(v, prev) << t; // steps are at least 0.004
        prev = v;
    }
    // Far along the time line, with a length that is no short float: still the middle value.
    float start = 1000.1f, end = 1000.6f;
    b.init({start, end, 0, 10, 0, 0, end - start, end - start});
    EXPECT_NEAR(b.eval(start + (end - start) / 2), 5, 1e-2f);
}

TEST(CH_Bezier, PowerFormAndSubdivision)
{
    CH_Cubic c;
    const float p[4] = {1, 2, 4, 8}; // a = 1, b = 6 − 3, c = 12 − 12 + 3, d = 8 − 12 + 6 − 1: (1 + u)³
    CH_Bezier::getCubicFromCVs(p, c);
    EXPECT_EQ(c.myA, 1.0f); EXPECT_EQ(c.myB, 3.0f); EXPECT_EQ(c.myC, 3.0f); EXPECT_EQ(c.myD, 1.0f);

    // u = 1/4 on (0, 4, 8, 16): (1, 5, 10), then (2, 6.25), then 3.0625.
    float q[4] = {0, 4, 8, 16}, right[4];
    CH_Bezier::splitInternal(q, 0.25f, q, right); // left written over its input
    const float wantL[4] = {0, 1, 2, 3.0625f}, wantR[4] = {3.0625f, 6.25f, 10, 16};
    for (int i = 0; i < 4; ++i) {
        EXPECT_FLOAT_EQ(q[i], wantL[i]);
        EXPECT_FLOAT_EQ(right[i], wantR[i]);
    }

    // x = (0, 1, 2, 3) and y = (0, 3, 3, 0) at t = 1.5 (u = 1/2): y halves (0, 1.5, 2.25, 2.25)
    // and (2.25, 2.25, 1.5, 0), x halves (0, 0.5, 1, 1.5) and (1.5, 2, 2.5, 3); the outer
    // handles keep slope ±3 at half the length, sqrt(0.5² + 1.5²); the new ones are flat, 0.5.
    CH_Bezier b({0, 3, 0, 0, 3, -3, std::sqrt(10.0f), std::sqrt(10.0f)});
    CH_SegmentValues l, r;
    EXPECT_NEAR(b.splitAndFindSlopeLengths(1.5f, l, r), 0.5f, 1e-6f);
    expectValues(l, {0, 1.5f, 0, 2.25f, 3, 0, std::sqrt(2.5f), 0.5f}, 1e-5f);
    expectValues(r, {1.5f, 3, 2.25f, 0, 0, -3, 0.5f, std::sqrt(2.5f)}, 1e-5f);
}

// Halves of a de Casteljau split trace the same curve: at every time, and again after a trip
// through segment values (how a key gets inserted) when the halves' handles fit within them.
// Full-length handles (the second curve) leave handles that reach past the split point.
TEST(CH_Bezier, SplittingLeavesTheCurveUnchanged)
{
    const CH_SegmentValues curves[] = {kThirds, {-3, 5, 2, -6, 7, -0.3f, 4, 1.5f}, {0, 2, 0, 1, 1, 0, 4, 5}};
    for (const CH_SegmentValues &values : curves) {
        bool halvesFit = &values != &curves[2];
        CH_Bezier b(values);
        float start = values.myStart, len = values.myEnd - values.myStart;
        for (float f : {0.05f, 0.5f, 0.83f}) {
            float ts = start + f * len;
            CH_Bezier l, r;
            b.split(ts, l, r);
            EXPECT_EQ(l.myX[3], ts);
            CH_SegmentValues lv, rv;
            b.splitAndFindSlopeLengths(ts, lv, rv);
            CH_Bezier l2(lv), r2(rv);
            for (int i = 0; i <= 40; ++i) {
                float t = start + len * i / 40;
                float want = b.eval(t);
                EXPECT_NEAR((t <= ts ? l : r).eval(t), want, 1e-4f) << ts << " " << t;
                if (halvesFit) {
                    EXPECT_NEAR((t <= ts ? l2 : r2).eval(t), want, 1e-4f) << ts << " " << t;
                }
            }
        }
    }
    testing::internal::CaptureStdout();
    CH_Bezier({2, 6, 1, 9, 5, -7, 0, 0}).display();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "time 2.000000 2.000000 6.000000 6.000000\tvalue 1.000000 1.000000 9.000000 9.000000\n");
}

} // namespace
