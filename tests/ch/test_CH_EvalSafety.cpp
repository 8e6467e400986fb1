// Evaluation leaves nothing behind: an exception inside an evaluation (an
// allocation failure here) is stopped at the entry point with every
// per-thread state restored; a stale error changes no later work; frame
// texts and thread numbers out of range are handled.
#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <ch/auxiliary/CH_ScriptAccessManager.h>

#include <ev/EV_Engine.h>
#include <support/chTestChannelBuilder.h>
#include <ut/UT_ErrorManager.h>
#include <ut/UT_Interrupt.h>
#include <ut/UT_Thread.h>

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>
#include <vector>

// Allocation failure on demand, for this test program: the next allocation
// of at least theFailFrom bytes throws std::bad_alloc (once), as a real
// out-of-memory would.
namespace {
std::atomic<std::size_t> theFailFrom{0};
}

void *operator new(std::size_t size)
{
    std::size_t from = theFailFrom.load(std::memory_order_relaxed);
    if (from && size >= from && theFailFrom.compare_exchange_strong(from, 0))
        throw std::bad_alloc();
    if (void *p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
// Every other plain form is replaced too, so that each allocation is freed
// by its own kind (a sanitizer's runtime checks that).
void *operator new[](std::size_t size) { return operator new(size); }
void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    try {
        return operator new(size);
    } catch (...) {
        return nullptr;
    }
}
void *operator new[](std::size_t size, const std::nothrow_t &tag) noexcept { return operator new(size, tag); }
// The compiler cannot tell that the forms above are malloc underneath.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void *p) noexcept { std::free(p); }
void operator delete[](void *p) noexcept { std::free(p); }
void operator delete(void *p, std::size_t) noexcept { std::free(p); }
void operator delete[](void *p, std::size_t) noexcept { std::free(p); }
void operator delete(void *p, const std::nothrow_t &) noexcept { std::free(p); }
void operator delete[](void *p, const std::nothrow_t &) noexcept { std::free(p); }
#pragma GCC diagnostic pop

namespace {

class chErrorCollection : public CH_Collection
{
public:
    using CH_Collection::CH_Collection;
    void reportError(const char *, int code, const char *message) override
    {
        errors.push_back(std::to_string(code) + ":" + message);
    }
    std::vector<std::string> errors;
};

struct chCountingAccess : CH_ScriptAccessManager
{
    int depth = 0;
    void pushChEvalContext() override { ++depth; }
    void popChEvalContext() override { --depth; }
};
class chAccessManager : public CH_Manager
{
public:
    CH_ScriptAccessManager *getAccessManager(int) override { return &access; }
    chCountingAccess access;
};

class CHEvalSafety : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mgr.setContext();
        ev_SetErrNo(0, 0);
        UTgetInterrupt()->clearInterrupt();
        UT_ErrorManager::get().clear();
        ch = obj.addChannel("tx");
        // 1 unit per second from 0 to 10 s; at 24 fps each segment caches
        // 240 samples and more (over 900 bytes).
        chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, "linear()"}, {10, 10, 0, 0, "linear()"}, {20, 20}});
    }
    void TearDown() override { theFailFrom = 0; }

    chAccessManager mgr;
    CH_Collection root{&mgr};
    chErrorCollection obj{&mgr, &root, "obj"};
    CH_Channel *ch = nullptr;
};

