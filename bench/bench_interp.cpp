// Evaluation of 1,000-key channels of one interpolation function each
// (constant, linear, cubic, bezier, ease, quintic), at random times and over
// a 240-frame range with the sample cache off, beside a hand-written
// evaluation of the same segments: the same tolerance search and the same
// formula on a copy of the segment numbers.
#include "chbench.h"

#include <ch/channel/CH_Bezier.h>
#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_SegmentValues.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>
#include <ev/EV_Engine.h>
#include <support/chTestChannelBuilder.h>
#include <ut/UT_Thread.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <random>
#include <vector>

namespace {

constexpr int theKeys = 1000;
constexpr float theKeyStep = 0.5f;

enum chKind { CONSTANT, LINEAR, CUBIC, BEZIER, EASE, QUINTIC, KINDS };
const char *const theExprs[KINDS] = {"constant()", "linear()", "cubic()", "bezier()", "ease()", "quintic()"};

struct chBenchScene
{
    CH_Manager manager;
    CH_Collection root{&manager};
    CH_Collection obj{&manager, &root, "obj"};
    CH_Channel *channels[KINDS];
    std::vector<CH_SegmentValues> segments[KINDS]; // the baseline's copy, end segment last
    std::vector<float> starts;
    std::vector<float> times;

    chBenchScene()
    {
        manager.setContext();
        std::mt19937 rng(7);
        std::uniform_real_distribution<float> value(-10.0f, 10.0f), slope(-3.0f, 3.0f), accel(0.05f, 0.3f);
        std::vector<chTestKey> keys(theKeys);
        for (int i = 0; i < theKeys; ++i)
        {
            keys[i] = {i * theKeyStep, value(rng), slope(rng), accel(rng)};
            starts.push_back(i * theKeyStep);
        }
        for (int k = 0; k < KINDS; ++k)
        {
            channels[k] = obj.addChannel(theExprs[k]);
            for (chTestKey &key : keys)
                key.expr = theExprs[k];
            chTestChannelBuilder::build(*channels[k], keys);
            for (int i = 0; i < theKeys; ++i) // numbers as the segments keep them (accels clamped)
                segments[k].emplace_back(*channels[k]->getSegment(static_cast<unsigned>(i)));
        }
        std::uniform_real_distribution<float> d(-1.0f, theKeys * theKeyStep + 1.0f);
        for (int i = 0; i < 4096; ++i)
            times.push_back(d(rng));
    }
};

float baselineEvaluate(const chBenchScene &s, chKind kind, float t, float tol);

chBenchScene &scene()
{
    static chBenchScene *s = [] {
        auto *scene = new chBenchScene;
        // The baseline must compute what the channel does, or the ratio means nothing.
        for (int k = 0; k < KINDS; ++k)
            for (int i = 0; i < 200; ++i)
            {
                float t = scene->times[static_cast<std::size_t>(i)];
                float ours = scene->channels[k]->evaluate(t, false, 0);
                float base = baselineEvaluate(*scene, chKind(k), t, scene->manager.getTolerance());
                if (!(std::fabs(ours - base) <= 1e-4f * (1.0f + std::fabs(base))))
                    std::fprintf(stderr, "baseline differs: %s at %g: %g vs %g\n", theExprs[k], t, ours, base);
            }
        return scene;
    }();
    return *s;
}

// The segment a local time falls in, as the channel finds it: the tolerance
// binary search of bench_channel.cpp, returning the index (n: the end segment).
int baselineSegment(const std::vector<float> &starts, float t, float tol)
{
    int n = static_cast<int>(starts.size()) - 1;
    float length = starts[n];
    if (t < -tol)
        return 0;
    if (!(t - length < -tol))
        return n;
    return chbenchSegmentIndex(starts.data(), n, t, tol);
}

inline bool degenerate(float l) { return l > -1e-5f && l < 1e-5f; }

// The interpolation formula of each kind, written out on the segment numbers.
float baselineFormula(chKind kind, const CH_SegmentValues &s, float t)
{
    float in = s.myInValue, out = s.myOutValue, l = s.myEnd - s.myStart;
    switch (kind)
    {
    case CONSTANT: return in;
    case LINEAR:
    {
        float f = t <= s.myStart ? 0.0f : t >= s.myEnd ? 1.0f : degenerate(l) ? 0.5f : (t - s.myStart) / l;
        return in + (out - in) * f;
    }
    case EASE:
    {
        if (t <= s.myStart)
            return in;
        if (t >= s.myEnd)
            return out;
        float e = degenerate(l) ? 0.5f : 0.5f - 0.5f * std::cos(3.1415927f * ((t - s.myStart) / l));
        return in + e * (out - in);
    }
    default: break;
    }
    if (degenerate(l))
        return (in + out) * 0.5f;
    if (t <= s.myStart)
        return in;
    if (t >= s.myEnd)
        return out;
    float u = (t - s.myStart) / l;
    if (kind == CUBIC)
    {
        float a = l * s.myInSlope, b = (s.myInSlope + s.myOutSlope) * l + 2.0f * (in - out);
        return (((out - in - a - b) + b * u) * u + a) * u + in;
    }
    if (kind == BEZIER)
        return CH_Bezier(s).eval(t);
    float a = s.myInSlope * l, c = 0.5f * s.myInAccel * l, d = out - in - a - c;
    float e = s.myOutSlope * l - a - s.myInAccel * l, f = s.myOutAccel * l - s.myInAccel * l;
    float c5 = 0.5f * (f - 6.0f * e + 12.0f * d), c4 = 0.25f * (f - 2.0f * e - 10.0f * c5), c3 = d - c4 - c5;
    return in + u * (a + u * (c + u * (c3 + u * (c4 + u * c5))));
}

float baselineEvaluate(const chBenchScene &s, chKind kind, float t, float tol)
{
    return baselineFormula(kind, s.segments[kind][baselineSegment(s.starts, t, tol)], t);
}

void BM_InterpRandom(benchmark::State &state, chKind kind)
{
    chBenchScene &s = scene();
    int thread = UT_Thread::getMySequentialThreadIndex();
    std::size_t i = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(s.channels[kind]->evaluate(s.times[i], false, thread));
        i = (i + 1) & 4095;
    }
}

