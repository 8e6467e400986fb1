#include <ch/expr/CH_Expression.h>
#include <ch/manager/CH_Manager.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

// Copies are evaluated on other threads while their original is edited over
// and over: the edits must never reach the program the copies run.
TEST(CHExpressionConcurrency, CopiesEvaluateWhileTheOriginalIsEdited)
{
    CH_Manager manager;
    manager.setContext();
    for (bool pooled : {false, true}) {
        auto original = pooled ? std::make_unique<CH_Expression>("3 * 4 + 1", CH_ORVISH, CH_Expression::Pooled)
                               : std::make_unique<CH_Expression>("3 * 4 + 1", CH_ORVISH);
        std::vector<std::unique_ptr<CH_Expression>> copies;
        for (int i = 0; i < 2; ++i)
            copies.push_back(std::make_unique<CH_Expression>(*original));
        std::atomic<bool> stop{false};
        std::atomic<int> wrong{0};
        std::vector<std::thread> threads;
        for (auto &copy : copies)
            threads.emplace_back([&, e = copy.get()] {
                while (!stop.load(std::memory_order_relaxed))
                    wrong += e->evaluate(0) != 13.0f;
            });
        for (int i = 0; i < 300; ++i) {
            original->setExpression(i % 2 ? "2 + 2" : "3 * 4 + 1", CH_ORVISH);
            original->setExpressionFlag(0);
            original->unresolveLocalVars(0);
            *original = CH_Expression("7", CH_ORVISH);
            CH_Expression again(*copies[i % 2]); // a new sharer made and dropped meanwhile
            again.setLanguage(CH_PYTHON);
        }
        stop = true;
        for (std::thread &t : threads)
            t.join();
        EXPECT_EQ(wrong, 0);
        for (auto &copy : copies)
            EXPECT_STREQ(copy->getExpression(), "3 * 4 + 1");
    }
}

} // namespace
