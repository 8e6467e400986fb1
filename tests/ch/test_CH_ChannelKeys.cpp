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

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace {

std::vector<int> toVector(const UT_IntArray &a) { return std::vector<int>(a.begin(), a.end()); }

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
    /// Every frame query against a scan of the expected key frames.
    void checkFrames(const std::vector<int> &frames, int from, int to)
    {
        for (int f = from; f <= to; ++f)
        {
            int later = f, earlier = f;
            bool is_key = false;
            for (int k : frames)
            {
                is_key |= k == f;
                later = k > f && later == f ? k : later;
                earlier = k < f ? k : earlier;
            }
            ASSERT_EQ(ch->isAtHardKeyframe(f), is_key) << f;
            ASSERT_EQ(ch->findKeyframe(f, 1), later) << f;
            ASSERT_EQ(ch->findKeyframe(f, 7), later) << f;
            ASSERT_EQ(ch->findKeyframe(f, -1), earlier) << f;
            ASSERT_EQ(ch->findKeyframe(f, 0), f) << f;
        }
    }
    CH_Manager mgr;
    CH_Collection root{&mgr};
    CH_Collection obj{&mgr, &root, "obj"};
    CH_Channel *ch = nullptr;
};

// Keys on and around frame times at 24 and 30 fps. The channel starts at
// its first key (frame 3), so local and global times differ.
TEST_F(CHChannelKeys, KeyFramesAtFrameBoundaries)
{
    for (float fps : {24.0f, 30.0f})
    {
        SCOPED_TRACE(fps);
        mgr.setSamplesPerSec(fps);
        const float tol = mgr.getTolerance();
        ASSERT_EQ(tol, 1.0f / (fps * 100.0f));
        auto at = [fps](int frame) { return (frame - 1) / fps; };
        // On a frame; short of one and past one within the tolerance;
        // short of one by more (the frame before).
        std::vector<float> times = {at(3), at(7) - tol / 2, at(10) + tol / 2, at(14) - 2 * tol, at(20)};
        std::vector<int> frames = {3, 7, 10, 13, 20};
        build(times);
        ASSERT_EQ(ch->getStart(), at(3));
        UT_IntArray got{99};
        ch->getKeyFrames(got, -100, 100);
        EXPECT_EQ(toVector(got), frames);
        checkFrames(frames, -1, 23);
        for (float t : times)
        {
            EXPECT_TRUE(ch->isAtHardKey(t) && ch->isAtHardKey(t + tol / 2) && ch->isAtHardKey(t - tol / 2));
            EXPECT_FALSE(ch->isAtHardKey(t + 2 * tol) || ch->isAtHardKey(t - 2 * tol));
        }
    }
    // No keys: nothing is a key, every frame answers itself.
    ch->clear();
    UT_IntArray got{1};
    ch->getKeyFrames(got, -100, 100);
    EXPECT_TRUE(got.isEmpty());
    EXPECT_FALSE(ch->isAtHardKey(0));
    checkFrames({}, -1, 3);
}

