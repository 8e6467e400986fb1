#include <ch/manager/CH_Manager.h>
#include <ut/UT_EnvControl.h>
#include <ut/UT_ErrorManager.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

namespace {

// Pins the default rate to 24 before the manager (the current one) is made. All arithmetic below
// is single precision.
struct PinnedRate
{
    PinnedRate() { UT_EnvControl::setInt(UT_EnvControl::DEFAULT_FPS, 0); }
    ~PinnedRate() { UT_EnvControl::reload(); UTclearErrors(); }
};
struct CH_ManagerTime : ::testing::Test, PinnedRate { CH_Manager m{0}; };

// Each step leaves n samples from start to end = start + (n - 1)/fps, tolerance 1/(100 fps); exact
// where rel is 0. A reset makes n = trunc(round3((10 - 1/fps)*fps + 1)), end = (n - 1) * (1/fps).
TEST_F(CH_ManagerTime, TimeModelAndResets)
{
    auto reset = [this](int env) {
        return [this, env] { UT_EnvControl::setInt(UT_EnvControl::DEFAULT_FPS, env); m.resetChannelOptions(); };
    };
    struct Step { std::function<void()> apply; float fps, start, n, end, tol, rel; } steps[] = {
        {[] {}, 24, 0, 240, 9.958334f, 1 / 2400.0f, 0}, // as made: 239 * 0.0416666679 = 9.9583336 (239/24: 9.958333)
        {[this] { m.setSamplesPerSec(30); }, 30, 0, 300, 299 / 30.0f, 1 / 3000.0f, 1e-6f}, // (239/24 + 1/24)*30
        {[this] { m.setSamplesPerSec(0.00001f); m.setRawSamplesPerSec(0.00001f); }, 30, 0, 300, 299 / 30.0f,
         1 / 3000.0f, 1e-6f}, // too slow: ignored
        {[this] { m.setGlobalTime(5, 1); }, 30, 1, 121, 5, 1 / 3000.0f, 0},                        // 4*30 + 1
        {[this] { m.setSamplesPerSec(24); }, 24, 1, 96.8f, 95.8f / 24 + 1, 1 / 2400.0f, 1e-6f},    // (4 + 1/30)*24
        {[this] { m.setRawSamplesPerSec(48); }, 48, 1, 96.8f, 95.8f / 48 + 1, 1 / 4800.0f, 1e-6f}, // n kept
        {[this] { m.setRawNumSamples(1); }, 48, 1, 2, 1 / 48.0f + 1, 1 / 4800.0f, 1e-6f},          // at least 2
        // (2/48)*0.00002 raised to 2; end 1/0.00002 + 1, tolerance 1/0.002
        {[this] { m.setSamplesPerSec(0.00002f); }, 0.00002f, 1, 2, 50001, 500, 1e-6f},
        {[this] { m.setGlobalTime(3, 3); }, 0.00002f, 3, 1, 3, 500, 0}, // no minimum here
        {reset(-5), 24, 0, 240, 9.958334f, 1 / 2400.0f, 0},          // not a rate: 24
        {reset(30), 30, 0, 300, 9.966667f, 1 / 3000.0f, 0}, // 299 * 0.0333333351 = 9.9666672 (299/30: 9.966666)
        {reset(50), 50, 0, 500, 9.98f, 1 / 5000.0f, 0},     // 9.9799995*50 + 1 = 499.99998: round3 500, not 499
    };
    for (const Step &st : steps) {
        st.apply();
        SCOPED_TRACE(&st - steps);
        EXPECT_EQ(m.getSamplesPerSec(), st.fps);
        EXPECT_EQ(m.getGlobalStart(), st.start);
        EXPECT_NEAR(m.getNumSamples(), st.n, st.rel * st.n);
        EXPECT_NEAR(m.getGlobalEnd(), st.end, st.rel * st.end);
        EXPECT_FLOAT_EQ(m.getTolerance(), st.tol);
    }
    EXPECT_FLOAT_EQ(CH_Manager::getDefaultLength(24.0f), 9.9583333f); // 10 - 1/24
    EXPECT_EQ(CH_Manager::getDefaultLengthFrames(24.0f), 239.0f);     // 24*10 - 1
    float first, last;
    m.setSampleStep(2.0f); m.setSampleRange(6.0f, 5.0f); m.setRealTimeFactor(3.0f); m.setEvaluateTime(5.0f, 0);
    m.setRealTimeDisableSkip(true); m.setIntegerFrameFlag(false); m.setShowKeysFlag(false);
    m.setShowAudioFlag(false); m.setRealTimeFlag(true); m.setHoldFlag(true);
    m.resetChannelOptions(); // display flags too; the playback state stays (the range ordered: 5..6)
    m.getSampleRange(first, last);
    EXPECT_TRUE(m.getSampleStep() == 1 && !m.getRealTimeDisableSkip() && m.getIntegerFrameFlag() &&
                m.getShowKeysFlag() && m.getShowAudioFlag());
    EXPECT_TRUE(m.getRealTimeFlag() && m.getHoldFlag() && first == 5 && last == 6 && m.getRealTimeFactor() == 3 &&
                m.getEvaluateTime(0) == 5);
    m.resetPlayback(); // range 1..round3(9.98*50 + 1) = 500; end frame floor((9.98 + 1/5000)*50 + 1)
    m.getSampleRange(first, last);
    EXPECT_TRUE(!m.getRealTimeFlag() && !m.getHoldFlag() && first == 1 && last == 500 && m.getRealTimeFactor() == 1 &&
                m.getEvaluateTime(0) == 0 && m.getGlobalStartFrame() == 1 && m.getGlobalEndFrame() == 500);
    m.setDefaultExpression(nullptr); m.setDefaultExpression(""); m.setDefaultRotationExpression(nullptr);
    EXPECT_STREQ(m.getDefaultExpression(), "bezier()"); // a default expression is never null or empty
    EXPECT_STREQ(m.getDefaultRotationExpression(), "bezier()");
    m.setDefaultRotationExpression(""); // the rotation one may be empty
    EXPECT_STREQ(m.getDefaultRotationExpression(), "");
}

// frame = floor((t + tol)*fps + 1), tol = 1/(100 fps): t = (k - 0.005)/fps gives k + 1.005, pulled
// on to frame k+1; t = (k - 0.02)/fps gives k + 0.99, frame k. sample = round3(t*fps + 1).
TEST_F(CH_ManagerTime, ConversionsNearFrameBoundaries)
{
    struct Row { float fps, sampleAt, sample; } rows[] = {
        {25, 0.00011f, 1.003f}, {30, 0.0001f, 1.003f},    // 1.00275 -> 1.003; 1.003
        {29.97f, 0.0001f, 1.003f}, {24, 0.0001f, 1.002f}, // 1.002997 -> 1.003; 1.0024 -> 1.002
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.fps);
        m.setRawSamplesPerSec(r.fps);
        for (int k : {1, 10, 100}) {
            EXPECT_EQ(m.getFrame((k - 0.005f) / r.fps), k + 1) << k;
            EXPECT_EQ(CHgetFrameFromTime((k - 0.005f) / r.fps), k + 1) << k;
            EXPECT_EQ(m.getFrame((k - 0.02f) / r.fps), k) << k;
            EXPECT_NEAR(m.getTime(k + 1.0f), k / r.fps, 1e-6f);
            EXPECT_NEAR(CHgetTimeFromFrame(k + 1.0f), k / r.fps, 1e-6f);
            EXPECT_NEAR(m.getSampleRaw(k / r.fps), k + 1.0f, 1e-4f);
        }
        EXPECT_FLOAT_EQ(m.getSample(r.sampleAt), r.sample);
        EXPECT_FLOAT_EQ(CHgetSampleFromTime(r.sampleAt), r.sample);
    }
    // At 24: 4.99/24 = 0.20791666, + tol = 0.20833333, *24 = 4.99999988 is 5.0 in float (not double)
    EXPECT_EQ(m.getFrame(4.99f / 24.0f), 6);
}

