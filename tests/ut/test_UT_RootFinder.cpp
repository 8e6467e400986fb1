#include <ut/UT_RootFinder.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

std::vector<float> solve(float c3, float c2, float c1, float c0)
{
    float r[3] = {99.0f, 99.0f, 99.0f};
    int n = UT_RootFinder::cubic(c3, c2, c1, c0, r);
    EXPECT_GE(n, 0);
    EXPECT_LE(n, 3);
    return std::vector<float>(r, r + std::clamp(n, 0, 3));
}

void expectRoots(const std::vector<float> &got, const std::vector<float> &want, float tol)
{
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i)
        EXPECT_NEAR(got[i], want[i], tol) << "root " << i;
}

// k(x − r1)(x − r2)(x − r3) by Vieta: k, −k·Σr, k·Σr_i·r_j, −k·r1·r2·r3. Rounding coefficient c_i
// to float (relative error <= 2^-24) moves a simple root r, to first order, by at most Σ|δc_i|·|r|^i / |p'(r)|;
// the tolerance is four times that plus the rounding of r itself.
TEST(UT_RootFinder, RandomCubicsFromKnownRootsComeBackAscending)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> root(-2.0, 2.0), scale(0.5, 4.0);
    for (int i = 0; i < 500; ++i) {
        double r[3] = {root(rng), root(rng), root(rng)};
        std::sort(r, r + 3);
        if (r[1] - r[0] < 0.05 || r[2] - r[1] < 0.05)
            continue;
        double k = (i % 2 ? -1 : 1) * scale(rng) * (i % 3 ? 1.0 : 1e-7); // tiny k: still a cubic
        double c[4] = {-k * r[0] * r[1] * r[2], k * (r[0] * r[1] + r[0] * r[2] + r[1] * r[2]),
                       -k * (r[0] + r[1] + r[2]), k};
        std::vector<float> got = solve(float(c[3]), float(c[2]), float(c[1]), float(c[0]));
        ASSERT_EQ(got.size(), 3u) << i;
        for (int j = 0; j < 3; ++j) {
            double x = r[j], shift = 0.0;
            double slope = k * (x - r[(j + 1) % 3]) * (x - r[(j + 2) % 3]);
            for (int p = 0; p < 4; ++p)
                shift += std::fabs(c[p]) * std::pow(std::fabs(x), p) * 0x1p-24;
            double tol = 4.0 * shift / std::fabs(slope) + 0x1p-23 * std::fabs(x);
            EXPECT_NEAR(got[j], x, tol) << i << " root " << j;
        }
    }
}

TEST(UT_RootFinder, MultipleRootsAreFoundAndReportedOnce)
{
    expectRoots(solve(8, -12, 6, -1), {0.5f}, 1e-6f);        // (2u − 1)³
    expectRoots(solve(27, -27, 9, -1), {1.0f / 3}, 1e-6f);    // (3x − 1)³: p, q, r not exact in double
    expectRoots(solve(1000, -900, 270, -27), {0.3f}, 1e-6f);  // (10x − 3)³
    expectRoots(solve(1, -5, 7, -3), {1.0f, 3.0f}, 1e-5f);    // (x − 1)²(x − 3)
    expectRoots(solve(2, -2, -3.5f, -1), {-0.5f, 2.0f}, 1e-5f); // 2(x² + x + 0.25)(x − 2)
    // k(x − a)³ with float coefficients (each off by at most 2^-24 of itself): at x = a + e,
    // k·e³ is at most 2^-24·k·|a|³·(1 + 3 + 3 + 1), so every root is within |a|/128 of a. The
    // cluster may come back as one to three roots; they stay distinct and ascending.
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> where(-3.0, 3.0), scale(0.1, 100.0);
    for (int i = 0; i < 30000; ++i) { // a few of these polish two roots onto one float
        double a = where(rng), k = scale(rng);
        std::vector<float> got = solve(k, -3 * k * a, 3 * k * a * a, -k * a * a * a);
        ASSERT_FALSE(got.empty()) << a << " " << k;
        for (size_t j = 0; j < got.size(); ++j) {
            EXPECT_NEAR(got[j], a, std::fabs(a) / 128 + 1e-7) << a << " " << k;
            if (j > 0) {
                EXPECT_LT(got[j - 1], got[j]) << a << " " << k;
            }
        }
    }
    // (x² − 0.6x + 0.09)(x − 0.9) = x³ − 1.5x² + 0.63x − 0.081: none of these is exact in float,
    // and the rounding pushes the double root off the real axis by about sqrt(2^-24)·0.3 ~ 1e-4.
    expectRoots(solve(1, -1.5f, 0.63f, -0.081f), {0.3f, 0.9f}, 1e-3f);
    // (x − 0.7)²: with float(−1.4) and float(0.49), 1.4² − 4·0.49 comes to −1.05e-7 (in double).
    expectRoots(solve(0, 1, -1.4f, 0.49f), {0.7f}, 1e-3f);
}

TEST(UT_RootFinder, SingleRealRoot)
{
    expectRoots(solve(1, 0, 1, 2), {-1.0f}, 1e-6f);    // (x + 1)(x² − x + 2), 1 − 8 < 0
}

TEST(UT_RootFinder, NegligibleLeadingTermsLowerTheDegree)
{
    // 1e-9 against 3: a quadratic (x − 1)(x − 2); the far root near −1e9 is given up.
    expectRoots(solve(1e-9f, 1, -3, 2), {1.0f, 2.0f}, 1e-6f);
    // 9e-7 is dropped too, but the roots are refined on the full cubic: q = (x − 1)(x − 2) plus
    // εx³ moves a root by −εx³/q'(x), to 1 + ε and 2 − 8ε.
    expectRoots(solve(9e-7f, 1, -3, 2), {1.0000009f, 1.9999928f}, 1.2e-7f);
    // Normalised handles: cubic and square terms are rounding noise on 0.75x − 0.25.
    expectRoots(solve(3e-8f, -2e-8f, 0.75f, -0.25f), {1.0f / 3.0f}, 1e-6f);
    expectRoots(solve(0, 1, 0, -4), {-2.0f, 2.0f}, 1e-6f); // exact quadratic
    expectRoots(solve(0, 1, -2, 1), {1.0f}, 1e-6f);        // (x − 1)²
    expectRoots(solve(0, 1, 0, 1), {}, 0.0f);              // x² + 1
    expectRoots(solve(0, 0, 2, -1), {0.5f}, 0.0f);         // linear
    // Just above the threshold the cubic root stays: 1e-3·(x − 1)(x − 2)(x − 1000).
    expectRoots(solve(1e-3f, -1.003f, 3.002f, -2.0f), {1.0f, 2.0f, 1000.0f}, 1e-3f);
}

TEST(UT_RootFinder, NoEquationLeftGivesNoRoots)
{
    EXPECT_TRUE(solve(0, 0, 0, 0).empty());
    EXPECT_TRUE(solve(0, 0, 0, 5).empty());
    EXPECT_TRUE(solve(1, 0, 0, std::numeric_limits<float>::quiet_NaN()).empty());
    EXPECT_TRUE(solve(std::numeric_limits<float>::infinity(), 0, 1, 0).empty());
}

} // namespace
