// Keys by time and by frame: hard keys within the tolerance, key frames at
// frame boundaries, the nearest key frame either way, key frames over an
// interval, and the scoped channels' key frames merged by the manager.
#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_ChannelRef.h>
#include <ch/manager/CH_Manager.h>

#include <support/chTestChannelBuilder.h>
#include <ut/UT_IntArray.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace {

std::vector<int> toVector(const UT_IntArray &a)
{
    return std::vector<int>(a.begin(), a.end());
}

class CHChannelKeys : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mgr.setContext();
        ch = obj.addChannel("tx");
    }
    void build(const std::vector<float> &times)
    {
        std::vector<chTestKey> keys;
        for (float t : times)
            keys.push_back({t, 0});
        chTestChannelBuilder::build(*ch, keys);
    }
    CH_Manager mgr;
    CH_Collection root{&mgr};
    CH_Collection obj{&mgr, &root, "obj"};
    CH_Channel *ch = nullptr;
};

// Keys placed on and around frame times, at 24 and 30 fps. The channel
// starts at the first key (frame 3), so local and global times differ.
TEST_F(CHChannelKeys, KeyFramesAtFrameBoundaries)
{
    for (float fps : {24.0f, 30.0f})
    {
        SCOPED_TRACE(fps);
        mgr.setSamplesPerSec(fps);
        const float tol = mgr.getTolerance();
        ASSERT_EQ(tol, 1.0f / (fps * 100.0f));
        auto at = [fps](int frame) { return (frame - 1) / fps; };
        struct
        {
            float time;
            int frame;
        } keys[] = {
            {at(3), 3},             // exactly on a frame
            {at(7) - tol / 2, 7},   // just short of a frame: pulled onto it
            {at(10) + tol / 2, 10}, // just past one
            {at(14) - 2 * tol, 13}, // short by more than the tolerance
            {at(20), 20},
        };
        std::vector<float> times;
        std::vector<int> frames;
        for (const auto &k : keys)
            times.push_back(k.time), frames.push_back(k.frame);
        build(times);
        ASSERT_EQ(ch->getStart(), at(3));

        UT_IntArray got{99};
        ch->getKeyFrames(got, -100, 100);
        EXPECT_EQ(toVector(got), frames);
        for (int f = -1; f <= 23; ++f)
        {
            SCOPED_TRACE(f);
            bool is_key = std::find(frames.begin(), frames.end(), f) != frames.end();
            EXPECT_EQ(ch->isAtHardKeyframe(f), is_key);
            // The nearest key frame beyond f, by a scan of the list.
            int later = f, earlier = f;
            for (int k : frames)
                if (k > f && later == f)
                    later = k;
            for (int k : frames)
                if (k < f)
                    earlier = k;
            EXPECT_EQ(ch->findKeyframe(f, 1), later);
            EXPECT_EQ(ch->findKeyframe(f, 7), later);
            EXPECT_EQ(ch->findKeyframe(f, -1), earlier);
            EXPECT_EQ(ch->findKeyframe(f, 0), f);
        }
        for (const auto &k : keys)
        {
            EXPECT_TRUE(ch->isAtHardKey(k.time));
            EXPECT_TRUE(ch->isAtHardKey(k.time + tol / 2));
            EXPECT_TRUE(ch->isAtHardKey(k.time - tol / 2));
            EXPECT_FALSE(ch->isAtHardKey(k.time + 2 * tol));
            EXPECT_FALSE(ch->isAtHardKey(k.time - 2 * tol));
        }
    }
}

TEST_F(CHChannelKeys, WithoutKeysEveryFrameAnswersItself)
{
    UT_IntArray frames{1, 2};
    ch->getKeyFrames(frames, -100, 100);
    EXPECT_TRUE(frames.isEmpty());
    EXPECT_FALSE(ch->isAtHardKey(0));
    EXPECT_FALSE(ch->isAtHardKeyframe(1));
    EXPECT_EQ(ch->findKeyframe(5, 1), 5);
    EXPECT_EQ(ch->findKeyframe(5, -1), 5);
    mgr.setSamplesPerSec(24);
    // One key: both directions find it from either side.
    build({0.5f});
    EXPECT_TRUE(ch->isAtHardKey(0.5f));
    EXPECT_EQ(ch->findKeyframe(1, 1), 13);
    EXPECT_EQ(ch->findKeyframe(20, -1), 13);
    EXPECT_EQ(ch->findKeyframe(13, 1), 13);
}