// At 24, s = 1/24. Snapped deltas: a forward move snaps its target down, a backward one up, and
// the move is dropped when the snap would reverse it.
TEST_F(CH_ManagerTime, Snapping)
{
    const float s = 1.0f / 24.0f;
    CH_Manager other(0); // not current, at 30: still snaps deltas to the current 1/24
    other.setRawSamplesPerSec(30.0f);
    auto d = [this](float t, float delta) { return m.getSnapToFrameDelta(t, delta); };
    struct Row { float got, want; const char *how; } rows[] = {
        {m.getTimeDelta(48.0f), 2, "48/24"}, {m.getSampleDelta(0.5f), 12, "0.5*24"},
        {m.getSnapToFrameTime(0.03f), s, "(floor(2.22) - 1)/24"}, {m.getSnapToFrameTime(0.02f), 0, "floor(1.98) - 1"},
        {m.getSnapSample(2.5f), 3, "floor(3.0)"},   {m.getSnapSample(2.49f), 2, "floor(2.99)"},
        {m.getSnapSample(-1.5f), -1, "floor(-1.0)"}, {m.getSnapSample(-1.6f), -2, "floor(-1.1)"},
        {CH_Manager::niceNumber(1.23449f, 3), 1.234f, "floor(1234.99)"}, {CH_Manager::niceNumber(2.5f, 0), 3, "floor(3)"},
        // 193.1565f*1000 = 193156.494 is the float 193156.5, + 0.5 floors to 193157 (193156 in double)
        {CH_Manager::niceNumber(193.1565f, 3), 193.157f, "float rounding"},
        {d(0, 0.02f), 0, "down to 0"}, {d(0, 0.05f), s, "0.05 - fmod(0.05, s)"},
        {d(0, -0.02f), 0, "up to 0"}, {d(0, -0.05f), -s, "-0.05 - fmod(-0.05, s)"},
        {d(0.03f, 0.005f), 0, "0.035 down to 0: reverses"}, {d(-0.03f, -0.005f), 0, "-0.035 up to 0: reverses"},
        {d(-0.1f, 0.05f), 0.1f - 2 * s, "-0.05 down to -2s"}, {d(-0.1f, -0.05f), 0.1f - 3 * s, "-0.15 up to -3s"},
        {d(0.1f, -0.05f), 2 * s - 0.1f, "0.05 up to 2s"}, {d(0.5f, 0), 0, "no move"},
        {d(s, 2 * s), 2 * s, "3s is a multiple: kept"}, {other.getSnapToFrameDelta(0, 0.05f), s, "current step"},
    };
    for (const Row &r : rows)
        EXPECT_NEAR(r.got, r.want, 1e-6f) << r.how;
    EXPECT_TRUE(m.getIsAtFrame(s + 1.0f / 4800.0f));  // off by 1/4800 <= 1/2400
    EXPECT_FALSE(m.getIsAtFrame(s + 1.0f / 1200.0f)); // off by 1/1200 > 1/2400
    m.setRawSamplesPerSec(30.0f);                     // 0.05 - fmod(0.05, 1/30) = 1/30
    EXPECT_NEAR(m.getSnapToFrameDelta(0.0f, 0.05f), 1.0f / 30.0f, 1e-6f);
}

