// Time-group entries: segments listed by channel, kept in step with the
// segments' own group pointers however either side goes away.
#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>
#include <ch/manager/CH_TimeGroup.h>

#include <support/chTestChannelBuilder.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

namespace {

class CHTimeGroup : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mgr.setContext();
        a = obj.addChannel("tx");
        b = obj.addChannel("ty");
        c = obj.addChannel("tz");
        for (CH_Channel *ch : {a, b, c})
            chTestChannelBuilder::build(*ch, {{0, 0}, {1, 1}, {2, 2}, {3, 3}});
    }
    static CH_Segment *seg(CH_Channel *ch, unsigned i) { return ch->getSegment(i); }
    /// The group's entries as listed, channel by channel.
    static std::vector<std::pair<CH_Channel *, std::vector<CH_Segment *>>> listed(const CH_TimeGroup &g)
    {
        std::vector<std::pair<CH_Channel *, std::vector<CH_Segment *>>> out;
        for (CH_Channel *ch : g.getChannels())
        {
            std::vector<CH_Segment *> segs;
            for (int i = 0; i < g.numEntries(ch); ++i)
                segs.push_back(g.getEntry(ch, i));
            out.emplace_back(ch, segs);
        }
        return out;
    }

    CH_Manager mgr;
    CH_Collection root{&mgr};
    CH_Collection obj{&mgr, &root, "obj"};
    CH_Channel *a = nullptr, *b = nullptr, *c = nullptr;
};

TEST_F(CHTimeGroup, EntriesAreSortedByPointerAndUnique)
{
    CH_TimeGroup g("walk", 0);
    // Added out of order, some twice, across three channels (end segments too).
    std::vector<CH_Segment *> added = {seg(c, 2), seg(a, 1), seg(b, 3), seg(a, 0), seg(c, 2),
                                       seg(b, 0), seg(a, 3), seg(a, 1), seg(c, 0)};
    std::map<CH_Channel *, std::set<CH_Segment *>, std::less<CH_Channel *>> expected;
    for (CH_Segment *s : added)
    {
        EXPECT_TRUE(g.addEntry(s, true));
        expected[s->getChannel()].insert(s);
    }
    std::vector<std::pair<CH_Channel *, std::vector<CH_Segment *>>> want;
    int total = 0;
    for (auto &[ch, segs] : expected)
    {
        want.emplace_back(ch, std::vector<CH_Segment *>(segs.begin(), segs.end()));
        total += static_cast<int>(segs.size());
    }
    EXPECT_EQ(listed(g), want);
    EXPECT_EQ(g.numEntries(), total);
    for (CH_Segment *s : added)
    {
        EXPECT_EQ(s->getTimeGroup(), &g);
        EXPECT_TRUE(g.findEntry(s));
    }
    EXPECT_FALSE(g.findEntry(seg(b, 1)));
    EXPECT_EQ(g.getEntry(a, 3), nullptr);  // a has three entries
    EXPECT_EQ(g.getEntry(a, -1), nullptr);
    EXPECT_EQ(g.getEntry(nullptr, 0), nullptr);
    EXPECT_EQ(g.numEntries(nullptr), 0);
}

TEST_F(CHTimeGroup, RemovingAChannelsLastSegmentDropsTheChannel)
{
    CH_TimeGroup g("walk", 0);
    for (CH_Segment *s : {seg(a, 0), seg(a, 2), seg(b, 1)})
        g.addEntry(s, true);
    g.removeEntry(seg(a, 2), true);
    EXPECT_EQ(g.numEntries(a), 1);
    EXPECT_EQ(seg(a, 2)->getTimeGroup(), nullptr);
    g.removeEntry(seg(a, 2), true); // not listed: nothing
    g.removeEntry(seg(a, 0), false);
    EXPECT_EQ(listed(g), (decltype(listed(g)){{b, {seg(b, 1)}}}));
    EXPECT_EQ(g.getEntry(a, 0), nullptr);
    EXPECT_EQ(g.numEntries(a), 0);
    // Without unlink the segment still names the group; the caller owns that.
    EXPECT_EQ(seg(a, 0)->getTimeGroup(), &g);
    g.addEntry(seg(a, 0), false);
    g.removeEntry(seg(b, 1), true);
    EXPECT_EQ(listed(g), (decltype(listed(g)){{a, {seg(a, 0)}}}));
}

TEST_F(CHTimeGroup, JoiningAnotherGroupLeavesTheFirst)
{
    CH_TimeGroup g1("walk", 0), g2("run", 0);
    g1.addEntry(seg(a, 1), true);
    g1.addEntry(seg(b, 1), true);
    g2.addEntry(seg(a, 1), true);
    EXPECT_EQ(seg(a, 1)->getTimeGroup(), &g2);
    EXPECT_EQ(listed(g1), (decltype(listed(g1)){{b, {seg(b, 1)}}}));
    EXPECT_EQ(listed(g2), (decltype(listed(g2)){{a, {seg(a, 1)}}}));
    EXPECT_FALSE(g1.findEntry(seg(a, 1)));
}

