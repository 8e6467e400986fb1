// The manager's time model: defaults, conversions between seconds, samples
// and frames, timecodes, units and timeline label spacing.
//
// Everything is single precision on purpose: keys saved at one setting must
// land on the same frames when loaded again, so the order of operations and
// the float roundings below are part of the behaviour. Do not "simplify"
// a formula (e.g. (n - 1) / fps into (n - 1) * (1 / fps)) without checking
// that it rounds the same way.

#include "CH_Manager.h"

#include <ut/UT_EnvControl.h>
#include <ut/UT_ErrorManager.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string>

namespace {

// Used by the free functions when no manager exists yet.
constexpr float theFallbackFPS = 24.0f;
constexpr float theFallbackTolerance = 1.0f / 2400.0f;

// Rates at or below this are ignored by the rate setters.
constexpr float theMinFPS = 0.00001f;

// float -> int truncation that stays defined for NaN (0) and for values
// beyond int (saturated), so absurd times cannot trigger undefined behaviour.
int chToInt(float x)
{
    if (!(x == x))
        return 0;
    if (x >= 2147483648.0f)
        return INT_MAX;
    if (x <= -2147483648.0f)
        return INT_MIN;
    return static_cast<int>(x);
}

float chRound3(float x)
{
    return CH_Manager::niceNumber(x, 3);
}

// Rounding of a time to a multiple of the frame step s, for
// getSnapToFrameDelta. Values already within eps of a multiple (and a step
// too small to snap to) are left alone.
constexpr float theSnapEps = 0.00001f;

bool chNearZero(float v)
{
    return -theSnapEps <= v && v <= theSnapEps;
}

float chRoundDown(float x, float s)
{
    if (chNearZero(s))
        return x;
    float r = std::fmod(x, s); // same sign as x
    if (chNearZero(r) || chNearZero(r - s))
        return x;
    if (x >= 0.0f)
        return x - r;
    if (r != 0.0f)
        return x - r - s;
    return x - r;
}

float chRoundUp(float x, float s)
{
    if (chNearZero(s))
        return x;
    float r = std::fmod(x, s);
    if (chNearZero(r) || chNearZero(r - s))
        return x;
    if (x <= 0.0f)
        return x - r;
    return x + s - r;
}

bool chIsLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool chIsExponentChar(char c)
{
    return (c >= '0' && c <= '9') || c == '.' || c == '-';
}

bool chIsBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

// The exponent run must be one whole float ("-3", "1.5", ".5"); "-", "1-2"
// or "1.2.3" are not.
bool chParseExponent(const std::string &text, float &value)
{
    if (text.empty())
        return false;
    char *end = nullptr;
    value = std::strtof(text.c_str(), &end);
    return end == text.c_str() + text.size();
}

// unitMass^massExp * unitLength^lengthExp, or 1 without parsing (and so
// without errors) when the scene uses metres and kilograms.
float chUnitScale(const CH_Manager &mgr, const char *units, bool &identity)
{
    identity = mgr.getUnitLength() == 1.0f && mgr.getUnitMass() == 1.0f;
    if (identity)
        return 1.0f;
    float lengthExp, massExp;
    mgr.parseUnitsString(units, lengthExp, massExp);
    return std::pow(mgr.getUnitMass(), massExp) * std::pow(mgr.getUnitLength(), lengthExp);
}

} // namespace

// ---- Defaults ----------------------------------------------------------------

float CH_Manager::getDefaultFPS()
{
    int fps = UT_EnvControl::getInt(UT_EnvControl::DEFAULT_FPS);
    return fps > 0 ? static_cast<float>(fps) : 24.0f;
}

float CH_Manager::getDefaultLength(float fps)
{
    return 10.0f - 1.0f / fps;
}

float CH_Manager::getDefaultLengthFrames(float fps)
{
    return fps * 10.0f - 1.0f;
}

// ---- Time model --------------------------------------------------------------

