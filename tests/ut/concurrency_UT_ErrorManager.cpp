#include <ut/UT_ErrorManager.h>
#include <ut/UT_Interrupt.h>

#include <gtest/gtest.h>

#include <map>
#include <thread>
#include <vector>

namespace {

TEST(UT_ErrorManagerConcurrency, PostsFromManyThreadsAreAllKept)
{
    UT_ErrorManager list;
    constexpr int theThreads = 24;
    constexpr int thePosts = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < theThreads; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < thePosts; ++i) {
                list.addError("CH", 5, ("/obj/n" + std::to_string(t)).c_str());
                if (i % 50 == 0)
                    (void)list.getSeverity();
            }
        });
    for (auto &th : threads)
        th.join();

    std::map<std::string, int> perThread;
    for (const UT_Error &e : list.getErrors()) {
        EXPECT_EQ(e.text, "No node \"" + e.argument + "\" to load channels into");
        ++perThread[e.argument];
    }
    EXPECT_EQ(perThread.size(), static_cast<size_t>(theThreads));
    for (const auto &entry : perThread)
        EXPECT_EQ(entry.second, thePosts) << entry.first;
    EXPECT_EQ(list.getSeverity(), UT_ERROR_ABORT);
}

TEST(UT_InterruptConcurrency, RequestFromAnotherThreadStopsWorkers)
{
    UT_Interrupt interrupt;
    constexpr int theWorkers = 4;
    std::atomic<int> started{0}, stopped{0};
    std::vector<std::thread> workers;
    for (int w = 0; w < theWorkers; ++w)
        workers.emplace_back([&] {
            interrupt.opStart("work");
            started.fetch_add(1);
            while (!interrupt.opInterrupt())
                std::this_thread::yield();
            stopped.fetch_add(1);
            interrupt.opEnd();
        });
    while (started.load() < theWorkers)
        std::this_thread::yield();
    interrupt.interrupt();
    for (auto &w : workers)
        w.join();
    EXPECT_EQ(stopped.load(), theWorkers);
    EXPECT_FALSE(interrupt.isInterrupted()); // cleared when the last one ended
}

} // namespace
