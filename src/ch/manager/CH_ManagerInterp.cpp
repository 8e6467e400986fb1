// The interpolation functions segment expressions call. Each works on the
// segment the thread is evaluating, read through the evaluation collection's
// glue accessors; times are channel-local.
#include "CH_Manager.h"

#include <ch/channel/CH_Bezier.h>
#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_InterpMath.h>
#include <ch/channel/CH_Segment.h>
#include <ch/channel/CH_SegmentValues.h>
#include <ch/channel/CH_Spline.h>
#include <ch/expr/CH_ExprFunctions.h>
#include <ch/io/CH_Collection.h>

#include <ut/UT_Matrix3.h>
#include <ut/UT_Quaternion.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace {

inline bool chDegenerate(float length) { return length > -1e-5f && length < 1e-5f; }

struct chSegmentTimes
{
    float t = 0.0f, start = 0.0f, end = 0.0f, in = 0.0f, out = 0.0f;
    const CH_Segment *segment = nullptr;

    // The glue slopes and accels: 0 without a segment.
    void slopes(float &in_slope, float &out_slope) const
    {
        in_slope = segment ? segment->getInSlope() : 0.0f;
        out_slope = segment ? segment->getOutSlope() : 0.0f;
    }
    void accels(float &in_accel, float &out_accel) const
    {
        in_accel = segment ? segment->getInAccel() : 0.0f;
        out_accel = segment ? segment->getOutAccel() : 0.0f;
    }
};

// The segment's times and values through one glue lookup; false without a
// collection.
bool chReadTimes(CH_Collection *collection, chSegmentTimes &s, int thread)
{
    if (!collection)
        return false;
    s.segment = collection->getGlueSegment(s.t, thread);
    if (s.segment)
    {
        s.start = s.segment->getStart();
        s.end = s.segment->getEnd();
        s.in = s.segment->getInValue();
        s.out = s.segment->getOutValue();
    }
    return true;
}

using chShape = CH_EaseShape;

float chEaseShape(chShape kind, const chSegmentTimes &s)
{
    float length = s.end - s.start;
    if (chDegenerate(length))
        return 0.5f;
    float u = (s.t - s.start) / length;
    return CHeaseShape(kind, u);
}

float chEased(CH_Collection *collection, chShape kind, int thread)
{
    chSegmentTimes s;
    if (!chReadTimes(collection, s, thread))
        return 0.0f;
    if (s.t <= s.start)
        return s.in;
    if (s.t >= s.end)
        return s.out;
    return s.in + chEaseShape(kind, s) * (s.out - s.in);
}

float chEaseP(CH_Collection *collection, chShape kind, float p, int thread)
{
    chSegmentTimes s;
    if (!chReadTimes(collection, s, thread))
        return 0.0f;
    if (s.t <= s.start)
        return s.in;
    if (s.t >= s.end)
        return s.out;
    float e = chEaseShape(kind, s);
    // A vanishing exponent returns 1 outright, not a value between the keys;
    // existing scenes depend on it.
    if (p < 1e-5f)
        return 1.0f;
    float w = p < 1.0f ? 1.0f - std::pow(1.0f - e, 1.0f / p) : std::pow(e, p);
    return s.in + w * (s.out - s.in);
}

bool chIsSpline(const CH_Segment *s)
{
    const CH_InterpolationKind *kind = s ? s->getInterpolationKind() : nullptr;
    return kind && kind->kind == CH_InterpKind::Spline;
}

constexpr int theMaxSplineKnots = 500;

// The channels in a qlinear evaluation on this thread: a sibling found here
// is not evaluated again, or staggered keys on the triple would recurse
// without end.
thread_local std::vector<const CH_Channel *> theQlinearChannels;

struct chQlinearGuard
{
    explicit chQlinearGuard(const CH_Channel *c) { theQlinearChannels.push_back(c); }
    ~chQlinearGuard() { theQlinearChannels.pop_back(); }
    chQlinearGuard(const chQlinearGuard &) = delete;
    chQlinearGuard &operator=(const chQlinearGuard &) = delete;
};

bool chInQlinear(const CH_Channel *c)
{
    return std::find(theQlinearChannels.begin(), theQlinearChannels.end(), c) != theQlinearChannels.end();
}

