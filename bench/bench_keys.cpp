// Key queries by time and frame on channels of a thousand and a million
// keys: each is a search over the key times, so the cost per query should
// grow with log n only (about twice from 1e3 to 1e6 keys), not with n.
#include "chbench.h"

#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>
#include <support/chTestChannelBuilder.h>
#include <ut/UT_IntArray.h>

#include <map>
#include <memory>
#include <random>
#include <vector>

namespace {

constexpr float theKeyStep = 0.25f; // six frames at 24 fps

struct chKeyScene
{
    CH_Manager manager;
    CH_Collection root{&manager};
    CH_Collection obj{&manager, &root, "obj"};
    CH_Channel *channel = nullptr;
    std::vector<float> times;
    std::vector<int> frames;

    explicit chKeyScene(int n)
    {
        manager.setContext();
        manager.setSamplesPerSec(24);
        channel = obj.addChannel("tx");
        std::vector<chTestKey> keys(static_cast<std::size_t>(n));
        for (int i = 0; i < n; ++i)
            keys[static_cast<std::size_t>(i)] = {i * theKeyStep, 0.0f};
        chTestChannelBuilder::build(*channel, keys);
        std::mt19937 rng(11);
        std::uniform_int_distribution<int> key(0, n - 1);
        for (int i = 0; i < 4096; ++i)
        {
            // Half on a key, half between keys.
            int k = key(rng);
            times.push_back(k * theKeyStep + (i & 1 ? theKeyStep / 2 : 0.0f));
            frames.push_back(manager.getFrame(times.back()));
        }
    }
};

chKeyScene &scene(int n)
{
    static std::map<int, std::unique_ptr<chKeyScene>> scenes;
    auto &s = scenes[n];
    if (!s)
        s = std::make_unique<chKeyScene>(n);
    s->manager.setContext();
    return *s;
}

void BM_IsAtHardKey(benchmark::State &state)
{
    chKeyScene &s = scene(static_cast<int>(state.range(0)));
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(s.channel->isAtHardKey(s.times[i++ & 4095]));
}

void BM_IsAtHardKeyframe(benchmark::State &state)
{
    chKeyScene &s = scene(static_cast<int>(state.range(0)));
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(s.channel->isAtHardKeyframe(s.frames[i++ & 4095]));
}

void BM_FindKeyframe(benchmark::State &state)
{
    chKeyScene &s = scene(static_cast<int>(state.range(0)));
    std::size_t i = 0;
    for (auto _ : state)
    {
        int f = s.frames[i++ & 4095];
        benchmark::DoNotOptimize(s.channel->findKeyframe(f, (f & 1) ? 1 : -1));
    }
}

// A window of 48 frames: eight keys each time.
void BM_GetKeyFrames(benchmark::State &state)
{
    chKeyScene &s = scene(static_cast<int>(state.range(0)));
    UT_IntArray out;
    std::size_t i = 0;
    for (auto _ : state)
    {
        float t = s.times[i++ & 4095];
        s.channel->getKeyFrames(out, t, t + 2.0f);
        benchmark::DoNotOptimize(out.data());
    }
}

} // namespace

BENCHMARK(BM_IsAtHardKey)->Arg(1000)->Arg(1000000);
BENCHMARK(BM_IsAtHardKeyframe)->Arg(1000)->Arg(1000000);
BENCHMARK(BM_FindKeyframe)->Arg(1000)->Arg(1000000);
BENCHMARK(BM_GetKeyFrames)->Arg(1000)->Arg(1000000);