void BM_BaseRandom(benchmark::State &state, chKind kind)
{
    chBenchScene &s = scene();
    float tol = s.manager.getTolerance();
    std::size_t i = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(baselineEvaluate(s, kind, s.times[i], tol));
        i = (i + 1) & 4095;
    }
}

// 240 frames from a random start, per iteration.
void BM_InterpRange(benchmark::State &state, chKind kind)
{
    chBenchScene &s = scene();
    int thread = UT_Thread::getMySequentialThreadIndex();
    float out[240];
    std::size_t i = 0;
    for (auto _ : state)
    {
        float from = s.times[i];
        s.channels[kind]->evaluate(from, from + 239.0f / 24.0f, out, 240, false, false, thread);
        benchmark::DoNotOptimize(out[239]);
        i = (i + 1) & 4095;
    }
}

void BM_BaseRange(benchmark::State &state, chKind kind)
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
            out[k] = baselineEvaluate(s, kind, k * step + from, tol);
        benchmark::DoNotOptimize(out[239]);
        i = (i + 1) & 4095;
    }
}

#define CH_INTERP_BENCH(kind, KIND)                                                                   \
    BENCHMARK_CAPTURE(BM_InterpRandom, kind, KIND)->Apply(chbenchSamples);                                   \
    BENCHMARK_CAPTURE(BM_BaseRandom, kind, KIND)->Apply(chbenchSamples);                                     \
    BENCHMARK_CAPTURE(BM_InterpRange, kind, KIND)->Apply(chbenchSamples);                                    \
    BENCHMARK_CAPTURE(BM_BaseRange, kind, KIND)->Apply(chbenchSamples);                                      \
    chbenchComparison theRandom_##kind("eval_random_" #kind, "BM_InterpRandom/" #kind, "BM_BaseRandom/" #kind); \
    chbenchComparison theRange_##kind("eval_range_" #kind, "BM_InterpRange/" #kind, "BM_BaseRange/" #kind)

CH_INTERP_BENCH(constant, CONSTANT);
CH_INTERP_BENCH(linear, LINEAR);
CH_INTERP_BENCH(cubic, CUBIC);
CH_INTERP_BENCH(bezier, BEZIER);
CH_INTERP_BENCH(ease, EASE);
CH_INTERP_BENCH(quintic, QUINTIC);

} // namespace