void CH_Manager::recomputeEnd()
{
    myEnd = (myNumSamples - 1.0f) / myFPS + myStart;
    myTolerance = 1.0f / (myFPS * 100.0f);
}

void CH_Manager::setSamplesPerSec(float fps)
{
    // Also rejects NaN.
    if (!(fps > theMinFPS))
        return;
    // Keep the length in seconds: the last sample lasts one old frame.
    float n = (myEnd - myStart + 1.0f / myFPS) * fps;
    myNumSamples = n < 2.0f ? 2.0f : n;
    myFPS = fps;
    recomputeEnd();
}

void CH_Manager::setRawSamplesPerSec(float fps)
{
    if (!(fps > theMinFPS))
        return;
    myFPS = fps;
    recomputeEnd();
}

void CH_Manager::setRawNumSamples(int n)
{
    myNumSamples = static_cast<float>(n < 2 ? 2 : n);
    recomputeEnd();
}

void CH_Manager::setGlobalTime(float a, float b)
{
    if (a <= b) {
        myStart = a;
        myEnd = b;
    } else {
        myStart = b;
        myEnd = a;
    }
    // Unrounded and unclamped: a range of one instant has one sample.
    myNumSamples = (myEnd - myStart) * myFPS + 1.0f;
}

void CH_Manager::setSampleRange(float a, float b)
{
    if (a <= b) {
        myRangeFirst = a;
        myRangeLast = b;
    } else {
        myRangeFirst = b;
        myRangeLast = a;
    }
}

int CH_Manager::getGlobalStartFrame() const
{
    return getFrame(myStart);
}

int CH_Manager::getGlobalEndFrame() const
{
    return getFrame(myEnd);
}

// ---- Conversions -------------------------------------------------------------

float CH_Manager::niceNumber(float x, int digits)
{
    float p = static_cast<float>(std::pow(10.0, digits));
    return std::floor(x * p + 0.5f) / p;
}

float CH_Manager::getTime(float sample) const
{
    return (sample - 1.0f) / myFPS;
}

float CH_Manager::getSampleRaw(float t) const
{
    return t * myFPS + 1.0f;
}

float CH_Manager::getSample(float t) const
{
    return chRound3(t * myFPS + 1.0f);
}

int CH_Manager::getFrame(float t) const
{
    // The tolerance pulls a time just short of a frame onto it.
    return chToInt(std::floor((t + myTolerance) * myFPS + 1.0f));
}

float CH_Manager::getTimeDelta(float samples) const
{
    return samples / myFPS;
}

float CH_Manager::getSampleDelta(float t) const
{
    return t * myFPS;
}

float CH_Manager::getSnapToFrameTime(float t) const
{
    return (std::floor(t * myFPS + 1.5f) - 1.0f) / myFPS;
}

float CH_Manager::getSnapSample(float sample) const
{
    return std::floor(sample + 0.5f);
}

bool CH_Manager::getIsAtFrame(float t) const
{
    return std::fabs(t - getSnapToFrameTime(t)) <= myTolerance;
}

float CH_Manager::getSnapToFrameDelta(float t, float delta) const
{
    // The frame step is that of the current manager (the one the editors
    // work in); this manager's own rate serves when none is current.
    const CH_Manager *current = getContext();
    float s = 1.0f / (current ? current : this)->myFPS;

    // The target snaps back towards t, so the move never overshoots and a
    // move of less than a frame may become 0.
    if (delta < 0.0f) {
        float d = chRoundUp(t + delta, s) - t;
        return d > 0.0f ? 0.0f : d;
    }
    if (delta > 0.0f) {
        float d = chRoundDown(t + delta, s) - t;
        return d < 0.0f ? 0.0f : d;
    }
    return 0.0f;
}

float CHgetTimeFromFrame(float frame)
{
    // Without a manager the default scene rate applies.
    const CH_Manager *mgr = CH_Manager::getContext();
    float fps = mgr ? mgr->getSamplesPerSec() : theFallbackFPS;
    return (frame - 1.0f) / fps;
}

