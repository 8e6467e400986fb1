#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <support/chTestChannelBuilder.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

namespace {

// More threads than inline slots evaluate one channel at their own times;
// each sees its own segment, local time and variables.
TEST(CHChannelConcurrency, EvaluationSlotsArePerThread)
{
    CH_Manager manager;
    manager.setContext();
    CH_Collection obj(&manager, nullptr, "obj");
    CH_Channel *ch = obj.addChannel("tx");
    const char *lin = "$IV + ($OV - $IV) * ($LT - $LIT) / ($LOT - $LIT) + 0 * $IT";
    chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, lin}, {10, 10, 0, 0, lin}, {20, 30, 0, 0, "$IV"}});

    constexpr int theThreads = 24;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < theThreads; ++i)
        threads.emplace_back([&, i] {
            for (int r = 0; r < 300; ++r)
            {
                float t = static_cast<float>((i * 7 + r) % 200) / 10.0f; // 0 .. 19.9
                float expected = t < 10 ? t : 10 + 2 * (t - 10);
                float v = obj.evaluate(ch, t, false, 0);
                if (std::fabs(v - expected) > 1e-4f || ch->getEvaluationSegment(0) != nullptr ||
                    obj.getEvalChannel(0) != nullptr || manager.getEvalCollection(0) != nullptr)
                    failures.fetch_add(1);
            }
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(failures.load(), 0);
}

} // namespace
