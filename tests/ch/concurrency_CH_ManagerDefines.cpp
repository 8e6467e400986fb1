// Defines added while other threads compile and evaluate texts that use
// them: no thread may see a half-updated table.
#include <ch/expr/CH_ExprDefine.h>
#include <ch/expr/CH_Expression.h>
#include <ch/manager/CH_Manager.h>

#include <ev/EV_Engine.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

TEST(CHManagerDefinesConcurrency, AddingDefinesWhileOtherThreadsCompile)
{
    constexpr int theRounds = 8;    // a fresh table each round: it grows from empty
    constexpr int theReaders = 6;
    constexpr int theDefines = 4000;
    std::atomic<int> failures{0};
    for (int round = 0; round < theRounds; ++round) {
        CH_Manager manager;
        manager.setContext();
        manager.addExpressionDefine(CH_ExprDefine("BASE_DEF", 2.0f));
        std::atomic<bool> done{false};
        std::atomic<int> added{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < theReaders; ++i)
            threads.emplace_back([&] {
                for (int n = 0; !done.load() || n < 20; ++n) {
                    // A define that is always there, and the one added last.
                    const int last = added.load() - 1;
                    std::string text = "BASE_DEF * 10";
                    if (last >= 0)
                        text += " + DEF" + std::to_string(last);
                    CH_Expression e(text.c_str(), CH_ORVISH);
                    ev_SetErrNo(0, 0);
                    const float v = e.evaluate(0);
                    if (v != 20.0f + (last >= 0 ? static_cast<float>(last) : 0.0f) || ev_GetErrNo(0) != 0)
                        failures.fetch_add(1);
                    ev_SetErrNo(0, 0);
                }
            });
        for (int d = 0; d < theDefines; ++d) {
            manager.addExpressionDefine(CH_ExprDefine(("DEF" + std::to_string(d)).c_str(), static_cast<float>(d)));
            added.store(d + 1);
        }
        done = true;
        for (auto &t : threads)
            t.join();
        const CH_ExprDefine *last = manager.findExpressionDefine(("DEF" + std::to_string(theDefines - 1)).c_str());
        ASSERT_NE(last, nullptr);
        EXPECT_EQ(last->getValue(), static_cast<float>(theDefines - 1));
    }
    EXPECT_EQ(failures.load(), 0);
}

} // namespace
