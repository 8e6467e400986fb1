// Channel evaluation: locating segments, the behaviours before the first
// and after the last key, disabled ranges, and the per-thread context that
// the expression functions read.
#include <ch/channel/CH_Channel.h>

#include <ch/auxiliary/CH_ScriptAccessManager.h>
#include <ch/expr/CH_EvalBoundary.h>
#include <ch/expr/CH_ExprFunctions.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <ev/EV_Expression.h>
#include <ev/EV_Function.h>
#include <ut/UT_Interrupt.h>
#include <ut/UT_ScopeExit.h>
#include <ut/UT_Thread.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace {

// The slope step and its reciprocal as stored channels were computed with.
constexpr float theSlopeStep = 0.001f;       // 0x3A83126F
constexpr float theSlopeFactor = 999.99994f; // 0x4479FFFF

} // namespace

// ---- Locating segments ------------------------------------------------------------

int CH_Channel::getSegmentIdx(float t) const
{
    return findSegmentIdx(t, myManager ? myManager->getTolerance() : getTolerance());
}

int CH_Channel::findSegmentIdx(float t, float tol) const
{
    int n = mySegments.entries();
    if (myEndSegment && t >= myLength)
        return n;
    if (n == 0)
        return 0;
    return myIndex.find(t, tol);
}

CH_Segment *CH_Channel::getSegment(float t) const
{
    if (isEmpty())
        return nullptr;
    return getSegment(static_cast<unsigned>(getSegmentIdx(t)));
}

// Both look the key up among the key times, as isAtHardKey does: the
// segment search gives the last list segment just before the last key.
CH_Segment *CH_Channel::getSegmentAfterKey(float t) const
{
    int k = keyIndexAt(t, getTolerance());
    return k < 0 ? nullptr : getSegment(static_cast<unsigned>(k));
}

bool CH_Channel::getSurroundingSegs(float t, CH_Segment *&left, CH_Segment *&right) const
{
    int k = keyIndexAt(t, getTolerance());
    if (k < 0)
    {
        left = right = getSegment(t);
        return false;
    }
    right = getSegment(static_cast<unsigned>(k));
    left = k > 0 ? getSegment(static_cast<unsigned>(k - 1)) : nullptr;
    return true;
}

int CH_Channel::getDisableSegmentIndex(float t, bool take_previous) const
{
    int n = myDisableSegments.entries();
    if (n == 0)
        return -1;
    float tol = getTolerance();
    auto onSegment = [&](int i) {
        const CH_Segment *d = myDisableSegments(i);
        float e = d->getEnd();
        if (std::fabs(e - t) > tol || i == n - 1)
            return i;
        // At its end: a range starting right there continues the disabling.
        if (myDisableSegments(i + 1)->getStart() - e <= tol)
            return i + 1;
        return take_previous ? i : -1;
    };
    int lo = 0, hi = n - 1;
    while (hi - lo > 1)
    {
        int mid = (lo + hi) / 2;
        const CH_Segment *d = myDisableSegments(mid);
        if (d->getStart() <= t + tol && d->getEnd() >= t - tol)
            return onSegment(mid);
        if (d->getStart() <= t + tol)
            lo = mid;
        else
            hi = mid;
    }
    for (int i = hi; i >= lo; --i)
    {
        const CH_Segment *d = myDisableSegments(i);
        if (d->getEnd() < t - tol)
            return take_previous ? i : -1;
        if (d->getStart() < t + tol)
            return i;
    }
    return -1;
}

// ---- Per-thread context ---------------------------------------------------------------

void CH_Channel::setEvalTime(float local_time, int thread)
{
    slot(thread).time = local_time;
    if (CH_Manager *mgr = getManager())
        mgr->setEvaluateTime(local_time + myStart, thread);
}

CH_Segment *CH_Channel::getPrevEvaluationSegment(int thread) const
{
    const CH_Segment *s = slot(thread).segment;
    return s ? s->getPrev() : nullptr;
}

CH_Segment *CH_Channel::getNextEvaluationSegment(int thread) const
{
    const CH_Segment *s = slot(thread).segment;
    return s ? s->getNext() : nullptr;
}

float CH_Channel::getInTime(int thread) const
{
    const CH_Segment *s = slot(thread).segment;
    return s ? s->getStart() + myStart : 0.0f;
}

float CH_Channel::getOutTime(int thread) const
{
    const CH_Segment *s = slot(thread).segment;
    return s ? s->getEnd() + myStart : 0.0f;
}