// A value typed in at a time is not a key there.
TEST_F(CHChannelKeys, APendingValueIsNoKey)
{
    build({0, 1});
    chTestChannelBuilder::setPending(*ch, true, 0.5f);
    EXPECT_TRUE(ch->isPending(0.5f));
    EXPECT_FALSE(ch->isAtHardKey(0.5f));
    EXPECT_FALSE(ch->isAtHardKeyframe(13));
    chTestChannelBuilder::setPending(*ch, false, 0.5f);
}

// Every key, the last included, is found from within the tolerance on
// either side, with the segments that end and start there.
TEST_F(CHChannelKeys, SurroundingSegmentsAtEachKey)
{
    build({2, 12, 22});
    const float tol = mgr.getTolerance();
    CH_Segment *s0 = ch->getSegment(0u), *s1 = ch->getSegment(1u), *end = ch->getEndSegment();
    struct
    {
        float local;
        CH_Segment *left, *right;
    } cases[] = {
        {0, nullptr, s0},   {-tol / 2, nullptr, s0}, {tol / 2, nullptr, s0},
        {10, s0, s1},       {10 - tol / 2, s0, s1},  {10 + tol / 2, s0, s1},
        {20, s1, end},      {20 - tol / 2, s1, end}, {20 + tol / 2, s1, end},
    };
    for (const auto &c : cases)
    {
        SCOPED_TRACE(c.local);
        CH_Segment *left = nullptr, *right = nullptr;
        EXPECT_TRUE(ch->getSurroundingSegs(c.local, left, right));
        EXPECT_EQ(left, c.left);
        EXPECT_EQ(right, c.right);
        EXPECT_EQ(ch->getSegmentAfterKey(c.local), c.right);
        EXPECT_TRUE(ch->isAtHardKey(c.local + 2));
    }
    for (float local : {5.0f, 20 - 2 * tol, 10 + 2 * tol, -2 * tol})
    {
        CH_Segment *left = nullptr, *right = nullptr;
        EXPECT_FALSE(ch->getSurroundingSegs(local, left, right));
        EXPECT_EQ(left, ch->getSegment(local));
        EXPECT_EQ(right, ch->getSegment(local));
        EXPECT_EQ(ch->getSegmentAfterKey(local), nullptr);
        EXPECT_FALSE(ch->isAtHardKey(local + 2));
    }
}

// The interval is closed at its start and open at its end; keys sharing a
// frame give it once.
TEST_F(CHChannelKeys, KeyFramesOverAnInterval)
{
    mgr.setSamplesPerSec(24);
    const float f5 = 4 / 24.0f, f9 = 8 / 24.0f, f13 = 12 / 24.0f, f16 = 15 / 24.0f;
    build({0, f5, f9, f13, f16, f16 + 0.01f, 1.0f});
    struct
    {
        float start, end;
        std::vector<int> frames;
    } cases[] = {
        {f5, f13, {5, 9}},
        {f5, f13 + 1e-6f, {5, 9, 13}},
        {f5 + 1e-6f, f13, {9}},
        {f16, 1.0f, {16}},
        {0, 2, {1, 5, 9, 13, 16, 25}},
        {-1, 0, {}},
        {f9, f9, {}},
        {2, 3, {}},
    };
    for (const auto &c : cases)
    {
        SCOPED_TRACE(c.start);
        UT_IntArray frames{7};
        ch->getKeyFrames(frames, c.start, c.end);
        EXPECT_EQ(toVector(frames), c.frames);
    }
}

// Against a plain scan over every key of an irregular channel of many keys
// (several within one frame).
TEST_F(CHChannelKeys, SearchesAgreeWithAScan)
{
    mgr.setSamplesPerSec(30);
    std::vector<float> times;
    std::uint32_t seed = 12345;
    float t = 1.3f;
    for (int i = 0; i < 300; ++i)
    {
        seed = seed * 1664525u + 1013904223u;
        t += 0.004f + static_cast<float>(seed >> 8) / 16777216.0f * 0.2f;
        times.push_back(t);
    }
    build(times);
    std::vector<float> global;
    std::vector<int> frames;
    for (int i = 0; i < ch->getNKeys(); ++i)
    {
        global.push_back(ch->getSegment(static_cast<unsigned>(i))->getStart() + ch->getStart());
        frames.push_back(mgr.getFrame(global.back()));
    }
    ASSERT_EQ(frames.size(), times.size());
    for (int f = frames.front() - 2; f <= frames.back() + 2; ++f)
    {
        int later = f, earlier = f;
        bool is_key = false;
        for (int k : frames)
        {
            is_key |= k == f;
            if (k > f && later == f)
                later = k;
            if (k < f)
                earlier = k;
        }
        ASSERT_EQ(ch->isAtHardKeyframe(f), is_key) << f;
        ASSERT_EQ(ch->findKeyframe(f, 1), later) << f;
        ASSERT_EQ(ch->findKeyframe(f, -1), earlier) << f;
    }
    for (std::size_t i = 0; i + 40 < global.size(); i += 37)
    {
        float from = global[i], to = global[i + 40];
        std::vector<int> want;
        for (std::size_t k = 0; k < global.size(); ++k)
            if (global[k] >= from && global[k] < to && (want.empty() || want.back() != frames[k]))
                want.push_back(frames[k]);
        UT_IntArray got;
        ch->getKeyFrames(got, from, to);
        ASSERT_EQ(toVector(got), want) << i;
    }
}

