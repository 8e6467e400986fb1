#include <ch/manager/CH_Manager.h>
#include <ut/UT_EnvControl.h>
#include <ut/UT_ErrorManager.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

// Pins the default rate to 24 whatever the environment says; one manager,
// which is the current one.
class CH_ManagerTime : public ::testing::Test
{
protected:
    void SetUp() override
    {
        UT_EnvControl::setInt(UT_EnvControl::DEFAULT_FPS, 0);
        UTclearErrors();
        mgr.reset(new CH_Manager(0));
    }
    void TearDown() override
    {
        mgr.reset();
        UT_EnvControl::reload();
        UTclearErrors();
    }
    std::vector<UT_Error> errors() const { return UT_ErrorManager::get().getErrors(); }

    std::unique_ptr<CH_Manager> mgr;
};

TEST_F(CH_ManagerTime, DefaultsAt24)
{
    CH_Manager &m = *mgr;
    float first, last;
    m.getSampleRange(first, last);
    EXPECT_EQ(m.getSamplesPerSec(), 24.0f);
    EXPECT_EQ(m.getGlobalStart(), 0.0f);
    // 239 * (1/24 = 0.0416666679) = 9.95833363, nearer the float 9.958334
    // than 9.958333 (what 239/24 gives): the end is one step above 239/24.
    EXPECT_EQ(m.getGlobalEnd(), 9.958334f);
    EXPECT_EQ(m.getNumSamples(), 240.0f);              // trunc(round3(9.958333*24+1))
    EXPECT_FLOAT_EQ(m.getTolerance(), 1.0f / 2400.0f);
    EXPECT_EQ(first, 1.0f);
    EXPECT_EQ(last, 240.0f);
    EXPECT_EQ(m.getGlobalStartFrame(), 1);
    EXPECT_EQ(m.getGlobalEndFrame(), 240); // floor((9.958333+1/2400)*24+1) = floor(240.01)
    EXPECT_FLOAT_EQ(CH_Manager::getDefaultLength(24.0f), 9.9583333f); // 10 - 1/24
    EXPECT_EQ(CH_Manager::getDefaultLengthFrames(24.0f), 239.0f);    // 24*10 - 1
}

TEST_F(CH_ManagerTime, EnvironmentSetsDefaultRate)
{
    mgr.reset();
    UT_EnvControl::setInt(UT_EnvControl::DEFAULT_FPS, -5);
    EXPECT_EQ(CH_Manager::getDefaultFPS(), 24.0f);
    UT_EnvControl::setInt(UT_EnvControl::DEFAULT_FPS, 30);
    EXPECT_EQ(CH_Manager::getDefaultFPS(), 30.0f);
    CH_Manager m(0);
    float first, last;
    m.getSampleRange(first, last);
    EXPECT_EQ(m.getNumSamples(), 300.0f);                 // round3((10-1/30)*30+1)
    EXPECT_FLOAT_EQ(m.getGlobalEnd(), 299.0f / 30.0f);    // (300-1)*(1/30)
    EXPECT_FLOAT_EQ(m.getTolerance(), 1.0f / 3000.0f);
    EXPECT_EQ(last, 300.0f);

    // 50: 10 - 1/50 is the float 9.9799995, *50+1 = 499.99998; round3 makes
    // it 500 (truncating it directly would give 499).
    UT_EnvControl::setInt(UT_EnvControl::DEFAULT_FPS, 50);
    m.resetChannelOptions();
    EXPECT_EQ(m.getNumSamples(), 500.0f);
    EXPECT_FLOAT_EQ(m.getGlobalEnd(), 499.0f / 50.0f);
}