// The rotation triple of a channel named "...x", "...y" or "...z" (resolved
// by its collection whenever names change), valued at the segment's ends
// (global times). The channel itself contributes its own in and out values.
bool chRotationTriple(CH_Channel *channel, const chSegmentTimes &s, UT_Vector3 &from, UT_Vector3 &to,
                      int &index, int thread)
{
    CH_Channel *triple[3];
    index = -1;
    for (int i = 0; i < 3; ++i) {
        triple[i] = channel->getRotationTriple(i);
        if (triple[i] == channel)
            index = i;
    }
    if (index < 0)
        return false;
    for (int i = 0; i < 3; ++i)
        if (!triple[i] || (i != index && chInQlinear(triple[i])))
            return false;
    chQlinearGuard guard(channel);
    float offset = channel->getStart();
    for (int i = 0; i < 3; ++i)
    {
        if (i == index)
        {
            from[i] = s.in;
            to[i] = s.out;
            continue;
        }
        from[i] = triple[i]->evaluate(s.start + offset, false, thread);
        to[i] = triple[i]->evaluate(s.end + offset, false, thread);
    }
    return true;
}

} // namespace

float CH_Manager::evalConstantFunc(int thread)
{
    CH_Collection *collection = getEvalCollection(thread);
    return collection ? collection->getGlueIV(thread) : 0.0f;
}

float CH_Manager::evalLinearFunc(int thread)
{
    chSegmentTimes s;
    if (!chReadTimes(getEvalCollection(thread), s, thread))
        return 0.0f;
    float f;
    if (s.t <= s.start)
        f = 0.0f;
    else if (s.t >= s.end)
        f = 1.0f;
    else if (chDegenerate(s.end - s.start))
        f = 0.5f;
    else
        f = (s.t - s.start) / (s.end - s.start);
    // The ends go through the formula too: the end value is computed, not copied.
    return s.in + (s.out - s.in) * f;
}

namespace {

// The rules cubic() and quintic() share before their polynomial: no
// segment gives 0, a degenerate length the mean, the ends their values.
// True when one of them answered.
bool chHermiteEnds(CH_Collection *collection, chSegmentTimes &s, int thread, float &value)
{
    value = 0.0f;
    if (!chReadTimes(collection, s, thread))
        return true;
    if (chDegenerate(s.end - s.start))
        value = (s.in + s.out) * 0.5f;
    else if (s.t <= s.start)
        value = s.in;
    else if (s.t >= s.end)
        value = s.out;
    else
        return false;
    return true;
}

} // namespace

float CH_Manager::evalCubicFunc(int thread)
{
    CH_Collection *collection = getEvalCollection(thread);
    chSegmentTimes s;
    float value;
    if (chHermiteEnds(collection, s, thread, value))
        return value;
    float length = s.end - s.start;
    float in_slope, out_slope;
    s.slopes(in_slope, out_slope);
    float u = (s.t - s.start) / length;
    return CHhermiteCubic(s.in, in_slope, s.out, out_slope, length, u);
}

float CH_Manager::evalQuinticFunc(int thread)
{
    CH_Collection *collection = getEvalCollection(thread);
    chSegmentTimes s;
    float value;
    if (chHermiteEnds(collection, s, thread, value))
        return value;
    float length = s.end - s.start;
    float si, so, ai, ao;
    s.slopes(si, so);
    s.accels(ai, ao);
    float u = (s.t - s.start) / length;
    return CH_Quintic<float>(s.in, s.out, si, so, ai, ao, length).value(u);
}

float CH_Manager::evalEaseFunc(int thread) { return chEased(getEvalCollection(thread), chShape::Both, thread); }
float CH_Manager::evalEaseinFunc(int thread) { return chEased(getEvalCollection(thread), chShape::In, thread); }
float CH_Manager::evalEaseoutFunc(int thread) { return chEased(getEvalCollection(thread), chShape::Out, thread); }

float CH_Manager::evalEasepFunc(float p, int thread)
{
    return chEaseP(getEvalCollection(thread), chShape::Both, p, thread);
}
float CH_Manager::evalEaseinpFunc(float p, int thread)
{
    return chEaseP(getEvalCollection(thread), chShape::In, p, thread);
}
float CH_Manager::evalEaseoutpFunc(float p, int thread)
{
    return chEaseP(getEvalCollection(thread), chShape::Out, p, thread);
}

