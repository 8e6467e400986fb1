// Exchanging channels and their contents: swap, swapContents, copyContents.
#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_Segment.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <support/chTestChannelBuilder.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// Everything a channel's contents consist of, read through the public
// accessors, plus the segment each segment's midpoint is looked up in and
// the values at a grid of times.
struct chContents
{
    float start, length, default_value;
    int left, right, keys;
    std::string default_string;
    std::vector<float> numbers;    // per segment: start, end, length, six key numbers
    std::vector<std::string> texts; // per segment: its expression
    std::vector<int> lookups;       // segment found at each segment's midpoint
    std::vector<float> disabled;    // start and end of each disabled range
    std::vector<float> values;

    bool operator==(const chContents &o) const
    {
        return start == o.start && length == o.length && default_value == o.default_value && left == o.left &&
               right == o.right && keys == o.keys && default_string == o.default_string && numbers == o.numbers &&
               texts == o.texts && lookups == o.lookups && disabled == o.disabled && values == o.values;
    }
};

chContents contentsOf(CH_Channel &ch)
{
    chContents c{ch.getStart(), ch.getLength(), ch.getDefaultValue(), ch.getLeftBehavior(), ch.getRightBehavior(),
                 ch.getNKeys(), ch.getDefaultString(), {}, {}, {}, {}, {}};
    for (int i = 0; i < ch.getNKeys(); ++i) {
        const CH_Segment *s = ch.getSegment(static_cast<unsigned>(i));
        c.numbers.insert(c.numbers.end(), {s->getStart(), s->getEnd(), s->getLength(), s->getInValue(),
                                           s->getOutValue(), s->getInSlope(), s->getOutSlope(), s->getInAccel(),
                                           s->getOutAccel()});
        c.texts.push_back(s->getExpression());
        if (i + 1 < ch.getNKeys()) // the midpoint lies in segment i and nowhere else
            c.lookups.push_back(ch.getSegmentIdx(0.5f * (s->getStart() + s->getEnd())));
    }
    for (int i = 0; i < ch.getNDisableSegments(); ++i)
        c.disabled.insert(c.disabled.end(), {ch.getDisableSegment(static_cast<unsigned>(i))->getStart(),
                                             ch.getDisableSegment(static_cast<unsigned>(i))->getEnd()});
    for (int i = -8; i <= 160; ++i)
        c.values.push_back(ch.getCollection()->evaluate(&ch, 0.375f * i, false, 0));
    return c;
}

std::vector<int> upTo(int n)
{
    std::vector<int> v;
    for (int i = 0; i < n; ++i)
        v.push_back(i);
    return v;
}

// n keys spaced 'step' apart from 'start' (n >= 16 gives the channel a lookup
// table), with values that differ per channel.
void buildKeys(CH_Channel &ch, int n, float start, float step, float scale)
{
    std::vector<chTestKey> keys;
    for (int i = 0; i < n; ++i)
        keys.push_back({start + step * i, scale * i * i, 0.25f * i, 0.0f, i % 2 ? "linear()" : "bezier()"});
    chTestChannelBuilder::build(ch, keys);
}

class CHChannelSwap : public ::testing::Test
{
protected:
    void SetUp() override { mgr.setContext(); }

    CH_Manager mgr;
    CH_Collection root{&mgr};
    CH_Collection a_obj{&mgr, &root, "a"};
    CH_Collection b_obj{&mgr, &root, "b"};
};

TEST_F(CHChannelSwap, TemporaryCopyInTheSameCollectionSwapsBackIn)
{
    CH_Channel *tx = a_obj.addChannel("tx", 1.0f, "one");
    CH_Channel *ty = a_obj.addChannel("ty");
    buildKeys(*tx, 20, 2.0f, 1.5f, 1.0f);
    const chContents before = contentsOf(*tx);

    CH_Channel temp(&a_obj, *tx); // edited aside, then swapped in
    buildKeys(temp, 17, -1.0f, 2.75f, -2.0f);
    temp.setLeftBehavior(CH_CHANNEL_CYCLE);
    temp.setDefaultValue(4.0f);
    const chContents edited = contentsOf(temp);
    tx->swap(temp);

    EXPECT_TRUE(contentsOf(*tx) == edited);
    EXPECT_TRUE(contentsOf(temp) == before);
    EXPECT_STREQ(tx->getName(), "tx"); // same collection: the copy had the name too
    ASSERT_EQ(a_obj.getNChannels(), 2);
    EXPECT_EQ(a_obj.getChannels()(0), tx); // the list is untouched
    EXPECT_EQ(a_obj.getChannels()(1), ty);
    EXPECT_EQ(a_obj.getChannel("tx"), tx);
    EXPECT_EQ(tx->getSegment(0u)->getChannel(), tx);
    EXPECT_EQ(temp.getSegment(0u)->getChannel(), &temp);

    // Two listed channels of one collection: each name finds the channel
    // that carries it now.
    tx->swap(*ty);
    EXPECT_STREQ(tx->getName(), "ty");
    EXPECT_EQ(a_obj.getChannel("ty"), tx);
    EXPECT_EQ(a_obj.getChannel("tx"), ty);
}

