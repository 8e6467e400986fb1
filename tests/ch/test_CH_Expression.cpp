#include <ch/expr/CH_Expression.h>
#include <ch/expr/CH_ExprLanguage.h>

#include <ev/EV_Engine.h>
#include <ut/UT_Thread.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace {

const int theOneFloat[] = {EV_TYPEFLOAT};

// chx_count(): 1, counting its calls; its record says it reads both values
// and the slopes (0xe0000), which the engine ORs into every caller.
std::atomic<int> theCalls{0};
void countCall(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int)
{
    ++theCalls;
    result->setFloat(1);
}
EV_FUNCTION theCount(0xe0000, "chx_count", 0, EV_TYPEFLOAT, nullptr, countCall, nullptr, nullptr, 0);

// chx_flags(n): 0, adding n to the evaluating thread's expression flags.
void flagsCall(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int thread)
{
    CH_Expression::addExprFlags(static_cast<int>(argv[0]->getFloat()), thread);
    result->setFloat(0);
}
EV_FUNCTION theFlags(0, "chx_flags", 1, EV_TYPEFLOAT, theOneFloat, flagsCall, nullptr, nullptr, 0);

// chx_time(): 0, marking the caller time-dependent.
void timeCall(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int)
{
    CH_Expression::setTimeDependency();
    result->setFloat(0);
}
EV_FUNCTION theTime(0, "chx_time", 0, EV_TYPEFLOAT, nullptr, timeCall, nullptr, nullptr, 0);

// chx_nested(): evaluates theInner on the same thread and returns its value.
CH_Expression *theInner = nullptr;
void nestedCall(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int thread)
{
    result->setFloat(theInner->evaluate(thread));
}
EV_FUNCTION theNested(0, "chx_nested", 0, EV_TYPEFLOAT, nullptr, nestedCall, nullptr, nullptr, 0);

const char *const thePythonError = "Python expressions are not available";

class CHExpression : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        ev_InitFloat();
        ev_InitString();
        ev_AddFunction(&theCount);
        ev_AddFunction(&theFlags);
        ev_AddFunction(&theTime);
        ev_AddFunction(&theNested);
    }
    void SetUp() override
    {
        ev_SetErrNo(0, 0);
        CH_Expression::exprFlags() = 0;
        theCalls = 0;
    }
    void TearDown() override { ev_SetErrNo(0, 0); }
};

// ---- Compiling and the flag word -------------------------------------------

TEST_F(CHExpression, ChangingTheTextRecompilesAndClearsTheReferencePath)
{
    CH_Expression e("1 + 2", CH_ORVISH);
    EXPECT_TRUE(e.isCompiled());
    EXPECT_FLOAT_EQ(e.evaluate(0), 3.0f);

    e.setReferencePath("/obj/geo1/tx");
    e.setExpression("4 * 5", CH_ORVISH);
    EXPECT_STREQ(e.getExpression(), "4 * 5");
    EXPECT_STREQ(static_cast<const char *>(e), "4 * 5");
    EXPECT_STREQ(e.getReferencePath(), "");
    EXPECT_FLOAT_EQ(e.evaluate(0), 20.0f);

    UT_String s;
    e.setExpression("'a' + 1", CH_ORVISH);
    e.evaluateString(s, 0);
    EXPECT_STREQ(s, "a1");

    e.setExpression("1 +", CH_ORVISH);
    EXPECT_FALSE(e.isCompiled());
    EXPECT_STREQ(e.getExpression(), "1 +"); // kept despite the error
    EXPECT_FLOAT_EQ(e.evaluate(0), 0.0f);
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRSYNTAX);
}

TEST_F(CHExpression, EvaluationMarksTheWordAndATextChangeClearsIt)
{
    CH_Expression e("2", CH_ORVISH);
    EXPECT_TRUE(e.modified());
    e.evaluate(0);
    EXPECT_FALSE(e.modified());
    EXPECT_NE(e.getExpressionFlag() & 0x10000000u, 0u);
    e.setExpression("2", CH_ORVISH); // same text still counts as a change
    EXPECT_TRUE(e.modified());

    e.setExpressionFlag(0x1000000);
    EXPECT_TRUE(e.isHardwired());
    EXPECT_EQ(e.getExpressionFlag(), 0x1000000u);
    e.setExpressionFlag(0x10000000);
    EXPECT_FALSE(e.isHardwired());
    EXPECT_FALSE(e.modified());
}

