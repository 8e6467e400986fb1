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

} // namespace
