// The interpolation functions, against values worked out by hand from their
// formulas. Segments are evaluated through the engine, by function name.
#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_Spline.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <ev/EV_Engine.h>
#include <ut/UT_Matrix3.h>
#include <ut/UT_Quaternion.h>
#include <support/chTestChannelBuilder.h>

#include <gtest/gtest.h>

#include <Imath/ImathEuler.h>
#include <Imath/ImathQuat.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

namespace {

class CHInterp : public ::testing::Test
{
protected:
    void SetUp() override { mgr.setContext(); ch = obj.addChannel("tx"); }
    // The first segment of keys a -> b (both with expr) at local time t.
    float seg(const char *expr, chTestKey a, chTestKey b, float t)
    {
        a.expr = b.expr = expr;
        chTestChannelBuilder::build(*ch, {a, b});
        return ch->evaluateSegment(ch->getSegment(0u), t, false, 0);
    }
    float at(CH_Channel *c, float t) { return obj.evaluate(c, t, false, 0); }
    void keys(CH_Channel *c, std::vector<chTestKey> k) { chTestChannelBuilder::build(*c, k); }

    CH_Manager mgr;
    CH_Collection root{&mgr};
    CH_Collection obj{&mgr, &root, "obj"};
    CH_Channel *ch = nullptr;
};

TEST_F(CHInterp, ConstantAndLinear)
{
    EXPECT_EQ(seg("constant()", {1, 3}, {5, 7}, 2), 3.0f);
    EXPECT_EQ(seg("linear()", {1, 2}, {5, 10}, 1), 4.0f); // u = 1/4 of 2 -> 10
    EXPECT_EQ(seg("linear()", {1, 2}, {5, 10}, -1), 2.0f);
    EXPECT_EQ(seg("linear()", {1, 2}, {5, 10}, 9), 10.0f);
    // The end value is in + (out - in): in float 1e-8 - 1 is -1, so 0, not 1e-8.
    EXPECT_EQ(seg("linear()", {0, 1}, {1, 1e-8f}, 1), 0.0f);
    // Segments are at least 1e-5 long, but after a 0.1 one the float end 0.1 + 1e-5
    // lies 9.9987e-6 past the start: 0 < L < 1e-5, so halfway inside.
    keys(ch, {{0, 0}, {0.1f, 2}, {0.1f + 1e-5f, 10}});
    EXPECT_EQ(ch->evaluateSegment(ch->getSegment(1u), 0.1f + 5e-6f, false, 0), 6.0f);
    EXPECT_EQ(ch->evaluateSegment(ch->getSegment(1u), 0.1f + 9e-6f, false, 0), 6.0f);
}

TEST_F(CHInterp, ZeroLengthSegments)
{
    for (const char *e : {"cubic()", "quintic()", "bezier()"}) // (in + out) / 2 at any time
        EXPECT_EQ(seg(e, {0, 2}, {0, 10}, -1) + seg(e, {0, 2}, {0, 10}, 1), 12.0f) << e;
    for (const char *e : {"linear()", "ease()", "easein()", "easeout()", "easep(2)"})
        EXPECT_EQ(seg(e, {0, 2}, {0, 10}, 0) + 10 * seg(e, {0, 2}, {0, 10}, 1), 102.0f) << e;
}

TEST_F(CHInterp, CubicAndQuintic)
{
    // cubic, 0 -> 1 flat, L 2: A = 0, B = -2, so 3u^2 - 2u^3; t = 0.5 is u = 1/4.
    EXPECT_FLOAT_EQ(seg("cubic()", {0, 0}, {2, 1}, 0.5f), 0.15625f);
    // in slope 1, out slope 0, values 0, L 2: A = 2, B = 2, so 2u - 4u^2 + 2u^3.
    EXPECT_FLOAT_EQ(seg("cubic()", {0, 0, 1}, {2, 0, 0}, 0.5f), 0.28125f);
    EXPECT_EQ(seg("cubic()", {0, 0, 1}, {2, 5, 0}, 2), 5.0f);
    // Accels are at least the tolerance tau = 1/2400; equal ones add tau (u^2/2 - u^3 +
    // u^4/2) <= tau/32 = 1.3e-5 to the quintic values below. quintic, 0 -> 1 flat, L 1: c3, c4, c5 = 10, -15, 6.
    EXPECT_NEAR(seg("quintic()", {0, 0}, {1, 1}, 0.25f), 0.103515625f, 2e-5);
    // in slope 1 alone, L 1: A = 1, D = -1, E = -1, F = 0 -> u - 6u^3 + 8u^4 - 3u^5.
    EXPECT_NEAR(seg("quintic()", {0, 0, 1}, {1, 0}, 0.5f), 0.15625f, 2e-5);
    // in accel 1 alone, L 2: C = 1, D = -1, E = -2, F = -2 -> u^2 - 3u^3 + 3u^4 - u^5
    // (scaled by L once; by L^2 it would double).
    EXPECT_NEAR(seg("quintic()", {0, 0, 0, 1}, {2, 0}, 0.5f), 0.0263671875f, 2e-5);
}

TEST_F(CHInterp, EaseFamily)
{
    // 0 -> 10 over L 4; t = 1 is u = 1/4.
    EXPECT_NEAR(seg("ease()", {0, 0}, {4, 10}, 1), 1.464466f, 1e-5);   // 0.5 - 0.5 cos(pi/4)
    EXPECT_NEAR(seg("easein()", {0, 0}, {4, 10}, 1), 0.7612047f, 1e-5); // 1 - cos(pi/8)
    EXPECT_NEAR(seg("easeout()", {0, 0}, {4, 10}, 1), 3.826834f, 1e-5); // sin(pi/8)
    EXPECT_NEAR(seg("easep(2)", {0, 0}, {4, 10}, 1), 0.2144661f, 1e-5); // e^2
    EXPECT_NEAR(seg("easeoutp(3)", {0, 0}, {4, 10}, 1), 0.5604269f, 1e-5);
    // p = 0.5: 1 - (1 - e)^2 = 1 - cos^2(pi/8) = sin^2(pi/8).
    EXPECT_NEAR(seg("easeinp(0.5)", {0, 0}, {4, 10}, 1), 1.464466f, 1e-5);
    EXPECT_EQ(seg("easeinp(1)", {0, 0}, {4, 10}, 1), seg("easein()", {0, 0}, {4, 10}, 1));
    // p < 1e-5 gives exactly 1 inside, whatever the keys; the ends still give the keys.
    EXPECT_EQ(seg("easep(0)", {0, 10}, {4, 10}, 1), 1.0f);
    EXPECT_EQ(seg("easep(0)", {0, 10}, {4, 10}, 0), 10.0f);
    EXPECT_EQ(seg("easeout()", {0, 0}, {4, 10}, 5), 10.0f);
}

TEST_F(CHInterp, Bezier)
{
    // Zero accels: inner points on the keys, time and value share 3u^2 - 2u^3: a line.
    // (Accels are at least the tolerance: handles 1/2400 long, within 1e-3 of it.)
    EXPECT_NEAR(seg("bezier()", {0, 0}, {4, 8}, 1), 2.0f, 1e-3);
    EXPECT_NEAR(seg("bezier()", {0, 0}, {4, 8}, 3), 6.0f, 1e-3);
    // Handles a third long in time along slope 2 (accel sqrt5/3) and -3 (sqrt10/3):
    // all four points on the line.
    const float r5 = std::sqrt(5.0f) / 3, r10 = std::sqrt(10.0f) / 3;
    EXPECT_NEAR(seg("bezier()", {0, 0, 2, r5}, {1, 2, 2, r5}, 0.3f), 0.6f, 1e-5);
    EXPECT_NEAR(seg("bezier()", {0, 3, -3, r10}, {1, 0, -3, r10}, 0.3f), 2.1f, 1e-5);
    // Flat full-length handles: x = 0.5 + 0.5 (2u - 1)^3, y = 3u^2 - 2u^3, so at t = 1/4
    // u = (1 - 2^(-1/3)) / 2 and y = 0.0297246. Accel 3 > L is cut back to L.
    EXPECT_NEAR(seg("bezier()", {0, 0, 0, 1}, {1, 1, 0, 1}, 0.25f), 0.0297246f, 1e-5);
    EXPECT_NEAR(seg("bezier()", {0, 0, 0, 3}, {1, 1, 0, 3}, 0.25f), 0.0297246f, 1e-5);
    // The out handle alone, full length: x = u^3, so t = 1/8 is u = 1/2 and y = 1/2.
    EXPECT_NEAR(seg("bezier()", {0, 0, 0, 0}, {1, 1, 0, 1}, 0.125f), 0.5f, 1e-3);
}

TEST_F(CHInterp, EveryFunctionByNameAndItsKeyUse)
{
    // Flat keys 4 -> 4: every function gives 4 inside (easep(0) aside).
    for (const char *e : {"constant()", "linear()", "qlinear()", "cubic()", "spline()", "quintic()", "ease()",
                          "easep(2)", "easein()", "easeinp(2)", "easeout()", "easeoutp(2)", "bezier()"})
    {
        keys(ch, {{0, 4, 0, 0, e}, {2, 4, 0, 0, e}});
        EXPECT_NEAR(at(ch, 1), 4.0f, 1e-4) << e; // quintic: the tolerance accels
    }
    keys(ch, {{0, 0, 0, 0, "cubic()"}, {1, 1, 0, 0, "constant()"}, {2, 0, 0, 0, "bezier()"}, {3, 0}});
    CH_Segment *cubic = ch->getSegment(0u), *constant = ch->getSegment(1u), *bezier = ch->getSegment(2u);
    EXPECT_TRUE(cubic->isInValueUsed() && cubic->isOutValueUsed() && cubic->isInSlopeUsed());
    EXPECT_FALSE(cubic->isInAccelUsed());
    EXPECT_TRUE(constant->isInValueUsed() && !constant->isOutValueUsed() && !constant->isInSlopeUsed());
    EXPECT_TRUE(bezier->isInAccelUsed());
    // Calls are never folded: with the engine's optimisation on they still see the time.
    ev_SetOptimization(1);
    float a = seg("linear() * 1 + 0", {0, 0}, {4, 8}, 1), b = seg("linear() * 1 + 0", {0, 0}, {4, 8}, 3);
    ev_SetOptimization(0);
    EXPECT_EQ(a + 10 * b, 62.0f);
    // No evaluation collection: 0, even for easep(0).
    EXPECT_EQ(mgr.evalEasepFunc(0, 0) + mgr.evalLinearFunc(0) + mgr.evalConstantFunc(0) + mgr.evalSplineFunc(0) +
                  mgr.evalQlinearFunc(0) + mgr.evalBezierFunc(0) + mgr.evalQuinticFunc(0),
              0.0f);
}

TEST(CHSpline, HermiteThroughKnots)
{
    CH_Spline s;
    auto load = [&](std::vector<std::pair<float, float>> knots) {
        s.reset();
        for (auto [t, v] : knots)
            s.addKnot(t, v);
        s.initialize();
    };
    EXPECT_EQ(s.evaluate(1), 0.0f);
    load({{2, 5}});
    EXPECT_EQ(s.evaluate(0) + s.evaluate(9), 10.0f);
    // (0,0) (1,1) (3,3): all tangents 1, a line; tension 0.5 halves the inner one,
    // at 0.5 (h = 1): 0.125 * 1 + 0.5 * 1 - 0.125 * 0.5 = 0.5625. Outside the ends hold.
    load({{0, 0}, {1, 1}, {3, 3}});
    EXPECT_FLOAT_EQ(s.evaluate(2), 2.0f);
    s.setTension(0.5f);
    s.initialize();
    EXPECT_FLOAT_EQ(s.evaluate(0.5f), 0.5625f);
    EXPECT_EQ(s.evaluate(-1) + s.evaluate(4), 3.0f);
    // (0,0) (1,1) with given end slopes 0: at 0.25 only h01 = 3/16 - 2/64 remains.
    s.setSlopes(0, 0);
    s.useSlopes(1);
    load({{0, 0}, {1, 1}});
    EXPECT_FLOAT_EQ(s.evaluate(0.25f), 0.15625f);
    // (0,1) (0,2) (1,3): equal times give tangent 0; inner (3 - 1) / 1 = 2, last 1:
    // at 0.5: 0.5 * 2 + 0.125 * 2 + 0.5 * 3 - 0.125 * 1 = 2.625.
    s.useSlopes(0);
    s.setTension(0);
    load({{0, 1}, {0, 2}, {1, 3}});
    EXPECT_FLOAT_EQ(s.evaluate(0.5f), 2.625f);
    EXPECT_EQ(s.evaluate(0), 1.0f);
    // A hint only saves the search: right, wrong or out of range, the value
    // is the searched one, also on knots and at equal knot times.
    load({{0, 1}, {0, 2}, {1, 3}, {2.5f, -1}, {3, 0}});
    for (float t : {-1.0f, 0.0f, 0.25f, 1.0f, 1.5f, 2.5f, 2.75f, 3.0f, 4.0f})
        for (int hint : {-1, 0, 1, 2, 3, 4, 99})
            EXPECT_EQ(s.evaluate(t, hint), s.evaluate(t)) << t << " " << hint;
}

TEST_F(CHInterp, SplineRuns)
{
    const char *sp = "spline()";
    keys(ch, {{0, 0, 0, 0, sp}, {1, 2, 0, 0, sp}, {2, 1, 0, 0, sp}, {3, 3, 0, 0, sp}, {4, 0, 0, 0, sp}});
    // Through key 2 with the centred tangent (3 - 2) / (3 - 1) = 0.5 on both sides.
    const float h = 1e-3f;
    EXPECT_FLOAT_EQ(at(ch, 2), 1.0f);
    EXPECT_NEAR((at(ch, 2) - at(ch, 2 - h)) / h, 0.5f, 1e-2f);
    EXPECT_NEAR((at(ch, 2 + h) - at(ch, 2)) / h, 0.5f, 1e-2f);
    // A linear segment at key 2 ends the run at (2, 1): tangents 2, 0.5, -1, and at 1.5
    // 0.5 * 2 + 0.125 * 0.5 + 0.5 * 1 + 0.125 = 1.6875 (all five knots would give 1.5).
    keys(ch, {{0, 0, 0, 0, sp}, {1, 2, 0, 0, sp}, {2, 1}, {3, 3, 0, 0, sp}, {4, 0, 0, 0, sp}});
    EXPECT_FLOAT_EQ(at(ch, 1.5f), 1.6875f);
    // On a ramp every run gives the ramp back up to its last knot. 500 keys: 499 knots
    // and the final one; 600: the first 500 knots only, and the value then holds.
    auto ramp = [&](int n) {
        std::vector<chTestKey> k;
        for (int i = 0; i < n; ++i)
            k.push_back({float(i), float(i), 0, 0, sp});
        keys(ch, k);
    };
    ramp(500);
    EXPECT_FLOAT_EQ(at(ch, 498.5f), 498.5f);
    ramp(600);
    EXPECT_FLOAT_EQ(at(ch, 550.5f), 499.0f);
}

// The knots of the spline run around list segment i, gathered here from the
// segments' numbers: (start, in value) per spline segment of the run, then the
// last one's (end, out value).
std::vector<std::pair<float, float>> chRunKnots(const CH_Channel &c, int i)
{
    int n = c.getNKeys() - 1;
    auto spline = [&](int k) { return !std::strcmp(c.getSegment(unsigned(k))->getExpression(), "spline()"); };
    int a = i, b = i;
    while (a > 0 && spline(a - 1))
        --a;
    while (b + 1 < n && spline(b + 1))
        ++b;
    std::vector<std::pair<float, float>> knots;
    for (int k = a; k <= b; ++k)
        knots.emplace_back(c.getSegment(unsigned(k))->getStart(), c.getSegment(unsigned(k))->getInValue());
    knots.emplace_back(c.getSegment(unsigned(b))->getEnd(), c.getSegment(unsigned(b))->getOutValue());
    return knots;
}

// Catmull-Rom-like Hermite in double: centred differences inside, one-sided
// ones at the ends.
double chHermite(const std::vector<std::pair<float, float>> &k, double t)
{
    std::size_t n = k.size(), i = 0;
    while (i + 2 < n && t >= k[i + 1].first)
        ++i;
    auto tangent = [&](std::size_t j) {
        std::size_t a = j ? j - 1 : 0, b = j + 1 < n ? j + 1 : n - 1;
        return (double(k[b].second) - k[a].second) / (double(k[b].first) - k[a].first);
    };
    double h = double(k[i + 1].first) - k[i].first, s = (t - k[i].first) / h;
    return (2 * s * s * s - 3 * s * s + 1) * k[i].second + (s * s * s - 2 * s * s + s) * h * tangent(i) +
           (3 * s * s - 2 * s * s * s) * k[i + 1].second + (s * s * s - s * s) * h * tangent(i + 1);
}

// A run's spline is built once and kept by its segments; every edit that can
// change the curve must drop it, also on spline neighbours of the edited
// segment. Each case warms the whole channel, edits it, then checks a probe
// segment against the run the edited channel has (bit for bit through
// CH_Spline, and independently in double).
TEST_F(CHInterp, SplineRunFollowsEveryEdit)
{
    const char *sp = "spline()";
    struct Case
    {
        const char *what;
        int probe; // list segment evaluated after the edit
        std::function<void(CH_Channel &)> edit;
    };
    const Case cases[] = {
        {"in value two segments on", 1, [](CH_Channel &c) { c.getSegment(3u)->setInValue(9, false); }},
        {"in value of the segment before", 4, [](CH_Channel &c) { c.getSegment(3u)->setInValue(-7, false); }},
        {"the run's final knot", 5, [](CH_Channel &c) { c.getSegment(6u)->setOutValue(12, false); }},
        {"a segment turned linear ends the run", 2,
         [](CH_Channel &c) { c.getSegment(3u)->changeExpression("linear()", CH_ORVISH); }},
        {"a segment's text changed to linear", 2,
         [](CH_Channel &c) { c.getSegment(3u)->changeString("spline", "linear", true, 0); }},
        {"a segment removed", 1,
         [](CH_Channel &c) { chTestChannelBuilder::removeSegment(c, c.getSegment(3u)); }},
        {"a segment lengthened", 3,
         [](CH_Channel &c) {
             c.getSegment(2u)->changeLength(2.5f);
             c.adjustSegmentTimes(true);
         }},
    };
    const float times[] = {0, 1, 2.5f, 3, 4.5f, 5, 6, 7.5f};
    const float values[] = {0, 3, -1, 4, 2, 6, 1, 5};
    for (const Case &c : cases)
    {
        SCOPED_TRACE(c.what);
        std::vector<chTestKey> k;
        for (int i = 0; i < 8; ++i)
            k.push_back({times[i], values[i], 0, 0, sp});
        keys(ch, k);
        for (float t = 0; t <= 7.5f; t += 0.125f) // every run built and kept
            at(ch, t);
        auto probe_times = [&] {
            const CH_Segment *s = ch->getSegment(unsigned(c.probe));
            float a = s->getStart(), l = s->getLength();
            return std::vector<float>{a + 0.2f * l, a + 0.5f * l, a + 0.9f * l};
        };
        std::vector<double> before;
        for (float t : probe_times())
            before.push_back(chHermite(chRunKnots(*ch, c.probe), t));
        c.edit(*ch);
        std::vector<std::pair<float, float>> knots = chRunKnots(*ch, c.probe);
        CH_Spline exact;
        for (auto [t, v] : knots)
            exact.addKnot(t, v);
        exact.initialize();
        std::vector<float> after = probe_times();
        double moved = 0;
        for (std::size_t i = 0; i < after.size(); ++i)
        {
            float t = after[i];
            double model = chHermite(knots, t);
            moved = std::max(moved, std::fabs(model - before[i]));
            EXPECT_EQ(at(ch, t), exact.evaluate(t)) << t;
            EXPECT_NEAR(at(ch, t), model, 1e-4 * (1 + std::fabs(model))) << t;
        }
        EXPECT_GT(moved, 0.1) << "the edit must move the curve on the probe";
    }
}

// The matrix of Euler angles in degrees.
UT_Matrix3 chMatrix(const UT_Vector3 &degrees, const UT_XformOrder &order)
{
    UT_Quaternion q;
    q.updateFromEuler(degrees * float(M_PI / 180), order);
    UT_Matrix3 m;
    q.getRotationMatrix(m);
    return m;
}

// Halfway along the short arc between two unit quaternions is their normalised sum.
UT_Matrix3 chHalfway(const UT_Vector3 &a, const UT_Vector3 &b, const UT_XformOrder &order)
{
    UT_Quaternion qa, qb;
    qa.updateFromEuler(a * float(M_PI / 180), order);
    qb.updateFromEuler(b * float(M_PI / 180), order);
    float s = qa.dot(qb) < 0 ? -1.0f : 1.0f;
    UT_Quaternion m(qa.x() + s * qb.x(), qa.y() + s * qb.y(), qa.z() + s * qb.z(), qa.w() + s * qb.w());
    m.normalize();
    UT_Matrix3 r;
    m.getRotationMatrix(r);
    return r;
}

TEST_F(CHInterp, QlinearSingleAxisAndFallback)
{
    CH_Channel *rx = obj.addChannel("rx"), *ry = obj.addChannel("ry"), *rz = obj.addChannel("rz");
    (void)ry;
    keys(rx, {{0, 0, 0, 0, "qlinear()"}, {1, 90, 0, 0, "qlinear()"}});
    EXPECT_NEAR(at(rx, 0.25f), 22.5f, 1e-3);
    // 0 -> 270 about X is -90 the short way: halfway is -45 ...
    keys(rx, {{0, 0, 0, 0, "qlinear()"}, {1, 270, 0, 0, "qlinear()"}});
    EXPECT_NEAR(at(rx, 0.5f), -45.0f, 1e-3);
    // ... and without a full triple (1 - u) in + u out = 135.
    obj.deleteChannel(rz);
    EXPECT_NEAR(at(rx, 0.5f), 135.0f, 1e-3);
}

TEST_F(CHInterp, QlinearWithoutATripleRunsFromInToOut)
{
    // "tx" has no "ty" or "tz": (1 - u) in + u out, at a point where
    // swapping in and out shows (u = 1/4: 2 + 8 / 4).
    EXPECT_EQ(seg("qlinear()", {0, 2}, {4, 10}, 1), 4.0f);
    EXPECT_EQ(seg("qlinear()", {0, 2}, {4, 10}, 3), 8.0f);
}

TEST_F(CHInterp, QlinearTripleIsTheSlerpOfTheEndRotations)
{
    const UT_Vector3 a(10, 80, -30), b(120, -20, 60);
    CH_Channel *r[3] = {obj.addChannel("rx"), obj.addChannel("ry"), obj.addChannel("rz")};
    for (int i = 0; i < 3; ++i) // from time 1: siblings are read at global times
        keys(r[i], {{1, a[i], 0, 0, "qlinear()"}, {3, b[i], 0, 0, "qlinear()"}});
    UT_Vector3 mid(at(r[0], 2), at(r[1], 2), at(r[2], 2));
    EXPECT_TRUE(chMatrix(mid, UT_XformOrder::XYZ).isEqual(chHalfway(a, b, UT_XformOrder::XYZ), 1e-4f));
    for (int o = 0; o < 6; ++o)
    {
        UT_XformOrder order(static_cast<UT_XformOrder::RotOrder>(o));
        UT_Vector3 angles = CH_Manager::interpolateEulerDegrees(a, b, 0.5f, order);
        EXPECT_TRUE(chMatrix(angles, order).isEqual(chHalfway(a, b, order), 1e-4f)) << order.name();
    }
    // Staggered keys: rx (0 -> 90 over 0..2) asks ry at 0 (before its keys: its in value
    // 0) and at 2, where ry's own lookup would need rx again and falls back to the
    // linear 30. rz keyless: 0.
    keys(r[0], {{0, 0, 0, 0, "qlinear()"}, {2, 90, 0, 0, "qlinear()"}});
    keys(r[1], {{1, 0, 0, 0, "qlinear()"}, {3, 60, 0, 0, "qlinear()"}});
    r[2]->clear();
    UT_Vector3 expect;
    chHalfway({0, 0, 0}, {90, 30, 0}, UT_XformOrder::XYZ).crack(expect, UT_XformOrder::XYZ);
    EXPECT_NEAR(at(r[0], 1), expect[0] * float(180 / M_PI), 1e-3);
}

// qlinear() worked out apart from the library, in double precision: each
// end rotation built by Imath from its Euler angles in the given order,
// slerped along the shorter arc, and read back as angles in that order.
UT_Vector3 chQlinearByHand(const UT_Vector3 &a, const UT_Vector3 &b, double u, Imath::Eulerd::Order order)
{
    auto quat = [order](const UT_Vector3 &deg) {
        Imath::V3d radians(deg[0], deg[1], deg[2]);
        return Imath::Eulerd(radians * (M_PI / 180), order, Imath::Eulerd::XYZLayout).toQuat();
    };
    Imath::Eulerd e(order);
    e.extract(Imath::slerpShortestArc(quat(a), quat(b), u));
    Imath::V3d deg = e.toXYZVector() * (180 / M_PI);
    return UT_Vector3(float(deg.x), float(deg.y), float(deg.z));
}

// Distinct angles on every axis, far from gimbal lock in all three orders.
const UT_Vector3 theFrom(20, 50, -35), theTo(100, -30, 70);

// qlinear()'s fallback at u = 1/4, (1 - u) in + u out: exact in float for these keys.
float chFallbackAtQuarter(float in, float out)
{
    return 0.75f * in + 0.25f * out;
}

TEST_F(CHInterp, QlinearTripleInterpolatesInTheCollectionsRotationOrder)
{
    CH_Channel *r[3] = {obj.addChannel("rx"), obj.addChannel("ry"), obj.addChannel("rz")};
    for (int i = 0; i < 3; ++i)
        keys(r[i], {{1, theFrom[i], 0, 0, "qlinear()"}, {3, theTo[i], 0, 0, "qlinear()"}});
    const struct
    {
        UT_XformOrder::RotOrder ours;
        Imath::Eulerd::Order imath;
    } orders[] = {{UT_XformOrder::ZXY, Imath::Eulerd::ZXY},
                  {UT_XformOrder::YXZ, Imath::Eulerd::YXZ},
                  {UT_XformOrder::XYZ, Imath::Eulerd::XYZ}};
    const float us[] = {0.125f, 0.375f, 0.5f, 0.8125f};
    UT_Vector3 got[3][4];
    for (int o = 0; o < 3; ++o)
    {
        obj.setXformOrder(orders[o].ours);
        for (int k = 0; k < 4; ++k)
        {
            UT_Vector3 expect = chQlinearByHand(theFrom, theTo, us[k], orders[o].imath);
            for (int i = 0; i < 3; ++i)
            {
                got[o][k][i] = at(r[i], 1 + 2 * us[k]);
                EXPECT_NEAR(got[o][k][i], expect[i], 2e-3) << UT_XformOrder(orders[o].ours).name()
                                                           << " u " << us[k] << " axis " << i;
            }
        }
    }
    // The same keys read in XYZ are another rotation: ignoring the order shows.
    for (int o = 0; o < 2; ++o)
        for (int k = 0; k < 4; ++k)
        {
            float apart = 0;
            for (int i = 0; i < 3; ++i)
                apart = std::max(apart, std::fabs(got[o][k][i] - got[2][k][i]));
            EXPECT_GT(apart, 1.0f) << UT_XformOrder(orders[o].ours).name() << " u " << us[k];
        }
}

// A host's collection answers its node's order through the virtual.
TEST_F(CHInterp, QlinearAsksTheHostForTheRotationOrder)
{
    struct chZXYCollection : CH_Collection
    {
        using CH_Collection::CH_Collection;
        UT_XformOrder getXformOrder() const override { return UT_XformOrder::ZXY; }
    } node(&mgr, &root, "node");
    CH_Channel *r[3] = {node.addChannel("rx"), node.addChannel("ry"), node.addChannel("rz")};
    for (int i = 0; i < 3; ++i)
        keys(r[i], {{0, theFrom[i], 0, 0, "qlinear()"}, {2, theTo[i], 0, 0, "qlinear()"}});
    UT_Vector3 expect = chQlinearByHand(theFrom, theTo, 0.25, Imath::Eulerd::ZXY);
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(node.evaluate(r[i], 0.5f, false, 0), expect[i], 2e-3) << i;
}

// Siblings are whatever channels hold the triple's names (or aliases) now:
// renames, aliases, deletions and late additions all change the triple.
TEST_F(CHInterp, QlinearSiblingsFollowNameChanges)
{
    CH_Channel *rx = obj.addChannel("rx"), *ry = obj.addChannel("ry"), *rz = obj.addChannel("rz");
    CH_Channel *r[3] = {rx, ry, rz};
    for (int i = 0; i < 3; ++i)
        keys(r[i], {{0, theFrom[i], 0, 0, "qlinear()"}, {2, theTo[i], 0, 0, "qlinear()"}});
    // At t = 0.5 (u = 1/4) the slerp and the fallback (1 - u) in + u out,
    // exact in float here, are far apart.
    const UT_Vector3 slerp = chQlinearByHand(theFrom, theTo, 0.25, Imath::Eulerd::XYZ);
    auto fallback = [](int i) { return chFallbackAtQuarter(theFrom[i], theTo[i]); };
    auto whole = [&](const char *step) {
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(at(r[i], 0.5f), slerp[i], 2e-3) << step << " axis " << i;
    };
    auto broken = [&](const char *step) {
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(at(r[i], 0.5f), fallback(i)) << step << " axis " << i;
    };
    ASSERT_GT(std::fabs(slerp[0] - fallback(0)), 1.0f);
    whole("at first");

    ASSERT_EQ(obj.rename("ry", "rq"), 1);
    broken("ry renamed away"); // r[1], now "rq", is no axis at all
    ASSERT_EQ(obj.rename("rq", "ry"), 1);
    whole("renamed back");

    // A sibling found by its alias completes the triple; dropping the alias
    // breaks it again.
    ASSERT_EQ(obj.rename("ry", "pitch"), 1);
    broken("ry renamed to pitch");
    ASSERT_TRUE(obj.setChannelAlias(*ry, "ry"));
    EXPECT_NEAR(at(rx, 0.5f), slerp[0], 2e-3);
    EXPECT_NEAR(at(rz, 0.5f), slerp[2], 2e-3);
    EXPECT_EQ(at(ry, 0.5f), fallback(1)) << "its own name is pitch";
    ASSERT_TRUE(obj.setChannelAlias(*ry, ""));
    broken("alias dropped");
    ASSERT_EQ(obj.rename("pitch", "ry"), 1);
    whole("pitch renamed back");

    // Deleted: the others fall back, and no triple keeps the freed channel.
    obj.deleteChannel("rz");
    EXPECT_EQ(at(rx, 0.5f), fallback(0));
    EXPECT_EQ(at(ry, 0.5f), fallback(1));
    // Added later: the triple is whole again.
    r[2] = rz = obj.addChannel("rz");
    keys(rz, {{0, theFrom[2], 0, 0, "qlinear()"}, {2, theTo[2], 0, 0, "qlinear()"}});
    whole("rz added again");

    // A channel renamed out of its triple forgets it, so deleting its old
    // siblings leaves it nothing stale to read.
    ASSERT_EQ(obj.rename("ry", "rq"), 1);
    obj.deleteChannel("rx");
    obj.deleteChannel("rz");
    EXPECT_EQ(at(ry, 0.5f), fallback(1));
}

// A channel's alias may name another axis of its own triple; it is still
// not its own sibling, so the triple lacks that axis.
TEST_F(CHInterp, QlinearChannelIsNeverItsOwnSibling)
{
    CH_Channel *rx = obj.addChannel("rx"), *rz = obj.addChannel("rz");
    keys(rx, {{0, theFrom[0], 0, 0, "qlinear()"}, {2, theTo[0], 0, 0, "qlinear()"}});
    keys(rz, {{0, theFrom[2], 0, 0, "qlinear()"}, {2, theTo[2], 0, 0, "qlinear()"}});
    ASSERT_TRUE(obj.setChannelAlias(*rx, "ry"));
    EXPECT_EQ(at(rx, 0.5f), chFallbackAtQuarter(theFrom[0], theTo[0]));
    EXPECT_EQ(at(rz, 0.5f), chFallbackAtQuarter(theFrom[2], theTo[2]));
}

// Two channels swapped between collections trade places in the collections
// too: each belongs to the triple of its new name there, or to none.
TEST_F(CHInterp, QlinearTripleFollowsAChannelSwappedAway)
{
    CH_Collection other{&mgr, &root, "other"};
    CH_Channel *r[3] = {obj.addChannel("rx"), obj.addChannel("ry"), obj.addChannel("rz")};
    for (int i = 0; i < 3; ++i)
        keys(r[i], {{0, theFrom[i], 0, 0, "qlinear()"}, {2, theTo[i], 0, 0, "qlinear()"}});
    CH_Channel *roll = other.addChannel("roll");
    keys(roll, {{0, 5, 0, 0, "qlinear()"}, {2, 9, 0, 0, "qlinear()"}});
    r[1]->swap(*roll); // r[1] becomes "roll" (keys 5 -> 9) in other, roll "ry" here
    ASSERT_EQ(obj.getChannel("ry"), roll);
    EXPECT_EQ(other.evaluate(r[1], 0.5f, false, 0), chFallbackAtQuarter(5, 9));
    UT_Vector3 slerp = chQlinearByHand(theFrom, theTo, 0.25, Imath::Eulerd::XYZ);
    EXPECT_NEAR(at(r[0], 0.5f), slerp[0], 2e-3);
    EXPECT_NEAR(at(roll, 0.5f), slerp[1], 2e-3);
    // r[1]'s old siblings go; it must not read them.
    obj.deleteChannel(r[0]);
    obj.deleteChannel(r[2]);
    EXPECT_EQ(other.evaluate(r[1], 0.5f, false, 0), chFallbackAtQuarter(5, 9));
}

} // namespace