float CH_Manager::evalBezierFunc(int thread)
{
    CH_Collection *collection = getEvalCollection(thread);
    chSegmentTimes s;
    if (!chReadTimes(collection, s, thread))
        return 0.0f;
    if (chDegenerate(s.end - s.start))
        return (s.in + s.out) * 0.5f;
    if (s.t <= s.start)
        return s.in;
    if (s.t >= s.end)
        return s.out;
    float si, so, ai, ao;
    s.slopes(si, so);
    s.accels(ai, ao);
    CH_Bezier bezier;
    bezier.init(CH_SegmentValues(s.start, s.end, s.in, s.out, si, so, ai, ao));
    return bezier.eval(s.t);
}

namespace {

// The first segment of the run of spline segments s belongs to.
CH_Segment *chSplineRunStart(CH_Channel *channel, CH_Segment *s)
{
    CH_Segment *first = channel->getFirstSegment();
    while (s != first && chIsSpline(s->getPrev()))
        s = s->getPrev();
    return s;
}

// Whether the run goes on past s: it stops at the channel's last list
// segment (the end segment adds nothing beyond the final knot).
bool chSplineRunContinues(CH_Channel *channel, const CH_Segment *s)
{
    CH_Segment *next = s->getNext();
    return next && s != channel->getLastSegment() && s != channel->getEndSegment() && chIsSpline(next);
}

// One knot per segment start from the run's first segment, then the last
// one's end, unless the knot limit cut the run short.
void chGatherSplineKnots(CH_Channel *channel, CH_Segment *s, CH_Spline &spline)
{
    spline.reset();
    int knots = 0;
    for (;;)
    {
        spline.addKnot(s->getStart(), s->getInValue());
        ++knots;
        if (knots == theMaxSplineKnots || !chSplineRunContinues(channel, s))
            break;
        s = s->getNext();
    }
    if (knots < theMaxSplineKnots)
        spline.addKnot(s->getEnd(), s->getOutValue());
    spline.initialize();
}

} // namespace

float CH_Manager::evalSplineFunc(int thread)
{
    CH_Collection *collection = getEvalCollection(thread);
    float t = 0.0f;
    CH_Segment *s = collection ? collection->getGlueSegment(t, thread) : nullptr;
    if (!s)
        return 0.0f;
    if (s->isSpline())
        if (const CH_SplineRun *run = s->getSplineRun())
            return run->evaluate(t, s->getSplineKnot());
    CH_Channel *channel = collection->getEvalChannel(thread);
    if (!s->isSpline())
    {
        // spline() inside a larger expression: rare, gathered every time.
        CH_Spline &spline = CH_Spline::forThisThread();
        chGatherSplineKnots(channel, chSplineRunStart(channel, s), spline);
        return spline.evaluate(t);
    }
    // Built once and handed to every segment of the run, those past the knot
    // limit too; threads racing here build equal runs and keep the first.
    auto *run = new CH_SplineRun;
    CH_Segment *start = chSplineRunStart(channel, s);
    chGatherSplineKnots(channel, start, *run);
    int knot = 0;
    for (CH_Segment *r = start;; r = r->getNext(), ++knot)
    {
        r->offerSplineRun(run, knot);
        if (!chSplineRunContinues(channel, r))
            break;
    }
    s->offerSplineRun(run, -1); // the end segment, which the run does not list
    float value = run->evaluate(t);
    run->release();
    return value;
}

UT_Vector3 CH_Manager::interpolateEulerDegrees(const UT_Vector3 &from, const UT_Vector3 &to, float u,
                                               const UT_XformOrder &order)
{
    UT_Quaternion a, b;
    a.updateFromEuler(from * 0.017453292f, order);
    b.updateFromEuler(to * 0.017453292f, order);
    a.interpolate(b, u); // takes the shorter arc
    UT_Matrix3 m;
    a.getRotationMatrix(m);
    UT_Vector3 radians;
    m.crack(radians, order);
    return radians * 57.295776f;
}

float CH_Manager::evalQlinearFunc(int thread)
{
    CH_Collection *collection = getEvalCollection(thread);
    CH_Channel *channel = collection ? collection->getEvalChannel(thread) : nullptr;
    if (!channel)
        return 0.0f;
    chSegmentTimes s;
    chReadTimes(collection, s, thread);
    if (s.t - s.start <= 1e-5f)
        return s.in;
    if (s.t - s.end >= -1e-5f)
        return s.out;
    float u = (s.t - s.start) / (s.end - s.start);
    UT_Vector3 from, to;
    int index = 0;
    if (!chRotationTriple(channel, s, from, to, index, thread))
        return (1.0f - u) * s.in + u * s.out;
    return interpolateEulerDegrees(from, to, u, collection->getXformOrder())[index];
}
