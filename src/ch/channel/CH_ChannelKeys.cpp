// Key editing: setting values at keys, reading and writing keys by time,
// creating keys (splitSegment) and removing them. A key is the boundary
// between two segments; every operation here works on segments.
#include <ch/channel/CH_Channel.h>

#include <ch/channel/CH_Bezier.h>
#include <ch/channel/CH_FullKey.h>
#include <ch/channel/CH_Key.h>
#include <ch/channel/CH_SegmentValues.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_EventManager.h>
#include <ch/manager/CH_Manager.h>

#include <ut/UT_EnvControl.h>

#include <cfloat>
#include <cmath>

namespace {

constexpr unsigned theEditMask = 0x92;
constexpr float theThird = 1.0f / 3.0f;
// Control that sends a value set on a constant segment to its in value.
constexpr int theConstantInValueControl = 124;

bool hasText(const char *s)
{
    return s && *s;
}

} // namespace

// ---- Start ---------------------------------------------------------------------

void CH_Channel::moveStart(float new_start, bool notify)
{
    float old = myStart;
    myStart = new_start;
    // The pending value keeps its global time.
    if (myPendingTime != FLT_MAX)
        myPendingTime += old - new_start;
    if (notify && std::fabs(new_start - old) > getTolerance())
        CHevent(CH_CHANNELS_MOVED, this);
}

void CH_Channel::scroll(float new_start, bool notify)
{
    if (!canAccess(theEditMask))
        return;
    moveStart(new_start, notify);
}

// ---- Values at keys -----------------------------------------------------------------

int CH_Channel::setKeyValue(float value, float time, bool set_pending, bool at_key_only,
                            bool notify)
{
    if (!canAccess(theEditMask))
        return -1;
    float t = localTime(time);
    float tol = getTolerance();
    CH_Segment *s = getNKeys() ? getSegment(t) : nullptr;
    if (s && at_key_only)
    {
        bool done = true;
        if (UT_EnvControl::getInt(theConstantInValueControl) && s->isConstant())
            s->setInValue(value, true);
        else if (std::fabs(t - s->getStart()) <= tol)
            s->setInValue(value, true);
        else if (std::fabs(t - s->getEnd()) <= tol)
            s->setOutValue(value, true);
        else
            done = false;
        if (done)
        {
            if (set_pending)
                clearPending();
            if (notify)
                CHevent(CH_CHANNEL_CHANGED, this);
            return 0;
        }
    }
    if (!set_pending)
        return -1;
    myDefaultValue = value;
    setPending(true, t);
    if (notify)
        CHevent(CH_CHANNEL_CHANGED, this);
    return 0;
}

// ---- Reading keys ------------------------------------------------------------------

bool CH_Channel::getKey(float time, CH_Key &key, bool accel_ratios)
{
    CH_Segment *left = nullptr, *right = nullptr;
    if (getNKeys() && getSurroundingSegs(localTime(time), left, right))
    {
        key.get(left, right, accel_ratios);
        return true;
    }
    sampleKey(time, key, accel_ratios);
    return false;
}

bool CH_Channel::getFullKey(float time, CH_FullKey &key, bool reverse, bool accel_ratios)
{
    bool at_key = getKey(time, key, accel_ratios);
    CH_Segment *left = nullptr, *right = nullptr;
    if (getNKeys())
        getSurroundingSegs(localTime(time), left, right);
    const CH_Segment *s = reverse ? left : right;
    key.myHasExpression = s && s->getExpression();
    if (key.myHasExpression)
    {
        key.myExpression = s->getExpression();
        key.myLanguage = s->getExprLanguage();
    }
    else
    {
        key.myExpression.clear();
        key.myLanguage = CH_ORVISH;
    }
    return at_key;
}

