#include <ut/UT_Noise.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

// Random points near the origin, at negative and at large coordinates.
std::vector<UT_Vector3> samplePoints(int count)
{
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> near(-40.0f, 40.0f), neg(-9e4f, -1e4f), far(1e5f, 1e6f);
    std::vector<UT_Vector3> points;
    for (int i = 0; i < count; ++i) {
        auto &d = i % 3 == 0 ? near : (i % 3 == 1 ? neg : far);
        points.emplace_back(d(rng), d(rng), near(rng));
    }
    return points;
}

} // namespace

TEST(UT_Noise, OutputStaysInTheDocumentedRange)
{
    UT_Noise perlin(3, UT_Noise::PERLIN), cellular(3, UT_Noise::CELLULAR);
    float lo = 1, hi = -1, cellHi = 0;
    for (const UT_Vector3 &p : samplePoints(60000)) {
        float v = perlin.noise(p), c = cellular.noise(p);
        ASSERT_LE(std::fabs(v), 0.999f) << p;
        ASSERT_TRUE(c >= 0.0f && c < 1.0f) << p << " " << c;
        lo = std::min(lo, v);
        hi = std::max(hi, v);
        cellHi = std::max(cellHi, c);
        // Three octaves at rough 0.5: within S = 1 + 0.5 + 0.25.
        ASSERT_LE(std::fabs(perlin.turbulence(p, 3, 0.5f, 2.0f)), 1.75f * 0.999f) << p;
        ASSERT_LT(cellular.turbulence(p, 3, 0.5f), 1.75f) << p;
    }
    EXPECT_FLOAT_EQ(UT_Noise::turbulenceBound(3, 0.5f), 1.75f);
    // The scaling does not squeeze the values into part of the range.
    EXPECT_TRUE(lo < -0.7f && hi > 0.7f && cellHi > 0.5f) << lo << " " << hi << " " << cellHi;
}

TEST(UT_Noise, ContinuousAcrossLatticeCells)
{
    // Both sides of faces near the origin (negative ones too, where a
    // truncating floor would pick the wrong cell) and far from it. The
    // gradient type is smooth there too: equal slopes on both sides.
    const float eps = 1e-3f;
    for (UT_Noise::Type type : {UT_Noise::PERLIN, UT_Noise::CELLULAR}) {
        UT_Noise n(5, type);
        for (int k : {-257, -3, -2, -1, 0, 1, 2, 255, 256, 1000})
            for (int axis = 0; axis < 3; ++axis) {
                auto f = [&](float offset) {
                    UT_Vector3 q(0.3f, -0.6f, 0.45f);
                    q[axis] = k + offset;
                    return n.noise(q);
                };
                EXPECT_NEAR(f(-eps), f(eps), 0.01f) << "type " << type << " k " << k << " axis " << axis;
                if (type == UT_Noise::PERLIN) {
                    EXPECT_NEAR(f(-eps) - f(-2 * eps), f(2 * eps) - f(eps), 0.1f * eps) << k << " " << axis;
                }
            }
    }
    // A distance over sqrt(3) changes no faster than the point moves, over
    // sqrt(3); a missed nearest point would show as a jump.
    UT_Noise cells(5, UT_Noise::CELLULAR);
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> coord(-20.0f, 20.0f), step(-0.05f, 0.05f);
    for (int i = 0; i < 20000; ++i) {
        UT_Vector3 p(coord(rng), coord(rng), coord(rng)), q = p + UT_Vector3(step(rng), step(rng), step(rng));
        ASSERT_LE(std::fabs(cells.noise(p) - cells.noise(q)), (p - q).length() / std::sqrt(3.0f) + 1e-5f) << p << q;
    }
}

TEST(UT_Noise, GradientLatticePointsAreZeroAndTheTableRepeats)
{
    UT_Noise n(9);
    for (float x : {-300.0f, -1.0f, 0.0f, 7.0f, 65536.0f})
        EXPECT_EQ(n.noise(x, -2.0f, 3.0f), 0.0f) << x;
    // The lattice wraps every 256 cells, negative side included
    // (-0.625 + 256 = 255.375 exactly).
    EXPECT_EQ(n.noise(-0.625f, 1.25f, -3.5f), n.noise(255.375f, 257.25f, 252.5f));
    EXPECT_NE(n.noise(-0.625f, 1.25f, -3.5f), n.noise(127.375f, 1.25f, -3.5f));
    EXPECT_EQ(n.noise(std::numeric_limits<float>::infinity(), 0.5f, 0.5f), 0.0f);
    EXPECT_EQ(n.turbulence(0.5f, std::nanf(""), 0.5f, 4), 0.0f);
}

TEST(UT_Noise, TurbulenceSumsOctaves)
{
    UT_Noise n(2);
    for (const UT_Vector3 &p : samplePoints(30)) {
        float one = n.noise(p), s = n.turbulence(p, 2, 1.0f);
        // Depth 0 and 1 are one octave; atten 2 with the bound S = 1 squares
        // the magnitude and keeps the sign.
        EXPECT_EQ(n.turbulence(p, 0, 0.3f), one);
        EXPECT_EQ(n.turbulence(p, 1, 0.3f), one);
        EXPECT_NEAR(n.turbulence(p, 0, 0.3f, 2.0f), one * std::fabs(one), 1e-6f);
        // Two octaves: noise(p) + rough * noise(2p).
        EXPECT_NEAR(n.turbulence(p, 2, 0.3f), one + 0.3f * n.noise(p * 2.0f), 1e-5f) << p;
        // Two octaves at rough 1 have S = 2: atten 2 gives 2 (s / 2)^2.
        EXPECT_NEAR(n.turbulence(p, 2, 1.0f, 2.0f), s * std::fabs(s) / 2, 1e-6f);
        EXPECT_EQ(n.turbulence(p, 4, 0.6f, 0.0f), n.turbulence(p, 4, 0.6f)); // atten <= 0: none
    }
}

TEST(UT_Noise, SeedsDecideTheValues)
{
    UT_Noise a(42, UT_Noise::CELLULAR), b(42, UT_Noise::CELLULAR), c(43, UT_Noise::CELLULAR), d(-7);
    d.setSeed(42);
    d.setType(UT_Noise::CELLULAR);
    int differ = 0;
    for (const UT_Vector3 &p : samplePoints(300)) {
        ASSERT_TRUE(a.noise(p) == b.noise(p) && a.noise(p) == d.noise(p)) << p;
        differ += a.noise(p) != c.noise(p);
    }
    EXPECT_GT(differ, 290);
    EXPECT_NE(UT_Noise(-1).noise(0.5f, 0.5f, 0.5f), UT_Noise(1).noise(0.5f, 0.5f, 0.5f));
}
