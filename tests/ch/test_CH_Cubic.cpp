#include <ch/channel/CH_Cubic.h>

#include <gtest/gtest.h>

#include <string>

namespace {

// 1 − 2u + 3u² + 0.5u³ at u = 2: 1 − 4 + 12 + 4 = 13; slope −2 + 2·3·2 + 3·0.5·4 = 16;
// accel 2·3 + 6·0.5·2 = 12. At u = −1: 1 + 2 + 3 − 0.5 = 5.5, slope −2 − 6 + 1.5 = −6.5.
TEST(CH_Cubic, ValueAndDerivativesInTheParameter)
{
    CH_Cubic c(1, -2, 3, 0.5f);
    EXPECT_FLOAT_EQ(c.evalP(2), 13);
    EXPECT_FLOAT_EQ(c.calculateSlopeP(2), 16);
    EXPECT_FLOAT_EQ(c.calculateAccelP(2), 12);
    EXPECT_FLOAT_EQ(c.evalP(-1), 5.5f);
    EXPECT_FLOAT_EQ(c.calculateSlopeP(-1), -6.5f);
    EXPECT_FLOAT_EQ(c.eval(2), 13); // parameter is time
    EXPECT_EQ(c.timeToParametric(0.25f), 0.25f);

    testing::internal::CaptureStdout();
    c.display();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "1.000000 + -2.000000x + 3.000000x^2 + 0.500000x^3\n");
}

TEST(CH_Cubic, ReverseEvalPicksFirstRootInRangeOrClamps)
{
    // (u − 0.2)(u − 0.5)(u − 0.9) = u³ − 1.6u² + 0.73u − 0.09: three roots in [0, 1], smallest wins.
    CH_Cubic three(-0.09f, 0.73f, -1.6f, 1);
    EXPECT_NEAR(three.reverseEvalP(0), 0.2f, 1e-5f);
    // Shifted by v = 0.09: u(u² − 1.6u + 0.73) has roots 0 and 0.8 ± i·0.3, so only 0.
    EXPECT_NEAR(three.reverseEvalP(-0.09f), 0.0f, 1e-6f);

    CH_Cubic line(2, 4, 0, 0); // 2 + 4u: u = (v − 2)/4
    EXPECT_FLOAT_EQ(line.reverseEvalP(3), 0.25f);
    EXPECT_EQ(line.reverseEvalP(-2), 0.0f); // root −1
    EXPECT_EQ(line.reverseEvalP(10), 1.0f); // root 2

    // (u + 1)(u − 2) = u² − u − 2: a root on each side of [0, 1] gives 0, both above gives 1.
    EXPECT_EQ(CH_Cubic(-2, -1, 1, 0).reverseEvalP(0), 0.0f);
    EXPECT_EQ(CH_Cubic(6, -5, 1, 0).reverseEvalP(0), 1.0f); // (u − 2)(u − 3)
    EXPECT_EQ(CH_Cubic(1, 0, 0, 0).reverseEvalP(0), 0.0f);  // constant 1: no root
}

} // namespace
