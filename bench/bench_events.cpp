// Change events: a batch of edits against delivering each edit at once.
#include "chbench.h"

#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_EventManager.h>
#include <ch/manager/CH_Manager.h>

#include <string>
#include <vector>

namespace {

constexpr int theChannels = 100;
constexpr int theEdits = 10000;

// A host's collection that only counts what reaches it.
class chCountingCollection : public CH_Collection
{
public:
    using CH_Collection::CH_Collection;
    void setChanged(CH_CHANGE_TYPE, void *) override { ++count; }
    long count = 0;
};

struct chEventScene
{
    chEventScene()
    {
        manager.setContext();
        for (int i = 0; i < theChannels; ++i)
            channels.push_back(collection.addChannel(("c" + std::to_string(i)).c_str()));
    }
    CH_Manager manager;
    chCountingCollection collection{&manager, nullptr, "obj"};
    std::vector<CH_Channel *> channels;
};

chEventScene &scene()
{
    static chEventScene *theScene = new chEventScene;
    return *theScene;
}

// Every channel edited 100 times, round robin, inside one batch; the
// delivery at the end of the batch is part of the work.
void BM_BatchedEvents(benchmark::State &state)
{
    chEventScene &s = scene();
    for (auto _ : state) {
        {
            CH_AutoEventHandler batch;
            for (int i = 0; i < theEdits; ++i)
                CHevent(CH_CHANNEL_CHANGED, s.channels[i % theChannels]);
        }
        benchmark::DoNotOptimize(s.collection.count);
    }
}
BENCHMARK(BM_BatchedEvents)->Apply(chbenchSamples);

// Baseline: the same edits outside any batch, each delivered at once.
void BM_ImmediateEvents(benchmark::State &state)
{
    chEventScene &s = scene();
    for (auto _ : state) {
        for (int i = 0; i < theEdits; ++i)
            CHevent(CH_CHANNEL_CHANGED, s.channels[i % theChannels]);
        benchmark::DoNotOptimize(s.collection.count);
    }
}
BENCHMARK(BM_ImmediateEvents)->Apply(chbenchSamples);

} // namespace

CHBENCH_RATIO("batch_events", BM_BatchedEvents, BM_ImmediateEvents);