TEST_F(CHChannelSwap, AcrossCollectionsTheListsFollowTheChannels)
{
    CH_Channel *a_first = a_obj.addChannel("first");
    CH_Channel *tx = a_obj.addChannel("tx", 3.0f);
    CH_Channel *ty = b_obj.addChannel("ty", 5.0f);
    buildKeys(*tx, 24, 0.0f, 1.25f, 0.5f);
    buildKeys(*ty, 18, 4.0f, 2.5f, 3.0f);
    ty->setRightBehavior(CH_CHANNEL_HOLD);
    const chContents tx_before = contentsOf(*tx), ty_before = contentsOf(*ty);

    tx->swap(*ty);

    // The objects changed places: tx is now b's "ty", ty is a's "tx".
    EXPECT_EQ(tx->getCollection(), &b_obj);
    EXPECT_EQ(ty->getCollection(), &a_obj);
    EXPECT_STREQ(tx->getName(), "ty");
    EXPECT_STREQ(ty->getName(), "tx");
    EXPECT_TRUE(contentsOf(*ty) == tx_before);
    EXPECT_TRUE(contentsOf(*tx) == ty_before);
    for (CH_Collection *obj : {&a_obj, &b_obj})
        for (CH_Channel *c : obj->getChannels())
            EXPECT_EQ(c->getCollection(), obj) << obj->getName() << "/" << c->getName();
    ASSERT_EQ(a_obj.getNChannels(), 2);
    EXPECT_EQ(a_obj.getChannels()(0), a_first);
    EXPECT_EQ(a_obj.getChannel("tx"), ty);
    ASSERT_EQ(b_obj.getNChannels(), 1);
    EXPECT_EQ(b_obj.getChannel("ty"), tx);

    // Swapping back restores both lists; deleting works through either.
    tx->swap(*ty);
    EXPECT_EQ(a_obj.getChannel("tx"), tx);
    EXPECT_EQ(b_obj.getChannel("ty"), ty);
    EXPECT_TRUE(contentsOf(*tx) == tx_before);
    a_obj.deleteChannel(tx);
    EXPECT_EQ(a_obj.getChannel("tx"), nullptr);
}

TEST_F(CHChannelSwap, ContentsRoundTripsKeepEveryField)
{
    CH_Channel *tx = a_obj.addChannel("tx", 2.0f, "two");
    CH_Channel *ty = b_obj.addChannel("ty", -1.0f, "minus");
    buildKeys(*tx, 21, 3.0f, 0.75f, 1.0f);
    buildKeys(*ty, 16, -2.0f, 3.25f, -0.5f);
    tx->setLeftBehavior(CH_CHANNEL_SLOPE);
    ty->setRightBehavior(CH_CHANNEL_CYCLE);
    chTestChannelBuilder::addDisabled(*ty, 5.0f, 9.0f);
    const chContents tx_before = contentsOf(*tx), ty_before = contentsOf(*ty);
    ASSERT_EQ(tx_before.lookups, upTo(20));
    ASSERT_EQ(ty_before.lookups, upTo(15));

    tx->swapContents(*ty);
    EXPECT_TRUE(contentsOf(*tx) == ty_before);
    EXPECT_TRUE(contentsOf(*ty) == tx_before);
    EXPECT_STREQ(tx->getName(), "tx"); // only contents move
    EXPECT_EQ(tx->getCollection(), &a_obj);
    tx->swapContents(*ty);
    EXPECT_TRUE(contentsOf(*tx) == tx_before);
    EXPECT_TRUE(contentsOf(*ty) == ty_before);

    CH_Channel copy(&b_obj, "copy");
    copy.copyContents(*ty);
    EXPECT_TRUE(contentsOf(copy) == ty_before);
    copy.copyContents(*tx); // over existing contents
    EXPECT_TRUE(contentsOf(copy) == tx_before);
    copy.copyContents(copy);
    EXPECT_TRUE(contentsOf(copy) == tx_before);
}

} // namespace