// Label spacing. Below F = trunc(fps) the ladder for F is walked while the integer midpoint
// (next + current)/2 exceeds the target; else whole seconds, while (m + c)*F/2 is below it.
TEST_F(CH_ManagerTime, NiceFrameSeparation)
{
    struct Row { float fps, target; int minimum, expected; } rows[] = {
        {24, 4, 1, 6}, {24, 4, 8, 12},           // 18 -> 12, 9 -> 6, (3+6)/2 = 4 stops; 6 < minimum 8
        {24, 100, 1, 120},                       // seconds: (1+5)*24/2 = 72 < 100 -> 5; (5+15)*12 = 240 stops
        {24, 1e9f, 1, 2073600}, {0.5f, 4, 1, 0}, // every step passes: 86400*24; F = 0: 86400*0
        {25, 3, 1, 5}, {25, 2, 1, 1},            // 15 -> 5, 3 stops; 3 -> 1
        {30, 4, 1, 5}, {30, 30, 1, 30},          // 22 -> 15, 10 -> 5, 3 stops; F <= target, 90 >= 30: 1 s
        {60, 20, 1, 15}, {48, 5, 1, 6},          // 45 -> 30, 22 -> 15, 10 stops; 36, 18, 9 -> 6, 4 stops
        {50, 10, 1, 5}, {20, 3, 1, 2},           // 37 -> 25, 15 -> 5, 3 stops; F/2, F/10: 15, 6 -> 2, 1 stops
        {15, 5, 1, 3}, {14, 3, 1, 1},            // F/5: 9 -> 3, 2 stops; F/2: 10 -> 7, 4 -> 1
        {12, 2, 1, 3}, {12, 5, 1, 6},            // F/2, F/4: 9 -> 6, 4 -> 3, 2 stops; 9 -> 6, 4 stops
        {29.97f, 4, 1, 5}, {7, 6, 1, 5},         // F = 29, odd: 19 -> 10, 7 -> 5, 3 stops; 10 > F: 8 -> 10, 7 -> 5
    };
    for (const Row &r : rows) {
        m.setRawSamplesPerSec(r.fps);
        EXPECT_EQ(m.niceFrameSeparation(r.target, r.minimum), r.expected) << r.fps << " " << r.target;
    }
}

