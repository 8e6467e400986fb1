#include <ut/UT_ThreadSlots.h>

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

namespace {

void barrier(std::atomic<int> &arrived, int count)
{
    arrived.fetch_add(1);
    while (arrived.load() < count)
        std::this_thread::yield();
}

// Runs 'count' threads that are all alive for the whole run: numbers are
// only reused after a thread ends, so this gives each its own slot.
template <typename F>
void runThreads(int count, F body)
{
    std::atomic<int> started{0}, finished{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&, i] {
            UT_Thread::getMySequentialThreadIndex();
            barrier(started, count);
            body(i);
            barrier(finished, count);
        });
    for (auto &t : threads)
        t.join();
}

struct Record
{
    int owner = 0;
    long sum = 0;
};

TEST(UT_ThreadSlots, ManyThreadsSeeOnlyTheirOwnValues)
{
    // 80 threads: well past the 16 inline slots, so several overflow blocks
    // are created while other threads are reading and writing.
    constexpr int theThreads = 80;
    constexpr int theRounds = 2000;
    UT_ThreadSlots<Record> slots;
    std::atomic<int> failures{0};
    runThreads(theThreads, [&](int id) {
        int me = UT_Thread::getMySequentialThreadIndex();
        for (int r = 0; r < theRounds; ++r) {
            Record &mine = slots.get();
            if (&mine != &slots.get(me))
                failures.fetch_add(1);
            if (r > 0 && (mine.owner != id + 1 || mine.sum != static_cast<long>(r) * (id + 1)))
                failures.fetch_add(1);
            mine.owner = id + 1;
            mine.sum += id + 1;
        }
    });
    EXPECT_EQ(failures.load(), 0);

    // Every value written above is still there, once per thread.
    std::set<int> owners;
    slots.forEach([&](int, Record &r) {
        if (r.owner) {
            EXPECT_TRUE(owners.insert(r.owner).second);
            EXPECT_EQ(r.sum, static_cast<long>(theRounds) * r.owner);
        }
    });
    EXPECT_EQ(owners.size(), static_cast<size_t>(theThreads));
}

TEST(UT_ThreadSlots, LiveThreadsHaveDistinctNumbers)
{
    constexpr int theThreads = 40;
    std::vector<int> numbers(theThreads);
    runThreads(theThreads, [&](int id) { numbers[id] = UT_Thread::getMySequentialThreadIndex(); });
    std::set<int> distinct(numbers.begin(), numbers.end());
    EXPECT_EQ(distinct.size(), numbers.size());
    EXPECT_GE(*distinct.begin(), 1);
    EXPECT_LE(*distinct.rbegin(), UT_Thread::getHighestThreadIndex());
}

TEST(UT_ThreadSlots, NumbersOfEndedThreadsAreReused)
{
    // Sequential short-lived threads keep taking small numbers instead of
    // walking up into the overflow store.
    int first = 0;
    std::thread([&] { first = UT_Thread::getMySequentialThreadIndex(); }).join();
    for (int i = 0; i < 50; ++i) {
        int n = 0;
        std::thread([&] { n = UT_Thread::getMySequentialThreadIndex(); }).join();
        EXPECT_LE(n, first);
    }
}

TEST(UT_ThreadSlots, ExplicitThreadNumbersAddressOtherSlots)
{
    UT_ThreadSlots<int> slots;
    // A caller that already knows thread numbers (a scheduler) can fill
    // slots for others, inline and overflow alike.
    for (int n = 1; n <= 300; ++n)
        slots.get(n) = n * 3;
    for (int n = 1; n <= 300; ++n)
        EXPECT_EQ(slots[n], n * 3);
}

} // namespace
