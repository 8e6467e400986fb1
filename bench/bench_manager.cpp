// The manager's one-shot evaluation of a text.
#include "chbench.h"

#include <ch/manager/CH_Manager.h>
#include <ev/EV_Engine.h>

namespace {

CH_Manager &benchManager()
{
    static CH_Manager *manager = [] {
        auto *m = new CH_Manager;
        m->setContext();
        return m;
    }();
    return *manager;
}

// Through the manager: a temporary expression, the thread's context saved,
// set and restored.
void BM_OneShotEvaluate(benchmark::State &state)
{
    CH_Manager &m = benchManager();
    float t = 0.0f;
    for (auto _ : state) {
        t += 1.0f / 24.0f;
        benchmark::DoNotOptimize(m.evaluate("$F * 2", t, nullptr, nullptr, 0));
    }
}
BENCHMARK(BM_OneShotEvaluate)->Apply(chbenchSamples);

// Baseline: compile and evaluate the same text with the engine directly.
void BM_EngineCompileEvaluate(benchmark::State &state)
{
    CH_Manager &m = benchManager();
    float t = 0.0f;
    for (auto _ : state) {
        t += 1.0f / 24.0f;
        m.setEvaluateTime(t, 0);
        EV_EXPRESSION *e = ev_AllocExpr();
        ev_ChangeExpr(e, "$F * 2", 0);
        float v = 0.0f;
        ev_EvaluateFloat(e, &v, 0);
        benchmark::DoNotOptimize(v);
        ev_FreeExpr(e);
    }
}
BENCHMARK(BM_EngineCompileEvaluate)->Apply(chbenchSamples);

} // namespace

CHBENCH_RATIO("oneshot_eval", BM_OneShotEvaluate, BM_EngineCompileEvaluate);
