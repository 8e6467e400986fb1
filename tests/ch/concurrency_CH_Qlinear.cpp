// qlinear() reads the rotation triple its collection resolved when names
// last changed. Evaluator threads run while the triples hold still; between
// rounds, with every evaluator parked, the editing thread renames, deletes
// and re-adds siblings and changes rotation orders. Each round must give
// what one thread alone gives for that round's names.
#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <support/chTestChannelBuilder.h>
#include <ut/UT_Thread.h>
#include <ut/UT_XformOrder.h>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cmath>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

// Everyone waits until all have arrived; reusable round after round.
class chBarrier
{
public:
    explicit chBarrier(int count) : myCount(count) {}
    void arrive()
    {
        std::unique_lock<std::mutex> guard(myLock);
        const unsigned generation = myGeneration;
        if (++myArrived == myCount) {
            myArrived = 0;
            ++myGeneration;
            myOpen.notify_all();
            return;
        }
        myOpen.wait(guard, [&] { return myGeneration != generation; });
    }

private:
    std::mutex myLock;
    std::condition_variable myOpen;
    const int myCount;
    int myArrived = 0;
    unsigned myGeneration = 0;
};

constexpr int theThreads = 20;
constexpr int theNodes = 4;
constexpr int theRounds = 12;
constexpr int theTimes = 16;
const char *const theAxes[3] = {"rx", "ry", "rz"};

// The three key values of an axis at times 0, 2 and 4; node n turns
// further than node n - 1.
void axisValues(int node, int axis, float v[3])
{
    v[0] = 10.0f * (axis + 1) + node;
    v[1] = -40.0f + 15.0f * axis - node;
    v[2] = 120.0f - 25.0f * axis;
}

void keyAxis(CH_Channel &c, int node, int axis)
{
    float v[3];
    axisValues(node, axis, v);
    chTestChannelBuilder::build(c, {{0, v[0], 0, 0, "qlinear()"}, {2, v[1], 0, 0, "qlinear()"},
                                    {4, v[2], 0, 0, "qlinear()"}});
}

// qlinear()'s fallback, (1 - u) in + u out, in the segment holding t.
float fallbackOf(int node, int axis, float t)
{
    float v[3];
    axisValues(node, axis, v);
    const int s = t < 2 ? 0 : 1;
    const float u = (t - 2.0f * s) / 2.0f;
    return (1.0f - u) * v[s] + u * v[s + 1];
}

struct chSample
{
    CH_Collection *node;
    CH_Channel *channel;
    float time;
    float expected;
};

TEST(CHQlinearConcurrency, TriplesFollowEditsMadeBetweenRounds)
{
    CH_Manager manager;
    manager.setContext();
    CH_Collection root(&manager);
    std::vector<std::unique_ptr<CH_Collection>> nodes;
    for (int n = 0; n < theNodes; ++n) {
        nodes.push_back(std::make_unique<CH_Collection>(&manager, &root, ("n" + std::to_string(n)).c_str()));
        for (int a = 0; a < 3; ++a)
            keyAxis(*nodes[n]->addChannel(theAxes[a]), n, a);
    }
    const UT_XformOrder orders[3] = {UT_XformOrder::XYZ, UT_XformOrder::ZXY, UT_XformOrder::YXZ};

    std::vector<chSample> samples; // written by the editor only while all evaluators are parked
    chBarrier start(theThreads + 1), done(theThreads + 1);
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < theThreads; ++i)
        threads.emplace_back([&] {
            const int thread = UT_Thread::getMySequentialThreadIndex();
            for (int round = 0; round < theRounds; ++round) {
                start.arrive();
                for (const chSample &s : samples)
                    if (s.node->evaluate(s.channel, s.time, false, thread) != s.expected)
                        mismatches.fetch_add(1);
                done.arrive();
            }
        });

    const int editor = UT_Thread::getMySequentialThreadIndex();
    int fallbacks = 0, slerped = 0;
    for (int round = 0; round < theRounds; ++round) {
        // Each node takes its own step of the cycle: whole, ry renamed away,
        // ry back and rz deleted, rz re-added.
        for (int n = 0; n < theNodes; ++n) {
            CH_Collection &node = *nodes[n];
            node.setXformOrder(orders[(round + n) % 3]);
            switch ((round + n) % 4) {
            case 0: break;
            case 1:
                if (node.getChannel("ry")) {
                    EXPECT_EQ(node.rename("ry", "ry_off"), 1);
                }
                break;
            case 2:
                if (node.getChannel("ry_off")) {
                    EXPECT_EQ(node.rename("ry_off", "ry"), 1);
                }
                node.deleteChannel("rz");
                break;
            case 3: keyAxis(*node.addChannel("rz"), n, 2); break;
            }
        }
        samples.clear();
        for (int n = 0; n < theNodes; ++n) {
            CH_Collection &node = *nodes[n];
            const bool whole = node.getChannel("ry") && node.getChannel("rz");
            for (CH_Channel *c : node.getChannels()) {
                const int axis = c->getName()[1] - 'x'; // ry_off keeps ry's keys
                for (int k = 0; k < theTimes; ++k) {
                    const float t = 0.1f + 3.8f * k / theTimes;
                    const float alone = node.evaluate(c, t, false, editor);
                    // A broken triple leaves each channel its own segment's line.
                    if (!whole) {
                        EXPECT_NEAR(alone, fallbackOf(n, axis, t), 1e-4f) << c->getName() << " at " << t;
                        ++fallbacks;
                    } else if (std::fabs(alone - fallbackOf(n, axis, t)) > 0.5f) {
                        ++slerped;
                    }
                    samples.push_back({&node, c, t, alone});
                }
            }
        }
        start.arrive();
        done.arrive();
    }
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_GT(fallbacks, 0);
    EXPECT_GT(slerped, 0);
}

} // namespace
