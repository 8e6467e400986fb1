#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_Key.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <support/chTestChannelBuilder.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

// Writing keys must not write the manager's hold-last-key setting: another
// thread reading it meanwhile must always see the value the user chose.
TEST(CHKeyConcurrency, PutLeavesHoldLastKeyForOtherThreads)
{
    CH_Manager manager;
    manager.setContext();
    manager.setHoldLastKey(true);
    CH_Collection obj(&manager, nullptr, "obj");
    CH_Channel *ch = obj.addChannel("tx");
    chTestChannelBuilder::build(*ch, {{0, 1, 0.5f}, {2, 3, 0.5f}, {4, 5, 2.0f}});
    std::atomic<bool> stop{false}, started{false};
    std::atomic<int> seen_off{0};
    std::thread reader([&] {
        started = true;
        while (!stop.load(std::memory_order_relaxed))
            seen_off += manager.getHoldLastKey() == 0;
    });
    while (!started) {}
    CH_Key key;
    key.get(ch->getSegment(1u), ch->getEndSegment(), false);
    for (int i = 0; i < 200000; ++i) {
        key.myOut.myV[CH_VALUE] = static_cast<float>(i % 7);
        key.put(ch->getSegment(1u), ch->getEndSegment(), false);
    }
    stop = true;
    reader.join();
    EXPECT_EQ(seen_off, 0);
    EXPECT_EQ(manager.getHoldLastKey(), 1);
    EXPECT_EQ(ch->getEndSegment()->getInValue(), static_cast<float>(199999 % 7));
}

} // namespace
