#include <ut/UT_SharedString.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

TEST(UT_SharedString, ThreadsInterningTheSameTextsAgreeOnPointers)
{
    // Each thread interns every text in an order of its own (theTexts is prime), so first
    // insertions race with each other and with lookups. Every 50th text gets its own block.
    constexpr int theThreads = 16, theTexts = 3001;
    std::vector<std::string> texts;
    for (int i = 0; i < theTexts; ++i)
        texts.push_back("ssc/" + std::to_string(i) + std::string(i % 50 ? 0 : 2000, 'a'));
    std::size_t before = UT_SharedString::getEntryCount();
    std::vector<std::vector<const char *>> seen(theThreads, std::vector<const char *>(theTexts));
    std::atomic<int> waiting{theThreads};
    std::vector<std::thread> threads;
    for (int id = 0; id < theThreads; ++id)
        threads.emplace_back([&, id] {
            for (--waiting; waiting.load() > 0;)
                std::this_thread::yield();
            for (int k = 0; k < theTexts; ++k) {
                int i = (k * (id + 1) + 7 * id) % theTexts;
                seen[id][i] = UT_SharedString::intern(texts[i].c_str());
            }
        });
    for (std::thread &t : threads)
        t.join();
    EXPECT_EQ(UT_SharedString::getEntryCount() - before, static_cast<std::size_t>(theTexts));
    for (int i = 0; i < theTexts; ++i) {
        ASSERT_STREQ(seen[0][i], texts[i].c_str());
        for (int id = 1; id < theThreads; ++id)
            ASSERT_EQ(seen[id][i], seen[0][i]) << "text " << i << ", thread " << id;
    }
}

} // namespace
