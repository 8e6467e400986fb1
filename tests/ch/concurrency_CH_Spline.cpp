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

// Threads evaluate two spline channels at once. Each is a line (v = 2t and
// v = 30 - 3t) through its keys, which a spline gives back exactly; knots
// mixed between channels or threads would bend it.
TEST(CHSplineConcurrency, EachThreadGathersIntoItsOwnSpline)
{
    CH_Manager manager;
    manager.setContext();
    CH_Collection obj(&manager, nullptr, "obj");
    CH_Channel *ch[2] = {obj.addChannel("a"), obj.addChannel("b")};
    std::vector<chTestKey> ka, kb;
    for (int i = 0; i <= 10; ++i)
    {
        ka.push_back({float(i), 2.0f * i, 0, 0, "spline()"});
        kb.push_back({float(i), 30.0f - 3.0f * i, 0, 0, "spline()"});
    }
    chTestChannelBuilder::build(*ch[0], ka);
    chTestChannelBuilder::build(*ch[1], kb);

    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&, i] {
            for (int r = 0; r < 400; ++r)
            {
                float t = static_cast<float>((i * 13 + r) % 100) / 10.0f + 0.05f;
                int c = (i + r) % 2;
                float expected = c ? 30.0f - 3.0f * t : 2.0f * t;
                if (std::fabs(obj.evaluate(ch[c], t, false, 0) - expected) > 1e-3f)
                    failures.fetch_add(1);
            }
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(failures.load(), 0);
}

// A run's spline is built by whichever evaluations first find it missing,
// then shared. Threads start together on a cold run, which each edit
// between rounds drops again; every value must match a twin channel
// evaluated on this thread alone.
TEST(CHSplineConcurrency, ColdRunsBuiltByRacingThreads)
{
    CH_Manager manager;
    manager.setContext();
    CH_Collection obj(&manager, nullptr, "obj");
    CH_Channel *shared = obj.addChannel("shared"), *twin = obj.addChannel("twin");
    std::vector<chTestKey> k;
    for (int i = 0; i < 200; ++i)
        k.push_back({0.5f * i, float((i * 37) % 11) - 5.0f, 0, 0, "spline()"});
    chTestChannelBuilder::build(*shared, k);
    chTestChannelBuilder::build(*twin, k);

    const int threads = 6, samples = 300;
    for (int round = 0; round < 4; ++round)
    {
        if (round) // the same edit on both: the shared channel's run is dropped
            for (CH_Channel *c : {shared, twin})
                c->getSegment(unsigned(40 * round))->setInValue(3.0f * round, false);
        std::vector<float> times, expected;
        for (int i = 0; i < samples; ++i)
        {
            times.push_back(std::fmod(0.37f * i * (round + 1), 99.5f));
            expected.push_back(obj.evaluate(twin, times.back(), false, 0));
        }
        std::atomic<int> ready{0}, mismatches{0};
        std::vector<std::thread> pool;
        for (int i = 0; i < threads; ++i)
            pool.emplace_back([&, i] {
                ready.fetch_add(1);
                while (ready.load() < threads)
                    std::this_thread::yield();
                for (int j = 0; j < samples; ++j)
                {
                    int s = (j + 47 * i) % samples;
                    if (obj.evaluate(shared, times[s], false, 0) != expected[s])
                        mismatches.fetch_add(1);
                }
            });
        for (auto &t : pool)
            t.join();
        EXPECT_EQ(mismatches.load(), 0) << "round " << round;
    }
}

} // namespace