TEST_F(CHExpression, UsageQueriesEvaluateAtMostOncePerText)
{
    CH_Expression e("chx_count() * 3", CH_ORVISH);
    EXPECT_EQ(theCalls, 0);
    EXPECT_TRUE(e.usesValues());
    EXPECT_EQ(theCalls, 1);
    EXPECT_TRUE(e.usesSlopes());
    EXPECT_TRUE(e.usesInValue());
    EXPECT_TRUE(e.usesOutValue());
    EXPECT_FALSE(e.usesAccels());
    EXPECT_FALSE(e.usesKnots());
    EXPECT_EQ(theCalls, 1);

    e.setExpression("chx_count() * 3", CH_ORVISH);
    EXPECT_TRUE(e.usesSlopes());
    EXPECT_TRUE(e.usesValues());
    EXPECT_EQ(theCalls, 2);
}

TEST_F(CHExpression, FlagsAddedByCallbacksReachTheUsageQueries)
{
    struct Case
    {
        const char *text;
        bool timedep, in, out, values, slopes, accels, knots;
    };
    const Case cases[] = {
        {"chx_flags(0)", false, false, false, false, false, false, false},
        {"chx_flags(131072)", false, true, false, true, false, false, false},   // 0x20000
        {"chx_flags(262144)", false, false, true, true, false, false, false},   // 0x40000
        {"chx_flags(524288)", false, false, false, false, true, false, false},  // 0x80000
        {"chx_flags(2097152)", false, false, false, false, false, true, false}, // 0x200000
        {"chx_flags(4194304)", false, false, false, false, false, false, true}, // 0x400000
        {"chx_flags(1048576)", false, false, false, false, false, false, false}, // 0x100000: no query
        {"chx_time() + chx_flags(2228224)", true, true, false, true, false, true, false},
    };
    for (const Case &c : cases) {
        CH_Expression e(c.text, CH_ORVISH);
        EXPECT_EQ(e.usesInValue(), c.in) << c.text;
        EXPECT_EQ(e.usesOutValue(), c.out) << c.text;
        EXPECT_EQ(e.usesValues(), c.values) << c.text;
        EXPECT_EQ(e.usesSlopes(), c.slopes) << c.text;
        EXPECT_EQ(e.usesAccels(), c.accels) << c.text;
        EXPECT_EQ(e.usesKnots(), c.knots) << c.text;
        EXPECT_EQ((e.getExpressionFlag() & 0x8000u) != 0, c.timedep) << c.text;
    }
}

TEST_F(CHExpression, EvaluationRestoresTheThreadFlagsAndNestingDoesNotLeak)
{
    CH_Expression inner("chx_flags(524288) + 5", CH_ORVISH); // slopes
    theInner = &inner;
    CH_Expression outer("chx_flags(131072) + chx_nested() + chx_flags(4194304)", CH_ORVISH);

    CH_Expression::exprFlags() = 0x4; // left by an enclosing evaluation
    EXPECT_FLOAT_EQ(outer.evaluate(0), 5.0f);
    EXPECT_EQ(CH_Expression::exprFlags(), 0x4);
    EXPECT_NE(outer.getExpressionFlag() & 0x20000u, 0u);
    EXPECT_NE(outer.getExpressionFlag() & 0x400000u, 0u); // gathered after the nested run
    EXPECT_EQ(outer.getExpressionFlag() & 0x80000u, 0u);  // the inner's own
    EXPECT_EQ(outer.getExpressionFlag() & 0x4u, 0u);      // the enclosing one's
    EXPECT_NE(inner.getExpressionFlag() & 0x80000u, 0u);

    // The same through the string path and an explicit thread number.
    UT_String s;
    outer.setExpression("chx_flags(262144) + chx_nested()", CH_ORVISH);
    outer.evaluateString(s, UT_Thread::getMySequentialThreadIndex());
    EXPECT_STREQ(s, "5");
    EXPECT_NE(outer.getExpressionFlag() & 0x40000u, 0u);
    EXPECT_EQ(outer.getExpressionFlag() & 0x80000u, 0u);
    EXPECT_EQ(CH_Expression::exprFlags(), 0x4);
    theInner = nullptr;
}