// Rates at 24, 25, 30 and 29.97. With tol = 1/(100 fps):
//   t = (k - 0.005)/fps -> (t+tol)*fps+1 = k+1.005 -> frame k+1 (pulled on)
//   t = (k - 0.02)/fps  -> k+0.99                  -> frame k   (beyond tol)
TEST_F(CH_ManagerTime, FramesAndSamplesNearBoundaries)
{
    struct Row { float fps, sampleAt, sample; } rows[] = {
        {24.0f, 0.0001f, 1.002f},   // 1.0024 -> round3 -> 1.002
        {25.0f, 0.00011f, 1.003f},  // 1.00275 -> 1.003
        {30.0f, 0.0001f, 1.003f},   // 1.003
        {29.97f, 0.0001f, 1.003f},  // 1.002997 -> 1.003
    };
    for (const Row &r : rows) {
        CH_Manager &m = *mgr;
        m.setRawSamplesPerSec(r.fps);
        SCOPED_TRACE(r.fps);
        EXPECT_EQ(m.getFrame(0.0f), 1);
        for (int k : {1, 10, 100}) {
            EXPECT_EQ(m.getFrame((k - 0.005f) / r.fps), k + 1) << k;
            EXPECT_EQ(m.getFrame((k - 0.02f) / r.fps), k) << k;
            EXPECT_EQ(CHgetFrameFromTime((k - 0.005f) / r.fps), k + 1) << k;
            EXPECT_NEAR(m.getTime(k + 1.0f), k / r.fps, 1e-6f);
            EXPECT_NEAR(CHgetTimeFromFrame(k + 1.0f), k / r.fps, 1e-6f);
            EXPECT_NEAR(m.getSampleRaw(k / r.fps), k + 1.0f, 1e-4f);
        }
        EXPECT_FLOAT_EQ(m.getSample(r.sampleAt), r.sample);
        EXPECT_FLOAT_EQ(CHgetSampleFromTime(r.sampleAt), r.sample);
    }
    // 24 fps: 1/24 - 1/4800 + 1/2400 = 0.041875, *24+1 = 2.005.
    mgr->setRawSamplesPerSec(24.0f);
    EXPECT_EQ(mgr->getFrame(1.0f / 24.0f - 1.0f / 4800.0f), 2);
    EXPECT_EQ(mgr->getTime(1.0f), 0.0f);
    // Single precision decides the tolerance edge: t = 4.99/24 = 0.20791666,
    // t+tol = 0.20833333, *24 = 4.99999988 rounds to 5.0 in float -> frame 6
    // (carried in double it would floor to 5).
    EXPECT_EQ(mgr->getFrame(4.99f / 24.0f), 6);
}

TEST_F(CH_ManagerTime, SnapsAndDeltas)
{
    const CH_Manager &m = *mgr;
    EXPECT_EQ(m.getTimeDelta(48.0f), 2.0f);
    EXPECT_EQ(m.getSampleDelta(0.5f), 12.0f);
    EXPECT_FLOAT_EQ(m.getSnapToFrameTime(0.03f), 1.0f / 24.0f); // floor(0.72+1.5)=2 -> 1/24
    EXPECT_EQ(m.getSnapToFrameTime(0.02f), 0.0f);               // floor(1.98)=1 -> 0
    EXPECT_EQ(m.getSnapSample(2.5f), 3.0f);
    EXPECT_EQ(m.getSnapSample(2.49f), 2.0f);
    EXPECT_EQ(m.getSnapSample(-1.5f), -1.0f); // floor(-1.0)
    EXPECT_EQ(m.getSnapSample(-1.6f), -2.0f); // floor(-1.1)
    EXPECT_TRUE(m.getIsAtFrame(1.0f / 24.0f + 1.0f / 4800.0f));  // 1/4800 <= 1/2400
    EXPECT_FALSE(m.getIsAtFrame(1.0f / 24.0f + 1.0f / 1200.0f)); // 1/1200 >  1/2400
    EXPECT_EQ(CH_Manager::niceNumber(1.23449f, 3), 1.234f);
    EXPECT_EQ(CH_Manager::niceNumber(2.5f, 0), 3.0f);
    // 193.1565f is 193.156494; *1000 = 193156.494 rounds to the float
    // 193156.5 (step 1/64), +0.5 floors to 193157 (193156 in double).
    EXPECT_EQ(CH_Manager::niceNumber(193.1565f, 3), 193.157f);
}

// s = 1/24. A forward move snaps its target down, a backward one up, and
// the move is dropped when the snap would reverse it.
TEST_F(CH_ManagerTime, SnapToFrameDelta)
{
    const float s = 1.0f / 24.0f;
    struct Row { float t, delta, expected; } rows[] = {
        {0.0f, 0.02f, 0.0f},       // 0.02 -> down 0
        {0.0f, 0.05f, s},          // 0.05 - fmod(0.05, s) = s
        {0.0f, -0.02f, 0.0f},      // -0.02 -> up 0
        {0.0f, -0.05f, -s},        // -0.05 - fmod = -s
        {0.03f, 0.005f, 0.0f},     // 0.035 -> 0, -0.03 < 0 -> 0
        {-0.1f, 0.05f, 0.1f - 2 * s}, // -0.05 -> down -2s; -2s+0.1 = 0.016667
        {-0.1f, -0.05f, 0.1f - 3 * s}, // -0.15 - fmod(-0.15, s) = -3s; -3s+0.1 = -0.025
        {0.5f, 0.0f, 0.0f},
        {s, 2 * s, 2 * s},         // target 3s is a multiple: kept
    };
    for (const Row &r : rows)
        EXPECT_NEAR(mgr->getSnapToFrameDelta(r.t, r.delta), r.expected, 1e-6f)
            << r.t << " " << r.delta;

    // The step is the current manager's: 1/30 once it runs at 30 fps
    // (0.05 - fmod(0.05, 1/30) = 1/30), still 1/24 for a second manager.
    CH_Manager other(0);
    other.setRawSamplesPerSec(30.0f);
    EXPECT_NEAR(other.getSnapToFrameDelta(0.0f, 0.05f), s, 1e-6f);
    mgr->setRawSamplesPerSec(30.0f);
    EXPECT_NEAR(mgr->getSnapToFrameDelta(0.0f, 0.05f), 1.0f / 30.0f, 1e-6f);
}