TEST_F(CHTimeGroup, TransferGroupMovesTheEntry)
{
    CH_TimeGroup g1("walk", 0), g2("run", 0);
    CH_Segment *from = seg(a, 2), *to = seg(b, 0);
    g1.addEntry(from, true);
    g2.addEntry(to, true);
    to->transferGroup(*from); // takes from's group, leaves its own
    EXPECT_EQ(to->getTimeGroup(), &g1);
    EXPECT_EQ(from->getTimeGroup(), nullptr);
    EXPECT_EQ(listed(g1), (decltype(listed(g1)){{b, {to}}}));
    EXPECT_EQ(g2.numEntries(), 0);

    // Nothing from a segment without a group, nor onto itself.
    to->transferGroup(*from);
    to->transferGroup(*to);
    EXPECT_EQ(to->getTimeGroup(), &g1);
    EXPECT_EQ(g1.numEntries(), 1);
}

TEST_F(CHTimeGroup, ASegmentWithoutChannelCannotJoin)
{
    CH_Segment loose(1.0f, nullptr, 1.0f);
    CH_TimeGroup g("walk", 0);
    EXPECT_FALSE(g.addEntry(&loose, true));
    EXPECT_FALSE(g.addEntry(nullptr, true));
    EXPECT_EQ(loose.getTimeGroup(), nullptr);
    EXPECT_TRUE(g.getChannels().isEmpty());
    // Nor can it take a group over; the other segment keeps it.
    g.addEntry(seg(a, 0), true);
    loose.transferGroup(*seg(a, 0));
    EXPECT_EQ(loose.getTimeGroup(), nullptr);
    EXPECT_EQ(seg(a, 0)->getTimeGroup(), &g);
    // A grouped segment taken off its channel leaves the group.
    seg(a, 0)->setChannel(nullptr);
    EXPECT_EQ(g.numEntries(), 0);
    seg(a, 0)->setChannel(a);
    EXPECT_EQ(seg(a, 0)->getTimeGroup(), nullptr);
}

// Whichever goes first, segment or group, nothing is left pointing at it
// (an AddressSanitizer build turns a stale pointer into a failure here).
TEST_F(CHTimeGroup, DestroyedSegmentsLeaveNoEntry)
{
    auto g = std::make_unique<CH_TimeGroup>("walk", 0);
    for (CH_Channel *ch : {a, b})
        for (unsigned i = 0; i < 4; ++i)
            g->addEntry(seg(ch, i), true);
    CH_Segment *kept = seg(a, 0);
    chTestChannelBuilder::removeSegment(*a, seg(a, 1));
    EXPECT_EQ(g->numEntries(a), 3);
    b->clear();
    EXPECT_EQ(listed(*g).size(), 1u);
    obj.deleteChannel(b);
    chTestChannelBuilder::build(*c, {{0, 0}, {5, 1}}); // unrelated: no effect
    // Moving keys to another channel moves their entries with them.
    a->swap(*c);
    EXPECT_EQ(g->numEntries(a), 0);
    EXPECT_EQ(g->numEntries(c), 3);
    std::vector<CH_Segment *> moved;
    for (int i = 0; i < 3; ++i)
        moved.push_back(g->getEntry(c, i));
    EXPECT_NE(std::find(moved.begin(), moved.end(), kept), moved.end());
    c->clear();
    EXPECT_EQ(g->numEntries(), 0);
    EXPECT_TRUE(g->getChannels().isEmpty());

    // The group first: its segments name no group afterwards.
    for (unsigned i = 0; i < 2; ++i)
        g->addEntry(seg(a, i), true);
    g.reset();
    EXPECT_EQ(seg(a, 0)->getTimeGroup(), nullptr);
    EXPECT_EQ(seg(a, 1)->getTimeGroup(), nullptr);
    a->clear();
}

TEST_F(CHTimeGroup, CopiesKeepTheirOwnGroup)
{
    CH_TimeGroup g("walk", 0);
    CH_Segment *target = seg(a, 0);
    g.addEntry(target, true);
    // A copy is in no group; assigning over a grouped segment keeps its
    // group, listed under the channel it now names.
    CH_Segment copy(*target);
    EXPECT_EQ(copy.getTimeGroup(), nullptr);
    *target = *seg(b, 2);
    EXPECT_EQ(target->getTimeGroup(), &g);
    EXPECT_EQ(listed(g), (decltype(listed(g)){{b, {target}}}));
    target->setChannel(a);
    EXPECT_EQ(listed(g), (decltype(listed(g)){{a, {target}}}));
}

TEST_F(CHTimeGroup, TheManagerDestroysGroupsWithTheirEntries)
{
    auto *g = new CH_TimeGroup("walk", 0);
    mgr.addTimeGroup(g);
    g->addEntry(seg(a, 1), true);
    g->addEntry(seg(c, 1), true);
    mgr.destroyTimeGroup(mgr.getTimeGroupIdx("walk"));
    EXPECT_EQ(seg(a, 1)->getTimeGroup(), nullptr);
    EXPECT_EQ(seg(c, 1)->getTimeGroup(), nullptr);
}

} // namespace