void CH_Channel::sampleKey(float time, CH_Key &key, bool accel_ratios)
{
    key.myTime = time;
    float t = localTime(time);
    CH_Segment *s = getNKeys() ? getSegment(t) : nullptr;
    float value = myDefaultValue, slope = 0.0f;
    float in_len = 0.0f, out_len = 0.0f;
    float in_accel = theThird, out_accel = theThird; // ratios unless raw below
    bool raw = false;
    if (s)
    {
        value = evaluate(time, true, 0);
        float ignored;
        sampleValueSlope(s, time, 0, ignored, slope);
        float len = s->getLength();
        if (t > s->getStart() && t < s->getEnd())
        {
            float f = (t - s->getStart()) * s->getILength();
            in_len = f * len;
            out_len = (1.0f - f) * len;
        }
        else
        {
            // Outside the keys: the new segment would reach to the nearest key.
            in_len = out_len = std::fabs(t - (t < s->getStart() ? s->getStart() : s->getEnd()));
        }
        if (s->isBezier() && t > s->getStart() && t < s->getEnd())
        {
            // The inner handles of the curve split at the time.
            CH_Bezier bezier(*s);
            CH_SegmentValues l, r;
            bezier.splitAndFindSlopeLengths(t, l, r);
            in_accel = l.myOutAccel;
            out_accel = r.myInAccel;
            raw = true;
        }
    }
    if (raw && accel_ratios)
    {
        in_accel = CH_Segment::getAccelRatio(slope, in_accel, in_len);
        out_accel = CH_Segment::getAccelRatio(slope, out_accel, out_len);
    }
    else if (!raw && !accel_ratios)
    {
        in_accel = CH_Segment::getAccelFromRatio(slope, in_accel, in_len);
        out_accel = CH_Segment::getAccelFromRatio(slope, out_accel, out_len);
    }
    for (CH_HalfKey *h : {&key.myIn, &key.myOut})
    {
        h->myV[CH_VALUE] = value;
        h->myV[CH_SLOPE] = slope;
        for (int i = 0; i < CH_NUM_VALUE_TYPES; ++i)
            h->myValid[i] = h->myTied[i] = true;
    }
    key.myIn.myV[CH_ACCEL] = in_accel;
    key.myOut.myV[CH_ACCEL] = out_accel;
    key.myWord = 0;
}

// ---- Writing keys ---------------------------------------------------------------------

void CH_Channel::applyPendingToKey(CH_Key &key, float time)
{
    if (!isPending() || std::fabs(time - getPendingEvalTime()) > getTolerance())
        return;
    key.set(CH_VALUE, myDefaultValue);
    setFlag(thePendingHold, false);
    setPending(false, 0.0f);
    myPendingTime = FLT_MAX;
}

void CH_Channel::applyAutoSlopeToKey(CH_Key &key)
{
    CH_Manager *mgr = getManager();
    bool in_unset = !key.myIn.myValid[CH_SLOPE], out_unset = !key.myOut.myValid[CH_SLOPE];
    if (in_unset || out_unset)
    {
        float slope = mgr ? mgr->getDefaultSlope() : 0.0f;
        bool tie = false;
        if (mgr && mgr->getAutoSlope())
        {
            tie = true;
            slope = 0.0f;
            // The line through the neighbouring keys; an end key's own value
            // and its one neighbour; a lone key stays flat.
            float t = localTime(key.myTime), tol = getTolerance();
            int n = numKeyTimes();
            int lo = 0, hi = n; // first key at or after t - tol
            while (lo < hi)
            {
                int mid = lo + (hi - lo) / 2;
                if (myIndex.time(mid) < t - tol)
                    lo = mid + 1;
                else
                    hi = mid;
            }
            int prev = lo - 1;
            int next = lo < n && myIndex.time(lo) <= t + tol ? lo + 1 : lo;
            auto keyValue = [this](int k) { return getSegment(static_cast<unsigned>(k))->getInValue(); };
            float own = key.myOut.myValid[CH_VALUE] ? key.myOut.myV[CH_VALUE] : key.myIn.myV[CH_VALUE];
            bool has_prev = prev >= 0, has_next = next < n;
            float t0 = t, v0 = own, t1 = t, v1 = own;
            if (has_prev)
                t0 = myIndex.time(prev), v0 = keyValue(prev);
            if (has_next)
                t1 = myIndex.time(next), v1 = keyValue(next);
            if ((has_prev || has_next) && t1 != t0)
                slope = (v1 - v0) / (t1 - t0);
        }
        for (CH_HalfKey *h : {&key.myIn, &key.myOut})
        {
            if (h->myValid[CH_SLOPE])
                continue;
            h->myV[CH_SLOPE] = slope;
            h->myValid[CH_SLOPE] = true;
            if (tie)
                h->myTied[CH_SLOPE] = true;
        }
    }
    for (CH_HalfKey *h : {&key.myIn, &key.myOut})
        if (!h->myValid[CH_ACCEL])
        {
            h->myV[CH_ACCEL] = theThird;
            h->myValid[CH_ACCEL] = true;
        }
}

