#include <ch/channel/CH_Segment.h>

#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_Key.h>
#include <ch/channel/CH_SegmentValues.h>
#include <ch/channel/CH_Spline.h>
#include <ev/EV_ExprFlags.h>
#include <ch/expr/CH_ExprFunctions.h>
#include <ch/expr/CH_Expression.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_EventManager.h>
#include <ch/manager/CH_Manager.h>
#include <ch/manager/CH_TimeGroup.h>

#include <ut/UT_Thread.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <locale>
#include <sstream>

namespace {

constexpr float theMaxSlope = 1e8f;
constexpr unsigned theTimeDependentMask = EV_FLAG_TIME_DEPENDENT_MASK;

// cos(atan(s)) without losing precision for steep slopes.
double cosAtan(double s)
{
    if (std::fabs(s) <= 1.0)
    {
        double sine = s / std::sqrt(s * s + 1.0);
        return std::sqrt(1.0 - sine * sine);
    }
    double r = 1.0 / std::fabs(s);
    return r / std::sqrt(r * r + 1.0);
}

// The handle length factor of a slope under a value scale.
double slopeScaleFactor(double k, double s)
{
    double c = cosAtan(s);
    double sine = s / std::sqrt(s * s + 1.0);
    return std::hypot(k * sine, c);
}

float clampSlope(float s)
{
    if (s >= theMaxSlope)
        return theMaxSlope;
    if (s <= -theMaxSlope)
        return -theMaxSlope;
    return s;
}

} // namespace

// ---- Construction ------------------------------------------------------------

void CH_Segment::initDefaults()
{
    myFlags.setDefaults();
    myInValue = myOutValue = myInSlope = myOutSlope = myInAccel = myOutAccel = 0.0f;
    myLength = 0.0f;
    myILength = 1e8f;
    myStart = myEnd = 0.0f;
}

CH_Segment::CH_Segment(float value, CH_Channel *channel, float length)
{
    initDefaults();
    std::ostringstream os;
    os.imbue(std::locale::classic());
    os << value;
    std::string text = os.str().substr(0, 511);
    CH_ExprLanguage language = channel ? channel->getCollectionExprLanguage() : CH_ORVISH;
    setExpressionText(text.c_str(), language);
    changeLength(length, CH_SCALE_ANY, true);
    myChannel = channel;
    checkExpression();
}

CH_Segment::CH_Segment(const char *expr, CH_ExprLanguage language, CH_Channel *channel, float length)
{
    initDefaults();
    myChannel = channel;
    if (!expr)
    {
        CH_Manager *mgr = getManager();
        const char *rot = mgr ? mgr->getDefaultRotationExpression() : "";
        if (rot && *rot && channel && channel->isRotationChannel())
            expr = rot;
        else
            expr = mgr ? mgr->getDefaultExpression() : "bezier()";
    }
    setExpressionText(expr, language);
    checkExpression();
    changeLength(length, CH_SCALE_ANY, true);
}

CH_Segment::CH_Segment(const CH_Segment &from)
{
    initDefaults();
    *this = from;
}

CH_Segment &CH_Segment::operator=(const CH_Segment &from)
{
    if (this == &from)
        return *this;
    myFlags = from.myFlags;
    setChannel(from.myChannel); // keeps its own group, under the new channel
    const char *text = from.getExpression();
    setExpressionText(text ? text : "", from.getExprLanguage());
    checkExpression();
    changeLength(from.myLength, CH_SCALE_ANY, true);
    myInValue = from.myInValue;
    myOutValue = from.myOutValue;
    myInSlope = from.myInSlope;
    myOutSlope = from.myOutSlope;
    myInAccel = from.myInAccel;
    myOutAccel = from.myOutAccel;
    setSplineKnots(from.myKnots.get(), from.myNKnots);
    myPrev = myNext = nullptr;
    clearCache(); // samples of what this segment was
    dropSplineRun();
    return *this;
}

CH_Segment::~CH_Segment()
{
    if (myTimeGroup)
        myTimeGroup->removeEntry(this, true);
    dropSplineRun();
}