TEST_F(CH_ManagerTime, RateAndRangeSetters)
{
    CH_Manager &m = *mgr;
    m.setSamplesPerSec(30.0f); // (239/24 + 1/24)*30 = 300 samples, end 299/30
    EXPECT_FLOAT_EQ(m.getNumSamples(), 300.0f);
    EXPECT_FLOAT_EQ(m.getGlobalEnd(), 299.0f / 30.0f);
    EXPECT_EQ(m.getGlobalStart(), 0.0f);
    EXPECT_FLOAT_EQ(m.getTolerance(), 1.0f / 3000.0f);

    for (float bad : {0.0f, -30.0f, 0.00001f}) {
        m.setSamplesPerSec(bad);
        m.setRawSamplesPerSec(bad);
        EXPECT_EQ(m.getSamplesPerSec(), 30.0f) << bad;
        EXPECT_FLOAT_EQ(m.getNumSamples(), 300.0f) << bad;
    }

    m.setGlobalTime(5.0f, 1.0f); // ordered; (5-1)*30+1 = 121 samples
    EXPECT_EQ(m.getGlobalStart(), 1.0f);
    EXPECT_EQ(m.getGlobalEnd(), 5.0f);
    EXPECT_EQ(m.getNumSamples(), 121.0f);
    m.setSamplesPerSec(24.0f); // (4 + 1/30)*24 = 96.8; end = 95.8/24 + 1
    EXPECT_FLOAT_EQ(m.getNumSamples(), 96.8f);
    EXPECT_FLOAT_EQ(m.getGlobalEnd(), 95.8f / 24.0f + 1.0f);
    m.setRawSamplesPerSec(48.0f); // samples kept: end = 95.8/48 + 1
    EXPECT_FLOAT_EQ(m.getNumSamples(), 96.8f);
    EXPECT_FLOAT_EQ(m.getGlobalEnd(), 95.8f / 48.0f + 1.0f);
    EXPECT_FLOAT_EQ(m.getTolerance(), 1.0f / 4800.0f);

    m.setRawNumSamples(1); // raised to 2: end = 1/48 + 1
    EXPECT_EQ(m.getNumSamples(), 2.0f);
    EXPECT_FLOAT_EQ(m.getGlobalEnd(), 1.0f / 48.0f + 1.0f);
    m.setSamplesPerSec(0.00002f); // (1/48 + 1/48)*0.00002 < 2 -> 2; end = 1/0.00002 + 1
    EXPECT_EQ(m.getNumSamples(), 2.0f);
    EXPECT_FLOAT_EQ(m.getGlobalEnd(), 50001.0f);
    EXPECT_FLOAT_EQ(m.getTolerance(), 500.0f); // 1/(0.00002*100)

    m.setGlobalTime(3.0f, 3.0f); // no minimum here
    EXPECT_EQ(m.getNumSamples(), 1.0f);
    float first, last;
    m.setSampleRange(10.0f, 2.0f);
    m.getSampleRange(first, last);
    EXPECT_EQ(first, 2.0f);
    EXPECT_EQ(last, 10.0f);
}