TEST_F(CHExpression, ThreadsGatherIntoTheirOwnSlots)
{
    CH_Expression::addExprFlags(0x1, 0);
    CH_Expression::addExprFlags(0x2, UT_Thread::getMySequentialThreadIndex());
    EXPECT_EQ(CH_Expression::exprFlags(), 0x3);
    CH_Expression::exprFlags() = 0;

    // Two threads evaluate one expression at once; each must find its own
    // flags as it left them, whatever the other gathers meanwhile.
    CH_Expression e("chx_flags(131072) + chx_time()", CH_ORVISH);
    std::atomic<int> wrong{0};
    auto work = [&](int sentinel) {
        int thread = UT_Thread::getMySequentialThreadIndex();
        CH_Expression::exprFlags() = sentinel;
        for (int i = 0; i < 2000; ++i) {
            e.evaluate(i % 2 ? thread : 0);
            if (CH_Expression::exprFlags() != sentinel)
                ++wrong;
        }
        CH_Expression::exprFlags() = 0;
    };
    std::thread a(work, 0x1), b(work, 0x2);
    a.join();
    b.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(e.getExpressionFlag() & 0x28003u, 0x28000u);
}

// ---- Copies and assignment ---------------------------------------------------

TEST_F(CHExpression, CopiesShareSafelyAndOutliveTheirSource)
{
    auto source = std::make_unique<CH_Expression>("chx_count() * 7", CH_ORVISH);
    source->setReferencePath("/a");
    CH_Expression copy(*source);
    EXPECT_STREQ(copy.getReferencePath(), "/a");
    copy.setReferencePath("/b"); // the path is the copy's own
    EXPECT_STREQ(source->getReferencePath(), "/a");

    // Sharing: a text change on one is seen by the other.
    source->setExpression("chx_count() * 8", CH_ORVISH);
    EXPECT_STREQ(copy.getExpression(), "chx_count() * 8");
    source.reset();
    EXPECT_FLOAT_EQ(copy.evaluate(0), 8.0f);
    EXPECT_TRUE(copy.usesSlopes());

    // Python code is replaced, not edited: the copy keeps the old text.
    CH_Expression py("x + 1", CH_PYTHON);
    auto pycopy = std::make_unique<CH_Expression>(py);
    py.setExpression("x + 2", CH_PYTHON);
    EXPECT_STREQ(pycopy->getExpression(), "x + 1");
    EXPECT_STREQ(py.getExpression(), "x + 2");
    pycopy.reset();
    EXPECT_STREQ(py.getExpression(), "x + 2");
}

TEST_F(CHExpression, AssignmentRecompilesAndIgnoresAnEmptySource)
{
    CH_Expression target("1", CH_ORVISH);
    CH_Expression source("x * 2", CH_PYTHON);
    target = source;
    EXPECT_EQ(target.getLanguage(), CH_PYTHON);
    EXPECT_STREQ(target.getExpression(), "x * 2");

    source.setExpression("6 * 7", CH_ORVISH);
    target = source;
    EXPECT_EQ(target.getLanguage(), CH_ORVISH);
    EXPECT_FLOAT_EQ(target.evaluate(0), 42.0f);
    source.setExpression("0", CH_ORVISH); // not shared: the target is unaffected
    EXPECT_FLOAT_EQ(target.evaluate(0), 42.0f);

    target.evaluate(0);
    CH_Expression empty("", CH_PYTHON);
    target = empty;
    EXPECT_STREQ(target.getExpression(), "6 * 7");
    EXPECT_EQ(target.getLanguage(), CH_ORVISH);
    EXPECT_FALSE(target.modified());

    CH_Expression &alias = target;
    target = alias;
    EXPECT_STREQ(target.getExpression(), "6 * 7");
    CH_Expression sharing(target);
    sharing = target; // the text lives in the engine expression being rewritten
    EXPECT_FLOAT_EQ(sharing.evaluate(0), 42.0f);
}

TEST_F(CHExpression, NullTextAndSameLanguageChangeNothing)
{
    CH_Expression e("3", CH_ORVISH);
    e.setReferencePath("/p");
    e.evaluate(0);
    e.setExpression(nullptr, CH_PYTHON);
    e.setLanguage(CH_ORVISH);
    EXPECT_EQ(e.getLanguage(), CH_ORVISH);
    EXPECT_STREQ(e.getExpression(), "3");
    EXPECT_STREQ(e.getReferencePath(), "/p");
    EXPECT_FALSE(e.modified());
}