void CH_Segment::setExpressionText(const char *text, CH_ExprLanguage language)
{
    // Segments repeat a few texts thousands of times: they share compiled
    // code. The text may live in the expression being replaced: copy it.
    // Built aside first: if that throws, the segment keeps its expression
    // (evaluation relies on there always being one).
    std::string copy = text ? text : "";
    CH_Expression fresh(copy.c_str(), language, CH_Expression::Pooled);
    myExpression.reset();
    myExpression.emplace(std::move(fresh)); // cannot throw
}

void CH_Segment::setSplineKnots(const UT_Vector3 *knots, int n)
{
    if (!knots || n <= 0)
    {
        myKnots.reset();
        myNKnots = 0;
        return;
    }
    myKnots.reset(new UT_Vector3[n]);
    for (int i = 0; i < n; ++i)
        myKnots[i] = knots[i];
    myNKnots = n;
}

void CH_Segment::offerSplineRun(const CH_SplineRun *run, int knot) const
{
    if (!run || mySplineRun.load(std::memory_order_acquire))
        return;
    // Before the run is published: whoever sees the run sees this index, or
    // the same one from a racing thread.
    mySplineKnot.store(knot, std::memory_order_relaxed);
    run->retain();
    const CH_SplineRun *none = nullptr;
    if (!mySplineRun.compare_exchange_strong(none, run, std::memory_order_acq_rel, std::memory_order_acquire))
        run->release(); // another thread's copy of the same run got here first
}

void CH_Segment::dropSplineRun()
{
    if (const CH_SplineRun *run = mySplineRun.exchange(nullptr, std::memory_order_acq_rel))
        run->release();
}

CH_Manager *CH_Segment::getManager() const
{
    CH_Manager *mgr = myChannel ? myChannel->getManager() : nullptr;
    return mgr ? mgr : CH_Manager::getContext();
}

float CH_Segment::getTolerance() const
{
    CH_Manager *mgr = getManager();
    return mgr ? mgr->getTolerance() : 1.0f / 2400.0f;
}

// ---- Expression ----------------------------------------------------------------

const char *CH_Segment::getExpression() const
{
    return myExpression ? myExpression->getExpression() : nullptr;
}

CH_ExprLanguage CH_Segment::getExprLanguage() const
{
    if (myExpression)
        return myExpression->getLanguage();
    return myChannel ? myChannel->getCollectionExprLanguage() : CH_ORVISH;
}

void CH_Segment::setExprLanguage(CH_ExprLanguage language)
{
    if (!myExpression)
        return;
    bool was_spline = isSpline();
    myExpression->setLanguage(language);
    reclassify(was_spline);
}

void CH_Segment::reclassify(bool was_spline)
{
    checkExpression();
    // A segment that stops being a spline ends its neighbours' run, which
    // their curves were built over.
    if (was_spline && !isSpline())
    {
        if (myPrev)
            myPrev->setModified(1);
        if (myNext)
            myNext->setModified(1);
    }
}

void CH_Segment::checkExpression()
{
    myFlags.set(CH_SegmentFlags::FUNCTION_BITS, false);
    const char *text = getExpression();
    myKind = CHfindInterpolationKind(text);
    myInterpolation = myKind && getExprLanguage() == CH_ORVISH ? CHgetInterpolationCall(myKind) : nullptr;
    if (!text)
        return;
    if (myKind)
        myFlags.set(myKind->segmentFlag, true);
    else if (!std::strncmp(text, "lock(", 5))
        myFlags.set(CH_SegmentFlags::LOCKED_SEGMENT, true);
    if (myExpression->isHardwired())
        clearCache();
}

bool CH_Segment::expressionIsAnimationFunctionCall(const char *text)
{
    return CHfindInterpolationKind(text) != nullptr;
}

bool CH_Segment::expressionIsAnimationFunctionCall() const
{
    return myKind != nullptr;
}

bool CH_Segment::isMatchFunction() const
{
    if (myExpression && myExpression->isCompiled())
        return (myExpression->getExpressionFlag() & EV_FLAG_MATCH) != 0;
    return myKind && myKind->isMatch();
}

bool CH_Segment::isDataDependent() const
{
    return myExpression && myExpression->isDataDependent();
}