TEST_F(CHEvalSafety, AllocationFailureInsideEvaluationLeavesNoStateBehind)
{
    mgr.setSegCacheStatus(true);
    const int thread = UT_Thread::getMySequentialThreadIndex();
    mgr.setEvaluateTime(3.0f, thread);
    float out[5] = {-1, -1, -1, -1, -1};
    theFailFrom = 512; // the first segment's sample cache
    EXPECT_NO_THROW(obj.evaluate(ch, 0.0f, 20.0f, out, 5, false, true, thread));
    EXPECT_EQ(theFailFrom.load(), 0u) << "the cache was never allocated";

    // Failed at the first sample: all 0, reported once against the channel.
    for (float v : out)
        EXPECT_EQ(v, 0.0f);
    EXPECT_EQ(obj.errors, std::vector<std::string>{"0:Out of memory during evaluation (/obj/tx)"});
    EXPECT_EQ(ev_GetErrNo(thread), 0);

    // Every per-thread state and flag is as before.
    EXPECT_EQ(obj.getEvalChannel(thread), nullptr);
    EXPECT_EQ(mgr.getEvalCollection(thread), nullptr);
    EXPECT_EQ(mgr.getEvaluateTime(thread), 3.0);
    EXPECT_EQ(ch->getEvaluationSegment(thread), nullptr);
    EXPECT_EQ(mgr.access.depth, 0);
    EXPECT_FALSE(ch->isCacheEnabled());
    EXPECT_FALSE(ch->getSegment(0u)->isCooking());
    EXPECT_EQ(UTgetInterrupt()->getActiveOperations(), 0);

    // An interruption stops the next range evaluation only, not every
    // later one (an operation left open would keep the request raised).
    UTgetInterrupt()->interrupt();
    obj.evaluate(ch, 0.0f, 20.0f, out, 5, false, true, thread);
    EXPECT_EQ(out[1], 0.0f);
    obj.evaluate(ch, 0.0f, 20.0f, out, 5, false, true, thread);
    const float expected[5] = {0, 5, 10, 15, 20};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(out[i], expected[i]) << i;
    EXPECT_EQ(obj.errors.size(), 1u);
}

TEST_F(CHEvalSafety, AllocationFailureInOneSampleZeroesOnlyTheRest)
{
    mgr.setSegCacheStatus(true);
    // The first segment is cached already; the second segment's cache fails.
    float warm[1];
    obj.evaluate(ch, 5.0f, 5.0f, warm, 1, false, true, 0);
    ch->setCacheEnable(true);
    float out[5] = {-1, -1, -1, -1, -1};
    theFailFrom = 512;
    ch->evaluate(0.0f, 20.0f, out, 5, false, true, 0);
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(out[1], 5.0f);
    EXPECT_EQ(out[2], 0.0f); // the second segment: failed
    EXPECT_EQ(out[4], 0.0f);
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRCUSTOM); // on the thread: no collection reported it
    EXPECT_STREQ(ev_GetErrorText(EV_ERRCUSTOM), "Out of memory during evaluation");
    EXPECT_TRUE(ch->isCacheEnabled()); // the caller's setting stays
    EXPECT_EQ(UTgetInterrupt()->getActiveOperations(), 0);
}

TEST_F(CHEvalSafety, SegmentsTooLongToCacheAreEvaluatedDirectly)
{
    // 1e8 s at 24 fps is 2.4e9 samples, past the int range.
    chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, "linear()"}, {1e8f, 1e8f}});
    mgr.setSegCacheStatus(true);
    float cached[3], direct[3];
    EXPECT_NO_THROW(obj.evaluate(ch, 0.0f, 5e7f, cached, 3, false, true, 0));
    obj.evaluate(ch, 0.0f, 5e7f, direct, 3, false, false, 0);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(cached[i], direct[i]) << i;
    EXPECT_EQ(cached[2], 5e7f);
    EXPECT_TRUE(obj.errors.empty());
}

// A stale error: an earlier one-shot evaluation failed, nobody cleared it.
class CHStaleError : public CHEvalSafety
{
protected:
    void SetUp() override
    {
        CHEvalSafety::SetUp();
        mgr.evaluate("nosuchfunction(1)", 0.0f, nullptr, nullptr, 0, CH_ORVISH);
        ASSERT_EQ(ev_GetErrNo(0), EV_ERRUNKNOWNFUNC);
    }
};

TEST_F(CHStaleError, ExpansionStillEvaluatesBackQuotes)
{
    UT_String out;
    mgr.expandString("[`1+1`]", out, 0.0f, nullptr, 0, 3);
    EXPECT_EQ(out, "[2]");
    UT_String value;
    EXPECT_TRUE(CH_Manager::lookupExpression("2+2", value, 0));
    EXPECT_EQ(value, "4");
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRUNKNOWNFUNC); // still there for the host
}

TEST_F(CHStaleError, HealthyChannelReportsNothing)
{
    EXPECT_EQ(obj.evaluate(ch, 5.0f, false, 0), 5.0f);
    UT_String s;
    obj.evaluateString(s, ch, 5.0f, 0);
    float out[2];
    obj.evaluate(ch, 0.0f, 10.0f, out, 2, false, false, 0);
    EXPECT_EQ(obj.errors, std::vector<std::string>());
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRUNKNOWNFUNC);
}

