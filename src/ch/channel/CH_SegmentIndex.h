#ifndef CH_SEGMENTINDEX_H
#define CH_SEGMENTINDEX_H

#include <cmath>
#include <cstdint>
#include <vector>

/// The key times of a channel, kept contiguous for the segment search, and a
/// coarse table that narrows the search on long channels.
///
/// Segment i spans times(i) .. times(i + 1); there are segments() + 1 times,
/// nondecreasing, starting at 0. Which segment a time belongs to is defined
/// by search(): a binary search with the frame tolerance, where a key belongs
/// to the segment that starts there. find() gives the same answer faster: the
/// table brings a time to the one or two keys around it, and a time that
/// lies well inside that segment (more than the tolerance, plus a rounding
/// margin, from both keys) is answered there, since the binary search can
/// only end elsewhere within the tolerance of another key. Any other time
/// goes through search() itself.
class CH_SegmentIndex
{
public:
    CH_SegmentIndex() { myTimes.assign(1, 0.0f); }

    /// Starts a rebuild with room for 'segments' + 1 times; set() them all,
    /// then finish().
    void resize(int segments) { myTimes.resize(static_cast<std::size_t>(segments) + 1); }
    void set(int i, float t) { myTimes[static_cast<std::size_t>(i)] = t; }
    void finish();
    /// No segments: one time, 0.
    void clear();

    int segments() const { return static_cast<int>(myTimes.size()) - 1; }
    float time(int i) const { return myTimes[static_cast<std::size_t>(i)]; }

    /// The segment of local time t, for 0 <= t + tol and t - tol < the
    /// last time (callers handle the times outside). At least one segment.
    int find(float t, float tol) const
    {
        if (!myTable.empty() && t >= 0.0f && t < myTableEnd)
        {
            int i = nearest(t);
            if (isInterior(i, t, tol))
                return i;
        }
        return search(t, tol);
    }

    /// The binary search that defines the answer.
    int search(float t, float tol) const;

    /// True when t lies inside segment i far enough from both its keys that
    /// every search agrees on i. The margin covers the single-precision
    /// rounding of the search's own comparisons.
    bool isInterior(int i, float t, float tol) const
    {
        double dt = t;
        double margin = tol + (std::abs(dt) + tol) * (1.0 / (1 << 22));
        return static_cast<double>(time(i)) + margin < dt && dt < static_cast<double>(time(i + 1)) - margin;
    }

    std::int64_t getMemUsage() const;
    void swap(CH_SegmentIndex &other);

private:
    /// Channels with fewer segments search the times directly.
    static constexpr int theMinTabled = 16;

    int bucketOf(float t) const
    {
        int b = static_cast<int>(t * myScale);
        return b < myLastBucket ? b : myLastBucket;
    }
    /// The last segment that starts at or before t (0 <= t < myTableEnd).
    inline int nearest(float t) const;

    std::vector<float> myTimes;
    /// myTable[b]: how many segments start in buckets before b. The
    /// buckets split 0 .. the last time evenly; myTable has one entry more.
    std::vector<std::int32_t> myTable;
    float myScale = 0.0f;
    float myTableEnd = 0.0f;
    int myLastBucket = 0;
};

inline int CH_SegmentIndex::nearest(float t) const
{
    // Keys in earlier buckets are before t and keys in later ones after it
    // (the bucket of a time never decreases as the time grows), so the last
    // key at or before t is among those counted up to t's bucket.
    std::size_t b = static_cast<std::size_t>(bucketOf(t));
    int lo = myTable[b] > 0 ? myTable[b] - 1 : 0;
    int hi = myTable[b + 1] - 1;
    while (lo < hi)
    {
        int mid = (lo + hi + 1) >> 1;
        if (time(mid) <= t)
            lo = mid;
        else
            hi = mid - 1;
    }
    return lo;
}

#endif