void CH_Segment::changeExpression(const char *text, CH_ExprLanguage language, bool normalize)
{
    const char *current = getExpression();
    if (!text || !current)
        return;
    if (!std::strcmp(text, current) && language == getExprLanguage())
        return;
    CH_Collection *c = myChannel ? myChannel->getCollection() : nullptr;
    if (c && !c->canAccessChannel(146, myChannel))
        return;
    bool was_spline = isSpline();
    bool used_accels = normalize && isInAccelUsed();
    setExpressionText(text, language);
    reclassify(was_spline);
    if (normalize && !used_accels && isInAccelUsed())
        normalizeAccels();
    setModified(1);
    if (myChannel)
        CHevent(CH_CHANNELS_MAJOR_CHANGE, myChannel);
}

bool CH_Segment::usesFlag(unsigned mask) const
{
    // Known from the compiled text (plus what runs have gathered): asking
    // must never run the user's expression, as editing a key does.
    if (!myExpression)
        return false;
    return ((myExpression->getExpressionFlag() | myExpression->getCompiledUsage()) & mask) != 0;
}

void CH_Segment::updateExprFlags() const
{
    if (myExpression && myExpression->modified() && myChannel)
        myChannel->evaluateSegment(const_cast<CH_Segment *>(this), myStart, false,
                                   UT_Thread::getMySequentialThreadIndex());
}

bool CH_Segment::isInValueUsed() const { return usesFlag(EV_FLAG_INVALUE); }
bool CH_Segment::isOutValueUsed() const { return usesFlag(EV_FLAG_OUTVALUE); }
bool CH_Segment::isInSlopeUsed() const { return usesFlag(EV_FLAG_SLOPES); }
bool CH_Segment::isInAccelUsed() const { return usesFlag(EV_FLAG_ACCELS); }
bool CH_Segment::isSplineUsed() const { return usesFlag(EV_FLAG_KNOTS); }

void CH_Segment::dirtyExprCache()
{
    if (myExpression)
        myExpression->dirtyExprCache();
}

bool CH_Segment::findString(const char *text, bool whole_word, bool case_sensitive) const
{
    return myExpression && myExpression->findString(text, whole_word, case_sensitive);
}

int CH_Segment::changeString(const char *from, const char *to, bool whole_word, int thread)
{
    if (!myExpression)
        return 0;
    bool was_spline = isSpline();
    int n = myExpression->changeString(from, to, whole_word, thread);
    if (n)
    {
        reclassify(was_spline);
        setModified(1);
    }
    return n;
}

void CH_Segment::unresolveLocalVars(int thread)
{
    if (myExpression)
        myExpression->unresolveLocalVars(thread);
}

void CH_Segment::evaluateString(UT_String &result, int thread) const
{
    if (myExpression)
        myExpression->evaluateString(result, thread);
    else
        result = "";
}

// ---- Accels -------------------------------------------------------------------

float CH_Segment::getAccelRatio(float slope, float accel, float length)
{
    // In single precision, like the numbers it relates.
    float l = length == 0.0f ? 1.0f : length;
    float cosine;
    if (std::fabs(slope) <= 1.0f)
    {
        float sine = slope / std::sqrt(slope * slope + 1.0f);
        cosine = std::sqrt(1.0f - sine * sine);
    }
    else
    {
        float r = 1.0f / std::fabs(slope);
        cosine = r / std::sqrt(r * r + 1.0f);
    }
    return accel * cosine / l;
}

float CH_Segment::getAccelFromRatio(float slope, float ratio, float length)
{
    float l = length == 0.0f ? 1.0f : length;
    return std::sqrt(slope * slope + 1.0f) * l * ratio;
}

void CH_Segment::setInAccelRatio(float r, bool propagate)
{
    setInAccel(getAccelFromRatio(myInSlope, r, myLength), propagate);
}

void CH_Segment::setOutAccelRatio(float r, bool propagate)
{
    setOutAccel(getAccelFromRatio(myOutSlope, r, myLength), propagate);
}

namespace {

// Keeps the handle inside the segment and at least the tolerance long.
// Returns whether the tolerance rule raised the accel (only that marks the
// segment modified).
bool clampAccel(float &accel, float slope, float length, float tol)
{
    float ratio = CH_Segment::getAccelRatio(slope, accel, length);
    if (ratio > 1.0f)
        accel /= ratio;
    if (length != 0.0f && accel < tol)
    {
        bool changed = accel != tol;
        accel = tol;
        return changed;
    }
    return false;
}

} // namespace