// ---- Python ------------------------------------------------------------------

TEST_F(CHExpression, LanguageRoundTripKeepsTheText)
{
    CH_Expression e("1 + 2", CH_ORVISH);
    e.setLanguage(CH_PYTHON);
    EXPECT_EQ(e.getLanguage(), CH_PYTHON);
    EXPECT_STREQ(e.getExpression(), "1 + 2");
    EXPECT_FLOAT_EQ(e.evaluate(0), 0.0f);
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRCUSTOM);
    ev_SetErrNo(0, 0);

    e.setLanguage(CH_ORVISH);
    EXPECT_FLOAT_EQ(e.evaluate(0), 3.0f);
    EXPECT_EQ(ev_GetErrNo(0), EV_NOERROR);
}

TEST_F(CHExpression, PythonStubReportsAndKeepsOnlyItsFlagBits)
{
    CH_Expression e("frame() * 2", CH_PYTHON);
    EXPECT_TRUE(e.isCompiled());
    EXPECT_EQ(e.getExpressionFlag(), 0u);

    e.setExpressionFlag(0xffffffffu);
    e.setExpression("frame() * 3", CH_PYTHON); // a change zeroes the word
    EXPECT_EQ(e.getExpressionFlag(), 0u);
    EXPECT_TRUE(e.modified());

    e.setExpressionFlag(0xffffffffu);
    CH_Expression::exprFlags() = 0x40;
    EXPECT_FLOAT_EQ(e.evaluate(0), 0.0f);
    EXPECT_EQ(e.getExpressionFlag(), 0xbc000000u); // 0xac000000 kept, bit 28 set
    EXPECT_EQ(CH_Expression::exprFlags(), 0x40);
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRCUSTOM);
    EXPECT_STREQ(ev_GetErrorText(EV_ERRCUSTOM), thePythonError);

    ev_SetErrNo(0, 0);
    UT_String s("stale");
    e.setExpressionFlag(0x20000);
    e.evaluateString(s, 0);
    EXPECT_STREQ(s, "");
    EXPECT_EQ(e.getExpressionFlag(), 0x10000000u);
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRCUSTOM);

    e.setExpression("x", CH_PYTHON);
    EXPECT_FALSE(e.usesValues());
    EXPECT_FALSE(e.modified());
    UT_String unused;
    EXPECT_EQ(e.getSingleFunctionInstanceData(&theCount, 0, unused), nullptr);
    EXPECT_EQ(e.changeOpRef("/obj/b", "/obj/a", "/obj", "tx", "tx", 0), 0);
    EXPECT_STREQ(e.getExpression(), "x");
}

// ---- Text edits --------------------------------------------------------------

TEST_F(CHExpression, FindAndChangeStringRecompileOnlyOnChange)
{
    CH_Expression e("chx_count() + chx_count()", CH_ORVISH);
    EXPECT_TRUE(e.findString("chx_count", true, true));
    EXPECT_FALSE(e.findString("chx", true, true));
    EXPECT_FALSE(e.findString("CHX_COUNT", false, true));
    EXPECT_TRUE(e.findString("CHX_COUNT", false, false));

    e.setReferencePath("/p");
    e.evaluate(0);
    EXPECT_EQ(e.changeString("nothing", "x", false, 0), 0);
    EXPECT_FALSE(e.modified());
    EXPECT_STREQ(e.getReferencePath(), "/p");

    EXPECT_EQ(e.changeString("chx_count()", "chx_flags(131072)", false, 0), 2);
    EXPECT_STREQ(e.getExpression(), "chx_flags(131072) + chx_flags(131072)");
    EXPECT_TRUE(e.modified());
    EXPECT_STREQ(e.getReferencePath(), "");
    theCalls = 0;
    EXPECT_TRUE(e.usesInValue());
    EXPECT_FALSE(e.usesSlopes()); // the new text's flags, not the old ones
    EXPECT_EQ(theCalls, 0);

    CH_Expression py("a + a", CH_PYTHON);
    EXPECT_EQ(py.changeString("a", "b", true, 0), 2);
    EXPECT_EQ(py.getLanguage(), CH_PYTHON);
    EXPECT_STREQ(py.getExpression(), "b + b");
}

// ---- Keywords ----------------------------------------------------------------

