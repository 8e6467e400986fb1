// Moving and stretching keys. A key moves by changing the lengths of the
// segments around it (or the channel start), so the other keys keep their
// times; a key that reaches or passes its neighbour is copied to its target
// and removed from its old place instead, so lengths never go negative.
#include <ch/channel/CH_Channel.h>

#include <ch/channel/CH_FullKey.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_EventManager.h>
#include <ch/manager/CH_Manager.h>
#include <ch/manager/CH_TimeGroup.h>

#include <ut/UT_FloatArray.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr unsigned theEditMask = 0x92;

} // namespace

// ---- First key -------------------------------------------------------------------------

void CH_Channel::initializeFirstSegment(const char *expression, CH_ExprLanguage language)
{
    if (!canAccess(theEditMask))
        return;
    CH_Manager *mgr = getManager();
    moveStart(mgr ? mgr->getGlobalStart() : 0.0f, true);
    delete myEndSegment;
    myEndSegment = new CH_Segment(expression, language, this, 0.0f);
    adjustSegmentTimes(false); // lays the new segment out and links it
    // Twice, as hosts have always seen it: two change events.
    setKeyValue(myDefaultValue, myStart, false, true, true);
    setKeyValue(myDefaultValue, myStart, false, true, true);
}

// ---- Moving one key --------------------------------------------------------------------

void CH_Channel::moveKeyFrame(float old_time, float new_time)
{
    if (!canAccess(theEditMask))
        return;
    float d = new_time - old_time;
    // Non-finite times and moves within the tolerance change nothing.
    if (!std::isfinite(old_time) || !std::isfinite(new_time) || !(std::fabs(d) > getTolerance()))
        return;
    if (!isAtHardKey(old_time))
        return;
    float k = findKey(old_time, d); // the neighbour the key moves towards
    bool by_lengths = d <= 0.0f ? (k >= old_time || k < new_time) : (k <= old_time || k > new_time);
    if (by_lengths)
    {
        moveKeyInternal(old_time, new_time);
        return;
    }
    transferKey(new_time, this, old_time);
    destroyKeyFrame(old_time);
}

void CH_Channel::moveKeyInternal(float old_time, float new_time)
{
    CH_Segment *left = nullptr, *right = nullptr;
    if (!getNKeys() || !getSurroundingSegs(localTime(old_time), left, right))
        return;
    float d = new_time - old_time;
    if (hasOnlyOneSegment())
    {
        moveStart(new_time, true);
        CHevent(CH_CHANNEL_CHANGED, this);
        return;
    }
    if (left && left != myEndSegment)
    {
        // The keys after the moved one keep their times: what the left
        // segment gains the right one loses.
        left->changeLength(left->getLength() + d, CH_SCALE_START, true);
        adjustSegmentTimes(true);
        CHevent(CH_CHANNELS_MOVED, this);
        if (right && right != myEndSegment)
        {
            right->changeLength(right->getLength() - d, CH_SCALE_ANY, true);
            adjustSegmentTimes(true);
            CHevent(CH_CHANNELS_MOVED, this);
        }
        return;
    }
    // The first key: the start moves and the second key stays.
    moveStart(new_time, true);
    if (right && right != myEndSegment)
    {
        right->changeLength(right->getLength() - d, CH_SCALE_START, true);
        adjustSegmentTimes(true);
        CHevent(CH_CHANNELS_MOVED, this);
    }
}

void CH_Channel::transferKey(float time, CH_Channel *source, float source_time)
{
    if (!source || !canAccess(theEditMask))
        return;
    CH_FullKey key;
    source->getFullKey(source_time, key, false, true);
    // The group goes with the segment starting at the key, the one whose
    // expression the key carries.
    CH_TimeGroup *group = nullptr;
    if (source->isAtHardKey(source_time))
    {
        CH_Segment *s = source->getSegmentAfterKey(source->localTime(source_time));
        group = s ? s->getTimeGroup() : nullptr;
    }
    putFullKey(time, key, true);
    if (group)
        if (CH_Segment *s = getSegmentAfterKey(localTime(time)))
            group->addEntry(s, true);
}

// ---- Moving a set of keys -----------------------------------------------------------------

void CHmoveKeysWithDelta(CH_Channel *channel, const UT_FloatArray &key_times, float old_base,
                         float new_base)
{
    if (!channel)
        return;
    std::vector<float> order(key_times.data(), key_times.data() + key_times.entries());
    // The leading key moves first, so no key lands on one that has not moved.
    if (new_base > old_base)
        std::reverse(order.begin(), order.end());
    for (float k : order)
        channel->moveKeyFrame(old_base + k, new_base + k);
}

// ---- Stretching --------------------------------------------------------------------------

void CH_Channel::stretch(float new_start, float new_end)
{
    if (!canAccess(theEditMask) || !std::isfinite(new_start) || !std::isfinite(new_end))
        return;
    float tol = getTolerance();
    float new_length = new_end - new_start;
    moveStart(new_start, true);
    if (mySegments.isEmpty())
        return;
    // A range of no length (or a reversed one) counts as one tolerance long.
    float ratio = myLength / (new_length > tol ? new_length : tol);
    if (ratio <= tol)
        ratio = tol;
    if (ratio != 1.0f)
    {
        deNormalize(1.0f / ratio);
        CHevent(CH_CHANNEL_CHANGED, this);
    }
}

void CH_Channel::deNormalize(float factor)
{
    int n = mySegments.entries();
    for (int i = 0; i < n; ++i)
    {
        CH_Segment *s = mySegments(i);
        int sides = 3, third = 3;
        if (i + 1 < n)
        {
            CH_Segment *next = mySegments(i + 1);
            if (s->isBezier() != next->isBezier())
            {
                // A bezier handle cannot stay tied to an accel the other
                // kind scales differently.
                CH_Segment *other = s->isBezier() ? next : s;
                if (other->isInAccelUsed())
                    s->tieOutAccel(false, true);
            }
            // A tied out side follows the next segment's in side, stretched
            // with that segment.
            sides = s->isOutSlopeTied() ? 1 : 3;
            third = s->isOutAccelTied() ? 1 : 3;
        }
        s->stretch(factor, sides, third);
    }
    adjustSegmentTimes(true);
}
