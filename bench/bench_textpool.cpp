// The segment-text pool: the cost of adding a distinct text while n others
// are alive. It must stay flat as n grows (no rescans of the live texts).
#include "chbench.h"

#include <ch/expr/CH_Expression.h>
#include <ch/manager/CH_Manager.h>

#include <chrono>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

void BM_TextPoolAdd(benchmark::State &state)
{
    static CH_Manager manager; // registers the library the texts call
    const int n = static_cast<int>(state.range(0));
    std::vector<std::string> texts;
    for (int i = 0; i < n; ++i)
        texts.push_back(std::to_string(i) + " + 0.5");
    double best = std::numeric_limits<double>::infinity();
    for (auto _ : state) {
        std::vector<std::unique_ptr<CH_Expression>> live(static_cast<std::size_t>(n));
        auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < n; ++i)
            live[static_cast<std::size_t>(i)] =
                std::make_unique<CH_Expression>(texts[static_cast<std::size_t>(i)].c_str(), CH_ORVISH,
                                                CH_Expression::Pooled);
        auto ns = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
        best = std::min(best, ns / n);
        state.PauseTiming(); // the texts leave the pool again, untimed
        live.clear();
        state.ResumeTiming();
    }
    chbenchFigure("text_pool_add_ns_" + std::to_string(n), best);
}
BENCHMARK(BM_TextPoolAdd)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->MinTime(0.2);

} // namespace
