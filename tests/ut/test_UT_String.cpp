#include <gtest/gtest.h>
#include <ut/UT_String.h>

#include <bitset>
#include <cctype>
#include <random>
#include <string>

namespace {

// Deliberately naive reference matcher: exponential, but plainly right on
// the short strings it is fed. Returns the index of a class's ']' (0 when
// the '[' is unclosed) and fills its members.
std::size_t refClass(const std::string &p, std::size_t open, std::bitset<256> &in, bool &neg)
{
    std::size_t i = open + 1;
    neg = i < p.size() && (p[i] == '!' || p[i] == '^');
    i += neg;
    std::size_t close = p.find(']', i + 1);
    if (close == std::string::npos)
        return 0;
    for (std::size_t j = i; j < close; ++j) {
        unsigned lo = static_cast<unsigned char>(p[j]), hi = lo;
        if (j + 2 < close && p[j + 1] == '-')
            hi = static_cast<unsigned char>(p[j += 2]);
        for (unsigned c = lo; c <= hi; ++c)
            in.set(c);
    }
    return close;
}

bool refMatch(const std::string &t, std::size_t ti, const std::string &p, std::size_t pi, bool cs)
{
    if (pi == p.size())
        return ti == t.size();
    if (p[pi] == '*')
        return refMatch(t, ti, p, pi + 1, cs) || (ti < t.size() && refMatch(t, ti + 1, p, pi, cs));
    if (ti == t.size())
        return false;
    unsigned char c = static_cast<unsigned char>(t[ti]);
    std::bitset<256> in;
    bool neg = false;
    if (std::size_t close = p[pi] == '[' ? refClass(p, pi, in, neg) : 0) {
        bool hit = in[c] || (!cs && (in[std::tolower(c)] || in[std::toupper(c)]));
        return hit != neg && refMatch(t, ti + 1, p, close + 1, cs);
    }
    bool same = p[pi] == '?' || t[ti] == p[pi] ||
                (!cs && std::tolower(c) == std::tolower(static_cast<unsigned char>(p[pi])));
    return same && refMatch(t, ti + 1, p, pi + 1, cs);
}

} // namespace

TEST(UT_String, MatchTable)
{
    struct Case { const char *text, *pattern; bool cs, expect; } cases[] = {
        {"abc", "abc", true, true},   {"abc", "ab", true, false},    {"", "", true, true},
        {"", "*", true, true},        {"", "?", true, false},        {"abc", "a*", true, true},
        {"abc", "*c", true, true},    {"ac", "a?c", true, false},    {"mississippi", "m*iss*ppi", true, true},
        {"b", "[abc]", true, true},   {"d", "[abc]", true, false},   {"m", "[a-z]", true, true},
        {"M", "[a-z]", true, false},  {"M", "[a-z]", false, true},   {"q", "[A-Z]", false, true},
        {"q", "[!a-z]", true, false}, {"Q", "[!a-z]", true, true},   {"Q", "[^a-z]", false, false},
        {"-", "[a-]", true, true},    {"-", "[-a]", true, true},     {"]", "[]a]", true, true},
        {"a", "[!]a]", true, false},  {"m", "[z-a]", true, false},   {"[a", "[a", true, true},
        {"[abc", "[a*", true, true},  {"x", "[a", true, false},      {"[]", "[]", true, true},
        {"a*b", "a[*]b", true, true}, {"axb", "a[*]b", true, false}, {"ABC", "abc", false, true},
        {"ABC", "abc", true, false},  {"\xe9", "[\xe0-\xef]", true, true}, {"z", "[a-z]", true, true},
        {"-", "[a-c-e]", true, true}, {"d", "[a-c-e]", true, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.text) + " ~ " + c.pattern + (c.cs ? "" : " (nocase)"));
        EXPECT_EQ(UT_String::match(c.text, c.pattern, c.cs), c.expect);
        EXPECT_EQ(UT_String(c.text).match(c.pattern, c.cs), c.expect);
    }
    EXPECT_FALSE(UT_String::match(nullptr, "*"));
    EXPECT_FALSE(UT_String::match("a", nullptr));
    EXPECT_FALSE(UT_String("a").match(nullptr));
}

TEST(UT_String, MatchAgreesWithReference)
{
    // Patterns are built from pieces so that classes, negations and ranges
    // (well-formed or not) turn up often rather than by chance.
    const char *pieces[] = {"a", "b", "A", "-", "!", "]", "[", "*", "?", "*",
                            "[a", "[!", "[^", "[]", "-B", "-b]", "b]", "A]", "]"};
    const std::string textChars = "abAB[]-!^";
    std::mt19937 rng(20240611);
    for (int i = 0; i < 5000; ++i) {
        std::string t(rng() % 7, ' '), p;
        for (char &ch : t)
            ch = textChars[rng() % textChars.size()];
        for (unsigned n = rng() % 6; n > 0; --n)
            p += pieces[rng() % (sizeof(pieces) / sizeof(pieces[0]))];
        for (bool cs : {true, false})
            ASSERT_EQ(UT_String::match(t.c_str(), p.c_str(), cs), refMatch(t, 0, p, 0, cs))
                << "text '" << t << "' pattern '" << p << "' cs " << cs;
    }
}

