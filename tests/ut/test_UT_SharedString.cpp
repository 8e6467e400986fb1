#include <ut/UT_SharedString.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// The pool is shared with every other test: texts carry a prefix, counts are differences.

TEST(UT_SharedString, EqualTextsShareOneCopyOwnedByThePool)
{
    char buffer[] = "ss-equal/a";
    const char *p = UT_SharedString::intern(buffer), *empty = UT_SharedString::intern("");
    ASSERT_NE(empty, nullptr);
    std::size_t before = UT_SharedString::getEntryCount();
    EXPECT_EQ(UT_SharedString::intern(std::string(buffer).c_str()), p);
    EXPECT_EQ(UT_SharedString::intern(std::string().c_str()), empty);
    EXPECT_EQ(UT_SharedString::intern(nullptr), nullptr);
    EXPECT_EQ(UT_SharedString::getEntryCount(), before);
    buffer[0] = 'X';
    EXPECT_STREQ(p, "ss-equal/a");
}

TEST(UT_SharedString, DistinctTextsKeepTheirPointersWhileThePoolGrows)
{
    // Prefixes and one-byte differences; enough texts to fill many blocks and
    // rehash every shard; lengths either side of a block of their own.
    std::vector<std::string> texts = {"sd/ab", "sd/abc", "sd/abd", "sd/Abc", "sd/ab\xe9", "sd/"};
    for (int i = 0; i < 20000; ++i)
        texts.push_back("sd/" + std::to_string(i));
    for (std::size_t length : {1023u, 1024u, 4096u, 100000u})
        for (char last : {'q', 'r'})
            texts.push_back("sd/" + std::string(length - 4, 'q') + last);
    std::size_t before = UT_SharedString::getEntryCount();
    std::vector<const char *> pointers;
    for (const std::string &t : texts)
        pointers.push_back(UT_SharedString::intern(t.c_str()));
    EXPECT_EQ(UT_SharedString::getEntryCount() - before, texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        ASSERT_EQ(texts[i], pointers[i]) << i;
        ASSERT_EQ(UT_SharedString::intern(texts[i].c_str()), pointers[i]) << i;
    }
}

} // namespace