// Paths are channel names; every channel of an exposed collection is live.
class chKeyManager : public CH_Manager
{
public:
    CH_Channel *getChRefChannel(const CH_ChannelRef &ref) const override
    {
        auto it = channels.find(ref.getName());
        return it == channels.end() ? nullptr : it->second;
    }
    bool isOwnerExposed(const CH_ChannelRef &) const override { return true; }
    bool buildChanRef(CH_ChannelRef &ref, const char *path) const override
    {
        ref.setChannelRef(1, path, false);
        return true;
    }
    bool buildChanRef(CH_ChannelRef &ref, const CH_Channel *channel) const override
    {
        ref.setChannelRef(1, channel->getName(), false);
        return true;
    }
    std::map<std::string, CH_Channel *> channels;
};

TEST(CHManagerKeyFrames, ScopedChannelsKeyFramesMerged)
{
    chKeyManager mgr;
    mgr.setContext();
    mgr.setSamplesPerSec(24);
    CH_Collection root{&mgr};
    CH_Collection obj{&mgr, &root, "obj"};
    obj.setExpose(true);
    auto frame = [](int f) { return chTestKey{(f - 1) / 24.0f, 0}; };
    CH_Channel *tx = obj.addChannel("tx"), *ty = obj.addChannel("ty"), *tz = obj.addChannel("tz");
    chTestChannelBuilder::build(*tx, {frame(1), frame(5), frame(10), frame(20)});
    chTestChannelBuilder::build(*ty, {frame(5), frame(8), frame(10), frame(11)});
    chTestChannelBuilder::build(*tz, {frame(7)}); // never scoped
    for (CH_Channel *c : {tx, ty, tz})
        mgr.channels[c->getName()] = c;
    tx->setScope(true);
    ty->setScope(true);
    ASSERT_TRUE(tx->isScoped() && ty->isScoped() && !tz->isScoped());

    struct
    {
        int start, end;
        std::vector<int> frames;
    } cases[] = {
        {5, 10, {5, 8, 10}}, // both ends' frames in, frame 11 (time 10/24) out
        {1, 30, {1, 5, 8, 10, 11, 20}},
        {6, 7, {}},
        {11, 11, {11}},
        {21, 40, {}},
    };
    for (const auto &c : cases)
    {
        SCOPED_TRACE(c.start);
        UT_IntArray frames{3, 4};
        mgr.getScopedChannelsKeyFrames(frames, c.start, c.end);
        EXPECT_EQ(toVector(frames), c.frames);
    }
    // Only channels of exposed collections count.
    obj.setExpose(false);
    UT_IntArray frames;
    mgr.getScopedChannelsKeyFrames(frames, 1, 30);
    EXPECT_TRUE(frames.isEmpty());
}

TEST(UTIntArray, MergeKeepsTheOrderAndOptionallyDuplicates)
{
    struct
    {
        std::vector<int> a, b;
        bool ascending, keep;
        std::vector<int> want;
    } cases[] = {
        {{1, 4, 9}, {2, 4, 10}, true, false, {1, 2, 4, 9, 10}},
        {{1, 4, 9}, {2, 4, 10}, true, true, {1, 2, 4, 4, 9, 10}},
        {{9, 4, 1}, {10, 4}, false, false, {10, 9, 4, 1}},
        {{}, {3, 5}, true, false, {3, 5}},
        {{3, 5}, {}, true, false, {3, 5}},
    };
    for (const auto &c : cases)
    {
        UT_IntArray a{std::vector<int>(c.a)}, b{std::vector<int>(c.b)};
        a.merge(b, c.ascending, c.keep);
        EXPECT_EQ(toVector(a), c.want);
    }
}

} // namespace