float CH_Channel::getPrevInTime(int thread) const
{
    const CH_Segment *s = slot(thread).segment;
    const CH_Segment *p = s ? s->getPrev() : nullptr;
    return p ? p->getStart() + myStart : 0.0f;
}

float CH_Channel::getNextOutTime(int thread) const
{
    const CH_Segment *s = slot(thread).segment;
    const CH_Segment *n = s ? s->getNext() : nullptr;
    return n ? n->getEnd() + myStart : 0.0f;
}

// ---- Segment evaluation ----------------------------------------------------------

// Defined here rather than with the sample cache so that the channel's
// evaluation below inlines them.
float CH_Segment::evaluate(float t, bool, int thread)
{
    // The channel's flag first: it is off unless a range is being cached.
    if (myChannel && myChannel->isCacheEnabled() && !isCooking() &&
        myChannel->getManager()->getSegCacheStatus())
        return evaluateFromCache(t, thread);
    return evaluateExpression(thread);
}

float CH_Segment::evaluateExpression(int thread)
{
    // The common texts ("bezier()", "linear()", ...) call their function
    // directly, as long as the library's records are the registered ones.
    if (myInterpolation && myInterpolation->current())
        if (CH_Manager *manager = CH_Manager::getContext())
        {
            float value = myInterpolation->evaluate(*manager, thread);
            myExpression->orExpressionFlag(EV_FLAG_EVALUATED | myInterpolation->record->getUserFlags());
            return value;
        }
    return myExpression->evaluate(thread);
}

// The thread was accepted at the entry point: a number from 1 on.
template <typename Work>
auto CH_Channel::withContext(CH_Segment *s, float t, int thread, Work work)
{
    // Save and set the three per-thread contexts (this channel's slot, the
    // collection's evaluation channel, the manager's collection) and call
    // the host's hook; the guard undoes all of it however the work ends.
    CH_Collection::chEvalSlot *collection_slot = nullptr;
    CH_Collection::chEvalSlot saved_collection;
    if (myCollection)
    {
        collection_slot = &myCollection->myEvalSlots.at(thread);
        saved_collection = *collection_slot;
        collection_slot->channel = this;
        collection_slot->name = myName;
    }
    CH_Collection *&manager_slot = myManager->evalCollectionRef(thread);
    CH_Collection *saved_manager = manager_slot;
    manager_slot = myCollection;
    chEvalSlot &sl = myEvalSlots.at(thread);
    chEvalSlot saved = sl;
    sl.time = t;
    sl.segment = s;
    CH_ScriptAccessManager *access = nullptr; // popped only once pushed
    UT_ScopeExit restore([&] {
        if (access)
            access->popChEvalContext();
        sl = saved;
        manager_slot = saved_manager;
        if (collection_slot)
            *collection_slot = saved_collection;
    });
    if (CH_ScriptAccessManager *hook = myManager->getAccessManager(thread))
    {
        hook->pushChEvalContext();
        access = hook;
    }
    return work(thread);
}

float CH_Channel::evaluateSegment(CH_Segment *s, float t, bool extend, int thread)
{
    return CH_EvalBoundary::run(
        thread, [&] { return evaluateSegmentAt(s, t, extend, thread); }, [] { return 0.0f; });
}

void CH_Channel::evaluateStringSegment(UT_String &result, CH_Segment *s, float t, bool extend,
                                       int thread)
{
    CH_EvalBoundary::run(
        thread, [&] { evaluateStringSegmentAt(result, s, t, extend, thread); },
        [&] { result.clear(); });
}

float CH_Channel::evaluateSegmentAt(CH_Segment *s, float t, bool extend, int thread)
{
    if (!s || !getManager())
        return 0.0f;
    // The segments are this channel's: without caching, their value is
    // their expression's (read without reaching back for the channel).
    if (!isCacheEnabled())
        return withContext(s, t, thread, [&](int th) { return s->evaluateExpression(th); });
    return withContext(s, t, thread, [&](int th) { return s->evaluate(t, extend, th); });
}

void CH_Channel::evaluateStringSegmentAt(UT_String &result, CH_Segment *s, float t, bool extend,
                                       int thread)
{
    if (!s || !getManager())
    {
        result = "";
        return;
    }
    withContext(s, t, thread, [&](int th) {
        s->evaluateString(result, th);
        return 0;
    });
    (void)extend;
}