void CH_Segment::clampInAccel()
{
    if (clampAccel(myInAccel, myInSlope, myLength, getTolerance()))
        setModified(1);
}

void CH_Segment::clampOutAccel()
{
    if (clampAccel(myOutAccel, myOutSlope, myLength, getTolerance()))
        setModified(1);
}

// One side's numbers and tie bits, and the segment across its key, so that
// the in and out setters share one body.
struct CH_Segment::chSide
{
    float &value;
    float &slope;
    float &accel;
    unsigned valueTie, slopeTie, accelTie;
    CH_Segment *neighbour;
    bool in;
};

CH_Segment::chSide CH_Segment::side(bool in)
{
    if (in)
        return {myInValue, myInSlope, myInAccel, CH_SegmentFlags::IN_VALUE_TIED,
                CH_SegmentFlags::IN_SLOPE_TIED, CH_SegmentFlags::IN_ACCEL_TIED, myPrev, true};
    return {myOutValue, myOutSlope, myOutAccel, CH_SegmentFlags::OUT_VALUE_TIED,
            CH_SegmentFlags::OUT_SLOPE_TIED, CH_SegmentFlags::OUT_ACCEL_TIED, myNext, false};
}

void CH_Segment::normalizeAccels()
{
    float l = myLength == 0.0f ? 1.0f : myLength;
    for (bool in : {true, false})
    {
        chSide sd = side(in);
        float target = l * std::sqrt(sd.slope * sd.slope + 1.0f) * 0.33333334f;
        if (sd.accel == target)
            continue;
        float old = sd.accel;
        sd.accel = target;
        in ? clampInAccel() : clampOutAccel();
        if (sd.accel != old)
            setModified(1);
    }
}

// ---- Values and slopes ---------------------------------------------------------