TEST(UT_String, MatchPathologicalPatternsFinish)
{
    std::string as(5000, 'a');
    EXPECT_FALSE(UT_String::match(as.c_str(), "a*a*a*a*a*a*b"));
    EXPECT_TRUE(UT_String::match((as + "b").c_str(), "a*a*a*a*a*a*b"));
    // Runs of unclosed '[' must not rescan the pattern for each one.
    std::string text = std::string(3000, '[') + "y", pat = "*" + std::string(1000, '[');
    EXPECT_FALSE(UT_String::match(text.c_str(), (pat + "x").c_str()));
    EXPECT_TRUE(UT_String::match(text.c_str(), (pat + "y").c_str()));
}

TEST(UT_String, MultiMatchTable)
{
    struct Case { const char *text, *pattern, *seps; bool cs, expect; } cases[] = {
        {"tx", "ty, t?", ", ", true, true},  {"tx", "r*", ", ", true, false},
        {"tx", "ty,,tx", ", ", true, true},  {"tx", ", ,,", ", ", true, false},
        {"tx", "", ", ", true, false},       {"", "", ", ", true, false},
        {"", "", nullptr, true, false},      {"", "*", ", ", true, true},
        {"tx", "a;tx", ";", true, true},     {"tx", "a;tx", ", ", true, false},
        {"a b", "a b", ", ", true, false},   {"a b", "a b", ",", true, true},
        {"a b", "a b", nullptr, true, true}, {"a b", "a b", "", true, true},
        {"TX", "ty,t?", ", ", false, true},  {"TX", "ty,t?", ", ", true, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.text) + " ~ " + c.pattern);
        EXPECT_EQ(UT_String::multiMatch(c.text, c.pattern, c.cs, c.seps), c.expect);
        EXPECT_EQ(UT_String(c.text).multiMatch(c.pattern, c.cs, c.seps), c.expect);
    }
    EXPECT_FALSE(UT_String::multiMatch("a", nullptr));
    EXPECT_FALSE(UT_String::multiMatch(nullptr, "*"));
}

TEST(UT_String, FindStringTable)
{
    struct Case { const char *text, *word; bool whole, cs, expect; } cases[] = {
        {"abc ab", "ab", true, true, true}, {"abc", "ab", true, true, false},
        {"abc", "ab", false, true, true},   {"ab", "ab", true, true, true},
        {"x_ab", "ab", true, true, false},  {"ab1", "ab", true, true, false},
        {"(ab)", "ab", true, true, true},   {"aaa aa", "aa", true, true, true},
        {"aaa", "aa", true, true, false},   {"xAB", "ab", false, false, true},
        {"xAB", "ab", false, true, false},  {"ABC Ab", "ab", true, false, true},
        {"", "a", false, true, false},      {"abc", "", false, true, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.word) + " in " + c.text);
        EXPECT_EQ(UT_String(c.text).findString(c.word, c.whole, c.cs), c.expect);
    }
    EXPECT_FALSE(UT_String("abc").findString(nullptr, false, true));
}

TEST(UT_String, ChangeStringTable)
{
    struct Case { const char *text, *from, *to; bool whole; const char *expect; int count; } cases[] = {
        {"aaa", "a", "aa", false, "aaaaaa", 3}, {"x xx x_1 (x)", "x", "y", true, "y xx x_1 (y)", 2},
        {"x.x", "x", "yy", true, "yy.yy", 2},   {"aaaa", "aa", "b", false, "bb", 2},
        {"aaa", "aa", "b", false, "ba", 1},     {"abab", "ab", nullptr, false, "", 2},
        {"AbA", "a", "b", false, "AbA", 0},     {"abc", "", "z", false, "abc", 0},
        {"abc", nullptr, "z", false, "abc", 0},
        {"ba a a", "a a", "X", true, "ba X", 1}, // rejected match overlaps the bounded one
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.text) + ": " + (c.from ? c.from : "(null)"));
        UT_String s(c.text);
        EXPECT_EQ(s.changeString(c.from, c.to, c.whole), c.count);
        EXPECT_EQ(s, c.expect);
    }
}

TEST(UT_String, SprintfAndCase)
{
    std::string big(1500, 'q');
    UT_String s("old");
    s.sprintf("<%s|%d>", big.c_str(), 42);
    EXPECT_EQ(s.toStdString(), "<" + big + "|42>");
    s.sprintf("%d-%s", 7, "x");
    EXPECT_EQ(s, "7-x");

    UT_String m("Mixed-Case_9\xc9");
    m.toLower();
    EXPECT_EQ(m, "mixed-case_9\xc9");
    m.toUpper();
    EXPECT_EQ(m, "MIXED-CASE_9\xc9");
}
