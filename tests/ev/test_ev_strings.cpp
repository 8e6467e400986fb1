// Strings made during evaluation: the length limit of every operation that
// makes one, memory that does not pile up along a chain of joins, and
// errors raised while a double-quoted string is expanded.
#include "evTestUtil.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

// Live heap bytes of the whole process, counted by the global allocation
// functions (shared libraries allocate through them too); those also fail
// on demand (evTestFailFrom).
namespace {
std::atomic<long long> theLiveBytes{0};
}

std::atomic<std::size_t> evTestFailFrom{0};

void *operator new(std::size_t size)
{
    std::size_t from = evTestFailFrom.load(std::memory_order_relaxed);
    if (from && size >= from && evTestFailFrom.compare_exchange_strong(from, 0))
        throw std::bad_alloc();
    void *p = std::malloc(size ? size : 1);
    if (!p)
        throw std::bad_alloc();
    theLiveBytes.fetch_add(static_cast<long long>(malloc_usable_size(p)), std::memory_order_relaxed);
    return p;
}

void operator delete(void *p) noexcept
{
    if (!p)
        return;
    theLiveBytes.fetch_sub(static_cast<long long>(malloc_usable_size(p)), std::memory_order_relaxed);
    std::free(p);
}

void operator delete(void *p, std::size_t) noexcept
{
    operator delete(p);
}

namespace {

const std::size_t theLimit = std::size_t(1) << 24;
const char *const theTooLong = "String result longer than 16777216 bytes";

// chunk(): a 4096-byte string. probe(): "", noting the live heap bytes.
long long thePeak = 0;
void chunk(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int) { result->setString(std::string(4096, 'c').c_str()); }
void probe(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int)
{
    thePeak = theLiveBytes.load();
    result->setString("");
}
// huge(n): a string of n bytes, as a host function might make.
const int theOneFloat[] = {EV_TYPEFLOAT};
void huge(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    result->setString(std::string(static_cast<std::size_t>(argv[0]->getFloat()), 'h').c_str());
}
EV_FUNCTION theChunk(0, "chunk", 0, EV_TYPESTRING, nullptr, chunk);
EV_FUNCTION theProbe(0, "probe", 0, EV_TYPESTRING, nullptr, probe);
EV_FUNCTION theHuge(0, "huge", 1, EV_TYPESTRING, theOneFloat, huge);

class EvStrings : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        ev_InitFloat();
        ev_InitString();
        ev_AddFunction(&theChunk);
        ev_AddFunction(&theProbe);
        ev_AddFunction(&theHuge);
    }
    void SetUp() override { ev_SetErrNo(0, 0); }
    void TearDown() override { ev_SetExpander(nullptr); }
};

// 'x' grown by strreplace to 8^k bytes.
std::string grown(int k)
{
    std::string text = "'x'";
    for (int i = 0; i < k; ++i)
        text = "strreplace(" + text + ", 'x', 'xxxxxxxx')";
    return text;
}

TEST_F(EvStrings, EveryOperationThatMakesAStringStopsAtTheLimit)
{
    const std::string full = grown(8); // 8^8 bytes: exactly the limit
    const struct
    {
        std::string text;
        std::size_t length; // of the string result when it succeeds
    } cases[] = {
        {full, theLimit},
        {"strlen(" + full + ") == 16777216", 1},
        {full + " + 'y'", 0},                        // join
        {"'y' + " + full, 0},
        {full + " + 1", 0},                          // join with a number's text
        {"strcat(" + full + ", 'y')", 0},
        {"strcat('', " + full + ")", theLimit},
        {grown(9), 0},                               // strreplace
        {"strreplace(" + full + ", 'x', 'xx')", 0},
        {"huge(16777217)", 0},                       // a host function's result
        {"strlen(huge(16777216)) == 16777216", 1},
    };
    for (const auto &c : cases) {
        evTestExpr e = evTestCompile(c.text.c_str());
        ev_SetErrNo(0, 0);
        UT_String s;
        const bool ok = ev_EvaluateString(e.get(), s, 0) != 0;
        EXPECT_EQ(ok, c.length != 0) << c.text.substr(0, 60);
        EXPECT_EQ(s.toStdString().size(), c.length) << c.text.substr(0, 60);
        if (!ok) {
            EXPECT_EQ(ev_GetErrNo(0), EV_ERRCUSTOM) << c.text.substr(0, 60);
            EXPECT_STREQ(ev_GetErrorText(EV_ERRCUSTOM), theTooLong);
        }
        ev_SetErrNo(0, 0);
    }
}

