// Evaluation of a 1,000-key channel whose segments are plain numbers, at
// random times and over a 240-frame range, with the sample cache off.
#include "chbench.h"

#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>
#include <ev/EV_Engine.h>
#include <support/chTestChannelBuilder.h>
#include <ut/UT_Thread.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int theKeys = 1000;
constexpr float theKeyStep = 0.5f;

struct chBenchScene
{
    CH_Manager manager;
    CH_Collection root{&manager};
    CH_Collection obj{&manager, &root, "obj"};
    CH_Channel *channel = nullptr;
    std::vector<float> values; // the baseline's copy of the segment values
    std::vector<float> starts;
    std::vector<float> times;

    chBenchScene()
    {
        manager.setContext();
        // Without folding the literal really runs through the engine.
        ev_SetOptimization(0);
        channel = obj.addChannel("tx");
        std::vector<std::string> texts(theKeys);
        std::vector<chTestKey> keys(theKeys);
        for (int i = 0; i < theKeys; ++i)
        {
            texts[i] = std::to_string(i % 17) + ".25";
            keys[i] = {i * theKeyStep, 0.0f, 0.0f, 0.0f, texts[i].c_str()};
            values.push_back(static_cast<float>(i % 17) + 0.25f);
            starts.push_back(i * theKeyStep);
        }
        chTestChannelBuilder::build(*channel, keys);
        ev_SetOptimization(1);
        std::mt19937 rng(7);
        std::uniform_real_distribution<float> d(-1.0f, theKeys * theKeyStep + 1.0f);
        for (int i = 0; i < 4096; ++i)
            times.push_back(d(rng));
    }
};

chBenchScene &scene()
{
    static chBenchScene *s = new chBenchScene;
    return *s;
}

// The same lookup by hand: tolerance binary search, behaviour dispatch
// (extend on both sides: the first or last segment), and a load.
float baselineEvaluate(const chBenchScene &s, float t, float tol)
{
    int n = static_cast<int>(s.starts.size()) - 1; // list segments; the last key is the end
    float length = s.starts[n];
    if (t < -tol)
        return s.values[0];
    if (!(t - length < -tol))
        return s.values[n];
    return s.values[chbenchSegmentIndex(s.starts.data(), n, t, tol)];
}

void BM_ChannelRandom(benchmark::State &state)
{
    chBenchScene &s = scene();
    int thread = UT_Thread::getMySequentialThreadIndex();
    std::size_t i = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(s.channel->evaluate(s.times[i], false, thread));
        i = (i + 1) & 4095;
    }
}
BENCHMARK(BM_ChannelRandom)->Apply(chbenchSamples);

void BM_BaselineRandom(benchmark::State &state)
{
    chBenchScene &s = scene();
    float tol = s.manager.getTolerance();
    std::size_t i = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(baselineEvaluate(s, s.times[i], tol));
        i = (i + 1) & 4095;
    }
}
BENCHMARK(BM_BaselineRandom)->Apply(chbenchSamples);

// 240 frames from a random start, per iteration.
void BM_ChannelRange(benchmark::State &state)
{
    chBenchScene &s = scene();
    int thread = UT_Thread::getMySequentialThreadIndex();
    float out[240];
    std::size_t i = 0;
    for (auto _ : state)
    {
        float from = s.times[i];
        s.channel->evaluate(from, from + 239.0f / 24.0f, out, 240, false, false, thread);
        benchmark::DoNotOptimize(out[239]);
        i = (i + 1) & 4095;
    }
}
BENCHMARK(BM_ChannelRange)->Apply(chbenchSamples);

void BM_BaselineRange(benchmark::State &state)
{
    chBenchScene &s = scene();
    float tol = s.manager.getTolerance();
    float out[240];
    std::size_t i = 0;
    for (auto _ : state)
    {
        float from = s.times[i];
        float step = (239.0f / 24.0f) / 239.0f;
        for (int k = 0; k < 240; ++k)
            out[k] = baselineEvaluate(s, k * step + from, tol);
        benchmark::DoNotOptimize(out[239]);
        i = (i + 1) & 4095;
    }
}
BENCHMARK(BM_BaselineRange)->Apply(chbenchSamples);

// Through the host's entry point: the evaluation context, the error check.
void BM_CollectionRandom(benchmark::State &state)
{
    chBenchScene &s = scene();
    int thread = UT_Thread::getMySequentialThreadIndex();
    std::size_t i = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(s.obj.evaluate(s.channel, s.times[i], false, thread));
        i = (i + 1) & 4095;
    }
}
BENCHMARK(BM_CollectionRandom)->Apply(chbenchSamples);

} // namespace

CHBENCH_RATIO("core_eval_random", BM_ChannelRandom, BM_BaselineRandom);
CHBENCH_RATIO("core_eval_range", BM_ChannelRange, BM_BaselineRange);
