// The tabled segment lookup must give exactly what the plain tolerance
// search gives, for every time: near keys (within and just beyond the
// tolerance, to the last bit), between them, on clustered and nearly
// coincident keys, and far from 0 where floats are coarse.
#include <ch/channel/CH_SegmentIndex.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

CH_SegmentIndex makeIndex(const std::vector<float> &times)
{
    CH_SegmentIndex index;
    int n = static_cast<int>(times.size()) - 1;
    index.resize(n);
    for (int i = 0; i <= n; ++i)
        index.set(i, times[static_cast<std::size_t>(i)]);
    index.finish();
    return index;
}

// Every time the lookups may see: each key, then steps of a tenth of the
// tolerance and single ulps around key +- tolerance, and random times.
void expectSameEverywhere(const std::vector<float> &times, float tol, std::mt19937 &rng)
{
    CH_SegmentIndex index = makeIndex(times);
    float end = times.back();
    auto check = [&](float t) {
        if (!(t + tol >= 0.0f && t - end < -tol))
            return; // outside the keys: the channel's behaviours answer
        int s = index.search(t, tol);
        ASSERT_EQ(index.find(t, tol), s) << "t=" << t;
        // The range evaluation's shortcut: no other segment may claim t.
        for (int h = std::max(s - 2, 0); h < std::min(s + 3, index.segments()); ++h)
        {
            ASSERT_TRUE(h == s || !index.isInterior(h, t, tol)) << "t=" << t << " h=" << h;
        }
    };
    for (float k : times)
    {
        for (int j = -25; j <= 25; ++j)
            check(k + static_cast<float>(j) * tol * 0.1f);
        for (float edge : {k - tol, k + tol})
        {
            float t = edge;
            for (int u = 0; u < 4; ++u)
                t = std::nextafter(t, -1e30f);
            for (int u = 0; u < 8; ++u, t = std::nextafter(t, 1e30f))
                check(t);
        }
    }
    std::uniform_real_distribution<float> any(0.0f, end);
    for (int i = 0; i < 20000; ++i)
        check(any(rng));
}

TEST(CHSegmentIndex, FindAgreesWithTheSearch)
{
    std::mt19937 rng(11);
    const float tol = 1.0f / 2400.0f; // half a sample at 24 fps
    std::vector<float> even, ragged, clustered, far;
    for (int i = 0; i <= 1000; ++i)
        even.push_back(i * 0.5f);
    float t = 0.0f;
    std::uniform_real_distribution<float> gap(0.0f, 1.0f);
    for (int i = 0; i <= 300; ++i, t += gap(rng) * gap(rng) * 3.0f + 1e-5f)
        ragged.push_back(t);
    // Bursts of keys closer together than the tolerance, then long gaps.
    t = 0.0f;
    for (int i = 0; i <= 200; ++i)
    {
        clustered.push_back(t);
        t += (i % 7 < 5) ? 1e-5f : 40.0f;
    }
    // Long channels reach times where a float step exceeds the tolerance.
    for (int i = 0; i <= 64; ++i)
        far.push_back(i ? 90000.0f + i * 1.25f : 0.0f);
    for (const auto *times : {&even, &ragged, &clustered, &far})
    {
        SCOPED_TRACE(times->size());
        expectSameEverywhere(*times, tol, rng);
        expectSameEverywhere(*times, 0.0f, rng); // no tolerance at all
    }
}

TEST(CHSegmentIndex, ShortAndDegenerateChannels)
{
    std::mt19937 rng(5);
    // Too short for the table, and lengths the table cannot split.
    expectSameEverywhere({0.0f, 1.0f, 2.0f}, 0.01f, rng);
    std::vector<float> zero(40, 0.0f);
    CH_SegmentIndex flat = makeIndex(zero);
    EXPECT_EQ(flat.find(0.0f, 0.01f), flat.search(0.0f, 0.01f));
    CH_SegmentIndex empty;
    EXPECT_EQ(empty.segments(), 0);
    EXPECT_EQ(empty.find(0.0f, 0.01f), 0);
    // Non-finite times are left to the search, which returns some segment.
    CH_SegmentIndex even = makeIndex({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17});
    for (float t : {NAN, INFINITY, -INFINITY})
    {
        int i = even.find(t, 0.01f);
        EXPECT_TRUE(i >= 0 && i < even.segments()) << t;
    }
    EXPECT_GT(even.getMemUsage(), static_cast<std::int64_t>(18 * sizeof(float)));
}

} // namespace