// Every key, the last included, is found from within the tolerance on
// either side, with the segments that end and start there; a pending value
// is no key.
TEST_F(CHChannelKeys, SurroundingSegmentsAtEachKey)
{
    build({2, 12, 22});
    const float tol = mgr.getTolerance();
    CH_Segment *s0 = ch->getSegment(0u), *s1 = ch->getSegment(1u), *end = ch->getEndSegment();
    struct
    {
        float key;
        CH_Segment *left, *right;
    } keys[] = {{0, nullptr, s0}, {10, s0, s1}, {20, s1, end}};
    for (const auto &k : keys)
        for (float t : {k.key, k.key - tol / 2, k.key + tol / 2})
        {
            SCOPED_TRACE(t);
            CH_Segment *left = nullptr, *right = nullptr;
            EXPECT_TRUE(ch->getSurroundingSegs(t, left, right));
            EXPECT_EQ(left, k.left);
            EXPECT_EQ(right, k.right);
            EXPECT_EQ(ch->getSegmentAfterKey(t), k.right);
            EXPECT_TRUE(ch->isAtHardKey(t + 2));
        }
    for (float t : {5.0f, 20 - 2 * tol, 10 + 2 * tol, -2 * tol})
    {
        CH_Segment *left = nullptr, *right = nullptr;
        EXPECT_FALSE(ch->getSurroundingSegs(t, left, right));
        EXPECT_EQ(left, ch->getSegment(t));
        EXPECT_EQ(right, left);
        EXPECT_EQ(ch->getSegmentAfterKey(t), nullptr);
        EXPECT_FALSE(ch->isAtHardKey(t + 2));
    }
    chTestChannelBuilder::setPending(*ch, true, 5);
    EXPECT_TRUE(ch->isPending(7));
    EXPECT_FALSE(ch->isAtHardKey(7));
    chTestChannelBuilder::setPending(*ch, false, 5);
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
        {f5, f13, {5, 9}},      {f5, f13 + 1e-6f, {5, 9, 13}}, {f5 + 1e-6f, f13, {9}},
        {f16, 1.0f, {16}},      {0, 2, {1, 5, 9, 13, 16, 25}}, {-1, 0, {}},
        {f9, f9, {}},           {2, 3, {}},
    };
    for (const auto &c : cases)
    {
        UT_IntArray frames{7};
        ch->getKeyFrames(frames, c.start, c.end);
        EXPECT_EQ(toVector(frames), c.frames) << c.start << " " << c.end;
    }
}

// Against a plain scan over the keys of an irregular channel of 300 keys,
// several within one frame.
TEST_F(CHChannelKeys, SearchesAgreeWithAScan)
{
    mgr.setSamplesPerSec(30);
    std::vector<float> times;
    std::uint32_t seed = 12345;
    for (float t = 1.3f; times.size() < 300; times.push_back(t))
    {
        seed = seed * 1664525u + 1013904223u;
        t += 0.004f + static_cast<float>(seed >> 8) / 16777216.0f * 0.2f;
    }
    build(times);
    std::vector<float> global;
    std::vector<int> frames, unique;
    for (int i = 0; i < ch->getNKeys(); ++i)
    {
        global.push_back(ch->getSegment(static_cast<unsigned>(i))->getStart() + ch->getStart());
        frames.push_back(mgr.getFrame(global.back()));
    }
    checkFrames(frames, frames.front() - 2, frames.back() + 2);
    for (std::size_t i = 0; i + 40 < global.size(); i += 37)
    {
        std::vector<int> want;
        for (std::size_t k = 0; k < global.size(); ++k)
            if (global[k] >= global[i] && global[k] < global[i + 40] && (want.empty() || want.back() != frames[k]))
                want.push_back(frames[k]);
        UT_IntArray got;
        ch->getKeyFrames(got, global[i], global[i + 40]);
        ASSERT_EQ(toVector(got), want) << i;
    }
}

// References are channel names; every channel is live.
class chKeyManager : public CH_Manager
{
public:
    CH_Channel *getChRefChannel(const CH_ChannelRef &ref) const override
    {
        auto it = channels.find(ref.getName());
        return it == channels.end() ? nullptr : it->second;
    }
    bool isOwnerExposed(const CH_ChannelRef &) const override { return true; }
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
    };
    for (const auto &c : cases)
    {
        UT_IntArray frames{3, 4};
        mgr.getScopedChannelsKeyFrames(frames, c.start, c.end);
        EXPECT_EQ(toVector(frames), c.frames) << c.start;
    }
    obj.setExpose(false); // only channels of exposed collections count
    UT_IntArray frames;
    mgr.getScopedChannelsKeyFrames(frames, 1, 30);
    EXPECT_TRUE(frames.isEmpty());
}

TEST(UTIntArray, MergeKeepsTheOrderAndOptionallyDuplicates)
{
    UT_IntArray up{1, 4, 9}, down{9, 4, 1}, dups{1, 4, 9};
    up.merge(UT_IntArray{2, 4, 10}, true, false);
    down.merge(UT_IntArray{10, 4}, false, false);
    dups.merge(UT_IntArray{4}, true, true);
    EXPECT_EQ(toVector(up), (std::vector<int>{1, 2, 4, 9, 10}));
    EXPECT_EQ(toVector(down), (std::vector<int>{10, 9, 4, 1}));
    EXPECT_EQ(toVector(dups), (std::vector<int>{1, 4, 4, 9}));
}

} // namespace
