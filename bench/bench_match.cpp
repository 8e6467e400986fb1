// Evaluation of 1,000-key channels of match() and cycle segments at random
// times inside their keys, beside a hand-written evaluation of the same
// math on arrays of the key times and values: the tolerance search of
// bench_channel.cpp, then the linear formula, the Hermite join between the
// linear neighbours, or the cycle mapping with its per-cycle offset.
//
// match: segments alternate linear() and match(), so every match() segment
// joins two linear ones. cycle: blocks of three linear() segments (a 1.5 s
// keyed range) followed by a 4 s cyclet() segment replaying that range,
// which crosses two cycle boundaries.
#include "chbench.h"

#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>
#include <support/chTestChannelBuilder.h>
#include <ut/UT_Thread.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int theKeys = 1000;

enum chKind { MATCH, CYCLE, KINDS };

struct chKeys
{
    std::vector<float> times, values;
    std::vector<std::string> exprs;
};

struct chBenchScene
{
    CH_Manager manager;
    CH_Collection root{&manager};
    CH_Collection obj{&manager, &root, "obj"};
    CH_Channel *channels[KINDS];
    chKeys keys[KINDS]; // the baseline's copy
    std::vector<float> times[KINDS];

    chBenchScene()
    {
        manager.setContext();
        std::mt19937 rng(11);
        std::uniform_real_distribution<float> value(-10.0f, 10.0f);
        for (int i = 0; i < theKeys; ++i)
        {
            keys[MATCH].times.push_back(0.5f * i);
            keys[MATCH].values.push_back(value(rng));
            keys[MATCH].exprs.push_back(i % 2 ? "match()" : "linear()");
            int block = i / 4, k = i % 4;
            float t = 5.5f * block + 0.5f * k;
            keys[CYCLE].times.push_back(t);
            keys[CYCLE].values.push_back(value(rng));
            keys[CYCLE].exprs.push_back(k < 3 ? std::string("linear()")
                                              : "cyclet(" + std::to_string(5.5 * block) + ", " +
                                                    std::to_string(5.5 * block + 1.5) + ")");
        }
        const char *names[KINDS] = {"match", "cycle"};
        for (int c = 0; c < KINDS; ++c)
        {
            std::vector<chTestKey> k;
            for (int i = 0; i < theKeys; ++i)
                k.push_back({keys[c].times[i], keys[c].values[i], 0, 0, keys[c].exprs[i].c_str()});
            channels[c] = obj.addChannel(names[c]);
            chTestChannelBuilder::build(*channels[c], k);
            std::uniform_real_distribution<float> d(0.0f, keys[c].times.back() - 0.01f);
            for (int i = 0; i < 4096; ++i)
                times[c].push_back(d(rng));
        }
    }
};

float baselineEvaluate(const chKeys &k, chKind kind, float t, float tol);

chBenchScene &scene()
{
    static chBenchScene *s = [] {
        auto *scene = new chBenchScene;
        // The baseline must compute what the channel does, or the ratio means nothing.
        for (int c = 0; c < KINDS; ++c)
            for (int i = 0; i < 300; ++i)
            {
                float t = scene->times[c][static_cast<std::size_t>(i)];
                float ours = scene->channels[c]->evaluate(t, false, 0);
                float base = baselineEvaluate(scene->keys[c], chKind(c), t, scene->manager.getTolerance());
                if (!(std::fabs(ours - base) <= 1e-4f * (1.0f + std::fabs(base))))
                {
                    std::fprintf(stderr, "baseline differs: kind %d at %g: %g vs %g\n", c, t, ours, base);
                    std::abort();
                }
            }
        return scene;
    }();
    return *s;
}

// The segment index a local time inside the keys falls in (a key belongs to
// the segment starting there), as in bench_channel.cpp.
int baselineSegment(const std::vector<float> &key, float t, float tol)
{
    return chbenchSegmentIndex(key.data(), static_cast<int>(key.size()) - 1, t, tol);
}

float linearAt(const chKeys &k, int i, float t)
{
    float s = k.times[i], e = k.times[i + 1], in = k.values[i], out = k.values[i + 1];
    float f = t <= s ? 0.0f : t >= e ? 1.0f : (t - s) / (e - s);
    return in + (out - in) * f;
}

float linearSlope(const chKeys &k, int i)
{
    return static_cast<float>((double(k.values[i + 1]) - k.values[i]) / (double(k.times[i + 1]) - k.times[i]));
}

// match() between linear segments i - 1 and i + 1 (their keys touch its own).
float baselineMatch(const chKeys &k, int i, float t)
{
    float start = k.times[i], end = k.times[i + 1], l = end - start;
    float in = linearAt(k, i - 1, start), out = linearAt(k, i + 1, end);
    float si = linearSlope(k, i - 1), so = linearSlope(k, i + 1);
    float u = (t - start) / l;
    float a = l * si, b = (si + so) * l + 2.0f * (in - out);
    return (((out - in - a - b) + b * u) * u + a) * u + in;
}

// cyclet() of segment i over the three linear segments i - 3 .. i - 1.
float baselineCycle(const chKeys &k, int i, float t, float tol)
{
    float ts = k.times[i - 3], te = k.times[i], w = te - ts;
    float f = (t - k.times[i]) / w, whole = std::floor(f), r = f - whole;
    float n = whole;
    if (r - 1.0f >= -1e-5f)
        r = 0.0f, n += 1.0f;
    float m = ts + r * w;
    if (!(m < te - 8e-5f))
        m = ts, n += 1.0f;
    float v_start = k.values[i - 3], v_end = linearAt(k, i - 1, te);
    int j = baselineSegment(k.times, m, tol);
    float v_m = j == i ? linearAt(k, i - 1, m) : linearAt(k, j, m); // a time on the key: the left side
    return k.values[i] + (v_m - v_start) + n * (v_end - v_start);
}

float baselineEvaluate(const chKeys &k, chKind kind, float t, float tol)
{
    int i = baselineSegment(k.times, t, tol);
    bool linear = kind == MATCH ? i % 2 == 0 : i % 4 < 3;
    if (linear)
        return linearAt(k, i, t);
    return kind == MATCH ? baselineMatch(k, i, t) : baselineCycle(k, i, t, tol);
}

void BM_ChannelRandom(benchmark::State &state, chKind kind)
{
    chBenchScene &s = scene();
    int thread = UT_Thread::getMySequentialThreadIndex();
    std::size_t i = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(s.channels[kind]->evaluate(s.times[kind][i], false, thread));
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
        benchmark::DoNotOptimize(baselineEvaluate(s.keys[kind], kind, s.times[kind][i], tol));
        i = (i + 1) & 4095;
    }
}

BENCHMARK_CAPTURE(BM_ChannelRandom, match, MATCH)->Apply(chbenchSamples);
BENCHMARK_CAPTURE(BM_BaseRandom, match, MATCH)->Apply(chbenchSamples);
BENCHMARK_CAPTURE(BM_ChannelRandom, cycle, CYCLE)->Apply(chbenchSamples);
BENCHMARK_CAPTURE(BM_BaseRandom, cycle, CYCLE)->Apply(chbenchSamples);
CHBENCH_RATIO("eval_random_match", BM_ChannelRandom/match, BM_BaseRandom/match);
CHBENCH_RATIO("eval_random_cycle", BM_ChannelRandom/cycle, BM_BaseRandom/cycle);

} // namespace