TEST_F(CHStaleError, FailingEvaluationReportsItsOwnError)
{
    chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, "1/0"}, {1, 0}});
    obj.evaluate(ch, 0.5f, false, 0);
    ASSERT_EQ(obj.errors.size(), 1u);
    EXPECT_EQ(obj.errors[0], std::string("0:") + ev_GetErrorText(EV_ERRDIVZERO) + " (/obj/tx)");
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRUNKNOWNFUNC);
    // A one-shot evaluation leaves its own error, not the older one.
    mgr.evaluate("1/0", 0.0f, nullptr, nullptr, 0, CH_ORVISH);
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRDIVZERO);
}

// Every entry point, called with a stale error on the thread. Those through
// a collection report (and clear) the evaluation's own error.
struct chEntryPoint
{
    const char *name;
    bool reports;
    void (*call)(CH_Collection &obj, CH_Channel &ch);
};

const chEntryPoint theEntryPoints[] = {
    {"collection value", true, [](CH_Collection &obj, CH_Channel &ch) { obj.evaluate(&ch, 0.5f, false, 0); }},
    {"collection range", true,
     [](CH_Collection &obj, CH_Channel &ch) {
         float out[2];
         obj.evaluate(&ch, 0.25f, 0.5f, out, 2, false, false, 0);
     }},
    {"collection string", true,
     [](CH_Collection &obj, CH_Channel &ch) {
         UT_String s;
         obj.evaluateString(s, &ch, 0.5f, 0);
     }},
    {"channel value", false, [](CH_Collection &, CH_Channel &ch) { ch.evaluate(0.5f, false, 0); }},
    {"channel range", false,
     [](CH_Collection &, CH_Channel &ch) {
         float out[2];
         ch.evaluate(0.25f, 0.5f, out, 2, false, false, 0);
     }},
    {"channel string", false,
     [](CH_Collection &, CH_Channel &ch) {
         UT_String s;
         ch.evaluateString(s, 0.5f, 0);
     }},
    {"segment value", false,
     [](CH_Collection &, CH_Channel &ch) { ch.evaluateSegment(ch.getSegment(0u), 0.5f, false, 0); }},
    {"segment string", false,
     [](CH_Collection &, CH_Channel &ch) {
         UT_String s;
         ch.evaluateStringSegment(s, ch.getSegment(0u), 0.5f, false, 0);
     }},
    {"segment sample", false,
     [](CH_Collection &, CH_Channel &ch) {
         float value, slope;
         ch.sampleValueSlope(ch.getSegment(0u), 0.5f, 0, value, slope);
     }},
};

// The stale error is a compile error, which carries a position.
void chLeaveSyntaxError()
{
    CH_Manager::getContext()->evaluate("1 + + )", 0.0f, nullptr, nullptr, 0, CH_ORVISH);
    ASSERT_EQ(ev_GetErrNo(0), EV_ERRSYNTAX);
    ASSERT_EQ(ev_GetErrorOffset(0), 6);
}

TEST_F(CHEvalSafety, EveryEntryPointSetsAStaleErrorAsideWhole)
{
    for (const chEntryPoint &entry : theEntryPoints)
    {
        SCOPED_TRACE(entry.name);
        // A healthy evaluation: the stale error comes back as it was.
        chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, "linear()"}, {1, 1}});
        obj.errors.clear();
        chLeaveSyntaxError();
        entry.call(obj, *ch);
        EXPECT_EQ(ev_GetErrNo(0), EV_ERRSYNTAX);
        EXPECT_EQ(ev_GetErrorOffset(0), 6);
        EXPECT_STREQ(ev_GetErrorToken(0), ")");
        EXPECT_TRUE(obj.errors.empty());

        // A failing one: its own error is the one seen, not the stale one.
        chTestChannelBuilder::build(*ch, {{0, 0, 0, 0, "1/0"}, {1, 1}});
        chLeaveSyntaxError();
        entry.call(obj, *ch);
        if (entry.reports)
        {
            ASSERT_EQ(obj.errors.size(), 1u);
            EXPECT_EQ(obj.errors[0], std::string("0:") + ev_GetErrorText(EV_ERRDIVZERO) + " (/obj/tx)");
            EXPECT_EQ(ev_GetErrNo(0), EV_ERRSYNTAX);
            EXPECT_EQ(ev_GetErrorOffset(0), 6);
        }
        else
        {
            EXPECT_TRUE(obj.errors.empty());
            EXPECT_EQ(ev_GetErrNo(0), EV_ERRDIVZERO);
            EXPECT_EQ(ev_GetErrorOffset(0), -1);
        }
        ev_SetErrNo(0, 0);
    }
}

