#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <ev/EV_Engine.h>
#include <ut/UT_Thread.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

// Each thread keeps its own evaluation time, collection and depth while
// others evaluate and expand texts at other times.
TEST(CHManagerConcurrency, EvaluationContextIsPerThread)
{
    CH_Manager manager;
    manager.setContext();
    constexpr int theThreads = 40;
    constexpr int theRounds = 200;
    std::vector<std::unique_ptr<CH_Collection>> nodes;
    for (int i = 0; i < theThreads; ++i)
        nodes.push_back(std::make_unique<CH_Collection>(&manager, nullptr, ("n" + std::to_string(i)).c_str()));

    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < theThreads; ++i)
        threads.emplace_back([&, i] {
            // A time of its own, restored after every one-shot evaluation.
            const float own = 0.25f * i;
            manager.setEvaluateTime(own, 0);
            for (int r = 0; r < theRounds; ++r) {
                const float t = static_cast<float>(r % 48) / 24.0f; // frame r % 48 + 1
                int td = 0;
                float v = manager.evaluate("$F * 2", t, nodes[i].get(), &td, 0);
                if (v != 2.0f * (r % 48 + 1) || td != 1)
                    failures.fetch_add(1);
                UT_String out;
                manager.expandString("$OS:$F", out, t, nodes[i].get(), 0);
                if (out.toStdString() != "n" + std::to_string(i) + ":" + std::to_string(r % 48 + 1))
                    failures.fetch_add(1);
                if (manager.getEvaluateTime(0) != own || manager.getEvalCollection(0) != nullptr ||
                    manager.exprDepth(0) != 0 || ev_GetErrNo(0) != 0)
                    failures.fetch_add(1);
            }
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(failures.load(), 0);
}

} // namespace
