#include "UT_Thread.h"

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

// Returns the thread's number to the pool when the thread ends.
struct utThreadNumberReleaser
{
    int index = 0;
    ~utThreadNumberReleaser()
    {
        if (!index)
            return;
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