void CH_Channel::putKey(float time, const CH_Key &key, bool accel_ratios)
{
    if (!canAccess(theEditMask))
        return;
    CH_Key copy = key;
    copy.myTime = time;
    if (!isAtHardKey(time))
        splitSegment(time, accel_ratios);
    applyPendingToKey(copy, time);
    bool in_accel_unset = !copy.myIn.myValid[CH_ACCEL];
    bool out_accel_unset = !copy.myOut.myValid[CH_ACCEL];
    applyAutoSlopeToKey(copy);
    CH_Segment *left = nullptr, *right = nullptr;
    if (getNKeys() && getSurroundingSegs(localTime(time), left, right))
    {
        if (!accel_ratios)
        {
            // The filled-in accels are ratios; this write takes handle lengths.
            if (in_accel_unset && left)
                copy.myIn.myV[CH_ACCEL] = CH_Segment::getAccelFromRatio(
                    copy.myIn.myV[CH_SLOPE], copy.myIn.myV[CH_ACCEL], left->getLength());
            if (out_accel_unset && right)
                copy.myOut.myV[CH_ACCEL] = CH_Segment::getAccelFromRatio(
                    copy.myOut.myV[CH_SLOPE], copy.myOut.myV[CH_ACCEL], right->getLength());
        }
        copy.put(left, right, accel_ratios);
    }
    CHevent(CH_CHANNEL_CHANGED, this);
}

void CH_Channel::putFullKey(float time, const CH_FullKey &key, bool accel_ratios)
{
    if (!canAccess(theEditMask))
        return;
    putKey(time, key, accel_ratios);
    if (!key.myHasExpression)
        return;
    CH_Segment *left = nullptr, *right = nullptr;
    if (getNKeys() && getSurroundingSegs(localTime(time), left, right) && right)
        right->changeExpression(key.myExpression, key.myLanguage);
}

void CH_Channel::insertKeyFrame(float time)
{
    if (!canAccess(theEditMask))
        return;
    CH_Key key;
    key.clear();
    getKey(time, key, true);
    putKey(time, key, true);
}

// ---- Creating keys ------------------------------------------------------------------

void CH_Channel::applySplitExpression(CH_Segment *made, const CH_Segment *source, bool auto_split)
{
    CH_Manager *mgr = getManager();
    if (auto_split || !mgr || !hasText(mgr->getDefaultSplitExpression()))
        return;
    made->changeExpression(mgr->getDefaultSplitExpression(), source->getExprLanguage());
}

