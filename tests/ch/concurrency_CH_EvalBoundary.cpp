// Thread 0 at the evaluation entry points is the calling thread's own
// number: a thread numbered beyond the slots is refused like an explicit
// number beyond them, rather than evaluating in the scratch slot that every
// such thread shares.
#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <ev/EV_Engine.h>
#include <support/chTestChannelBuilder.h>
#include <ut/UT_ErrorManager.h>
#include <ut/UT_Thread.h>

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace {

// Threads that take a number and hold it until released, so that the next
// new thread gets a larger one. Small stacks: thousands of them live at once.
class chNumberHolders
{
public:
    using Work = void (*)(void *);

    ~chNumberHolders()
    {
        {
            std::lock_guard<std::mutex> guard(myLock);
            myReleased = true;
        }
        myRelease.notify_all();
        for (pthread_t t : myThreads)
            pthread_join(t, nullptr);
    }

    /// Starts one thread; gives its number once it has one. A thread
    /// numbered above 'above' runs work(arg) before it waits.
    int start(int above, Work work, void *arg)
    {
        myAbove = above;
        myWork = work;
        myArg = arg;
        myNumber = 0;
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setstacksize(&attr, 256 * 1024);
        pthread_t t;
        int failed = pthread_create(&t, &attr, &chNumberHolders::main, this);
        pthread_attr_destroy(&attr);
        if (failed)
            return -1;
        myThreads.push_back(t);
        std::unique_lock<std::mutex> guard(myLock);
        myStarted.wait(guard, [this] { return myNumber != 0; });
        return myNumber;
    }

private:
    static void *main(void *self_arg)
    {
        auto *self = static_cast<chNumberHolders *>(self_arg);
        const int number = UT_Thread::getMySequentialThreadIndex();
        if (number > self->myAbove)
            self->myWork(self->myArg);
        std::unique_lock<std::mutex> guard(self->myLock);
        self->myNumber = number;
        self->myStarted.notify_one();
        self->myRelease.wait(guard, [self] { return self->myReleased; });
        return nullptr;
    }

    std::mutex myLock;
    std::condition_variable myStarted; // the main thread waits here
    std::condition_variable myRelease; // the holders wait here
    bool myReleased = false;
    int myNumber = 0;
    int myAbove = 0;
    Work myWork = nullptr;
    void *myArg = nullptr;
    std::vector<pthread_t> myThreads;
};

struct chScene
{
    CH_Manager manager;
    CH_Collection root{&manager};
    CH_Collection obj{&manager, &root, "obj"};
    CH_Channel *ch = nullptr;
    // What the thread numbered beyond the slots got, all through thread 0.
    float value = -1, segment = -1, sampled = -1, slope = -1, one_shot = -1, through_collection = -1;
    float range[2] = {-1, -1};
    std::string text = "x";
    std::size_t errors = 0;
    std::string messages;
};

void evaluateOnThreadZero(void *arg)
{
    chScene &s = *static_cast<chScene *>(arg);
    s.value = s.ch->evaluate(5.0f, false, 0);
    s.ch->evaluate(0.0f, 10.0f, s.range, 2, false, false, 0);
    UT_String text("x");
    s.ch->evaluateString(text, 5.0f, 0);
    s.text = text.toStdString();
    s.segment = s.ch->evaluateSegment(s.ch->getSegment(0u), 5.0f, false, 0);
    s.ch->sampleValueSlope(s.ch->getSegment(0u), 5.0f, 0, s.sampled, s.slope);
    s.through_collection = s.obj.evaluate(s.ch, 5.0f, false, 0);
    s.one_shot = s.manager.evaluate("1+1", 0.0f, nullptr, nullptr, 0, CH_ORVISH);
    s.errors = UT_ErrorManager::get().getErrorCount();
    s.messages = UT_ErrorManager::get().getFormattedErrors();
}

TEST(CHEvalBoundaryConcurrency, ThreadZeroNumberedBeyondTheSlotsIsRefused)
{
    chScene scene;
    scene.manager.setContext();
    scene.ch = scene.obj.addChannel("tx");
    chTestChannelBuilder::build(*scene.ch, {{0, 0, 0, 0, "linear()"}, {10, 10}});
    UT_ErrorManager::get().clear();

    const int max = UT_Thread::theMaxThreadNumber;
    int number = 0;
    {
        chNumberHolders holders;
        while (number >= 0 && number <= max)
            number = holders.start(max, &evaluateOnThreadZero, &scene);
    }
    ASSERT_GT(number, max) << "could not start enough threads";

    EXPECT_EQ(scene.value, 0.0f);
    EXPECT_EQ(scene.range[0], 0.0f);
    EXPECT_EQ(scene.range[1], 0.0f);
    EXPECT_EQ(scene.text, "");
    EXPECT_EQ(scene.segment, 0.0f);
    EXPECT_EQ(scene.sampled, 0.0f);
    EXPECT_EQ(scene.slope, 0.0f);
    EXPECT_EQ(scene.through_collection, 0.0f);
    EXPECT_EQ(scene.one_shot, 0.0f);
    EXPECT_EQ(scene.errors, 7u) << scene.messages;
    EXPECT_NE(scene.messages.find("Thread number " + std::to_string(number) + " is out of range"),
              std::string::npos)
        << scene.messages;
    UT_ErrorManager::get().clear();
}

} // namespace