namespace {

// NaN equals NaN here: holding a NaN key must end like any other.
bool sameValue(float a, float b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

} // namespace

void CH_Segment::holdLastKey(float value, bool propagate)
{
    if (!sameValue(myInValue, value))
        setInValue(value, propagate);
    if (!sameValue(myOutValue, value))
        setOutValue(value, propagate);
    if (!sameValue(myInSlope, 0.0f))
        setInSlope(0.0f, true, 0.0f);
    if (!sameValue(myOutSlope, 0.0f))
        setOutSlope(0.0f, true, 0.0f);
}

void CH_Segment::afterValueSet(float value, bool propagate, bool hold)
{
    if (!hold)
        return;
    CH_Manager *mgr = getManager();
    if (mgr && mgr->getHoldLastKey() && myPrev && !myNext)
        holdLastKey(value, propagate);
}

void CH_Segment::setSideValue(bool in, float v, bool propagate, bool hold)
{
    chSide sd = side(in);
    if (!sameValue(v, sd.value))
    {
        sd.value = v;
        setModified(1);
    }
    if (propagate && myFlags.has(sd.valueTie))
    {
        if (sd.neighbour)
            sd.neighbour->setSideValue(!in, v, false, hold);
        else if (std::fabs(myLength) <= 1e-5f)
            setSideValue(!in, v, false, hold);
    }
    afterValueSet(v, propagate, hold);
}

void CH_Segment::setSideSlope(bool in, float s, bool propagate, float k, bool hold)
{
    chSide sd = side(in);
    s = clampSlope(s);
    if (k != 0.0f && isInAccelUsed())
    {
        // The handle keeps its look under the value scale.
        double den = slopeScaleFactor(k, s);
        double factor = den == 0.0 ? 1.0 : slopeScaleFactor(k, sd.slope) / den;
        sd.accel = static_cast<float>(sd.accel * factor);
    }
    if (!sameValue(s, sd.slope))
    {
        sd.slope = s;
        setModified(1);
    }
    in ? clampInAccel() : clampOutAccel();
    if (propagate && myFlags.has(sd.slopeTie))
    {
        if (sd.neighbour)
            sd.neighbour->setSideSlope(!in, s, false, k, hold);
        else if (std::fabs(myLength) <= 1e-5f)
            setSideSlope(!in, s, false, 0.0f, hold);
    }
    afterValueSet(myInValue, propagate, hold);
}

void CH_Segment::setSideAccel(bool in, float a, bool propagate)
{
    chSide sd = side(in);
    if (a == sd.accel)
        return;
    float old = sd.accel;
    sd.accel = a;
    clampAccel(sd.accel, sd.slope, myLength, getTolerance());
    if (sd.accel == old)
        return;
    setModified(1);
    if (!propagate || !myFlags.has(sd.accelTie))
        return;
    if (sd.neighbour)
    {
        // Tied accels keep their proportion rather than their length.
        float ratio = sd.accel / old;
        if (std::isfinite(ratio))
            sd.neighbour->setSideAccel(!in, ratio * sd.neighbour->side(!in).accel, false);
    }
    else if (isEndSegment())
        setSideAccel(!in, a, false);
}

void CH_Segment::setInValue(float v, bool propagate) { setSideValue(true, v, propagate); }
void CH_Segment::setOutValue(float v, bool propagate) { setSideValue(false, v, propagate); }
void CH_Segment::setInSlope(float s, bool propagate, float k) { setSideSlope(true, s, propagate, k); }
void CH_Segment::setOutSlope(float s, bool propagate, float k) { setSideSlope(false, s, propagate, k); }
void CH_Segment::setInAccel(float a, bool propagate) { setSideAccel(true, a, propagate); }
void CH_Segment::setOutAccel(float a, bool propagate) { setSideAccel(false, a, propagate); }

float CH_Segment::getValue(bool in, CH_ValueTypes kind) const
{
    switch (kind)
    {
    case CH_VALUE: return in ? myInValue : myOutValue;
    case CH_SLOPE: return in ? myInSlope : myOutSlope;
    case CH_ACCEL: return in ? getInAccelRatio() : getOutAccelRatio();
    }
    return 0.0f;
}

void CH_Segment::setValue(bool in, CH_ValueTypes kind, float v, bool hold_last_key)
{
    switch (kind)
    {
    case CH_VALUE: setSideValue(in, v, false, hold_last_key); break;
    case CH_SLOPE: setSideSlope(in, v, false, 0.0f, hold_last_key); break;
    case CH_ACCEL: in ? setInAccelRatio(v, false) : setOutAccelRatio(v, false); break;
    }
}

namespace {

unsigned tieBit(bool in, CH_ValueTypes kind)
{
    switch (kind)
    {
    case CH_VALUE: return in ? CH_SegmentFlags::IN_VALUE_TIED : CH_SegmentFlags::OUT_VALUE_TIED;
    case CH_SLOPE: return in ? CH_SegmentFlags::IN_SLOPE_TIED : CH_SegmentFlags::OUT_SLOPE_TIED;
    case CH_ACCEL: return in ? CH_SegmentFlags::IN_ACCEL_TIED : CH_SegmentFlags::OUT_ACCEL_TIED;
    }
    return 0;
}

} // namespace

bool CH_Segment::getValueTied(bool in, CH_ValueTypes kind) const
{
    return myFlags.has(tieBit(in, kind));
}

void CH_Segment::setValueTied(bool in, CH_ValueTypes kind, bool tied)
{
    myFlags.set(tieBit(in, kind), tied);
}

bool CH_Segment::getValueValid(bool in, CH_ValueTypes kind) const
{
    switch (kind)
    {
    case CH_VALUE: return in ? isInValueUsed() : isOutValueUsed();
    case CH_SLOPE: return isInSlopeUsed();
    case CH_ACCEL: return isInAccelUsed();
    }
    return false;
}

// ---- Ties -------------------------------------------------------------------------

void CH_Segment::tieSide(bool in, CH_ValueTypes kind, bool tie, bool propagate, float k)
{
    myFlags.set(tieBit(in, kind), tie);
    CH_Segment *neighbour = in ? myPrev : myNext;
    if (!propagate || !neighbour)
        return;
    // The segment being tied takes the neighbour's number; accels are only
    // marked.
    if (tie && kind == CH_VALUE)
        setSideValue(in, neighbour->side(!in).value, false);
    else if (tie && kind == CH_SLOPE)
        setSideSlope(in, neighbour->side(!in).slope, false, k);
    neighbour->myFlags.set(tieBit(!in, kind), tie);
}

void CH_Segment::tieInValue(bool tie, bool propagate) { tieSide(true, CH_VALUE, tie, propagate, 0.0f); }
void CH_Segment::tieOutValue(bool tie, bool propagate) { tieSide(false, CH_VALUE, tie, propagate, 0.0f); }
void CH_Segment::tieInSlope(bool tie, bool propagate, float k) { tieSide(true, CH_SLOPE, tie, propagate, k); }
void CH_Segment::tieOutSlope(bool tie, bool propagate, float k) { tieSide(false, CH_SLOPE, tie, propagate, k); }
void CH_Segment::tieInAccel(bool tie, bool propagate) { tieSide(true, CH_ACCEL, tie, propagate, 0.0f); }
void CH_Segment::tieOutAccel(bool tie, bool propagate) { tieSide(false, CH_ACCEL, tie, propagate, 0.0f); }

// ---- Time -----------------------------------------------------------------------

void CH_Segment::changeLength(float length, CH_SegmentScale, bool keep_ratios)
{
    if (length != 0.0f && !(length >= 1e-5f))
        length = 1e-5f; // negative and NaN lengths too
    if (length == myLength)
        return;
    float in_ratio = 0.0f, out_ratio = 0.0f;
    if (keep_ratios)
    {
        in_ratio = getInAccelRatio();
        out_ratio = getOutAccelRatio();
    }
    myILength = length > 0.0f ? 1.0f / length : 1e8f;
    myLength = length;
    if (keep_ratios)
    {
        setInAccelRatio(in_ratio, false);
        setOutAccelRatio(out_ratio, false);
    }
}

void CH_Segment::changeTimes(float start, float end)
{
    float tol = getTolerance();
    if (!(std::fabs(start - myStart) <= tol && std::fabs(end - myEnd) <= tol))
        clearCache();
    if (start != myStart || end != myEnd)
        dropSplineRun(); // knots move even within the tolerance
    myStart = start;
    myEnd = end;
}

void CH_Segment::stretch(float scale, int sides, int)
{
    if (myLength == 0.0f)
        return;
    float length = scale * myLength;
    if (!(length >= 1e-5f)) // NaN scales too
    {
        length = 1e-5f;
        scale = 1e-5f / myLength;
    }
    if (length == myLength)
        return;
    float in_slope = myInSlope, in_accel = myInAccel;
    float out_slope = myOutSlope, out_accel = myOutAccel;
    if (sides & 1)
        CHstretchSlopeAccel(scale, 1.0f, in_slope, in_accel, false);
    if (sides & 2)
        CHstretchSlopeAccel(scale, 1.0f, out_slope, out_accel, false);
    myLength = length;
    myILength = 1.0f / length;
    setInSlope(in_slope, true, 0.0f);
    setInAccel(in_accel, true);
    setOutSlope(out_slope, true, 0.0f);
    setOutAccel(out_accel, true);
}

void CH_Segment::reverse()
{
    std::swap(myInValue, myOutValue);
    std::swap(myInSlope, myOutSlope);
    std::swap(myInAccel, myOutAccel);
    for (CH_ValueTypes kind : {CH_VALUE, CH_SLOPE, CH_ACCEL})
    {
        bool in = getValueTied(true, kind), out = getValueTied(false, kind);
        setValueTied(true, kind, out);
        setValueTied(false, kind, in);
    }
    // Knot 0 and knot n-1 stay, and an even count's middle pair is swapped
    // twice: stored channels were written with this order.
    int n = myNKnots;
    for (int i = n / 2; i >= 1; --i)
        std::swap(myKnots[i], myKnots[n - 1 - i]);
}

// ---- State ---------------------------------------------------------------------

void CH_Segment::setModified(int on)
{
    myFlags.set(CH_SegmentFlags::MODIFIED, on != 0);
    if (!on)
        return;
    clearCache();
    dropSplineRun();
    if (!isSpline())
        return;
    // A spline's curve depends on its spline neighbours, and they share
    // its run.
    for (CH_Segment *s = myPrev; s && s != this && s->isSpline(); s = s->myPrev)
    {
        s->clearCache();
        s->dropSplineRun();
        s->myFlags.set(CH_SegmentFlags::MODIFIED, true);
    }
    for (CH_Segment *s = myNext; s && s != this && s->isSpline(); s = s->myNext)
    {
        s->clearCache();
        s->dropSplineRun();
        s->myFlags.set(CH_SegmentFlags::MODIFIED, true);
    }
}

namespace {

bool isPlainFunction(const CH_SegmentFlags &f)
{
    return f.has(CH_SegmentFlags::CONSTANT | CH_SegmentFlags::LINEAR | CH_SegmentFlags::EASE |
                 CH_SegmentFlags::EASEIN | CH_SegmentFlags::EASEOUT);
}

bool isSlopedFunction(const CH_SegmentFlags &f)
{
    return f.has(CH_SegmentFlags::BEZIER | CH_SegmentFlags::CUBIC);
}

} // namespace

bool CH_Segment::isTimeDependent() const
{
    if (isPlainFunction(myFlags))
        return myInValue != myOutValue;
    if (isSlopedFunction(myFlags))
        return !(myInValue == myOutValue && myInSlope == 0.0f && myOutSlope == 0.0f);
    return myExpression && (myExpression->getExpressionFlag() & theTimeDependentMask);
}

bool CH_Segment::isTimeDependent(bool refresh, int thread) const
{
    if (isTimeDependent())
        return true;
    if (!refresh || !myChannel || !myExpression)
        return false;
    myChannel->evaluateSegment(const_cast<CH_Segment *>(this), myStart, false, thread);
    return (myExpression->getExpressionFlag() & theTimeDependentMask) != 0;
}

bool CH_Segment::isTimeDependentAndGetFloat(float &value, int thread) const
{
    value = 0.0f;
    if (isPlainFunction(myFlags) || isSlopedFunction(myFlags))
    {
        value = myInValue;
        return isTimeDependent();
    }
    if (!myExpression)
        return false;
    if (myExpression->getExpressionFlag() & theTimeDependentMask)
        return true;
    if (myChannel)
        value = myChannel->evaluateSegment(const_cast<CH_Segment *>(this), myStart, false, thread);
    return (myExpression->getExpressionFlag() & theTimeDependentMask) != 0;
}

bool CH_Segment::isTimeDependentAndGetString(UT_String &value, int thread) const
{
    value = "";
    if (isPlainFunction(myFlags) || isSlopedFunction(myFlags))
    {
        char buf[64];
        std::snprintf(buf, sizeof(buf), "%g", myInValue);
        value = buf;
        return isTimeDependent();
    }
    if (!myExpression)
        return false;
    if (myExpression->getExpressionFlag() & theTimeDependentMask)
        return true;
    if (myChannel)
        myChannel->evaluateStringSegment(value, const_cast<CH_Segment *>(this), myStart, false, thread);
    return (myExpression->getExpressionFlag() & theTimeDependentMask) != 0;
}

void CH_Segment::setChannel(CH_Channel *channel)
{
    if (channel == myChannel)
        return;
    // The group lists the segment under its channel: re-list it.
    CH_TimeGroup *group = myTimeGroup;
    if (group)
        group->removeEntry(this, false);
    myChannel = channel;
    if (group && !group->addEntry(this, false))
        myTimeGroup = nullptr;
}

void CH_Segment::setTimeGroup(CH_TimeGroup *group, bool remove)
{
    if (group == myTimeGroup)
        return;
    // The group's entry calls come back with remove false (or find the
    // segment listed already), so the two sides never recurse.
    if (myTimeGroup && remove)
        myTimeGroup->removeEntry(this, false);
    if (group && remove && !group->addEntry(this, false))
        group = nullptr; // no channel to be listed under
    myTimeGroup = group;
}

void CH_Segment::transferGroup(CH_Segment &other)
{
    CH_TimeGroup *group = other.myTimeGroup;
    if (&other == this || !group || !myChannel)
        return;
    setTimeGroup(group, true);
    group->removeEntry(&other, false);
    other.myTimeGroup = nullptr;
}

void CH_Segment::display() const
{
    std::printf("time %f %f\tvalue %f %f\tslope %f %f\tsl %f %f\n", myStart, myEnd, myInValue,
                myOutValue, myInSlope, myOutSlope, myInAccel, myOutAccel);
}

CH_SegmentValues::CH_SegmentValues(const CH_Segment &s)
    : myStart(s.getStart()), myEnd(s.getEnd()), myInValue(s.getInValue()),
      myOutValue(s.getOutValue()), myInSlope(s.getInSlope()), myOutSlope(s.getOutSlope()),
      myInAccel(s.getInAccel()), myOutAccel(s.getOutAccel())
{
}
