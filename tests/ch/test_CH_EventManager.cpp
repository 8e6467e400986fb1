// Event delivery, batching, and the sample cache.
#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_EventManager.h>
#include <ch/manager/CH_Manager.h>

#include <support/chTestChannelBuilder.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using chEvents = std::vector<std::pair<int, void *>>;

class chRecorder : public CH_Collection
{
public:
    using CH_Collection::CH_Collection;
    void setChanged(CH_CHANGE_TYPE type, void *data) override
    {
        events.emplace_back(type, data);
        if (onChange)
            onChange(type, data);
    }
    chEvents events;
    std::function<void(CH_CHANGE_TYPE, void *)> onChange; // runs after recording
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

TEST_F(CHEvents, OneBatchDeliversEachChannelAndKindOnceInOrder)
{
    chRecorder other{&mgr, &root, "other"};
    std::vector<CH_Channel *> channels;
    for (int i = 0; i < 100; ++i)
        channels.push_back((i % 3 ? obj : other).addChannel(("c" + std::to_string(i)).c_str()));
    obj.events.clear();
    other.events.clear();

    const CH_CHANGE_TYPE kinds[] = {CH_PERMISSION_CHANGED, CH_CHANNEL_CHANGED,
                                    CH_CHANNELS_MAJOR_CHANGE, CH_CHANNEL_UICHANGED,
                                    CH_CHANNELS_MOVED};
    std::set<std::pair<int, void *>> expect_obj, expect_other;
    {
        CH_AutoEventHandler batch;
        CHevent(CH_SCOPE_CHANGED, &other);
        for (int i = 0; i < 10000; ++i)
        {
            CH_Channel *c = channels[(i * 37) % 100];
            CH_CHANGE_TYPE kind = kinds[(i / 7) % 5];
            CHevent(kind, c);
            (c->getCollection() == &obj ? expect_obj : expect_other).insert({kind, c});
        }
        CHevent(CH_SCOPE_CHANGED, &obj); // the last one wins
        CHevent(CH_CHANNEL_CHANGED, nullptr); // ignored
        CHevent(CH_GROUP_CREATED, nullptr);   // group events go out at once
        EXPECT_EQ(root.events, (chEvents{{CH_GROUP_CREATED, nullptr}}));
        EXPECT_TRUE(obj.events.empty());
        EXPECT_TRUE(other.events.empty());
    }
    EXPECT_EQ(root.events.size(), 1u);
    // The scope change first, then the kinds in ascending order; each
    // (channel, kind) exactly once.
    ASSERT_FALSE(obj.events.empty());
    EXPECT_EQ(obj.events[0], std::make_pair(int(CH_SCOPE_CHANGED), (void *)nullptr));
    chEvents rest(obj.events.begin() + 1, obj.events.end());
    auto by_kind = [](const auto &x, const auto &y) { return x.first < y.first; };
    EXPECT_TRUE(std::is_sorted(rest.begin(), rest.end(), by_kind));
    EXPECT_TRUE(std::is_sorted(other.events.begin(), other.events.end(), by_kind));
    std::sort(rest.begin(), rest.end());
    EXPECT_EQ(rest, chEvents(expect_obj.begin(), expect_obj.end()));
    chEvents got_other = other.events;
    std::sort(got_other.begin(), got_other.end());
    EXPECT_EQ(got_other, chEvents(expect_other.begin(), expect_other.end()));
}

TEST_F(CHEvents, NestedBatchesFlushAtTheOutermostEnd)
{
    const struct
    {
        int depth;
        CH_EventHandlerFactory inner;
    } cases[] = {{1, CH_EventHandlerHash::newHandler}, {3, CH_EventHandlerHash::newHandler},
                 {2, nullptr}, {2, CH_EventHandler::newHandler}};
    for (const auto &c : cases)
    {
        SCOPED_TRACE(c.depth);
        obj.events.clear();
        CH_EventManager *em = CHgetEventManager();
        em->beginHandlingEvents(CH_EventHandlerHash::newHandler);
        for (int d = 0; d < c.depth; ++d)
            em->beginHandlingEvents(c.inner);
        CHevent(CH_CHANNEL_CHANGED, a);
        for (int d = 0; d < c.depth; ++d)
        {
            CHevent(CH_CHANNEL_CHANGED, b);
            em->endHandlingEvents();
        }
        EXPECT_TRUE(obj.events.empty());
        em->endHandlingEvents();
        chEvents got = obj.events;
        std::sort(got.begin(), got.end());
        chEvents want{{CH_CHANNEL_CHANGED, a}, {CH_CHANNEL_CHANGED, b}};
        std::sort(want.begin(), want.end());
        EXPECT_EQ(got, want);
        EXPECT_EQ(em->getNestingDepth(), 0);
    }
}

TEST_F(CHEvents, AddedAndDeletedChannelsInsideABatch)
{
    const CH_CHANGE_TYPE held[] = {CH_CHANNELS_MAJOR_CHANGE, CH_CHANNEL_CHANGED,
                                   CH_CHANNEL_UICHANGED,     CH_PARM_ENABLE_CHANGED,
                                   CH_CHANNELS_MOVED,        CH_PERMISSION_CHANGED};
    // The deletion is announced while the channel is still listed.
    int still_listed = 0;
    obj.onChange = [&](CH_CHANGE_TYPE type, void *data) {
        if (type == CH_CHANNELS_DELETED)
            still_listed += obj.getChannel("c") == data;
    };
    {
        CH_AutoEventHandler batch;
        CH_Channel *c = obj.addChannel("c");
        EXPECT_EQ(obj.events, (chEvents{{CH_CHANNELS_ADDED, c}})); // at once
        for (CH_CHANGE_TYPE kind : held)
        {
            CHevent(kind, c);
            CHevent(kind, b);
        }
        obj.deleteChannel(c);
        EXPECT_EQ(obj.events, (chEvents{{CH_CHANNELS_ADDED, c}, {CH_CHANNELS_DELETED, c}}));
        EXPECT_EQ(still_listed, 1);
        obj.events.clear();
    }
    obj.onChange = nullptr;
    // Only the surviving channel is reported, once per kind.
    chEvents want;
    for (CH_CHANGE_TYPE kind : held)
        want.emplace_back(kind, b);
    EXPECT_EQ(obj.events, want);
}

TEST_F(CHEvents, DestroyedCollectionIsNeverReachedByTheFlush)
{
    // Destroyed inside the batch, or by another collection's setChanged
    // while the batch is being delivered.
    for (bool during_flush : {false, true})
    {
        SCOPED_TRACE(during_flush);
        obj.events.clear();
        auto *doomed = new chRecorder(&mgr, &root, "doomed");
        CH_Channel *d1 = doomed->addChannel("d1");
        CH_Channel *d2 = doomed->addChannel("d2");
        {
            CH_AutoEventHandler batch;
            CHevent(CH_CHANNEL_CHANGED, d1);
            CHevent(CH_CHANNELS_MOVED, d2);
            CHevent(CH_CHANNELS_MAJOR_CHANGE, a);
            if (during_flush)
            {
                // obj's scope change goes out first.
                CHevent(CH_SCOPE_CHANGED, &obj);
                obj.onChange = [&](CH_CHANGE_TYPE type, void *) {
                    if (type == CH_SCOPE_CHANGED)
                        delete doomed;
                };
            }
            else
            {
                CHevent(CH_SCOPE_CHANGED, doomed);
                delete doomed;
            }
        }
        obj.onChange = nullptr;
        chEvents want{{CH_CHANNELS_MAJOR_CHANGE, a}};
        if (during_flush)
            want.insert(want.begin(), {CH_SCOPE_CHANGED, nullptr});
        EXPECT_EQ(obj.events, want);
    }
}

TEST_F(CHEvents, ForgettingCollectionsKeepsTheOthersHeldEvents)
{
    // Twelve collections' channels interleaved; each round edits more of
    // them (so the held table grows between the destructions) and then
    // destroys one collection. The survivors get exactly theirs.
    constexpr int n = 12;
    std::vector<chRecorder *> owners{&obj};
    for (int k = 1; k < n; ++k)
        owners.push_back(new chRecorder(&mgr, &root, ("o" + std::to_string(k)).c_str()));
    std::vector<CH_Channel *> channels;
    for (int i = 0; i < 40 * n; ++i)
        channels.push_back(owners[i % n]->addChannel(("c" + std::to_string(i)).c_str()));
    for (chRecorder *o : owners)
        o->events.clear();
    const CH_CHANGE_TYPE kinds[] = {CH_CHANNEL_CHANGED, CH_CHANNELS_MOVED, CH_CHANNEL_UICHANGED};
    std::vector<std::set<std::pair<int, void *>>> expect(n);
    std::vector<bool> alive(n, true);
    {
        CH_AutoEventHandler batch;
        for (int round = 0; round < n / 2; ++round)
        {
            for (int i = 0; i < 80 * (round + 1); ++i)
                if (alive[i % n])
                {
                    CHevent(kinds[round % 3], channels[i]);
                    expect[i % n].insert({kinds[round % 3], channels[i]});
                }
            delete owners[2 * round + 1];
            alive[2 * round + 1] = false;
        }
    }
    for (int k = 0; k < n; k += 2)
    {
        chEvents got = owners[k]->events;
        std::sort(got.begin(), got.end());
        EXPECT_EQ(got, chEvents(expect[k].begin(), expect[k].end())) << k;
        if (k)
            delete owners[k];
    }
}

TEST_F(CHEvents, AChannelMovedToAnotherCollectionIsHeldForThatOne)
{
    // The pointer 'moved' passes from 'from' to 'to' by a swap: its held
    // events go to 'to', and go with whichever collection is destroyed.
    enum { NONE, FROM, TO };
    for (int destroyed : {NONE, FROM, TO})
    {
        SCOPED_TRACE(destroyed);
        auto *from = new chRecorder(&mgr, &root, "from");
        auto *to = new chRecorder(&mgr, &root, "to");
        CH_Channel *c = from->addChannel("c");
        CH_Channel *moved = from->addChannel("moved");
        CH_Channel *y = to->addChannel("y");
        from->events.clear();
        to->events.clear();
        {
            CH_AutoEventHandler batch;
            CHevent(CH_CHANNEL_CHANGED, c);
            CHevent(CH_CHANNELS_MOVED, moved);
            moved->swap(*y);
            ASSERT_EQ(moved->getCollection(), to);
            CHevent(CH_CHANNEL_CHANGED, moved);
            if (destroyed == FROM)
                delete from;
            if (destroyed == TO)
                delete to;
        }
        if (destroyed != FROM)
        {
            EXPECT_EQ(from->events, (chEvents{{CH_CHANNEL_CHANGED, c}}));
            delete from;
        }
        if (destroyed != TO)
        {
            EXPECT_EQ(to->events,
                      (chEvents{{CH_CHANNEL_CHANGED, moved}, {CH_CHANNELS_MOVED, moved}}));
            delete to;
        }
    }
}

TEST_F(CHEvents, EventsRaisedDuringTheFlushGoOutAtOnce)
{
    // Reacting to a later kind with an earlier one: a held event would be
    // lost, the kind having been delivered already. A channel deleted
    // meanwhile loses its pending kinds.
    CH_Channel *c = obj.addChannel("c");
    obj.events.clear();
    obj.onChange = [&](CH_CHANGE_TYPE type, void *data) {
        if (type == CH_CHANNEL_UICHANGED && data == a)
        {
            CHevent(CH_CHANNEL_CHANGED, b);
            obj.deleteChannel(c);
        }
        if (type == CH_PERMISSION_CHANGED && data == a)
        {
            CH_AutoEventHandler inner; // a batch of its own, delivered at its end
            CHevent(CH_CHANNELS_MAJOR_CHANGE, b);
            CHevent(CH_CHANNELS_MAJOR_CHANGE, b);
        }
    };
    {
        CH_AutoEventHandler batch;
        CHevent(CH_CHANNEL_UICHANGED, a);
        CHevent(CH_PERMISSION_CHANGED, a);
        CHevent(CH_CHANNELS_MOVED, c);
    }
    obj.onChange = nullptr;
    EXPECT_EQ(obj.events, (chEvents{{CH_CHANNEL_UICHANGED, a},
                                    {CH_CHANNEL_CHANGED, b},
                                    {CH_CHANNELS_DELETED, c},
                                    {CH_PERMISSION_CHANGED, a},
                                    {CH_CHANNELS_MAJOR_CHANGE, b}}));
}

TEST_F(CHEvents, UnpairedEndLeavesImmediateDelivery)
{
    CH_EventManager *em = CHgetEventManager();
    CH_EventHandler *immediate = em->getHandler();
    em->endHandlingEvents();
    em->endHandlingEvents();
    EXPECT_EQ(em->getHandler(), immediate);
    EXPECT_EQ(em->getNestingDepth(), 0);
    CHevent(CH_CHANNEL_CHANGED, a);
    EXPECT_EQ(obj.events, (chEvents{{CH_CHANNEL_CHANGED, a}}));
    {
        CH_AutoEventHandler batch;
        CHevent(CH_CHANNEL_CHANGED, b);
        EXPECT_EQ(obj.events.size(), 1u);
    }
    EXPECT_EQ(obj.events, (chEvents{{CH_CHANNEL_CHANGED, a}, {CH_CHANNEL_CHANGED, b}}));

    // Without a factory nothing is batched.
    em->beginHandlingEvents(nullptr);
    CHevent(CH_CHANNEL_CHANGED, b);
    EXPECT_EQ(obj.events.size(), 3u);
    em->endHandlingEvents();
    EXPECT_EQ(em->getNestingDepth(), 0);
    EXPECT_EQ(em->getHandler(), immediate);
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
