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

#include <string>

/// Declares that benchmark 'ours' is compared with benchmark 'baseline'
/// under 'name'.
void chbenchCompare(const std::string &name, const std::string &ours, const std::string &baseline);

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

#endif
