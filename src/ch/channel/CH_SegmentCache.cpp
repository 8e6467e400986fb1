// A segment's sample cache: one value per whole sample number, read by
// linear interpolation between samples. The cache is filled as a side
// effect of evaluation, so a channel with caching on is evaluated from one
// thread at a time.
#include <ch/channel/CH_Segment.h>

#include <ch/channel/CH_Channel.h>
#include <ch/expr/CH_Expression.h>
#include <ch/manager/CH_Manager.h>
#include <ut/UT_ScopeExit.h>

#include <algorithm>
#include <climits>
#include <cmath>

namespace {

// A segment spanning more samples than this is not cached: its values are
// evaluated directly. With the reach allowed around the segment below the
// cache then holds at most about 3 * 2^20 floats (12 MB), and every sample
// number stays far inside the int range.
constexpr double theMaxCacheSpan = 1 << 20;
constexpr double theMaxCacheSample = 1 << 30;

// floor(x), saturated to the int range (NaN gives INT_MIN).
int saturatedFloor(double x)
{
    if (!(x >= static_cast<double>(INT_MIN)))
        return INT_MIN;
    if (x >= static_cast<double>(INT_MAX))
        return INT_MAX;
    return static_cast<int>(std::floor(x));
}

} // namespace

float CH_Segment::evaluateFromCache(float t, int thread)
{
    float rate = getManager()->getSamplesPerSec();
    float global = t + myChannel->getStart();
    float s = global * rate + 1.0f; // sample numbers in single precision
    // Samples far outside the segment would grow the cache without bound
    // (and non-finite times have no sample): evaluate those directly, as
    // every sample of a segment too long to cache.
    double span = (static_cast<double>(myLength) + 2.0) * rate + 2.0;
    double first = (static_cast<double>(myChannel->getStart()) + myStart) * rate + 1.0;
    if (!std::isfinite(s) || s < first - span || s > first + 2.0 * span || !(span <= theMaxCacheSpan) ||
        !(std::fabs(first) <= theMaxCacheSample))
        return myExpression ? myExpression->evaluate(thread) : 0.0f;

    updateCacheToIncludeSample(saturatedFloor(s), thread);
    int size = static_cast<int>(myCache.size());
    if (size < 2)
        return size ? myCache[0] : (myExpression ? myExpression->evaluate(thread) : 0.0f);
    float p = global * rate + 1.0f - static_cast<float>(myFirstCachedSample);
    p = std::min(std::max(p, 0.0f), static_cast<float>(size - 2));
    int i = static_cast<int>(std::floor(p));
    float f = p - static_cast<float>(i);
    return (1.0f - f) * myCache[i] + f * myCache[i + 1];
}

void CH_Segment::updateCacheToIncludeSample(int s, int thread)
{
    float rate = getManager()->getSamplesPerSec();
    float chstart = myChannel->getStart();
    if (myCache.empty())
    {
        int first = saturatedFloor((chstart + myStart) * rate + 1.0f);
        int last = saturatedFloor((myEnd + chstart) * rate + 1.0f);
        myFirstCachedSample = std::min(first, s);
        s = std::max(last, s);
    }
    int size = static_cast<int>(myCache.size());
    if (myFirstCachedSample <= s && s < myFirstCachedSample + size - 1)
        return;

    int whole_rate = static_cast<int>(rate);
    if (s >= myFirstCachedSample)
    {
        int n = s - (myFirstCachedSample + size - 1) + 1;
        if (myLength == 0.0f && n <= whole_rate)
            n = whole_rate;
        myCache.insert(myCache.end(), static_cast<std::size_t>(n), 0.0f);
        fillCache(size, size + n - 1, thread);
    }
    else
    {
        int n = myFirstCachedSample - s;
        if (myPrev && myPrev->myLength == 0.0f && n <= whole_rate)
            n = whole_rate;
        myCache.insert(myCache.begin(), static_cast<std::size_t>(n), 0.0f);
        myFirstCachedSample -= n;
        fillCache(0, n - 1, thread);
    }
    myFlags.set(CH_SegmentFlags::MODIFIED, false);
}

void CH_Segment::fillCache(int first, int last, int thread)
{
    isCooking(1);
    UT_ScopeExit cooked([this] { isCooking(0); });
    float rate = getManager()->getSamplesPerSec();
    float chstart = myChannel->getStart();
    float tol = getTolerance();
    for (int i = first; i <= last; ++i)
    {
        float time = static_cast<float>((myFirstCachedSample + i) - 1) / rate - chstart;
        if (time < myStart && myStart - time <= tol)
            time = myStart;
        if (time > myEnd && time - myEnd <= tol)
            time = myEnd;
        myChannel->setEvalTime(time, thread);
        myCache[static_cast<std::size_t>(i)] = evaluate(time, false, thread);
    }
}

void CH_Segment::clearCache()
{
    std::vector<float>().swap(myCache);
}

void CH_Segment::cook(int modified, int)
{
    if (modified && !myCache.empty())
    {
        setModified(1);
        isCooking(0);
        return;
    }
    clearCache();
    if (modified)
    {
        setModified(1);
        isCooking(0);
    }
}

void CH_Segment::recook(float *out, int count, int thread)
{
    if (out)
    {
        isCooking(1);
        UT_ScopeExit cooked([this] { isCooking(0); });
        float step = count >= 2 ? myLength / static_cast<float>(count - 1) : 0.0f;
        for (int k = 0; k < count; ++k)
        {
            float t = myStart + static_cast<float>(k) * step;
            myChannel->setEvalTime(t, thread);
            out[k] = evaluate(t, false, thread);
        }
    }
    myFlags.set(CH_SegmentFlags::MODIFIED, false);
}
