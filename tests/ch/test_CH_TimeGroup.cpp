// Time-group entries: segments listed by channel, kept in step with the
// segments' own group pointers however either side goes away.
#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>
#include <ch/manager/CH_TimeGroup.h>

#include <support/chTestChannelBuilder.h>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <vector>

namespace {

using chListing = std::vector<std::pair<CH_Channel *, std::vector<CH_Segment *>>>;

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
    /// The group's entries as it lists them, channel by channel.
    static chListing listed(const CH_TimeGroup &g)
    {
        chListing out;
        for (CH_Channel *ch : g.getChannels())
        {
            out.emplace_back(ch, std::vector<CH_Segment *>());
            for (int i = 0; i < g.numEntries(ch); ++i)
                out.back().second.push_back(g.getEntry(ch, i));
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
    // Out of order, some twice, across three channels (end segments too);
    // the expected listing comes from ordered standard containers.
    std::map<CH_Channel *, std::set<CH_Segment *, std::less<>>, std::less<>> expected;
    for (CH_Segment *s : {seg(c, 2), seg(a, 1), seg(b, 3), seg(a, 0), seg(c, 2), seg(b, 0),
                          seg(a, 3), seg(a, 1), seg(c, 0)})
    {
        EXPECT_TRUE(g.addEntry(s, true));
        EXPECT_TRUE(g.findEntry(s));
        expected[s->getChannel()].insert(s);
    }
    chListing want;
    for (auto &[ch, segs] : expected)
        want.emplace_back(ch, std::vector<CH_Segment *>(segs.begin(), segs.end()));
    EXPECT_EQ(listed(g), want);
    EXPECT_EQ(g.numEntries(), 7);
    EXPECT_FALSE(g.findEntry(seg(b, 1)));
    EXPECT_EQ(g.getEntry(a, 3), nullptr); // a has three entries
    EXPECT_EQ(g.getEntry(a, -1), nullptr);
    EXPECT_EQ(g.getEntry(nullptr, 0), nullptr);
}

TEST_F(CHTimeGroup, RemovingAChannelsLastSegmentDropsTheChannel)
{
    CH_TimeGroup g("walk", 0);
    for (CH_Segment *s : {seg(a, 0), seg(a, 2), seg(b, 1)})
        g.addEntry(s, true);
    g.removeEntry(seg(a, 2), true);
    EXPECT_EQ(seg(a, 2)->getTimeGroup(), nullptr);
    g.removeEntry(seg(a, 2), true); // not listed: nothing
    g.removeEntry(seg(a, 0), false);
    EXPECT_EQ(listed(g), (chListing{{b, {seg(b, 1)}}}));
    EXPECT_EQ(g.numEntries(a), 0);
    EXPECT_EQ(seg(a, 0)->getTimeGroup(), &g); // without unlink the caller owns that
    g.addEntry(seg(a, 0), false);
    g.removeEntry(seg(b, 1), true);
    EXPECT_EQ(listed(g), (chListing{{a, {seg(a, 0)}}}));
}

TEST_F(CHTimeGroup, JoiningAndTransferringMoveTheEntry)
{
    CH_TimeGroup g1("walk", 0), g2("run", 0);
    g1.addEntry(seg(a, 1), true);
    g1.addEntry(seg(b, 1), true);
    g2.addEntry(seg(a, 1), true); // leaves g1
    EXPECT_EQ(seg(a, 1)->getTimeGroup(), &g2);
    EXPECT_EQ(listed(g1), (chListing{{b, {seg(b, 1)}}}));
    EXPECT_EQ(listed(g2), (chListing{{a, {seg(a, 1)}}}));

    CH_Segment *to = seg(c, 0);
    g2.addEntry(to, true);
    to->transferGroup(*seg(b, 1)); // takes b's group, leaves its own
    EXPECT_EQ(to->getTimeGroup(), &g1);
    EXPECT_EQ(seg(b, 1)->getTimeGroup(), nullptr);
    EXPECT_EQ(listed(g1), (chListing{{c, {to}}}));
    EXPECT_EQ(listed(g2), (chListing{{a, {seg(a, 1)}}}));
    // Nothing from a segment without a group, nor onto itself.
    to->transferGroup(*seg(b, 1));
    to->transferGroup(*to);
    EXPECT_EQ(listed(g1), (chListing{{c, {to}}}));
}

TEST_F(CHTimeGroup, ASegmentWithoutChannelCannotJoin)
{
    CH_Segment loose(1.0f, nullptr, 1.0f);
    CH_TimeGroup g("walk", 0);
    EXPECT_FALSE(g.addEntry(&loose, true));
    EXPECT_FALSE(g.addEntry(nullptr, true));
    EXPECT_EQ(loose.getTimeGroup(), nullptr);
    g.addEntry(seg(a, 0), true);
    loose.transferGroup(*seg(a, 0)); // refused: a keeps it
    EXPECT_EQ(loose.getTimeGroup(), nullptr);
    EXPECT_EQ(seg(a, 0)->getTimeGroup(), &g);
    seg(a, 0)->setChannel(nullptr); // taken off its channel: leaves
    EXPECT_TRUE(g.getChannels().isEmpty());
    seg(a, 0)->setChannel(a);
    EXPECT_EQ(seg(a, 0)->getTimeGroup(), nullptr);
}

// Whichever goes first, segment or group, nothing is left pointing at it
// (an AddressSanitizer build turns a stale pointer into a failure here).
TEST_F(CHTimeGroup, NothingOutlivesItsPartner)
{
    auto *g = new CH_TimeGroup("walk", 0);
    mgr.addTimeGroup(g);
    for (CH_Channel *ch : {a, b})
        for (unsigned i = 0; i < 4; ++i)
            g->addEntry(seg(ch, i), true);
    CH_Segment *kept = seg(a, 0);
    chTestChannelBuilder::removeSegment(*a, seg(a, 1));
    EXPECT_EQ(g->numEntries(a), 3);
    obj.deleteChannel(b);
    EXPECT_EQ(listed(*g).size(), 1u);
    // Keys that change channel take their entries along; an assignment
    // keeps the target's own group, under the channel it now names.
    a->swap(*c);
    EXPECT_EQ(g->numEntries(a), 0);
    EXPECT_EQ(g->numEntries(c), 3);
    *kept = *seg(a, 2);
    EXPECT_EQ(kept->getTimeGroup(), g);
    EXPECT_EQ(g->numEntries(a), 1);
    CH_Segment copy(*kept);
    EXPECT_EQ(copy.getTimeGroup(), nullptr);
    a->clear();
    c->clear();
    EXPECT_EQ(g->numEntries(), 0);
    EXPECT_TRUE(g->getChannels().isEmpty());

    // The group first: its segments name no group afterwards.
    chTestChannelBuilder::build(*a, {{0, 0}, {1, 1}});
    g->addEntry(seg(a, 0), true);
    g->addEntry(seg(a, 1), true);
    mgr.destroyTimeGroup(g);
    EXPECT_EQ(seg(a, 0)->getTimeGroup(), nullptr);
    EXPECT_EQ(seg(a, 1)->getTimeGroup(), nullptr);
}

} // namespace
