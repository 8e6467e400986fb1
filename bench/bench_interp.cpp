// Evaluation of 1,000-key channels of one interpolation function each
// (constant, linear, cubic, bezier, ease, quintic), at random times and over
// a 240-frame range with the sample cache off, beside a hand-written
// evaluation of the same segments: the same tolerance search and the same
// formula on a copy of the segment numbers. None calls the library's curve
// code.
//
// Spline channels of 10, 100 and 500 keys at random times give the figures
// spline_eval_ns_<keys>; the 500-key one is compared with a hand-written
// Hermite over the same knots.
#include "chbench.h"

#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_SegmentValues.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>
#include <ev/EV_Engine.h>
#include <support/chTestChannelBuilder.h>
#include <ut/UT_Thread.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
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
            channels[k] = obj.addChannel(("kind" + std::to_string(k)).c_str());
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
            for (std::size_t i = 0; i < scene->times.size(); ++i)
            {
                float t = scene->times[i];
                float ours = scene->channels[k]->evaluate(t, false, 0);
                float base = baselineEvaluate(*scene, chKind(k), t, scene->manager.getTolerance());
                if (!(std::fabs(ours - base) <= 1e-4f * (1.0f + std::fabs(base))))
                {
                    std::fprintf(stderr, "baseline differs: %s at %g: %g vs %g\n", theExprs[k], t, ours, base);
                    std::abort();
                }
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

// The Bezier curve by hand: each handle |accel| long along its slope, cut
// back to the segment; the time cubic's parameter by Newton steps from the
// straight-line guess; then the value cubic.
float baselineBezier(const CH_SegmentValues &s, float t)
{
    float l = s.myEnd - s.myStart;
    auto handle = [l](float slope, float accel, float &dt, float &dv) {
        float norm = std::sqrt(slope * slope + 1.0f), a = std::fabs(accel);
        dt = a / norm;
        dv = a * slope / norm;
        if (dt > l)
        {
            dv *= l / dt;
            dt = l;
        }
    };
    float in_dt, in_dv, out_dt, out_dv;
    handle(s.myInSlope, s.myInAccel, in_dt, in_dv);
    handle(s.myOutSlope, s.myOutAccel, out_dt, out_dv);
    // Time from the start key: x(u) = ((c3·u + c2)·u + c1)·u. The inner
    // points are placed on the time line first, as the curve keeps them
    // (far from time 0 that rounds them).
    float x1 = (s.myStart + in_dt) - s.myStart, x2 = (s.myEnd - out_dt) - s.myStart;
    float c1 = 3.0f * x1, c2 = 3.0f * x2 - 6.0f * x1, c3 = l - 3.0f * x2 + 3.0f * x1;
    float tau = t - s.myStart, u = tau / l;
    for (int i = 0; i < 8; ++i)
    {
        float f = ((c3 * u + c2) * u + c1) * u - tau;
        float du = f / ((3.0f * c3 * u + 2.0f * c2) * u + c1);
        u = std::fmin(std::fmax(u - du, 0.0f), 1.0f);
        if (std::fabs(du) < 1e-6f)
            break;
    }
    float y0 = s.myInValue, y1 = y0 + in_dv, y3 = s.myOutValue, y2 = y3 - out_dv, v = 1.0f - u;
    return v * v * v * y0 + 3.0f * u * v * v * y1 + 3.0f * u * u * v * y2 + u * u * u * y3;
}

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
        return baselineBezier(s, t);
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

// ---- Spline channels ----------------------------------------------------------

// A spline channel of n keys half a second apart with random values, the
// baseline's copy of its knots with their tangents (centred differences
// inside, one-sided at the ends), and random times inside the keys.
struct chSplineScene
{
    CH_Channel *channel = nullptr;
    std::vector<float> knots, values, tangents, times;

    chSplineScene(chBenchScene &scene, int n)
    {
        std::mt19937 rng(static_cast<unsigned>(n));
        std::uniform_real_distribution<float> value(-10.0f, 10.0f);
        std::vector<chTestKey> keys;
        for (int i = 0; i < n; ++i)
        {
            keys.push_back({i * theKeyStep, value(rng), 0.0f, 0.0f, "spline()"});
            knots.push_back(keys.back().time);
            values.push_back(keys.back().value);
        }
        channel = scene.obj.addChannel(("spline" + std::to_string(n)).c_str());
        chTestChannelBuilder::build(*channel, keys);
        for (int i = 0; i < n; ++i)
        {
            int a = i ? i - 1 : 0, b = i + 1 < n ? i + 1 : n - 1;
            tangents.push_back((values[b] - values[a]) / (knots[b] - knots[a]));
        }
        std::uniform_real_distribution<float> d(0.0f, knots.back());
        for (int i = 0; i < 4096; ++i)
            times.push_back(d(rng));
    }

    // Hermite on the knot interval holding t.
    float baseline(float t) const
    {
        int n = static_cast<int>(knots.size());
        if (!(t > knots.front()))
            return values.front();
        if (!(t < knots.back()))
            return values.back();
        int lo = 0, hi = n - 1; // knots[lo] <= t < knots[hi]
        while (hi - lo > 1)
        {
            int mid = (lo + hi) / 2;
            (knots[mid] <= t ? lo : hi) = mid;
        }
        float h = knots[hi] - knots[lo], s = (t - knots[lo]) / h, s2 = s * s, s3 = s2 * s;
        return (2.0f * s3 - 3.0f * s2 + 1.0f) * values[lo] + (s3 - 2.0f * s2 + s) * h * tangents[lo] +
               (3.0f * s2 - 2.0f * s3) * values[hi] + (s3 - s2) * h * tangents[hi];
    }
};

chSplineScene &splineScene(int n)
{
    static chSplineScene *scenes[3] = {};
    int k = n == 10 ? 0 : n == 100 ? 1 : 2;
    if (!scenes[k])
    {
        scenes[k] = new chSplineScene(scene(), n);
        for (float t : scenes[k]->times)
        {
            float ours = scenes[k]->channel->evaluate(t, false, 0), base = scenes[k]->baseline(t);
            if (!(std::fabs(ours - base) <= 1e-4f * (1.0f + std::fabs(base))))
            {
                std::fprintf(stderr, "baseline differs: spline of %d keys at %g: %g vs %g\n", n, t, ours, base);
                std::abort();
            }
        }
    }
    return *scenes[k];
}

// Also records spline_eval_ns_<keys>: the fastest repetition's mean time
// per sample.
void BM_SplineRandom(benchmark::State &state, int n)
{
    chSplineScene &s = splineScene(n);
    static double best[3] = {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::infinity()};
    double &mine = best[n == 10 ? 0 : n == 100 ? 1 : 2];
    int thread = UT_Thread::getMySequentialThreadIndex();
    std::size_t i = 0, count = 0;
    auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(s.channel->evaluate(s.times[i], false, thread));
        i = (i + 1) & 4095;
        ++count;
    }
    double ns = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
    if (count && ns / count < mine)
    {
        mine = ns / count;
        chbenchFigure("spline_eval_ns_" + std::to_string(n), mine);
    }
}
BENCHMARK_CAPTURE(BM_SplineRandom, 10, 10)->Apply(chbenchSamples);
BENCHMARK_CAPTURE(BM_SplineRandom, 100, 100)->Apply(chbenchSamples);
BENCHMARK_CAPTURE(BM_SplineRandom, 500, 500)->Apply(chbenchSamples);

void BM_BaseSplineRandom(benchmark::State &state, int n)
{
    chSplineScene &s = splineScene(n);
    std::size_t i = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(s.baseline(s.times[i]));
        i = (i + 1) & 4095;
    }
}
BENCHMARK_CAPTURE(BM_BaseSplineRandom, 500, 500)->Apply(chbenchSamples);

} // namespace

CHBENCH_RATIO("eval_random_spline", BM_SplineRandom/500, BM_BaseSplineRandom/500);
