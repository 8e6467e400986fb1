#include "evTestUtil.h"

#include <ut/UT_Thread.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <thread>
#include <vector>
#include <ev/EV_ExprFlags.h>

namespace {

// $K reads a value that depends on the evaluating thread, whether the
// thread is given by number or as 0 (the calling thread).
bool threadResolve(const char *name, EV_VarBinding &b, int)
{
    if (std::strcmp(name, "K"))
        return false;
    b.flags = EV_VarBinding::TIME_DEP;
    return true;
}
double threadValue(const EV_VarBinding &, int thread)
{
    return (thread ? thread : UT_Thread::getMySequentialThreadIndex()) + 0.5;
}
EV_TYPEDEF theThreadType{10, "threadVar", nullptr, threadResolve, threadValue, nullptr};

void threadNumber(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int thread)
{
    result->setFloat(thread == 0 ? UT_Thread::getMySequentialThreadIndex() : thread);
}
EV_FUNCTION theThreadFunc(EV_FLAG_SLOPES, "threadnum", 0, EV_TYPEFLOAT, nullptr, threadNumber);

TEST(EvEngineConcurrency, OneExpressionEvaluatedByManyThreads)
{
    ev_InitFloat();
    ev_InitString();
    ev_AddVariableType(&theThreadType, 0);
    ev_AddFunction(&theThreadFunc);
    evTestExpr e = evTestCompile("sin($K * 10) * 2 + threadnum() + ('n' + $K == 'n' + $K)");
    ASSERT_TRUE(e->isCompiled());

    constexpr int theThreads = 40; // past the 16 inline slots
    constexpr int theRounds = 300;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < theThreads; ++t)
        threads.emplace_back([&] {
            const int me = UT_Thread::getMySequentialThreadIndex();
            const double k = me + 0.5;
            const float expect = static_cast<float>(std::sin(k * 10 * M_PI / 180) * 2 + me + 1);
            for (int r = 0; r < theRounds; ++r) {
                float f = -1;
                if (!ev_EvaluateFloat(e.get(), &f, r % 2 ? 0 : me) || f != expect)
                    failures.fetch_add(1);
                if (ev_GetErrNo(me) != 0)
                    failures.fetch_add(1);
            }
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(e->getFlags(), EV_FLAG_TIMEDEP | EV_FLAG_SLOPES | EV_FLAG_EVALUATED);
}

} // namespace