// At 24: sample = round3((t + offset)*24 + 1) split into 86400 per hour, 1440 per minute and 24
// per second; the rest are frames. Read back: (h*86400 + m*1440 + s*24 + f - 1)/24 - offset.
TEST_F(CH_ManagerTime, TimeCodes)
{
    char buf[64];
    struct Row { float offset, t; const char *text; bool back; } rows[] = {
        {10, 0, "00:00:10:01", true},         // sample 241: 10 s, 1 frame
        {0, 0, "00:00:00:01", true},          // sample 1
        {0, 23 / 24.0f, "00:00:01:00", true}, // sample 24: 1 s, 0 frames
        {0, 45296.25f, "12:34:56:07", true},  // sample 1087111 = 12*86400 + 34*1440 + 56*24 + 7
        {0, -1, "-00:00:00:23", false},       // sample -23: shown, not read back
    };
    for (const Row &r : rows) {
        m.setTimeCodeOffset(r.offset);
        m.getTimeCode(buf, r.t);
        EXPECT_STREQ(buf, r.text);
        float t = -1.0f;
        EXPECT_EQ(m.setTimeCode(r.text, t), int(r.back)) << r.text;
        EXPECT_FLOAT_EQ(t, r.back ? r.t : 0) << r.text;
    }
    for (const char *bad : {"12:34", "abc", "", "100:00:00:01"}) {
        float t = 5.0f;
        EXPECT_TRUE(m.setTimeCode(bad, t) == 0 && t == 0.0f) << bad;
    }
    std::memset(buf, 'x', sizeof buf);
    m.getTimeCode(buf, 1e30f); // saturated fields, cut at 32 chars
    EXPECT_EQ(std::strlen(buf), 31u);
    EXPECT_EQ(buf[32], 'x');
}

TEST_F(CH_ManagerTime, Units)
{
    auto errors = [] {
        std::string all;
        for (const UT_Error &e : UT_ErrorManager::get().getErrors())
            all += e.table + " " + std::to_string(e.code) + " " + e.argument + ";";
        return all;
    };
    EXPECT_EQ(m.scaleToMKS("not units!"), 1.0f); // both units 1: nothing parsed
    EXPECT_EQ(m.scaleFromMKS("not units!"), 1.0f);
    EXPECT_EQ(errors(), "");
    struct Row { const char *units; float length, mass; const char *errors; } rows[] = {
        {"ft1m2", 2, 0, "CH 12 ft;"}, {"Kg1", 0, 0, "CH 12 Kg;"}, {"m1.2.3kg2", 0, 2, "CH 11 m1.2.3kg2;"},
        {"kg", 0, 0, "CH 11 kg;"}, {"2m1", 1, 0, "CH 11 2m1;"},
        {"m2 kg1", 2, 0, "CH 11 m2 kg1;"}, {"m*kg1", 0, 0, "CH 11 m*kg1;"}, // the scan stops; one report
        {"kg1m-3", -3, 1, ""}, {"  m2s-2kg1 ", 2, 1, ""}, {"m1m1.5", 2.5f, 0, ""}, {"", 0, 0, ""},
    };
    for (const Row &r : rows) {
        UTclearErrors();
        float length = 7, mass = 7;
        m.parseUnitsString(r.units, length, mass);
        EXPECT_EQ(length, r.length) << r.units;
        EXPECT_EQ(mass, r.mass) << r.units;
        EXPECT_EQ(errors(), r.errors) << r.units;
    }
    m.setUnitLength(0.5f);
    m.setUnitMass(2.0f);
    EXPECT_EQ(m.scaleToMKS("kg1m-3"), 16.0f); // 2^1 * 0.5^-3
    EXPECT_EQ(m.scaleFromMKS("kg1m-3"), 0.0625f);
    m.setUnitLength(0.0f);
    EXPECT_EQ(m.scaleFromMKS("m1"), 3.4028235e38f); // 1/0^1: the largest float
    EXPECT_EQ(errors(), "");
}

} // namespace
