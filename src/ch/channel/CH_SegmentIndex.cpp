#include "CH_SegmentIndex.h"

#include <utility>

void CH_SegmentIndex::finish()
{
    myTable.clear();
    int n = segments();
    float end = myTimes.back();
    if (n < theMinTabled || !(end > 0.0f) || !std::isfinite(end))
        return;
    int buckets = 1;
    while (buckets < n && buckets < (1 << 20))
        buckets <<= 1;
    myScale = static_cast<float>(buckets) / end;
    if (!std::isfinite(myScale))
        return;
    myLastBucket = buckets - 1;
    myTableEnd = end;
    myTable.assign(static_cast<std::size_t>(buckets) + 1, 0);
    for (int i = 0; i < n; ++i)
    {
        float t = myTimes[static_cast<std::size_t>(i)];
        if (!(t >= 0.0f && t <= end)) // not a usable key time: search instead
        {
            myTable.clear();
            return;
        }
        ++myTable[static_cast<std::size_t>(bucketOf(t)) + 1];
    }
    for (std::size_t b = 1; b < myTable.size(); ++b)
        myTable[b] += myTable[b - 1];
}

void CH_SegmentIndex::clear()
{
    myTimes.assign(1, 0.0f);
    myTable.clear();
}

int CH_SegmentIndex::search(float t, float tol) const
{
    int n = segments();
    if (n <= 0)
        return 0;
    const float *key = myTimes.data();
    int lo = 0, hi = n - 1;
    while (hi - lo > 1)
    {
        int mid = (lo + hi) / 2;
        float start = key[mid], end = key[mid + 1];
        if (start <= t + tol && end >= t - tol)
        {
            if (std::fabs(end - t) > tol)
                return mid;
            // At the segment's end key: the key belongs to the next segment.
            return mid < n - 1 ? mid + 1 : mid;
        }
        if (start <= t + tol)
            lo = mid;
        else
            hi = mid;
    }
    return key[hi] - t > tol ? lo : hi;
}

std::int64_t CH_SegmentIndex::getMemUsage() const
{
    return static_cast<std::int64_t>(myTimes.capacity() * sizeof(float) +
                                     myTable.capacity() * sizeof(std::int32_t));
}

void CH_SegmentIndex::swap(CH_SegmentIndex &other)
{
    std::swap(myTimes, other.myTimes);
    std::swap(myTable, other.myTable);
    std::swap(myScale, other.myScale);
    std::swap(myTableEnd, other.myTableEnd);
    std::swap(myLastBucket, other.myLastBucket);
}