TEST_F(CH_ManagerTime, NiceFrameSeparation)
{
    struct Row { float fps, target; int minimum, expected; } rows[] = {
        {24, 4, 1, 6},       // 24 -> 12 (18>4) -> 6 (9>4); 3 refused: (3+6)/2 = 4
        {24, 4, 8, 12},      // 6 < minimum
        {24, 100, 1, 120},   // (1+5)*24/2 = 72 < 100 -> 5; (5+15)*12 = 240 stops
        {24, 1e9f, 1, 2073600}, // every second ladder step passes: 86400*24
        {25, 3, 1, 5},       // (5+25)/2=15 > 3 -> 5; (1+5)/2 = 3 stops
        {25, 2, 1, 1},       // 3 > 2 -> 1
        {30, 10, 1, 15},     // 22 > 10 -> 15; (5+15)/2 = 10 stops
        {30, 30, 1, 30},     // F <= target: (1+5)*30/2 = 90 >= 30 -> 1 s
        {60, 20, 1, 15},     // 45 -> 30, 22 -> 15, (5+15)/2 = 10 stops
        {48, 5, 1, 6},       // 24, 12, 6; (3+6)/2 = 4 stops
        {50, 10, 1, 5},      // 25 (37), 5 (15); (1+5)/2 = 3 stops
        {20, 3, 1, 2},       // /10 row: 10 (15), 2 (6); (1+2)/2 = 1 stops
        {15, 5, 1, 3},       // /5 row: 3 (9); (1+3)/2 = 2 stops
        {12, 2, 1, 3},       // /4 row: 6 (9), 3 (4); (1+3)/2 = 2 stops
        {14, 3, 1, 1},       // even row: 7 (10), 1 (4)
        {29.97f, 4, 1, 5},   // F=29, odd row: 10 (19), 5 (7); (1+5)/2 = 3 stops
        {7, 6, 1, 5},        // odd row grows past F first: 10 ((10+7)/2 = 8 > 6)
        {0.5f, 4, 1, 0},     // F=0: every seconds step passes, 86400*0
    };
    for (const Row &r : rows) {
        mgr->setRawSamplesPerSec(r.fps);
        EXPECT_EQ(mgr->niceFrameSeparation(r.target, r.minimum), r.expected)
            << r.fps << " " << r.target << " " << r.minimum;
    }
}

TEST_F(CH_ManagerTime, TimeCodes)
{
    CH_Manager &m = *mgr;
    char buf[64];
    struct Row { float t; const char *text; } rows[] = {
        {0.0f, "00:00:00:01"},         // sample 1
        {23.0f / 24.0f, "00:00:01:00"}, // sample 24: 1 s, 24-24 = 0 frames
        {45296.25f, "12:34:56:07"},    // sample 1087111 = 12*86400 + 34*1440 + 56*24 + 7
    };
    for (const Row &r : rows) {
        m.getTimeCode(buf, r.t);
        EXPECT_STREQ(buf, r.text);
        float t = -1.0f;
        EXPECT_EQ(m.setTimeCode(r.text, t), 1);
        EXPECT_FLOAT_EQ(t, r.t) << r.text;
    }
    m.setTimeCodeOffset(10.0f); // sample 10*24+1 = 241 -> 10 s, 1 frame
    m.getTimeCode(buf, 0.0f);
    EXPECT_STREQ(buf, "00:00:10:01");
    float t = -1.0f;
    EXPECT_EQ(m.setTimeCode("00:00:10:01", t), 1); // (240+1-1)/24 - 10
    EXPECT_EQ(t, 0.0f);
    m.setTimeCodeOffset(0.0f);

    for (const char *bad : {"12:34", "abc", "", "100:00:00:01", "-00:00:00:23"}) {
        t = 5.0f;
        EXPECT_EQ(m.setTimeCode(bad, t), 0) << bad;
        EXPECT_EQ(t, 0.0f) << bad;
    }
    m.getTimeCode(buf, -1.0f); // sample -23
    EXPECT_STREQ(buf, "-00:00:00:23");

    std::memset(buf, 'x', sizeof buf);
    m.getTimeCode(buf, 1e30f); // saturated fields, cut at 32 chars
    EXPECT_EQ(std::strlen(buf), 31u);
    EXPECT_EQ(buf[32], 'x');
}

