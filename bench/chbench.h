#ifndef CHBENCH_H
#define CHBENCH_H

// Helpers shared by the benchmark programs.
//
// A comparison pairs one of our benchmarks with its baseline, both run in
// the same process; after the usual table the program prints
//     ratio <name> <ours_ns> <baseline_ns> <ratio>
// per comparison (times per iteration, the fastest of the repetitions) and
//     figure <name> <value>
// per absolute figure recorded with chbenchFigure.

#include <benchmark/benchmark.h>

#include <cmath>

#include <string>

/// Declares that benchmark 'ours' is compared with benchmark 'baseline'
/// under 'name'.
void chbenchCompare(const std::string &name, const std::string &ours, const std::string &baseline);

/// How a compared benchmark is sampled: ten short repetitions. The programs
/// run repetitions of all benchmarks in random order (unless told otherwise
/// with --benchmark_enable_random_interleaving=false), so the fastest sample
/// of ours and of its baseline come from equally quiet moments of a busy
/// machine rather than from whatever stretch each happened to run in.
inline void chbenchSamples(benchmark::internal::Benchmark *b)
{
    b->Repetitions(10)->MinTime(0.1);
}

/// Records an absolute figure (memory, counts...) printed after the table.
void chbenchFigure(const std::string &name, double value);

struct chbenchComparison
{
    chbenchComparison(const char *name, const char *ours, const char *baseline)
    {
        chbenchCompare(name, ours, baseline);
    }
};

#define CHBENCH_CONCAT2(a, b) a##b
#define CHBENCH_CONCAT(a, b) CHBENCH_CONCAT2(a, b)
/// CHBENCH_RATIO(name, ours, baseline) at namespace scope.
#define CHBENCH_RATIO(name, ours, baseline) \
    static chbenchComparison CHBENCH_CONCAT(theComparison, __LINE__)(name, #ours, #baseline)

/// The hand-written baselines' segment search over key times (segment i
/// spans keys[i] .. keys[i + 1], n + 1 keys): the channel's tolerance binary
/// search for a time inside the keys, where a key belongs to the segment
/// starting there. Inline, so each baseline compiles it into its own loop.
inline int chbenchSegmentIndex(const float *keys, int n, float t, float tol)
{
    int lo = 0, hi = n - 1;
    while (hi - lo > 1)
    {
        int mid = (lo + hi) / 2;
        float start = keys[mid], end = keys[mid + 1];
        if (start <= t + tol && end >= t - tol)
        {
            if (std::fabs(end - t) > tol)
                return mid;
            return mid < n - 1 ? mid + 1 : mid;
        }
        if (start <= t + tol)
            lo = mid;
        else
            hi = mid;
    }
    return keys[hi] - t > tol ? lo : hi;
}

#endif