TEST(CHExprLanguage, LanguageKeywordsAndCharacters)
{
    const struct
    {
        int value;
        const char *keyword, *label;
        char c;
    } cases[] = {{0, "orvish", "Orvish", 'o'}, {1, "python", "Python", 'p'}, {2, "orvish", "Orvish", 'o'},
                 {-1, "orvish", "Orvish", 'o'}};
    for (const auto &c : cases) {
        EXPECT_STREQ(CHexprLanguageAsString(static_cast<CH_ExprLanguage>(c.value)), c.keyword);
        EXPECT_STREQ(COrvishLanguageAsString(static_cast<CH_ScriptLanguage>(c.value)), c.keyword);
        EXPECT_STREQ(COrvishLanguageAsLabel(static_cast<CH_ScriptLanguage>(c.value)), c.label);
        EXPECT_EQ(CHexprLanguageAsChar(static_cast<CH_ExprLanguage>(c.value)), c.c);
    }
}

TEST(CHExprLanguage, ParsingIsExactAndLeavesTheOutputOnFailure)
{
    const struct
    {
        const char *text;
        int expect; // -1: rejected
    } cases[] = {{"orvish", 0}, {"python", 1}, {"Python", -1}, {"ORVISH", -1},
                 {"python ", -1}, {"", -1}, {nullptr, -1}, {"o", -1}};
    for (const auto &c : cases) {
        CH_ExprLanguage lang = static_cast<CH_ExprLanguage>(7);
        CH_ScriptLanguage script = static_cast<CH_ScriptLanguage>(7);
        bool ok = c.expect >= 0;
        EXPECT_EQ(CHstringToExprLanguage(c.text, lang), ok) << (c.text ? c.text : "null");
        EXPECT_EQ(CHstringToScriptLanguage(c.text, script), ok) << (c.text ? c.text : "null");
        EXPECT_EQ(static_cast<int>(lang), ok ? c.expect : 7);
        EXPECT_EQ(static_cast<int>(script), ok ? c.expect : 7);
    }

    const struct
    {
        char c;
        int expect;
    } chars[] = {{'o', 0}, {'p', 1}, {'O', -1}, {'P', -1}, {'x', -1}, {'\0', -1}};
    for (const auto &c : chars) {
        CH_ExprLanguage lang = static_cast<CH_ExprLanguage>(7);
        EXPECT_EQ(CHcharToExprLanguage(c.c, lang), c.expect >= 0) << c.c;
        EXPECT_EQ(static_cast<int>(lang), c.expect >= 0 ? c.expect : 7);
    }
}

TEST(CHExprLanguage, StringMeanings)
{
    const struct
    {
        int meaning;
        const char *keyword;
        int language;
    } cases[] = {{0, "literal", 0}, {1, "orvish-expr", 0}, {2, "python", 1},
                 {3, "autodetect-orvish-expr", 0}, {4, "default-lang", 0}, {7, "autodetect-orvish-expr", 0}};
    for (const auto &c : cases) {
        auto m = static_cast<CH_StringMeaning>(c.meaning);
        EXPECT_STREQ(CHmeaningToString(m), c.keyword) << c.meaning;
        EXPECT_EQ(CHstringMeaningToExprLanguage(m), c.language) << c.meaning;
        CH_StringMeaning back = static_cast<CH_StringMeaning>(9);
        ASSERT_TRUE(CHstringToMeaning(c.keyword, back));
        EXPECT_EQ(back, c.meaning == 7 ? 3 : c.meaning);
    }
    for (const char *bad : {"Literal", "PYTHON", "orvish", "", "literal ", static_cast<const char *>(nullptr)}) {
        CH_StringMeaning m = CH_STRING_DEFAULT_LANG;
        EXPECT_FALSE(CHstringToMeaning(bad, m)) << (bad ? bad : "null");
        EXPECT_EQ(m, CH_STRING_DEFAULT_LANG);
    }
    EXPECT_EQ(CHexprLanguageToStringMeaning(CH_ORVISH), CH_STRING_ORVISH_EXPR);
    EXPECT_EQ(CHexprLanguageToStringMeaning(CH_PYTHON), CH_STRING_PYTHON_EXPR);
    EXPECT_EQ(CHexprLanguageToStringMeaning(static_cast<CH_ExprLanguage>(5)), CH_STRING_ORVISH_EXPR);
}

} // namespace
