// Channel lookup by name in a collection of 1,000 channels (some aliased),
// half the names missing, against a std::unordered_map<std::string, void *>
// of the same names looked up as a user would write it: map.find(name) with
// a const char *, which builds a std::string per lookup.
#include "chbench.h"

#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

constexpr int theChannels = 1000;
constexpr int theQueries = 4096; // a power of two

struct chBenchNames
{
    CH_Manager manager;
    CH_Collection root{&manager};
    CH_Collection obj{&manager, &root, "obj"};
    std::unordered_map<std::string, void *> map;
    std::vector<std::string> texts; // own the queries' characters
    std::vector<const char *> queries;

    chBenchNames()
    {
        manager.setContext();
        // Realistic parameter names: short ones ("node_tx_42") and ones past
        // the 15 characters a std::string holds without allocating.
        const char *const params[] = {"tx", "ty", "tz", "rx", "ry", "rz", "sx", "sy", "sz",
                                      "pivot_rx", "look_at_blend", "uniform_scale"};
        std::vector<std::string> names, aliases;
        for (int i = 0; i < theChannels; ++i) {
            const std::string param = params[i % 12];
            std::string name = (i % 3 ? "node_" : "transform_") + param + "_" + std::to_string(i);
            CH_Channel *c = obj.addChannel(name.c_str());
            map.emplace(name, c);
            names.push_back(name);
            if (i % 10 == 0) { // some aliases
                std::string alias = "alias_" + param + "_" + std::to_string(i);
                obj.setChannelAlias(*c, alias.c_str());
                map.emplace(alias, c);
                aliases.push_back(alias);
            }
        }
        // Half hits (one in ten of them an alias), half misses of the same
        // shapes and lengths (numbers past the last channel's).
        std::mt19937 rng(11);
        for (int q = 0; q < theQueries; ++q) {
            if (q % 2 == 0) {
                texts.push_back(q % 20 == 0 ? aliases[rng() % aliases.size()] : names[rng() % names.size()]);
            } else {
                int i = static_cast<int>(rng() % theChannels);
                texts.push_back((i % 3 ? "node_" : "transform_") + std::string(params[i % 12]) + "_" +
                                std::to_string(theChannels + i));
            }
        }
        std::shuffle(texts.begin(), texts.end(), rng);
        int hits = 0;
        for (const std::string &t : texts) {
            queries.push_back(t.c_str());
            auto it = map.find(t);
            if ((it == map.end() ? nullptr : it->second) != obj.getChannel(t.c_str())) {
                std::fprintf(stderr, "the two tables disagree on %s\n", t.c_str());
                std::abort();
            }
            hits += it != map.end();
        }
        if (hits != theQueries / 2) {
            std::fprintf(stderr, "%d hits of %d queries\n", hits, theQueries);
            std::abort();
        }
    }
};

chBenchNames &names()
{
    static chBenchNames *s = new chBenchNames;
    return *s;
}

void BM_CollectionFind(benchmark::State &state)
{
    const chBenchNames &s = names();
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(s.obj.getChannel(s.queries[i]));
        i = (i + 1) & (theQueries - 1);
    }
}
BENCHMARK(BM_CollectionFind)->Apply(chbenchSamples);

void BM_BaselineMapFind(benchmark::State &state)
{
    const chBenchNames &s = names();
    std::size_t i = 0;
    for (auto _ : state) {
        auto it = s.map.find(s.queries[i]);
        benchmark::DoNotOptimize(it == s.map.end() ? nullptr : it->second);
        i = (i + 1) & (theQueries - 1);
    }
}
BENCHMARK(BM_BaselineMapFind)->Apply(chbenchSamples);

} // namespace

CHBENCH_RATIO("find_channel", BM_CollectionFind, BM_BaselineMapFind);