int CHgetFrameFromTime(float t)
{
    const CH_Manager *mgr = CH_Manager::getContext();
    float fps = mgr ? mgr->getSamplesPerSec() : theFallbackFPS;
    float tol = mgr ? mgr->getTolerance() : theFallbackTolerance;
    return chToInt(std::floor((tol + t) * fps + 1.0f));
}

float CHgetSampleFromTime(float t)
{
    const CH_Manager *mgr = CH_Manager::getContext();
    float fps = mgr ? mgr->getSamplesPerSec() : theFallbackFPS;
    return chRound3(t * fps + 1.0f);
}

// ---- Timecode ----------------------------------------------------------------

int CH_Manager::setTimeCode(const char *text, float &t) const
{
    // Each field is at most two characters (so hours run to 99, and a
    // leading '-' takes one of the two).
    int hours, minutes, seconds, frames;
    if (!text || std::sscanf(text, "%2d:%2d:%2d:%2d", &hours, &minutes, &seconds, &frames) != 4) {
        t = 0.0f;
        return 0;
    }
    float fps = myFPS;
    t = (static_cast<float>(hours) * 3600.0f * fps + static_cast<float>(minutes) * 60.0f * fps +
         static_cast<float>(seconds) * fps + static_cast<float>(frames) - 1.0f) /
            fps -
        myTimeCodeOffset;
    return 1;
}

void CH_Manager::getTimeCode(char *buffer, float t) const
{
    // buffer must hold 32 chars; longer text (only from absurd times, whose
    // fields saturate) is cut there.
    float fps = myFPS;
    float s = chRound3((t + myTimeCodeOffset) * fps + 1.0f);

    // A sample below 0 is shown as '-' and the fields of its magnitude, not
    // as fields that each carry a sign. setTimeCode does not read it back.
    bool negative = s < 0.0f;
    if (negative)
        s = -s;

    int hours = chToInt(s / (3600.0f * fps));
    s -= static_cast<float>(hours) * 3600.0f * fps;
    int minutes = chToInt(s / (60.0f * fps));
    s -= static_cast<float>(minutes) * 60.0f * fps;
    int seconds = chToInt(s / fps);
    int frames = chToInt(s - static_cast<float>(seconds) * fps);
    std::snprintf(buffer, 32, "%s%02d:%02d:%02d:%02d", negative ? "-" : "", hours, minutes,
                  seconds, frames);
}

// ---- Units -------------------------------------------------------------------

void CH_Manager::parseUnitsString(const char *units, float &lengthExp, float &massExp) const
{
    lengthExp = 0.0f;
    massExp = 0.0f;
    if (!units)
        return;

    const char *p = units;
    const char *end = units + std::strlen(units);
    while (p < end && chIsBlank(*p))
        ++p;
    while (end > p && chIsBlank(end[-1]))
        --end;

    // Error 11 for the pair just scanned: a stray character right after it
    // ends the scan without a second report.
    bool reported = false;
    while (p < end) {
        const char *unitStart = p;
        while (p < end && chIsLetter(*p))
            ++p;
        std::string unit(unitStart, p);
        const char *expStart = p;
        while (p < end && chIsExponentChar(*p))
            ++p;
        std::string exponent(expStart, p);

        if (unit.empty() && exponent.empty()) {
            // A blank, '*' or other character between pairs: nothing after it
            // can be scanned, so stop here rather than loop.
            if (!reported)
                UTaddError("CH", 11, units);
            return;
        }
        float value;
        if (unit.empty() || !chParseExponent(exponent, value)) {
            UTaddError("CH", 11, units);
            reported = true;
            continue;
        }
        reported = false;
        if (unit == "kg")
            massExp += value;
        else if (unit == "m")
            lengthExp += value;
        else if (unit != "s") // time needs no scaling
            UTaddError("CH", 12, unit.c_str());
    }
}

float CH_Manager::scaleToMKS(const char *units) const
{
    bool identity;
    return chUnitScale(*this, units, identity);
}

