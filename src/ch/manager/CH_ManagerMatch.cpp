// Match functions (a segment joins its neighbours along their tangents) and
// repeat/cycle functions (a segment replays an earlier range of its channel).
#include "CH_Manager.h"

#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_InterpMath.h>
#include <ch/channel/CH_Segment.h>
#include <ch/io/CH_Collection.h>

#include <cmath>

namespace {

// The thread's evaluation: collection, channel, segment and glue numbers.
struct chGlue
{
    CH_Collection *collection = nullptr;
    CH_Channel *channel = nullptr;
    CH_Segment *segment = nullptr;
    float t = 0, start = 0, end = 0, in = 0, out = 0;

    chGlue(CH_Manager &mgr, int thread)
    {
        collection = mgr.getEvalCollection(thread);
        channel = collection ? collection->getEvalChannel(thread) : nullptr;
        segment = channel ? channel->getEvaluationSegment(thread) : nullptr;
        if (collection)
            collection->getGlueTime(t, start, end, in, out, thread);
    }
    bool ok() const { return segment != nullptr; }
    float clampedTime() const { return t <= start ? start : (t >= end ? end : t); }
};

// Walks from the evaluation segment to the nearest neighbour that is not a
// match segment, backward (its end) or forward (its start). Without one,
// the time is this segment's own start (end) and value and slope are 0.
float lookup(chGlue &g, bool backward, int thread, float &time, float &value)
{
    time = backward ? g.segment->getStart() : g.segment->getEnd();
    value = 0.0f;
    float slope = 0.0f;
    CH_Segment *s = backward ? g.segment->getPrev() : g.segment->getNext();
    while (s && s != g.segment && s->isMatchFunction())
        s = backward ? s->getPrev() : s->getNext();
    if (!s || s == g.segment)
        return slope;
    time = backward ? s->getEnd() : s->getStart();
    g.channel->sampleValueSlope(s, time + g.channel->getStart(), thread, value, slope);
    return slope;
}

} // namespace

float CH_Manager::evalMatchinFunc(int thread)
{
    chGlue g(*this, thread);
    if (!g.ok())
        return 0.0f;
    float tp, vp;
    float sp = lookup(g, true, thread, tp, vp);
    return vp + sp * (g.clampedTime() - tp);
}

float CH_Manager::evalMatchoutFunc(int thread)
{
    chGlue g(*this, thread);
    if (!g.ok())
        return 0.0f;
    float tn, vn;
    float sn = lookup(g, false, thread, tn, vn);
    return vn - sn * (tn - g.clampedTime());
}

float CH_Manager::evalVmatchinFunc(int thread)
{
    chGlue g(*this, thread);
    if (!g.ok())
        return 0.0f;
    float tp, vp;
    float sp = lookup(g, true, thread, tp, vp);
    return g.in + sp * (g.clampedTime() - g.start);
}

float CH_Manager::evalVmatchoutFunc(int thread)
{
    chGlue g(*this, thread);
    if (!g.ok())
        return 0.0f;
    float tn, vn;
    float sn = lookup(g, false, thread, tn, vn);
    return g.out - sn * (g.end - g.clampedTime());
}

namespace {

float matchCommon(CH_Manager &mgr, int thread, bool carry_values)
{
    chGlue g(mgr, thread);
    if (!g.ok())
        return 0.0f;
    float length = g.end - g.start;
    if (length < 0.001f) // deliberately coarser than the other functions' 1e-5
        return (g.in + g.out) * 0.5f;
    if (g.t < g.start)
        return g.in;
    if (g.t > g.end)
        return g.out;
    float tp, vp, tn, vn;
    float sp = lookup(g, true, thread, tp, vp);
    float sn = lookup(g, false, thread, tn, vn);
    float in = g.in, out = g.out;
    if (carry_values)
    {
        // Values carried across any gap along the neighbours' tangents.
        in = vp + (g.start - tp) * sp;
        out = vn - (tn - g.end) * sn;
    }
    return CHhermiteCubic(in, sp, out, sn, length, (g.t - g.start) / length); // cubic()'s
}

} // namespace

float CH_Manager::evalMatchFunc(int thread)
{
    return matchCommon(*this, thread, true);
}

float CH_Manager::evalVmatchFunc(int thread)
{
    return matchCommon(*this, thread, false);
}

// ---- Repeat and cycle ---------------------------------------------------------