// ---- Numeric evaluation -------------------------------------------------------------

float CH_Channel::cycleTime(float t, bool left) const
{
    // A single key has nothing to wrap by: fmod would give NaN, which would
    // poison everything computed from the channel. It is held at its key.
    if (!(myLength > 0.0f))
        return 0.0f;
    float tc = std::fmod(t, myLength);
    if (left && tc < 0.0f)
        tc += myLength;
    return tc;
}

float CH_Channel::evaluateOutside(float t, bool left, bool ignore_disabled, int thread)
{
    CH_ChannelBehavior behavior = left ? myLeftBehavior : myRightBehavior;
    CH_Segment *s;
    if (left)
    {
        s = mySegments.isEmpty() ? myEndSegment : mySegments(0);
        if (!ignore_disabled && s)
            if (CH_Segment *d = getDisableSegment(s->getStart()))
                s = d;
    }
    else
    {
        s = myEndSegment;
        if (!ignore_disabled && s)
            if (CH_Segment *d = getDisableSegment(s->getEnd()))
                s = d;
    }
    float key = left ? 0.0f : myLength;
    switch (behavior)
    {
    case CH_CHANNEL_DEFAULT: return myDefaultValue;
    case CH_CHANNEL_HOLD:
        setEvalTime(key, thread);
        return evaluateSegmentAt(s, key, false, thread);
    case CH_CHANNEL_CYCLE:
    {
        float tc = cycleTime(t, left);
        setEvalTime(tc, thread);
        CH_Segment *c = getSegment(tc);
        if (!ignore_disabled)
            if (CH_Segment *d = getDisableSegment(tc))
                c = d;
        return evaluateSegmentAt(c, tc, false, thread);
    }
    case CH_CHANNEL_EXTEND: return evaluateSegmentAt(s, t, true, thread);
    case CH_CHANNEL_SLOPE:
        if (left)
        {
            setEvalTime(0.0f, thread);
            float y0 = evaluateSegmentAt(s, 0.0f, false, thread);
            setEvalTime(theSlopeStep, thread);
            float y1 = evaluateSegmentAt(s, theSlopeStep, false, thread);
            return (y1 - y0) * t * theSlopeFactor + y0;
        }
        else
        {
            setEvalTime(myLength, thread);
            float y1 = evaluateSegmentAt(s, myLength, false, thread);
            setEvalTime(myLength - theSlopeStep, thread);
            float y0 = evaluateSegmentAt(s, myLength - theSlopeStep, false, thread);
            return (t - myLength) * (y1 - y0) * theSlopeFactor + y1;
        }
    }
    return evaluateSegmentAt(s, t, false, thread);
}

// The public evaluations go through CH_EvalBoundary; everything below them
// takes the thread number they accepted.
float CH_Channel::evaluate(float global_time, bool ignore_disabled, int thread)
{
    return CH_EvalBoundary::run(
        thread, [&] { return evaluateWithHint(global_time, ignore_disabled, thread, nullptr); },
        [] { return 0.0f; });
}

int CH_Channel::findSegmentIdx(float t, float tol, int *hint) const
{
    // A time well inside the hinted segment is found there by the search as
    // well (see CH_SegmentIndex::isInterior).
    if (hint)
    {
        int h = *hint;
        if (h >= 0 && h < myIndex.segments() && myIndex.isInterior(h, t, tol))
            return h;
    }
    int i = findSegmentIdx(t, tol);
    if (hint)
        *hint = i;
    return i;
}

float CH_Channel::evaluateWithHint(float global_time, bool ignore_disabled, int thread, int *hint)
{
    float t = global_time - myStart;
    float tol = myManager ? myManager->getTolerance() : getTolerance();
    CH_Segment *d = nullptr;
    if (!ignore_disabled && !myDisableSegments.isEmpty())
    {
        int i = getDisableSegmentIndex(t, false);
        d = i < 0 ? nullptr : myDisableSegments(i);
        if (d && d->wasModified() && !isAllDisabled())
        {
            // A disabled range holds the channel's value at its start.
            // (Internal call: a failure must not freeze a value.)
            float v = evaluateWithHint(d->getStart() + myStart, true, thread, nullptr);
            d->setInValue(v, true);
            d->setOutValue(v, true);
            d->setModified(0); // until the channel changes again
        }
    }
    if (isEmpty())
    {
        if (!d || t < -tol || t - myLength > tol)
            return myDefaultValue;
        return evaluateSegmentAt(d, t, true, thread);
    }
    if (d)
        return evaluateSegmentAt(d, t, true, thread);
    if (t < -tol)
        return evaluateOutside(t, true, ignore_disabled, thread);
    if (t - myLength < -tol)
    {
        // Before the end (t < length - tol, the tolerance being positive):
        // a list segment, never the end segment's index.
        int i = hint ? findSegmentIdx(t, tol, hint) : findSegmentIdx(t, tol);
        return evaluateSegmentAt(mySegments(i), t, false, thread);
    }
    return evaluateOutside(t, false, ignore_disabled, thread);
}

