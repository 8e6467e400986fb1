#include <ut/UT_Noise.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

TEST(UT_Noise, SharedGeneratorGivesEveryThreadTheSingleThreadValues)
{
    constexpr int theThreads = 8, thePoints = 4000;
    const UT_Noise perlin(17, UT_Noise::PERLIN), cellular(17, UT_Noise::CELLULAR);
    auto value = [&](int i) {
        UT_Vector3 p(i * 0.37f - 700.0f, i * -0.11f, 3.0f + i * 0.013f);
        return i % 2 ? cellular.noise(p) : perlin.turbulence(p, 5, 0.6f, 1.5f);
    };
    std::vector<float> want(thePoints);
    for (int i = 0; i < thePoints; ++i)
        want[i] = value(i);
    std::vector<int> mismatches(theThreads, 0);
    std::atomic<int> waiting{theThreads};
    std::vector<std::thread> threads;
    for (int id = 0; id < theThreads; ++id)
        threads.emplace_back([&, id] {
            for (--waiting; waiting.load() > 0;)
                std::this_thread::yield();
            for (int k = 0; k < thePoints; ++k) { // each from its own start
                int i = (k + id * 500) % thePoints;
                mismatches[id] += value(i) != want[i];
            }
        });
    for (std::thread &t : threads)
        t.join();
    for (int id = 0; id < theThreads; ++id)
        EXPECT_EQ(mismatches[id], 0) << "thread " << id;
}