namespace {

// Maps an offset into [a, b): the remainder of whole cycles of |b - a|.
// A remainder just below a whole cycle counts as that cycle (cycles gets
// it too). Results more than 8e-5 below a, or not more than 8e-5 below b,
// become a; the latter is a whole cycle as well, or cycle() would drop one
// cycle's offset just before each boundary.
float mapIntoRange(float x, float a, float b, int &cycles)
{
    float w = std::fabs(b - a);
    float r;
    cycles = 0;
    if (w > 1e-5f)
    {
        float f = x / w;
        float whole = std::floor(f);
        r = f - whole;
        double c = whole;
        if (r - 1.0f >= -1e-5f)
        {
            r = 0.0f;
            c += 1.0;
        }
        // Saturate: a non-finite or huge offset must not overflow the count.
        cycles = std::isfinite(c) ? static_cast<int>(std::fmax(std::fmin(c, 1e9), -1e9)) : 0;
    }
    else
    {
        r = x;
        w = 0.0f;
    }
    float m = a + r * w;
    if (m < a - 8e-5f || !(m < b - 8e-5f))
    {
        if (m > a && cycles < 1000000000)
            ++cycles;
        m = a;
    }
    return m;
}

// One segment evaluated at a local time, with the thread's time set to it
// as the channel's own evaluation does, so time-dependent segments see it.
float segmentAt(chGlue &g, CH_Segment *s, float x, int thread)
{
    g.channel->setEvalTime(x, thread);
    return g.channel->evaluateSegment(s, x, false, thread);
}

// The channel's value at a local time, through the channel. A time on the
// calling segment evaluates it again, where the replayed range gives 0 (so
// that stops at once); a replay that keeps re-entering (through a
// behaviour outside the keys, say) ends at the engine's nesting limit with
// its error.
float valueAt(chGlue &g, float x, int thread)
{
    return g.collection->evaluate(g.channel, x + g.channel->getStart(), false, thread);
}

// The channel's value just before a local time: at a key, the segment
// that ends there, at its end. Each cycle ends there.
float leftLimitAt(chGlue &g, float x, int thread)
{
    float tol = g.channel->getTolerance();
    CH_Segment *s = g.channel->getSegment(x);
    // Just before the last key the search answers with the last list
    // segment, yet the channel hands that time to the end segment (the right
    // behaviour): the key is the end segment's start all the same.
    CH_Segment *last = g.channel->getEndSegment();
    if (s && last && s->getNext() == last && std::fabs(last->getStart() - x) <= tol)
        s = last;
    CH_Segment *prev = s ? s->getPrev() : nullptr;
    if (prev && std::fabs(s->getStart() - x) <= tol)
    {
        float end = prev->getEnd();
        return segmentAt(g, prev, x < end ? x : end, thread);
    }
    return valueAt(g, x, thread);
}

// Evaluating other times moves the channel's local time and the thread's
// time (the behaviours outside the keys set them for good); the calling
// segment may read both again after the call returns.
[[nodiscard]] auto restoreTimes(chGlue &g, CH_Manager &mgr, int thread)
{
    const double time = mgr.getEvaluateTime(thread);
    return UT_ScopeExit([&g, &mgr, thread, time] {
        g.channel->setEvalTime(g.t, thread);
        mgr.setEvaluateTime(static_cast<float>(time), thread);
    });
}

struct chRange
{
    float ts, te;
};

chRange rangeFrom(const chGlue &g, float first, float last, bool frames, float fps)
{
    float chstart = g.channel->getStart();
    if (frames)
        return {(first - 1.0f) / fps - chstart, (last - 1.0f) / fps - chstart};
    return {first - chstart, last - chstart};
}

float repeatCommon(CH_Manager &mgr, float first, float last, bool frames, int thread)
{
    chGlue g(mgr, thread);
    if (!g.ok())
        return 0.0f;
    chRange r = rangeFrom(g, first, last, frames, mgr.getSamplesPerSec());
    // Inside the repeated range the channel would evaluate this segment again.
    if (g.t - r.ts >= -1e-5f && g.t - r.te < -1e-5f)
        return 0.0f;
    int cycles;
    float m = mapIntoRange(g.t - g.start, r.ts, r.te, cycles);
    auto restore = restoreTimes(g, mgr, thread);
    return valueAt(g, m, thread);
}

float cycleCommon(CH_Manager &mgr, float first, float last, bool frames, int thread)
{
    chGlue g(mgr, thread);
    if (!g.ok())
        return 0.0f;
    chRange r = rangeFrom(g, first, last, frames, mgr.getSamplesPerSec());
    float w = r.te - r.ts;
    if (w > -1e-5f && w < 1e-5f)
        return (g.in + g.out) * 0.5f;
    if (g.t - r.ts >= -1e-5f && g.t - r.te < -1e-5f)
        return 0.0f;
    int cycles;
    float m = mapIntoRange(g.t - g.start, r.ts, r.te, cycles);
    auto restore = restoreTimes(g, mgr, thread);
    float v_start = valueAt(g, r.ts, thread);
    float v_end = leftLimitAt(g, r.te, thread);
    float v_m = valueAt(g, m, thread);
    return g.in + (v_m - v_start) + static_cast<float>(cycles) * (v_end - v_start);
}

} // namespace

float CH_Manager::evalRepeatFunc(float first, float last, int thread)
{
    return repeatCommon(*this, first, last, true, thread);
}

float CH_Manager::evalRepeattFunc(float first, float last, int thread)
{
    return repeatCommon(*this, first, last, false, thread);
}

float CH_Manager::evalCycleFunc(float first, float last, int thread)
{
    return cycleCommon(*this, first, last, true, thread);
}

float CH_Manager::evalCycletFunc(float first, float last, int thread)
{
    return cycleCommon(*this, first, last, false, thread);
}