TEST_F(CH_ManagerTime, Units)
{
    CH_Manager &m = *mgr;
    EXPECT_EQ(m.scaleToMKS("not units!"), 1.0f); // both units 1: nothing parsed
    EXPECT_EQ(m.scaleFromMKS("not units!"), 1.0f);
    EXPECT_TRUE(errors().empty());

    struct Row { const char *units; float length, mass; std::vector<std::pair<int, std::string>> errs; };
    const Row rows[] = {
        {"kg1m-3", -3, 1, {}},
        {"  m2s-2kg1 ", 2, 1, {}},
        {"m1m1.5", 2.5f, 0, {}},
        {"", 0, 0, {}},
        {"ft1m2", 2, 0, {{12, "ft"}}},
        {"Kg1", 0, 0, {{12, "Kg"}}},
        {"m1.2.3kg2", 0, 2, {{11, "m1.2.3kg2"}}},
        {"kg", 0, 0, {{11, "kg"}}},
        {"m-", 0, 0, {{11, "m-"}}},
        {"2m1", 1, 0, {{11, "2m1"}}},
        {"m2 kg1", 2, 0, {{11, "m2 kg1"}}}, // scan ends at the blank
        {"m2*kg1", 2, 0, {{11, "m2*kg1"}}},
        {"m*kg1", 0, 0, {{11, "m*kg1"}}},   // one report, not two
    };
    for (const Row &r : rows) {
        UTclearErrors();
        float length = 7, mass = 7;
        m.parseUnitsString(r.units, length, mass);
        EXPECT_EQ(length, r.length) << r.units;
        EXPECT_EQ(mass, r.mass) << r.units;
        std::vector<std::pair<int, std::string>> got;
        for (const UT_Error &e : errors()) {
            EXPECT_EQ(e.table, "CH");
            got.emplace_back(e.code, e.argument);
        }
        EXPECT_EQ(got, r.errs) << r.units;
    }

    UTclearErrors();
    m.setUnitLength(0.01f);
    EXPECT_FLOAT_EQ(m.scaleToMKS("m2"), 0.0001f); // 0.01^2
    EXPECT_FLOAT_EQ(m.scaleFromMKS("m2"), 10000.0f);
    m.setUnitLength(0.5f);
    m.setUnitMass(2.0f);
    EXPECT_EQ(m.scaleToMKS("kg1m-3"), 16.0f); // 2^1 * 0.5^-3 = 2*8
    EXPECT_EQ(m.scaleFromMKS("kg1m-3"), 0.0625f);
    m.setUnitLength(0.0f);
    EXPECT_EQ(m.scaleFromMKS("m1"), 3.4028235e38f); // 0^1 = 0
    EXPECT_TRUE(errors().empty());
}

TEST_F(CH_ManagerTime, ResetsAndStrings)
{
    CH_Manager &m = *mgr;
    m.setSamplesPerSec(30.0f);
    m.setGlobalTime(2.0f, 3.0f);
    m.setSampleStep(2.0f);
    m.setSampleRange(5.0f, 6.0f);
    m.setRealTimeFactor(3.0f);
    m.setRealTimeDisableSkip(true);
    m.setRealTimeFlag(true);
    m.setHoldFlag(true);
    m.setIntegerFrameFlag(false);
    m.setShowKeysFlag(false);
    m.setShowAudioFlag(false);
    m.setEvaluateTime(5.0f, 0);

    m.resetChannelOptions(); // time model and display flags only
    float first, last;
    m.getSampleRange(first, last);
    EXPECT_EQ(m.getSamplesPerSec(), 24.0f);
    EXPECT_EQ(m.getGlobalStart(), 0.0f);
    EXPECT_EQ(m.getNumSamples(), 240.0f);
    EXPECT_FLOAT_EQ(m.getGlobalEnd(), 239.0f / 24.0f);
    EXPECT_EQ(m.getSampleStep(), 1.0f);
    EXPECT_FALSE(m.getRealTimeDisableSkip());
    EXPECT_TRUE(m.getIntegerFrameFlag() && m.getShowKeysFlag() && m.getShowAudioFlag());
    EXPECT_TRUE(m.getRealTimeFlag() && m.getHoldFlag());
    EXPECT_EQ(first, 5.0f);
    EXPECT_EQ(m.getRealTimeFactor(), 3.0f);
    EXPECT_EQ(m.getEvaluateTime(0), 5.0);

    m.resetPlayback();
    m.getSampleRange(first, last);
    EXPECT_FALSE(m.getRealTimeFlag() || m.getHoldFlag());
    EXPECT_EQ(m.getRealTimeFactor(), 1.0f);
    EXPECT_EQ(first, 1.0f);
    EXPECT_EQ(last, 240.0f);
    EXPECT_EQ(m.getEvaluateTime(0), 0.0);

    m.setDefaultExpression("linear()");
    for (const char *ignored : {static_cast<const char *>(nullptr), ""})
        m.setDefaultExpression(ignored);
    EXPECT_STREQ(m.getDefaultExpression(), "linear()");
    m.setDefaultRotationExpression(nullptr);
    EXPECT_STREQ(m.getDefaultRotationExpression(), "bezier()");
    m.setDefaultRotationExpression("");
    EXPECT_STREQ(m.getDefaultRotationExpression(), "");
}

} // namespace