void CH_Channel::splitSegment(float time, bool accel_ratios, bool snap_first)
{
    if (isAtHardKey(time))
        return;
    CH_Manager *mgr = getManager();
    float tol = getTolerance();
    if (snap_first && isEmpty() && mgr && hasText(mgr->getChanCreateKeyExpression()))
    {
        // The manager decides where an empty channel's first key goes.
        float frame = mgr->evaluate(mgr->getChanCreateKeyExpression(), time, myCollection,
                                    nullptr, 0);
        float key_time = (frame - 1.0f) / mgr->getSamplesPerSec();
        if (std::fabs(key_time - time) > tol)
            splitSegment(key_time, accel_ratios, false);
        if (isAtHardKey(time))
            return;
    }
    float t = localTime(time);
    bool auto_split = mgr ? mgr->getAutoSplit() : true;
    CH_Segment *made = nullptr;

    if (isEmpty())
    {
        const char *expr = mgr ? mgr->getDefaultExpression() : nullptr;
        if (mgr && isRotationChannel() && hasText(mgr->getDefaultRotationExpression()))
            expr = mgr->getDefaultRotationExpression();
        auto *s = new CH_Segment(expr, getCollectionExprLanguage(), this, 0.0f);
        s->setInValue(myDefaultValue, false);
        s->setOutValue(myDefaultValue, false);
        myEndSegment = s;
        adjustSegmentTimes(false);
        moveStart(time, true);
        return;
    }

    if (hasOnlyOneSegment())
    {
        CH_Segment *end = myEndSegment;
        auto *copy = new CH_Segment(*end);
        if (t < end->getStart())
        {
            copy->changeLength(end->getStart() - t, CH_SCALE_ANY, accel_ratios);
            moveStart(time, true);
            mySegments.append(copy);
            copy->setChannel(this);
        }
        else
        {
            myEndSegment = copy;
            copy->setChannel(this);
            end->changeLength(t - end->getStart(), CH_SCALE_ANY, accel_ratios);
            mySegments.append(end);
        }
        cook(end, isCooking());
        made = copy;
    }
    else if (t > 0.0f && t < myLength)
    {
        int i = getSegmentIdx(t);
        CH_Segment *s = mySegments(i);
        float len = s->getLength();
        float f = (t - s->getStart()) * s->getILength();
        bool bezier = accel_ratios && s->isInAccelUsed();
        CH_SegmentValues left, right;
        if (bezier)
            CH_Bezier(*s).splitAndFindSlopeLengths(t, left, right);
        auto *n = new CH_Segment(*s);
        applySplitExpression(n, s, auto_split);
        n->changeLength((1.0f - f) * len, CH_SCALE_ANY, accel_ratios);
        s->changeLength(f * len, CH_SCALE_ANY, accel_ratios);
        mySegments.insert(n, i + 1);
        n->setChannel(this);
        if (bezier)
        {
            // The outer handles, shortened by the split.
            s->setInAccel(left.myInAccel, false);
            n->setOutAccel(right.myOutAccel, false);
        }
        adjustSegmentTimes(false);
        cook(n, isCooking());
        CHevent(CH_CHANNELS_MAJOR_CHANGE, this);
        return;
    }
    else if (t < 0.0f)
    {
        CH_Segment *s = mySegments(0);
        auto *n = new CH_Segment(*s);
        applySplitExpression(n, s, auto_split);
        n->changeLength(s->getStart() - t, CH_SCALE_ANY, accel_ratios);
        CH_Key key;
        key.get(myEndSegment, nullptr, true);
        key.put(n, nullptr, true);
        moveStart(time, true);
        mySegments.insert(n, 0);
        n->setChannel(this);
        made = n;
    }
    else
    {
        CH_Segment *last = mySegments.last(), *end = myEndSegment;
        auto *n = new CH_Segment(*end);
        if (!auto_split && mgr && hasText(mgr->getDefaultSplitExpression()))
            n->changeExpression(mgr->getDefaultSplitExpression(), last->getExprLanguage());
        n->changeLength(t - myLength, CH_SCALE_ANY, accel_ratios);
        CH_Key key;
        key.get(last, end, true);
        // The values come from the end segment as it is (it moves to the new key).
        key.myIn.myValid[CH_VALUE] = false;
        key.myOut.myValid[CH_VALUE] = false;
        key.put(n, n, true);
        n->transferGroup(*end);
        mySegments.append(n);
        n->setChannel(this);
        made = n;
    }
    adjustSegmentTimes(false);
    cook(made, isCooking());
    CHevent(CH_CHANNELS_MAJOR_CHANGE, this);
}

// ---- Removing keys ---------------------------------------------------------------------

void CH_Channel::destroyKeyFrame(float time)
{
    if (!canAccess(theEditMask) || isEmpty())
        return;
    float tol = getTolerance();
    float t = localTime(time);
    float new_start = myStart;
    CH_Segment *s;
    if (std::fabs(t) <= tol)
    {
        // The first key goes: the second becomes the first.
        s = mySegments.isEmpty() ? myEndSegment : mySegments(0);
        if (s)
            new_start = s->getEnd() + myStart;
    }
    else if (std::fabs(t - myLength) <= tol)
        s = myEndSegment;
    else
        s = getSegment(t);
    if (!s || s->isLockedSegment() || std::fabs(t - s->getStart()) > tol)
        return;

    CH_Segment *p = s->getPrev(), *x = s->getNext();
    if (p && p != myEndSegment)
    {
        // The merged segment covers both; ratios are kept as lengths change.
        float sum = p->getLength() + s->getLength();
        p->changeLength(sum, CH_SCALE_ANY, true);
        adjustSegmentTimes(true);
        CHevent(CH_CHANNELS_MOVED, this);
        s->changeLength(sum, CH_SCALE_ANY, true);
        adjustSegmentTimes(true);
        CHevent(CH_CHANNELS_MOVED, this);
    }
    if (p && x && p != s && x != s)
    {
        // p ends as s ended; s's expression goes with s.
        CH_Key key;
        key.get(s, x, true);
        key.put(p, x, true);
    }
    removeSegment(s);
    delete s;
    moveStart(new_start, true);
    adjustSegmentTimes(false);
    CHevent(CH_CHANNELS_MAJOR_CHANGE, this);
}
