// Event delivery, batching, and the sample cache.
#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_EventManager.h>
#include <ch/manager/CH_Manager.h>

#include <support/chTestChannelBuilder.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace {

class chRecorder : public CH_Collection
{
public:
    using CH_Collection::CH_Collection;
    void setChanged(CH_CHANGE_TYPE type, void *data) override { events.emplace_back(type, data); }
    std::vector<std::pair<int, void *>> events;
};

class CHEvents : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mgr.setContext();
        mgr.setRootCollection(&root);
        a = obj.addChannel("a");
        b = obj.addChannel("b");
        obj.events.clear();
    }
    CH_Manager mgr;
    chRecorder root{&mgr};
    chRecorder obj{&mgr, &root, "obj"};
    CH_Channel *a = nullptr, *b = nullptr;
};

TEST_F(CHEvents, BatchesCoalesceChannelChanges)
{
    {
        CH_AutoEventHandler batch;
        for (int i = 0; i < 10; ++i)
            CHevent(CH_CHANNEL_CHANGED, a);
        for (int i = 0; i < 3; ++i)
            CHevent(CH_CHANNEL_CHANGED, b);
        CHevent(CH_CHANNEL_CHANGED, nullptr); // ignored
        CHevent(CH_GROUP_CREATED, nullptr);   // group events go out at once
        EXPECT_EQ(root.events.size(), 1u);
        {
            CH_AutoEventHandler nested; // only counts
        }
        EXPECT_TRUE(obj.events.empty());
        CHevent(CH_SCOPE_CHANGED, &obj);
        CHevent(CH_SCOPE_CHANGED, &root);
    }
    // The last scope change first, then one event per changed channel.
    ASSERT_EQ(obj.events.size(), 2u);
    ASSERT_EQ(root.events.size(), 2u);
    EXPECT_EQ(root.events[1], std::make_pair(int(CH_SCOPE_CHANGED), (void *)nullptr));
    for (const auto &e : obj.events)
        EXPECT_EQ(e.first, CH_CHANNEL_CHANGED);
    EXPECT_NE(obj.events[0].second, obj.events[1].second);
}

TEST_F(CHEvents, DeletionInsideABatchCancelsHeldChanges)
{
    {
        CH_AutoEventHandler batch;
        CHevent(CH_CHANNEL_CHANGED, a);
        CHevent(CH_CHANNELS_DELETED, a);
        EXPECT_EQ(obj.events, (std::vector<std::pair<int, void *>>{{CH_CHANNELS_DELETED, a}}));
    }
    EXPECT_EQ(obj.events.size(), 1u);

    // Without a factory nothing is batched.
    CHgetEventManager()->beginHandlingEvents(nullptr);
    CHevent(CH_CHANNEL_CHANGED, b);
    EXPECT_EQ(obj.events.size(), 2u);
    CHgetEventManager()->endHandlingEvents();
    EXPECT_EQ(CHgetEventManager()->getNestingDepth(), 0);
    CHgetEventManager()->endHandlingEvents(); // unpaired: harmless
    CHevent(CH_CHANNEL_CHANGED, b);
    EXPECT_EQ(obj.events.size(), 3u);
}

TEST_F(CHEvents, SampleCacheInterpolatesBetweenSamples)
{
    chTestChannelBuilder::build(*a, {{0, 0, 0, 0, "$LT * $LT"}, {1, 1, 0, 0, "$IV"}});
    mgr.setSegCacheStatus(true);
    a->setCacheEnable(true);
    // Half way between samples 1 and 2 (times 0 and 1/24): the mean of
    // 0 and (1/24)^2, not (0.5/24)^2.
    EXPECT_FLOAT_EQ(obj.evaluate(a, 0.5f / 24, false, 0), 1.0f / 1152);
    CH_Segment *s = a->getSegment(0u);
    EXPECT_GE(s->getCacheSize(), 25); // the whole segment, samples 1 to 25
    EXPECT_FLOAT_EQ(obj.evaluate(a, 0.5f, false, 0), 0.25f); // on a sample
    s->setModified(1);
    EXPECT_EQ(s->getCacheSize(), 0);
    obj.evaluate(a, 0.5f, false, 0);
    *s = CH_Segment(7.0f, a, 1.0f); // assignment drops the old samples
    EXPECT_EQ(s->getCacheSize(), 0);

    // Non-finite and far-away times bypass the cache.
    // NaN fails every comparison and so lands on the right behaviour.
    EXPECT_EQ(obj.evaluate(a, std::numeric_limits<float>::quiet_NaN(), false, 0), 1.0f);
    obj.evaluate(a, -1e30f, false, 0);
    a->setLeftBehavior(CH_CHANNEL_EXTEND);
    obj.evaluate(a, -1e6f, false, 0);
    EXPECT_LT(s->getCacheSize(), 1000);

    // Sample numbers in single precision: a segment starting at 10/24 s
    // starts at sample floor(10/24 · 24 + 1) = 11 (0.41666666f · 24 rounds to
    // 10), so caching it to its end at sample 25 takes 25 - 11 + 1 values.
    chTestChannelBuilder::build(*a, {{0, 0}, {10.0f / 24, 1, 0, 0, "$LT"}, {1, 2}});
    a->setCacheEnable(true);
    obj.evaluate(a, 0.7f, false, 0);
    EXPECT_EQ(a->getSegment(1u)->getCacheSize(), 16);
    mgr.setSegCacheStatus(false);
}

} // namespace