char *hugeExpander(const char *, int)
{
    char *out = static_cast<char *>(std::malloc(theLimit + 2));
    std::memset(out, 'e', theLimit + 1);
    out[theLimit + 1] = '\0';
    return out;
}

TEST_F(EvStrings, AnExpansionPastTheLimitFails)
{
    ev_SetExpander(hugeExpander);
    evTestResult r = evTestEval("\"$BIG\"");
    EXPECT_EQ(r.error, EV_ERRCUSTOM);
    EXPECT_EQ(r.s, "");
}

TEST_F(EvStrings, AChainOfJoinsHoldsOnlyWhatIsStillNeeded)
{
    // 200 joins of 4 KB: kept, the intermediates alone would be 80 MB.
    std::string text = "chunk()";
    for (int i = 1; i < 200; ++i)
        text += " + chunk()";
    text += " + probe()";
    evTestExpr e = evTestCompile(text.c_str());
    ASSERT_TRUE(e->isCompiled());
    const long long before = theLiveBytes.load();
    UT_String s;
    ASSERT_TRUE(ev_EvaluateString(e.get(), s, 0));
    EXPECT_EQ(s.length(), 200u * 4096);
    // The result and a copy or two of it while it grows, nothing more.
    EXPECT_LT(thePeak - before, 4 * 200 * 4096);

    // The same through strcat: each result is consumed by the next call.
    text = "chunk()";
    for (int i = 1; i < 60; ++i)
        text = "strcat(" + text + ", chunk())";
    text = "strcat(" + text + ", probe())";
    ev_ChangeExpr(e.get(), text.c_str(), 0);
    ASSERT_TRUE(e->isCompiled());
    s.clear();
    const long long again = theLiveBytes.load();
    ASSERT_TRUE(ev_EvaluateString(e.get(), s, 0));
    EXPECT_EQ(s.length(), 60u * 4096);
    EXPECT_LT(thePeak - again, 4 * 60 * 4096);
}

// Stands for the host's expander: a back-quoted `bad` fails with error 2 and
// leaves the rest unexpanded; error numbers stay on the thread, as the
// channel library's string expansion leaves them.
char *failingExpander(const char *text, int thread)
{
    std::string out = text;
    const std::size_t at = out.find("`bad`");
    if (at != std::string::npos) {
        ev_SetErrNo(EV_ERRUNKNOWNFUNC, thread);
        out.erase(at, 5);
    }
    if (out.find("`deep`") != std::string::npos)
        ev_SetErrNo(EV_ERRRECURSION, thread);
    return strdup(out.c_str());
}

TEST_F(EvStrings, ErrorsOfAnExpansionFailTheEvaluation)
{
    ev_SetExpander(failingExpander);
    const struct
    {
        const char *text;
        const char *s;
        int error;
    } cases[] = {
        {"\"[`bad`]\" + \"[`2+2`]\"", "", EV_ERRUNKNOWNFUNC},
        {"\"[`2+2`]\" + \"[`bad`]\"", "", EV_ERRUNKNOWNFUNC},
        {"strlen(\"[`bad`]\")", "", EV_ERRUNKNOWNFUNC},
        {"\"`deep`\"", "", EV_ERRRECURSION},
        {"0 && \"`bad`\"", "0", 0}, // not expanded, no error
        {"\"[`ok`]\"", "[`ok`]", 0},
    };
    for (const auto &c : cases) {
        evTestResult r = evTestEval(c.text);
        EXPECT_EQ(r.error, c.error) << c.text;
        EXPECT_EQ(r.ok, c.error == 0) << c.text;
        EXPECT_EQ(r.s, c.s) << c.text;
    }
}

} // namespace
