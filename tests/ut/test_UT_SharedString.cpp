#include <ut/UT_SharedString.h>

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace {

// The pool is process-wide and shared with every other test: each test
// uses texts with its own prefix and measures counts as differences.

TEST(UT_SharedString, EqualTextsFromDifferentBuffersShareOnePointer)
{
    char first[] = "ss-equal/alpha";
    std::string second = "ss-equal/alpha";
    const char *a = UT_SharedString::intern(first);
    const char *b = UT_SharedString::intern(second.c_str());
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a, b);
    EXPECT_STREQ(a, "ss-equal/alpha");
    // The pool keeps its own copy: the caller's buffer may change or die.
    EXPECT_NE(a, static_cast<const char *>(first));
    first[0] = 'X';
    EXPECT_STREQ(a, "ss-equal/alpha");
    // Interning an interned text is the identity.
    EXPECT_EQ(UT_SharedString::intern(a), a);
}

TEST(UT_SharedString, DistinctTextsGetDistinctPointersAndEntries)
{
    // Prefixes of one another and texts differing in one byte are the cases
    // a length or compare slip would merge.
    const std::vector<std::string> texts = {
        "ss-distinct/ab", "ss-distinct/abc", "ss-distinct/abcd", "ss-distinct/abd",
        "ss-distinct/Abc", "ss-distinct/ab\xe9", "ss-distinct/ab\x7f", "ss-distinct/",
    };
    std::size_t before = UT_SharedString::getEntryCount();
    std::set<const char *> pointers;
    for (const std::string &t : texts) {
        const char *p = UT_SharedString::intern(t.c_str());
        EXPECT_EQ(std::string(p), t);
        pointers.insert(p);
    }
    EXPECT_EQ(pointers.size(), texts.size());
    EXPECT_EQ(UT_SharedString::getEntryCount() - before, texts.size());

    // A second round adds nothing and gives the same pointers back.
    for (const std::string &t : texts)
        EXPECT_EQ(pointers.count(UT_SharedString::intern(t.c_str())), 1u) << t;
    EXPECT_EQ(UT_SharedString::getEntryCount() - before, texts.size());
}

TEST(UT_SharedString, PointersStayValidWhileThePoolGrows)
{
    // Enough texts to fill many storage blocks and rehash every shard.
    constexpr int theCount = 20000;
    std::size_t before = UT_SharedString::getEntryCount();
    std::vector<const char *> pointers;
    for (int i = 0; i < theCount; ++i)
        pointers.push_back(UT_SharedString::intern(("ss-grow/" + std::to_string(i)).c_str()));
    EXPECT_EQ(UT_SharedString::getEntryCount() - before, static_cast<std::size_t>(theCount));
    for (int i = 0; i < theCount; ++i) {
        std::string t = "ss-grow/" + std::to_string(i);
        ASSERT_STREQ(pointers[i], t.c_str());
        ASSERT_EQ(UT_SharedString::intern(t.c_str()), pointers[i]);
    }
}

TEST(UT_SharedString, LongTexts)
{
    // Around the length where texts stop sharing storage blocks, and far
    // beyond it; each pair differs only in its last byte.
    for (std::size_t length : {1000u, 1023u, 1024u, 1025u, 4095u, 4096u, 4097u, 100000u}) {
        std::string a = "ss-long/" + std::string(length, 'q');
        std::string b = a;
        b.back() = 'r';
        const char *pa = UT_SharedString::intern(a.c_str());
        const char *pb = UT_SharedString::intern(b.c_str());
        EXPECT_NE(pa, pb) << length;
        EXPECT_EQ(std::strlen(pa), a.size()) << length;
        EXPECT_EQ(std::string(pa), a) << length;
        EXPECT_EQ(std::string(pb), b) << length;
        EXPECT_EQ(UT_SharedString::intern(std::string(a).c_str()), pa) << length;
    }
}

TEST(UT_SharedString, EmptyAndNullTexts)
{
    const char *empty = UT_SharedString::intern("");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(*empty, '\0');
    std::string other;
    EXPECT_EQ(UT_SharedString::intern(other.c_str()), empty);

    std::size_t before = UT_SharedString::getEntryCount();
    EXPECT_EQ(UT_SharedString::intern(nullptr), nullptr);
    EXPECT_EQ(UT_SharedString::intern(""), empty);
    EXPECT_EQ(UT_SharedString::getEntryCount(), before);
}

} // namespace