float CH_Manager::scaleFromMKS(const char *units) const
{
    bool identity;
    float p = chUnitScale(*this, units, identity);
    if (identity)
        return 1.0f;
    return p == 0.0f ? std::numeric_limits<float>::max() : 1.0f / p;
}

// ---- Timeline labels ---------------------------------------------------------

int CH_Manager::niceFrameSeparation(float target, int minimum) const
{
    int F = chToInt(myFPS);

    if (static_cast<float>(F) > target) {
        // Divisions of one second: the ladder of spacings below F.
        int ladder[5];
        int count = 0;
        auto add = [&](std::initializer_list<int> values) {
            for (int v : values)
                ladder[count++] = v;
        };
        switch (F) {
        case 24: add({12, 6, 3, 1}); break;
        case 25: add({5, 1}); break;
        case 30: add({15, 5, 1}); break;
        case 48: add({24, 12, 6, 3, 1}); break;
        case 50: add({25, 5, 1}); break;
        case 60: add({30, 15, 5, 1}); break;
        default:
            if (F % 10 == 0)
                add({F / 2, F / 10, 1});
            else if (F % 5 == 0)
                add({F / 5, 1});
            else if (F % 4 == 0)
                add({F / 2, F / 4, 1});
            else if (F % 2 == 0)
                add({F / 2, 1});
            else
                add({10, 5, 1}); // need not divide F
            if (ladder[0] == 0)
                return F; // F is 0: a rate below one frame per second
            break;
        }
        int spacing = F;
        for (int i = 0; i < count; ++i) {
            int c = ladder[i];
            if (c < minimum || static_cast<float>((c + spacing) / 2) <= target)
                break;
            spacing = c;
        }
        return spacing;
    }

    // Whole seconds up to a day. 64-bit products: F may be huge.
    static const int theSeconds[] = {5, 15, 30, 60, 300, 900, 1800, 3600, 7200, 14400, 43200, 86400};
    long long m = 1;
    for (int c : theSeconds) {
        long long mid = ((m + c) * F) / 2;
        if (!(static_cast<float>(mid) < target))
            break;
        m = c;
    }
    long long spacing = m * F;
    return spacing > INT_MAX ? INT_MAX : static_cast<int>(spacing);
}

// ---- Reset -------------------------------------------------------------------

void CH_Manager::resetChannelOptions()
{
    float fps = getDefaultFPS();
    myFPS = fps;
    myStart = 0.0f;
    myEnd = getDefaultLength(fps);
    int n = static_cast<int>(chRound3(myEnd * fps + 1.0f));
    myNumSamples = static_cast<float>(n < 2 ? 2 : n);

    setRealTimeDisableSkip(false);
    setIntegerFrameFlag(true);
    setRestrictRangeFlag(true);
    setShowRangeFlag(true);
    setShowTicksFlag(true);
    setShowAudioFlag(true);
    setShowKeysFlag(true);
    mySampleStep = 1.0f;

    // Times the float reciprocal, unlike recomputeEnd's division: the two can
    // differ in the last bit, and scenes saved at the default length rely on
    // this one.
    myEnd = (myNumSamples - 1.0f) * (1.0f / fps);
    myTolerance = 1.0f / (fps * 100.0f);
}

void CH_Manager::resetPlayback()
{
    resetChannelOptions();
    setEvaluateTime(0.0f, 0);
    setRealTimeFlag(false);
    setHoldFlag(false);
    myRealTimeFactor = 1.0f;
    myRangeFirst = getSample(myStart);
    myRangeLast = getSample(myEnd);
}

// ---- Strings -----------------------------------------------------------------

void CH_Manager::setDefaultExpression(const char *text)
{
    // A channel needs some default; an empty one would leave new keys
    // without an expression.
    if (!text || !*text)
        return;
    myDefaultExpression = text;
}

void CH_Manager::setDefaultRotationExpression(const char *text)
{
    if (!text)
        return;
    myDefaultRotationExpression = text;
}