void CH_Channel::evaluate(float from, float to, float *out, int count, bool ignore_disabled,
                          bool use_cache, int thread)
{
    if (!out || count <= 0)
        return;
    int i = 0; // samples done; the rest are 0
    CH_EvalBoundary::run(
        thread,
        [&] {
            float step = to - from;
            if (count > 1)
                step /= static_cast<float>(count - 1);
            UT_Interrupt *interrupt = UTgetInterrupt();
            bool go = interrupt->opStart("Channel array evaluation");
            UT_ScopeExit end_operation([interrupt] { interrupt->opEnd(); });
            bool was_enabled = isCacheEnabled();
            if (use_cache)
                setCacheEnable(true);
            UT_ScopeExit restore_cache([this, use_cache, was_enabled] {
                if (use_cache)
                    setCacheEnable(was_enabled);
            });
            CH_Manager *mgr = getManager();
            std::uint8_t counter = 0;
            int hint = -1; // consecutive samples mostly fall in one segment
            for (; go && i < count; ++i)
            {
                float t = static_cast<float>(i) * step + from;
                if (mgr)
                    mgr->setEvaluateTime(t, thread);
                out[i] = evaluateWithHint(t, ignore_disabled, thread, &hint);
                if (counter++ == 0 && interrupt->opInterrupt(static_cast<int>(100LL * i / count)))
                {
                    ++i;
                    break;
                }
            }
        },
        [] {});
    std::fill(out + i, out + count, 0.0f);
}

// ---- String evaluation -------------------------------------------------------------

void CH_Channel::evaluateStringOutside(UT_String &result, float t, bool left, int thread)
{
    CH_ChannelBehavior behavior = left ? myLeftBehavior : myRightBehavior;
    CH_Segment *s = left ? (mySegments.isEmpty() ? myEndSegment : mySegments(0)) : myEndSegment;
    float key = left ? 0.0f : myLength;
    switch (behavior)
    {
    case CH_CHANNEL_DEFAULT:
        if (myManager)
            myManager->evaluateString(myDefaultString, result, t + myStart, myCollection, thread);
        else
            result = myDefaultString;
        return;
    case CH_CHANNEL_HOLD:
    case CH_CHANNEL_SLOPE: // strings have no slope
        setEvalTime(key, thread);
        evaluateStringSegmentAt(result, s, key, false, thread);
        return;
    case CH_CHANNEL_CYCLE:
    {
        float tc = cycleTime(t, left);
        setEvalTime(tc, thread);
        evaluateStringSegmentAt(result, getSegment(tc), tc, false, thread);
        return;
    }
    case CH_CHANNEL_EXTEND: evaluateStringSegmentAt(result, s, t, true, thread); return;
    }
    evaluateStringSegmentAt(result, s, t, false, thread);
}

void CH_Channel::evaluateString(UT_String &result, float global_time, int thread)
{
    CH_EvalBoundary::run(
        thread, [&] { evaluateStringAt(result, global_time, thread); }, [&] { result.clear(); });
}

void CH_Channel::evaluateStringAt(UT_String &result, float global_time, int thread)
{
    float t = global_time - myStart;
    float tol = getTolerance();
    CH_Manager *mgr = getManager();
    bool pending_here = isPending() && (isPendingHold() || std::fabs(t - myPendingTime) <= tol);
    if (isEmpty() || pending_here)
    {
        if (mgr)
            mgr->evaluateString(myDefaultString, result, global_time, myCollection, thread);
        else
            result = myDefaultString;
        return;
    }
    if (t < -tol)
        evaluateStringOutside(result, t, true, thread);
    else if (t - myLength < -tol)
        evaluateStringSegmentAt(result, getSegment(t), t, false, thread);
    else
        evaluateStringOutside(result, t, false, thread);
}
