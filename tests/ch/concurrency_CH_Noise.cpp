#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <support/chTestChannelBuilder.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

// Threads evaluate noise channels (both generators, through eval as well)
// at once; each sample must equal the one computed on a single thread.
TEST(CHNoiseConcurrency, ThreadsAgreeWithOneThread)
{
    CH_Manager manager;
    manager.setContext();
    CH_Collection obj(&manager, nullptr, "obj");
    const char *texts[] = {"noise($T, 0, 0)", "turb($T, 0.5, 1, 4)", "snoise($T, 2, 0) + sturb(0, $T, 1, 3)",
                           "eval('noise($T * 2, 1, 1)')"};
    std::vector<CH_Channel *> ch;
    for (const char *t : texts)
    {
        ch.push_back(obj.addChannel(("c" + std::to_string(ch.size())).c_str()));
        chTestChannelBuilder::build(*ch.back(), {{0, 0, 0, 0, t}, {100, 0, 0, 0, t}});
    }
    const int samples = 200;
    std::vector<float> expected(ch.size() * samples);
    for (std::size_t c = 0; c < ch.size(); ++c)
        for (int i = 0; i < samples; ++i)
            expected[c * samples + i] = obj.evaluate(ch[c], 0.37f * i, false, 0);
    ASSERT_NE(expected[1], expected[2]); // the channels do vary

    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int k = 0; k < 6; ++k)
        threads.emplace_back([&, k] {
            for (int r = 0; r < 400; ++r)
            {
                int i = (k * 31 + r * 7) % samples;
                std::size_t c = static_cast<std::size_t>(k + r) % ch.size();
                if (obj.evaluate(ch[c], 0.37f * i, false, 0) != expected[c * samples + i])
                    failures.fetch_add(1);
            }
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(failures.load(), 0);
}

} // namespace
