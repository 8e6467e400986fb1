// The utility layer's hot paths.
#include "chbench.h"

#include <ut/UT_ThreadSlots.h>

namespace {

UT_ThreadSlots<double> theSlots;
thread_local double theThreadLocal = 0.0;

// Every evaluation reads and writes per-thread values this way: through the
// slot of the calling thread (thread argument 0).
void BM_ThreadSlotReadWrite(benchmark::State &state)
{
    for (auto _ : state) {
        double &value = theSlots.get(0);
        value += 1.0;
        // Hand the address on: the new value must really reach memory.
        double *where = &value;
        benchmark::DoNotOptimize(where);
    }
}
BENCHMARK(BM_ThreadSlotReadWrite)->Apply(chbenchSamples);

// Baseline: the same work on a plain thread_local variable.
void BM_ThreadLocalReadWrite(benchmark::State &state)
{
    for (auto _ : state) {
        double &value = theThreadLocal;
        value += 1.0;
        // Hand the address on: the new value must really reach memory.
        double *where = &value;
        benchmark::DoNotOptimize(where);
    }
}
BENCHMARK(BM_ThreadLocalReadWrite)->Apply(chbenchSamples);

} // namespace

CHBENCH_RATIO("ut_thread_slot", BM_ThreadSlotReadWrite, BM_ThreadLocalReadWrite);
