// A segment's value and slope at a time (what the match functions read),
// against independent answers: the key's own slope where the function is
// built to meet it, and central differences of the segment's values inside.
#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <support/chTestChannelBuilder.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

class CHChannelSample : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mgr.setContext();
        mgr.setSamplesPerSec(24);
        ch = obj.addChannel("tx");
    }
    // Segment 0 of keys a -> b -> (b.time + 1, 0).
    CH_Segment *segment(const char *expr, chTestKey a, chTestKey b)
    {
        a.expr = expr;
        chTestChannelBuilder::build(*ch, {a, b, {b.time + 1, 0}});
        return ch->getSegment(0u);
    }
    float slopeAt(CH_Segment *s, float global_time, float *value = nullptr)
    {
        float v, slope;
        ch->sampleValueSlope(s, global_time, 0, v, slope);
        if (value)
            *value = v;
        return slope;
    }
    float valueAt(CH_Segment *s, float global_time)
    {
        return ch->evaluateSegment(s, global_time - ch->getStart(), false, 0);
    }

    CH_Manager mgr;
    CH_Collection root{&mgr};
    CH_Collection obj{&mgr, &root, "obj"};
    CH_Channel *ch = nullptr;
};

// Keys (1, 0, slope 1, accel 2) and (3, 10, slope -2, accel -1): the slope
// each function has at its keys by construction (pi/2 per unit of u for the
// quarter-wave eases, over L = 2). The bezier handles are placed in single
// precision, which leaves their directions off by up to about 1e-3.
TEST_F(CHChannelSample, SlopesAtTheKeys)
{
    const double quarter = 10 * M_PI / 2 / 2;
    const struct
    {
        const char *expr;
        double in, out, tolerance;
    } cases[] = {
        {"constant()", 0, 0, 1e-4},       {"linear()", 5, 5, 1e-4},  {"cubic()", 1, -2, 1e-4},
        {"quintic()", 1, -2, 1e-4},       {"ease()", 0, 0, 1e-4},    {"easein()", 0, quarter, 1e-4},
        {"easeout()", quarter, 0, 1e-4}, {"bezier()", 1, -2, 2e-3},
    };
    for (const auto &c : cases)
    {
        CH_Segment *s = segment(c.expr, {1, 0, 1, 2}, {3, 10, -2, -1});
        float value;
        EXPECT_NEAR(slopeAt(s, 1, &value), c.in, c.tolerance) << c.expr;
        EXPECT_EQ(value, valueAt(s, 1)) << c.expr;
        EXPECT_NEAR(slopeAt(s, 3, &value), c.out, c.tolerance) << c.expr;
        EXPECT_EQ(value, valueAt(s, 3)) << c.expr;
    }
}

// Inside, the slope is the derivative of the values the segment gives.
TEST_F(CHChannelSample, SlopesInsideFollowTheValues)
{
    for (const char *expr : {"linear()", "cubic()", "quintic()", "ease()", "easein()", "easeout()", "bezier()"})
    {
        CH_Segment *s = segment(expr, {1, 0, 1, 0.7f}, {3, 10, -2, 0.5f});
        for (float t : {1.3f, 2.0f, 2.6f})
        {
            const float h = 1e-2f;
            double central = (double(valueAt(s, t + h)) - valueAt(s, t - h)) / (2 * h);
            EXPECT_NEAR(slopeAt(s, t), central, 2e-3 * std::fmax(1.0, std::fabs(central))) << expr << " at " << t;
        }
    }
}

// A bezier segment leaves and reaches its keys along their slopes (its
// handles' directions), whatever its length, values and handle lengths.
// Solving the time cubic at a key used to land on the other handle's root.
TEST_F(CHChannelSample, BezierTangentsAtTheKeysOfRandomSegments)
{
    std::mt19937 random(20261124);
    std::uniform_real_distribution<float> time(-5, 5), length(0.05f, 5), value(-10, 10), slope(-8, 8),
        accel(0.02f, 3);
    int wrong_in = 0, wrong_out = 0;
    for (int i = 0; i < 2000; ++i)
    {
        float t0 = time(random), t1 = t0 + length(random);
        chTestKey a{t0, value(random), slope(random), accel(random)};
        chTestKey b{t1, value(random), slope(random), accel(random)};
        CH_Segment *s = segment("bezier()", a, b);
        t1 = s->getEnd() + ch->getStart(); // the key time as the channel stores it
        auto off = [](float got, float want) { return std::fabs(got - want) > 1e-3f * std::fmax(1.0f, std::fabs(want)); };
        if (off(slopeAt(s, t0), a.slope) && ++wrong_in == 1)
            ADD_FAILURE() << "in: keys (" << t0 << ", " << a.value << ", " << a.slope << ", " << a.accel << ") ("
                          << t1 << ", " << b.value << ", " << b.slope << ", " << b.accel << "): " << slopeAt(s, t0);
        if (off(slopeAt(s, t1), b.slope) && ++wrong_out == 1)
            ADD_FAILURE() << "out: keys (" << t0 << ", " << a.value << ", " << a.slope << ", " << a.accel << ") ("
                          << t1 << ", " << b.value << ", " << b.slope << ", " << b.accel << "): " << slopeAt(s, t1);
    }
    EXPECT_EQ(wrong_in, 0);
    EXPECT_EQ(wrong_out, 0);
}

} // namespace
