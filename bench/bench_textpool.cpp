// The segment-text pool: the cost of adding a distinct text while n others
// are alive. It must stay flat as n grows (no rescans of the live texts).
#include "chbench.h"

#include <ch/expr/CH_Expression.h>
#include <ch/manager/CH_Manager.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using chExprs = std::vector<std::unique_ptr<CH_Expression>>;

void addTexts(chExprs &to, const std::vector<std::string> &texts)
{
    for (const std::string &t : texts)
        to.push_back(std::make_unique<CH_Expression>(t.c_str(), CH_ORVISH, CH_Expression::Pooled));
}

// n texts stay alive; each iteration adds a batch of 1,024 more (timed) and
// drops them again (untimed). The figure is the best batch's time per text.
void BM_TextPoolAdd(benchmark::State &state)
{
    static CH_Manager manager; // registers the library the texts call
    const int n = static_cast<int>(state.range(0));
    std::vector<std::string> live_texts, batch_texts;
    for (int i = 0; i < n; ++i)
        live_texts.push_back(std::to_string(i) + " + 0.5");
    for (int i = 0; i < 1024; ++i)
        batch_texts.push_back(std::to_string(i) + " + 0.25");
    chExprs live, batch;
    addTexts(live, live_texts);
    batch.reserve(batch_texts.size());
    double best = std::numeric_limits<double>::infinity();
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        addTexts(batch, batch_texts);
        auto ns = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
        best = std::min(best, ns / static_cast<double>(batch_texts.size()));
        state.PauseTiming();
        batch.clear();
        state.ResumeTiming();
    }
    chbenchFigure("text_pool_add_ns_" + std::to_string(n), best);
}
BENCHMARK(BM_TextPoolAdd)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond)->MinTime(0.2);

} // namespace
