// Keys by time and by frame. A channel's key times are the starts of its
// list segments and its length, kept contiguous by the segment index; every
// query here is a binary search over them. Key frames never decrease along
// the keys (each step of the frame conversion is monotonic), so frames are
// searched the same way.
#include <ch/channel/CH_Channel.h>

#include <ch/manager/CH_Manager.h>
#include <ut/UT_IntArray.h>

#include <cmath>

namespace {

// The first of 0 .. n-1 for which before() is false (n when none);
// before() must be true for a prefix of the range.
template <typename Before>
int firstNotBefore(int n, Before before)
{
    int lo = 0, hi = n;
    while (lo < hi)
    {
        int mid = lo + (hi - lo) / 2;
        if (before(mid))
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo;
}

} // namespace

int CH_Channel::keyFrame(int key) const
{
    float t = myStart + myIndex.time(key);
    return myManager ? myManager->getFrame(t) : CHgetFrameFromTime(t);
}

int CH_Channel::keyIndexAt(float t, float tol) const
{
    int n = numKeyTimes();
    // The same differences as |key - t| <= tol, so that the answer agrees
    // with every other test of a key against the tolerance.
    int k = firstNotBefore(n, [&](int i) { return myIndex.time(i) - t < -tol; });
    int best = -1;
    for (; k < n && myIndex.time(k) - t <= tol; ++k)
        if (best < 0 || std::fabs(myIndex.time(k) - t) <= std::fabs(myIndex.time(best) - t))
            best = k;
    return best;
}

bool CH_Channel::isAtHardKey(float global_time) const
{
    return keyIndexAt(global_time - myStart, getTolerance()) >= 0;
}

bool CH_Channel::isAtHardKeyframe(int frame) const
{
    int n = numKeyTimes();
    int k = firstNotBefore(n, [&](int i) { return keyFrame(i) < frame; });
    return k < n && keyFrame(k) == frame;
}

int CH_Channel::findKeyframe(int frame, int direction) const
{
    int n = numKeyTimes();
    if (direction > 0)
    {
        int k = firstNotBefore(n, [&](int i) { return keyFrame(i) <= frame; });
        return k < n ? keyFrame(k) : frame;
    }
    if (direction < 0)
    {
        int k = firstNotBefore(n, [&](int i) { return keyFrame(i) < frame; });
        return k > 0 ? keyFrame(k - 1) : frame;
    }
    return frame;
}

float CH_Channel::findKey(float time, float direction) const
{
    // A key within the tolerance of time is skipped, by the same differences
    // keyIndexAt uses; the last time in the index is the end segment's key.
    int n = numKeyTimes();
    float t = localTime(time), tol = getTolerance();
    if (direction > 0.0f)
    {
        int k = firstNotBefore(n, [&](int i) { return myIndex.time(i) - t <= tol; });
        return k < n ? globalTime(myIndex.time(k)) : time;
    }
    if (direction < 0.0f)
    {
        int k = firstNotBefore(n, [&](int i) { return myIndex.time(i) - t < -tol; });
        return k > 0 ? globalTime(myIndex.time(k - 1)) : time;
    }
    return time;
}

void CH_Channel::getKeyFrames(UT_IntArray &frames, float start, float end) const
{
    frames.clear();
    int n = numKeyTimes();
    for (int k = firstNotBefore(n, [&](int i) { return myStart + myIndex.time(i) < start; });
         k < n && myStart + myIndex.time(k) < end; ++k)
    {
        int f = keyFrame(k);
        if (frames.isEmpty() || frames.last() != f)
            frames.append(f);
    }
}
