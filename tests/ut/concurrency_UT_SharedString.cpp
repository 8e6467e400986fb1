#include <ut/UT_SharedString.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

void barrier(std::atomic<int> &arrived, int count)
{
    arrived.fetch_add(1);
    while (arrived.load() < count)
        std::this_thread::yield();
}

std::vector<std::string> makeTexts(const std::string &prefix, int count)
{
    std::vector<std::string> texts;
    for (int i = 0; i < count; ++i) {
        // Mostly short names, every 50th long enough for its own storage.
        std::string t = prefix + std::to_string(i);
        if (i % 50 == 0)
            t += std::string(2000, static_cast<char>('a' + i % 26));
        texts.push_back(t);
    }
    return texts;
}

TEST(UT_SharedString, ThreadsInterningOverlappingTextsAgreeOnPointers)
{
    constexpr int theThreads = 16;
    constexpr int theTexts = 3000;
    const std::vector<std::string> texts = makeTexts("ssc-overlap/", theTexts);
    std::size_t before = UT_SharedString::getEntryCount();

    // Every thread interns every text, each in its own order and twice, so
    // first insertions race with each other and with lookups.
    std::vector<std::vector<const char *>> seen(theThreads, std::vector<const char *>(theTexts));
    std::atomic<int> started{0};
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int id = 0; id < theThreads; ++id)
        threads.emplace_back([&, id] {
            std::vector<int> order(theTexts);
            for (int i = 0; i < theTexts; ++i)
                order[i] = i;
            std::shuffle(order.begin(), order.end(), std::mt19937(id + 1));
            barrier(started, theThreads);
            for (int i : order)
                seen[id][i] = UT_SharedString::intern(texts[i].c_str());
            for (int i : order)
                if (UT_SharedString::intern(texts[i].c_str()) != seen[id][i])
                    mismatches.fetch_add(1);
        });
    for (std::thread &t : threads)
        t.join();

    EXPECT_EQ(mismatches.load(), 0);
    for (int i = 0; i < theTexts; ++i) {
        ASSERT_STREQ(seen[0][i], texts[i].c_str());
        for (int id = 1; id < theThreads; ++id)
            ASSERT_EQ(seen[id][i], seen[0][i]) << "text " << i << " thread " << id;
    }
    EXPECT_EQ(UT_SharedString::getEntryCount() - before, static_cast<std::size_t>(theTexts));
}

TEST(UT_SharedString, LookupsStayStableWhileOtherThreadsAdd)
{
    constexpr int theReaders = 8;
    constexpr int theWriters = 8;
    constexpr int thePerWriter = 2000;
    const std::vector<std::string> known = makeTexts("ssc-known/", 500);
    std::vector<const char *> expected;
    for (const std::string &t : known)
        expected.push_back(UT_SharedString::intern(t.c_str()));
    std::size_t before = UT_SharedString::getEntryCount();

    std::atomic<int> started{0};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int w = 0; w < theWriters; ++w)
        threads.emplace_back([&, w] {
            barrier(started, theReaders + theWriters);
            for (int i = 0; i < thePerWriter; ++i) {
                std::string t = "ssc-new/" + std::to_string(w) + "/" + std::to_string(i);
                const char *p = UT_SharedString::intern(t.c_str());
                if (std::strcmp(p, t.c_str()) != 0)
                    failures.fetch_add(1);
            }
        });
    for (int r = 0; r < theReaders; ++r)
        threads.emplace_back([&] {
            barrier(started, theReaders + theWriters);
            for (int round = 0; round < 10; ++round)
                for (std::size_t i = 0; i < known.size(); ++i)
                    if (UT_SharedString::intern(known[i].c_str()) != expected[i])
                        failures.fetch_add(1);
        });
    for (std::thread &t : threads)
        t.join();

    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(UT_SharedString::getEntryCount() - before,
              static_cast<std::size_t>(theWriters * thePerWriter));
}

} // namespace
