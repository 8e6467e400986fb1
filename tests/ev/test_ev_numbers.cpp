// Reading numbers out of range: literals, atof and string conversion agree
// (underflow gives 0, overflow infinity), whatever the text's layout.
#include "evTestUtil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

constexpr double theInf = std::numeric_limits<double>::infinity();

TEST(EvNumbers, OutOfRangeReadsAsZeroOrInfinity)
{
    ev_InitString();
    struct Case
    {
        const char *text;
        double value;
    };
    // The leading digit's place, not the written exponent alone, decides.
    const Case cases[] = {
        {"1e-400", 0.0},          {"2e-324", 0.0},           {"0.0000001e-320", 0.0},
        {"123456e-330", 0.0},     {"0.0001e-320", 0.0},      {"1e-99999999999999999999", 0.0},
        {"1e400", theInf},        {"10000e305", theInf},     {"1e99999999999999999999", theInf},
        {"0.001e311", 1e308},     {"1000e305", 1e308},       {"1e-310", 1e-310},
        {"4e-324", 4.94065645841246544e-324}, {"0.00e99999", 0.0}, {"1.5", 1.5},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(ev_StringToFloat(c.text), c.value) << c.text;
        EXPECT_EQ(ev_StringToFloat((std::string("-") + c.text).c_str()), -c.value) << c.text;
        EXPECT_EQ(ev_StringToFloat((std::string(" +") + c.text + "xyz").c_str()), c.value) << c.text;
        // A literal reads the same (as a float result: a double under
        // float's range is 0 either way, so compare through a comparison).
        const std::string literal = std::string(c.text) + " == " + "atof('" + c.text + "')";
        evTestResult r = evTestEval(literal.c_str());
        EXPECT_TRUE(r.ok) << literal;
        EXPECT_EQ(r.s, "1") << literal;
    }
    // A negative underflow keeps its sign, as strtod's does.
    EXPECT_TRUE(std::signbit(ev_StringToFloat("-1e-400")));
}

TEST(EvNumbers, UnderflowIsZeroInExpressions)
{
    ev_InitString();
    const struct
    {
        const char *text;
        const char *s;
        float f;
        int error;
    } cases[] = {
        {"1e-400", "0", 0.0f, 0},
        {"1e-400 == 0", "1", 1.0f, 0},
        {"atof('1e-400') == 0", "1", 1.0f, 0},
        {"'1e-400' * 1 == 0", "1", 1.0f, 0},
        {"1 / 1e-400", "", 0.0f, EV_ERRDIVZERO}, // 1/inf would be a quiet 0
        {"1 / atof('1e-400')", "", 0.0f, EV_ERRDIVZERO},
        {"1e400 > 1e308", "1", 1.0f, 0},
        {"1e400", "inf", std::numeric_limits<float>::infinity(), 0},
        {"-atof('1e999')", "-inf", -std::numeric_limits<float>::infinity(), 0},
    };
    for (int opt = 0; opt <= 1; ++opt) {
        ev_SetOptimization(opt);
        for (const auto &c : cases) {
            evTestResult r = evTestEval(c.text);
            EXPECT_EQ(r.s, c.s) << c.text;
            EXPECT_EQ(r.f, c.f) << c.text;
            EXPECT_EQ(r.error, c.error) << c.text;
        }
    }
    ev_SetOptimization(1);
}

} // namespace