TEST_F(CHEvalSafety, AStaleErrorKeepsItsOwnText)
{
    mgr.setSegCacheStatus(true);
    ev_SetCustomErrorMessage("left by the host", 0);
    // This evaluation fails with a text of its own, reported and cleared.
    float out[2];
    theFailFrom = 512;
    obj.evaluate(ch, 0.0f, 20.0f, out, 2, false, true, 0);
    ASSERT_EQ(obj.errors, std::vector<std::string>{"0:Out of memory during evaluation (/obj/tx)"});
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRCUSTOM);
    EXPECT_STREQ(ev_GetErrorText(EV_ERRCUSTOM), "left by the host");
}

TEST_F(CHEvalSafety, FrameTextSaturatesLikeTheNumber)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const struct
    {
        float time;
        const char *text;
    } cases[] = {
        {1e30f, "2147483647 2147483647"},
        {-1e30f, "-2147483648 -2147483648"},
        {nan, "0 0000"},
        {std::numeric_limits<float>::infinity(), "2147483647 2147483647"},
        {0.5f, "13 0013"}, // in range: unchanged
    };
    for (const auto &c : cases)
    {
        UT_String out;
        mgr.expandString("$F $F4", out, c.time, nullptr, 0, 2);
        EXPECT_EQ(out, c.text) << c.time;
    }
}

TEST_F(CHEvalSafety, ThreadNumbersBeyondTheSlotsAreRefused)
{
    const int max = UT_Thread::theMaxThreadNumber;
    ASSERT_EQ(max, 4096);
    // The largest number is served like any other.
    EXPECT_EQ(obj.evaluate(ch, 5.0f, false, max), 5.0f);
    EXPECT_EQ(UT_ErrorManager::get().getErrorCount(), 0u);

    for (int thread : {max + 1, 4000000, INT_MAX})
    {
        UT_ErrorManager::get().clear();
        float out[2] = {-1, -1};
        UT_String s("x"), expanded;
        EXPECT_EQ(obj.evaluate(ch, 5.0f, false, thread), 0.0f);
        obj.evaluate(ch, 0.0f, 10.0f, out, 2, false, false, thread);
        EXPECT_EQ(out[0], 0.0f);
        EXPECT_EQ(out[1], 0.0f);
        obj.evaluateString(s, ch, 5.0f, thread);
        EXPECT_EQ(s, "");
        EXPECT_EQ(ch->evaluate(5.0f, false, thread), 0.0f);
        EXPECT_EQ(mgr.evaluate("1+1", 0.0f, nullptr, nullptr, thread, CH_ORVISH), 0.0f);
        mgr.expandString("a`1+1`", expanded, 0.0f, nullptr, thread, 3);
        EXPECT_EQ(expanded, "a`1+1`");
        EXPECT_FALSE(CH_Manager::lookupExpression("1+1", s, thread));
        EXPECT_EQ(ch->evaluateSegment(ch->getSegment(0u), 5.0f, false, thread), 0.0f);
        s = "x";
        ch->evaluateStringSegment(s, ch->getSegment(0u), 5.0f, false, thread);
        EXPECT_EQ(s, "");
        float value = -1, slope = -1;
        ch->sampleValueSlope(ch->getSegment(0u), 5.0f, thread, value, slope);
        EXPECT_EQ(value, 0.0f);
        EXPECT_EQ(slope, 0.0f);

        std::vector<UT_Error> errors = UT_ErrorManager::get().getErrors();
        ASSERT_EQ(errors.size(), 10u) << thread;
        std::string text = UT_ErrorManager::get().getFormattedErrors();
        EXPECT_NE(text.find("Thread number " + std::to_string(thread) + " is out of range"),
                  std::string::npos)
            << text;
    }
    UT_ErrorManager::get().clear();
}

} // namespace
