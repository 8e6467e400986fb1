#include "UT_Thread.h"

#include <atomic>
#include <mutex>
#include <set>
#include <thread>

__thread int UT_Thread::theThreadIndex = 0;

namespace {

struct utThreadNumbers
{
    std::mutex lock;
    std::set<int> released; // numbers of ended threads, reused smallest first
    int highest = 0;
};

// Leaked on purpose: threads may end (and release their numbers) after
// static destruction has begun.
utThreadNumbers &utNumbers()
{
    static utThreadNumbers *numbers = new utThreadNumbers;
    return *numbers;
}

// Published once each, never removed.
std::atomic<void (*)(int)> theEndHooks[UT_Thread::theMaxEndHooks];
std::atomic<int> theEndHookCount{0};

// Returns the thread's number to the pool when the thread ends.
struct utThreadNumberReleaser
{
    int index = 0;
    ~utThreadNumberReleaser()
    {
        if (!index)
            return;
        const int hooks = theEndHookCount.load(std::memory_order_acquire);
        for (int i = 0; i < hooks && i < UT_Thread::theMaxEndHooks; ++i)
            if (void (*hook)(int) = theEndHooks[i].load(std::memory_order_acquire))
                hook(index);
        utThreadNumbers &numbers = utNumbers();
        std::lock_guard<std::mutex> guard(numbers.lock);
        numbers.released.insert(index);
    }
};

} // namespace

int UT_Thread::assignThreadIndex()
{
    static thread_local utThreadNumberReleaser releaser;
    int index;
    {
        utThreadNumbers &numbers = utNumbers();
        std::lock_guard<std::mutex> guard(numbers.lock);
        if (!numbers.released.empty()) {
            index = *numbers.released.begin();
            numbers.released.erase(numbers.released.begin());
        } else {
            index = ++numbers.highest;
        }
    }
    releaser.index = index;
    theThreadIndex = index;
    return index;
}

bool UT_Thread::addEndHook(void (*hook)(int thread))
{
    if (!hook)
        return false;
    const int slot = theEndHookCount.fetch_add(1, std::memory_order_acq_rel);
    if (slot >= theMaxEndHooks)
        return false;
    theEndHooks[slot].store(hook, std::memory_order_release);
    return true;
}

int UT_Thread::getHighestThreadIndex()
{
    utThreadNumbers &numbers = utNumbers();
    std::lock_guard<std::mutex> guard(numbers.lock);
    return numbers.highest;
}

int UT_Thread::getNumProcessors()
{
    unsigned n = std::thread::hardware_concurrency();
    return n ? static_cast<int>(n) : 1;
}
