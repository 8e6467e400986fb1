#include "chbench.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <unistd.h>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

struct chComparison
{
    std::string name, ours, baseline;
};

std::vector<chComparison> &chComparisons()
{
    static std::vector<chComparison> list;
    return list;
}

std::vector<std::pair<std::string, double>> &chFigures()
{
    static std::vector<std::pair<std::string, double>> list;
    return list;
}

// Prints the usual table and keeps, per benchmark, the fastest time per
// iteration over its repetitions.
class chReporter : public benchmark::ConsoleReporter
{
public:
    // Colour only on a terminal: tools read the ratio lines from pipes.
    chReporter() : ConsoleReporter(isatty(fileno(stdout)) ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run> &runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred || run.iterations == 0)
                continue;
            double ns = run.GetAdjustedRealTime() *
                        benchmark::GetTimeUnitMultiplier(benchmark::kNanosecond) /
                        benchmark::GetTimeUnitMultiplier(run.time_unit);
            std::string name = run.run_name.function_name;
            auto it = myBest.find(name);
            if (it == myBest.end() || ns < it->second)
                myBest[name] = ns;
        }
    }

    const std::map<std::string, double> &best() const { return myBest; }

private:
    std::map<std::string, double> myBest;
};

} // namespace

void chbenchCompare(const std::string &name, const std::string &ours, const std::string &baseline)
{
    chComparisons().push_back({name, ours, baseline});
}

void chbenchFigure(const std::string &name, double value)
{
    auto &figures = chFigures();
    for (auto &f : figures)
        if (f.first == name) {
            f.second = value;
            return;
        }
    figures.emplace_back(name, value);
}

int main(int argc, char **argv)
{
    // Interleaved repetitions unless the command line says otherwise.
    std::vector<char *> args(argv, argv + argc);
    bool interleaving_given = false;
    for (int i = 1; i < argc; ++i)
        if (std::string(argv[i]).rfind("--benchmark_enable_random_interleaving", 0) == 0)
            interleaving_given = true;
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    if (!interleaving_given)
        args.insert(args.begin() + 1, interleave);
    args.push_back(nullptr);
    argc = static_cast<int>(args.size()) - 1;
    argv = args.data();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    chReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::cout.flush();
    const auto &best = reporter.best();
    for (const chComparison &c : chComparisons()) {
        auto ours = best.find(c.ours), base = best.find(c.baseline);
        if (ours == best.end() || base == best.end())
            continue; // filtered out on the command line
        std::printf("ratio %s %.3f %.3f %.3f\n", c.name.c_str(), ours->second, base->second,
                    base->second > 0 ? ours->second / base->second : 0.0);
    }
    for (const auto &f : chFigures())
        std::printf("figure %s %g\n", f.first.c_str(), f.second);
    return 0;
}
