#include <ch/expr/CH_Expression.h>
#include <ch/expr/CH_ExprLanguage.h>
#include <ev/EV_Engine.h>
#include <ut/UT_Thread.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>
#include <ev/EV_ExprFlags.h>

namespace {

std::atomic<int> theCalls{0};
CH_Expression *theInner = nullptr;
const int theOneFloat[] = {EV_TYPEFLOAT};
using Args = EV_SYMBOL **;
// chx_count(): 1, counted; its record claims values and slopes (0xe0000). chx_flags(n): 0, adding n to the
// evaluating thread's flags. chx_time(): 0, time-dependent. chx_nested(): theInner's value, on the same thread.
void count(EV_FUNCTION *, EV_SYMBOL *r, Args, int) { ++theCalls; r->setFloat(1); }
void flags(EV_FUNCTION *, EV_SYMBOL *r, Args a, int t)
{
    CH_Expression::addExprFlags(int(a[0]->getFloat()), t);
    r->setFloat(0);
}
void timedep(EV_FUNCTION *, EV_SYMBOL *r, Args, int) { CH_Expression::setTimeDependency(); r->setFloat(0); }
void nested(EV_FUNCTION *, EV_SYMBOL *r, Args, int t) { r->setFloat(theInner->evaluate(t)); }
EV_FUNCTION theFunctions[] = {{0xe0000, "chx_count", 0, EV_TYPEFLOAT, nullptr, count, nullptr, nullptr, 0},
                              {0, "chx_flags", 1, EV_TYPEFLOAT, theOneFloat, flags, nullptr, nullptr, 0},
                              {0, "chx_time", 0, EV_TYPEFLOAT, nullptr, timedep, nullptr, nullptr, 0},
                              {0, "chx_nested", 0, EV_TYPEFLOAT, nullptr, nested, nullptr, nullptr, 0}};
unsigned bits(const CH_Expression &e, unsigned mask) { return e.getExpressionFlag() & mask; }
int takeError() { int n = ev_GetErrNo(0); ev_SetErrNo(0, 0); return n; }

struct CHExpression : ::testing::Test {
    static void SetUpTestSuite() { ev_InitFloat(); for (EV_FUNCTION &f : theFunctions) ev_AddFunction(&f); }
    void SetUp() override { ev_SetErrNo(0, 0); CH_Expression::exprFlags() = 0; theCalls = 0; }
};

TEST_F(CHExpression, EvaluationMarksTheTextSoUsageQueriesEvaluateOncePerText)
{
    CH_Expression e("chx_count() * 3", CH_ORVISH);
    EXPECT_TRUE(e.usesValues() && e.usesSlopes() && e.usesInValue() && e.usesOutValue());
    EXPECT_FALSE(e.usesAccels() || e.usesKnots());
    EXPECT_EQ(theCalls, 1);
    EXPECT_EQ(bits(e, 0x10000000u), 0x10000000u);
    e.setReferencePath("/obj/geo1/tx");
    e.setExpression("chx_count() * 3", CH_ORVISH); // the same text is still a change
    EXPECT_TRUE(e.modified());
    EXPECT_STREQ(e.getReferencePath(), "");
    EXPECT_TRUE(e.usesSlopes() && e.usesValues());
    EXPECT_EQ(theCalls, 2);
    e.setExpression("4 * 5", CH_ORVISH);
    EXPECT_FLOAT_EQ(e.evaluate(0), 20.0f);
    e.setExpression("1 +", CH_ORVISH); // kept despite the syntax error
    EXPECT_FALSE(e.isCompiled());
    EXPECT_STREQ(static_cast<const char *>(e), "1 +");
    EXPECT_FLOAT_EQ(e.evaluate(0), 0.0f);
    EXPECT_EQ(takeError(), EV_ERRSYNTAX);
    e.setExpressionFlag(0x1000000);
    EXPECT_TRUE(e.isHardwired() && e.modified());
}

TEST_F(CHExpression, FlagsAddedByCallbacksReachTheUsageQueries)
{
    const struct { char letter; bool (CH_Expression::*query)() const; } queries[] = {
        {'i', &CH_Expression::usesInValue}, {'o', &CH_Expression::usesOutValue}, {'v', &CH_Expression::usesValues},
        {'s', &CH_Expression::usesSlopes}, {'a', &CH_Expression::usesAccels}, {'k', &CH_Expression::usesKnots}};
    const struct { const char *text, *expect; } cases[] = { // 1048576 answers no query
        {"chx_flags(0)", ""}, {"chx_flags(131072)", "iv"}, {"chx_flags(262144)", "ov"}, {"chx_flags(524288)", "s"},
        {"chx_flags(2097152)", "a"}, {"chx_flags(4194304)", "k"}, {"chx_flags(1048576)", ""},
        {"chx_time() + chx_flags(2228224)", "iav"}};
    for (const auto &c : cases) {
        CH_Expression e(c.text, CH_ORVISH);
        for (const auto &q : queries)
            EXPECT_EQ((e.*q.query)(), std::strchr(c.expect, q.letter) != nullptr) << c.text << ' ' << q.letter;
    }
}

TEST_F(CHExpression, EvaluationRestoresTheThreadFlagsNestedAndConcurrently)
{
    CH_Expression inner("chx_flags(524288) + 5", CH_ORVISH); // slopes
    theInner = &inner;
    CH_Expression outer("chx_flags(131072) + chx_nested() + chx_flags(4194304)", CH_ORVISH);
    CH_Expression::exprFlags() = 0x4; // left by an enclosing evaluation
    EXPECT_FLOAT_EQ(outer.evaluate(0), 5.0f);
    EXPECT_EQ(bits(outer, 0x4a0004u), 0x420000u); // in value and knots, gathered around the nested run, only
    UT_String s; // the same through the string path and an explicit thread number
    outer.setExpression("chx_flags(262144) + chx_nested()", CH_ORVISH);
    outer.evaluateString(s, UT_Thread::getMySequentialThreadIndex());
    EXPECT_STREQ(s, "5");
    EXPECT_EQ(bits(outer, 0xc0004u), EV_FLAG_OUTVALUE);
    EXPECT_EQ(CH_Expression::exprFlags(), 0x4);

    CH_Expression e("chx_flags(131072) + chx_time()", CH_ORVISH);
    std::atomic<int> ready{0}, wrong{0};
    auto work = [&](int sentinel) {
        CH_Expression::exprFlags() = sentinel;
        for (++ready; ready < 2;) {}
        for (int i = 0; i < 2000; ++i)
            wrong += e.evaluate(0) != 0.0f || CH_Expression::exprFlags() != sentinel;
        CH_Expression::exprFlags() = 0;
    };
    std::thread a(work, 0x2), b(work, 0x8);
    a.join();
    b.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(CH_Expression::exprFlags(), 0x4); // the other threads never touched this one's
    EXPECT_EQ(bits(e, 0x2800eu), 0x28000u);   // time-dependent and in value, no sentinel
}

TEST_F(CHExpression, CopiesAreIndependentValuesWhicheverSideIsEdited)
{
    using Edit = void (*)(CH_Expression &);
    const struct { const char *name; Edit edit; } edits[] = {
        {"setExpression", [](CH_Expression &e) { e.setExpression("chx_count() * 8", CH_ORVISH); }},
        {"setLanguage", [](CH_Expression &e) { e.setLanguage(CH_PYTHON); }},
        {"setExpressionFlag", [](CH_Expression &e) { e.setExpressionFlag(0x1000000); }},
        {"changeString", [](CH_Expression &e) { e.changeString("7", "9", false, 0); }},
        {"unresolveLocalVars", [](CH_Expression &e) { e.unresolveLocalVars(0); }},
        {"assignment", [](CH_Expression &e) { e = CH_Expression("5", CH_ORVISH); }},
    };
    for (bool pooled : {false, true})
        for (bool edit_source : {false, true})
            for (const auto &c : edits) {
                SCOPED_TRACE(std::string(c.name) + (pooled ? " pooled" : "") + (edit_source ? " source" : " copy"));
                auto source = pooled ? std::make_unique<CH_Expression>("chx_count() * 7", CH_ORVISH, CH_Expression::Pooled)
                                     : std::make_unique<CH_Expression>("chx_count() * 7", CH_ORVISH);
                source->setReferencePath("/a");
                EXPECT_FLOAT_EQ(source->evaluate(0), 7.0f);
                auto copy = std::make_unique<CH_Expression>(*source);
                EXPECT_STREQ(copy->getReferencePath(), "/a");
                CH_Expression &edited = edit_source ? *source : *copy;
                std::unique_ptr<CH_Expression> &kept = edit_source ? copy : source;
                unsigned word = kept->getExpressionFlag();
                c.edit(edited);
                EXPECT_STREQ(kept->getExpression(), "chx_count() * 7");
                EXPECT_EQ(kept->getLanguage(), CH_ORVISH);
                EXPECT_EQ(kept->getExpressionFlag(), word);
                EXPECT_FLOAT_EQ(kept->evaluate(0), 7.0f);
                (edit_source ? source : copy).reset(); // either may go first
                EXPECT_FLOAT_EQ(kept->evaluate(0), 7.0f);
                EXPECT_EQ(takeError(), 0);
            }
}

TEST_F(CHExpression, CopyOfACopyAndAssignmentBetweenSharers)
{
    CH_Expression a("chx_count() * 2", CH_ORVISH), b(a), c(b);
    b.setExpression("chx_count() * 3", CH_ORVISH);
    EXPECT_STREQ(a.getExpression(), "chx_count() * 2");
    EXPECT_STREQ(c.getExpression(), "chx_count() * 2");
    c.setExpression("chx_count() * 4", CH_ORVISH);
    EXPECT_FLOAT_EQ(a.evaluate(0) + b.evaluate(0) + c.evaluate(0), 9.0f);
    CH_Expression py("x + 1", CH_PYTHON), pycopy(py);
    py.setExpression("x + 2", CH_PYTHON);
    EXPECT_STREQ(pycopy.getExpression(), "x + 1");
    py.setExpressionFlag(0x1000000);
    EXPECT_FALSE(pycopy.isHardwired());
    EXPECT_TRUE(pycopy.isCompiled());
    CH_Expression target("1", CH_ORVISH);
    target = pycopy;
    EXPECT_EQ(target.getLanguage(), CH_PYTHON);
    target = a;
    a.setExpression("0", CH_ORVISH);
    EXPECT_FLOAT_EQ(target.evaluate(0), 2.0f);
    target = CH_Expression("", CH_PYTHON); // ignored
    EXPECT_FALSE(target.modified());
    CH_Expression sharing(target);
    sharing = target; // the text lives in the program being replaced
    EXPECT_FLOAT_EQ(sharing.evaluate(0), 2.0f);
    EXPECT_FLOAT_EQ(target.evaluate(0), 2.0f);
}

TEST_F(CHExpression, PythonStubAndLanguageRoundTrip)
{
    CH_Expression e("1 + 2", CH_ORVISH);
    e.setExpressionFlag(0xffffffffu);
    e.setLanguage(CH_PYTHON); // zeroes the word
    EXPECT_EQ(e.getExpressionFlag(), 0u);
    e.setExpressionFlag(0xffffffffu);
    EXPECT_FLOAT_EQ(e.evaluate(0), 0.0f);
    EXPECT_EQ(e.getExpressionFlag(), 0xbc000000u); // the Python bits kept, bit 28 set
    EXPECT_STREQ(ev_GetErrorText(EV_ERRCUSTOM), "Python expressions are not available");
    EXPECT_EQ(takeError(), EV_ERRCUSTOM);
    UT_String s("stale"), unused;
    e.setExpressionFlag(EV_FLAG_INVALUE);
    e.evaluateString(s, 0);
    EXPECT_STREQ(s, "");
    EXPECT_EQ(e.getExpressionFlag(), 0x10000000u);
    EXPECT_EQ(takeError(), EV_ERRCUSTOM);
    EXPECT_EQ(e.getSingleFunctionInstanceData(&theFunctions[0], 0, unused), nullptr);
    e.setLanguage(CH_ORVISH); // the text survived
    EXPECT_FLOAT_EQ(e.evaluate(0), 3.0f);
    EXPECT_EQ(takeError(), EV_NOERROR);
}

TEST_F(CHExpression, TextEditsRecompileOnlyOnChange)
{
    CH_Expression e("chx_count() + chx_count()", CH_ORVISH);
    EXPECT_TRUE(e.findString("chx_count", true, true) && e.findString("CHX_COUNT", false, false));
    EXPECT_FALSE(e.findString("chx", true, true) || e.findString("CHX_COUNT", false, true));
    e.setReferencePath("/p");
    e.evaluate(0);
    EXPECT_EQ(e.changeString("nothing", "x", false, 0), 0);
    e.setExpression(nullptr, CH_PYTHON); // ignored
    e.setLanguage(CH_ORVISH);            // the same: no recompilation
    EXPECT_FALSE(e.modified());
    EXPECT_STREQ(e.getReferencePath(), "/p");
    EXPECT_EQ(e.changeString("chx_count()", "chx_flags(131072)", false, 0), 2);
    EXPECT_STREQ(e.getReferencePath(), "");
    EXPECT_TRUE(e.usesInValue() && !e.usesSlopes()); // the new text's flags, not the old ones
    CH_Expression py("a + ab", CH_PYTHON);
    EXPECT_EQ(py.changeString("a", "b", true, 0), 1);
    EXPECT_STREQ(py.getExpression(), "b + ab");
}

TEST(CHExprLanguage, KeywordsCharactersAndMeanings)
{
    for (int value : {0, 1, 2, -1}) { // anything but 1 reads as Orvish
        bool py = value == 1;
        EXPECT_STREQ(CHexprLanguageAsString(CH_ExprLanguage(value)), py ? "python" : "orvish");
        EXPECT_STREQ(COrvishLanguageAsString(CH_ScriptLanguage(value)), py ? "python" : "orvish");
        EXPECT_STREQ(COrvishLanguageAsLabel(CH_ScriptLanguage(value)), py ? "Python" : "Orvish");
        EXPECT_EQ(CHexprLanguageAsChar(CH_ExprLanguage(value)), py ? 'p' : 'o');
        EXPECT_EQ(CHexprLanguageToStringMeaning(CH_ExprLanguage(value)),
                  py ? CH_STRING_PYTHON_EXPR : CH_STRING_ORVISH_EXPR);
    }
    const struct { const char *text; char c; int language, meaning; } parses[] = { // -1: rejected, output untouched
        {"orvish", 'o', 0, -1}, {"python", 'p', 1, 2}, {"Python", 'P', -1, -1}, {"ORVISH", 'O', -1, -1},
        {"python ", 'x', -1, -1}, {"", '\0', -1, -1}, {nullptr, '!', -1, -1}, {"o", 'q', -1, -1},
        {"Literal", 'L', -1, -1}, {"literal ", 'l', -1, -1}, {"literal", 'q', -1, 0}};
    for (const auto &p : parses) {
        CH_ExprLanguage lang = CH_ExprLanguage(7), fromChar = lang;
        CH_ScriptLanguage script = CH_ScriptLanguage(7);
        CH_StringMeaning meaning = CH_StringMeaning(7);
        bool ok = p.language >= 0;
        EXPECT_EQ(CHstringToExprLanguage(p.text, lang), ok) << p.text;
        EXPECT_EQ(CHstringToScriptLanguage(p.text, script), ok) << p.text;
        EXPECT_EQ(CHcharToExprLanguage(p.c, fromChar), ok) << int(p.c);
        EXPECT_EQ(CHstringToMeaning(p.text, meaning), p.meaning >= 0) << p.text;
        EXPECT_TRUE(int(script) == lang && fromChar == lang && lang == (ok ? p.language : 7)) << p.text;
        EXPECT_EQ(meaning, p.meaning >= 0 ? p.meaning : 7) << p.text;
    }
    const struct { int meaning; const char *keyword; } meanings[] = {{0, "literal"}, {1, "orvish-expr"},
        {2, "python"}, {3, "autodetect-orvish-expr"}, {4, "default-lang"}, {7, "autodetect-orvish-expr"}};
    for (const auto &m : meanings) {
        CH_StringMeaning back = CH_StringMeaning(9), meaning = CH_StringMeaning(m.meaning);
        EXPECT_STREQ(CHmeaningToString(meaning), m.keyword);
        EXPECT_EQ(CHstringMeaningToExprLanguage(meaning), m.meaning == 2 ? CH_PYTHON : CH_ORVISH) << m.meaning;
        EXPECT_TRUE(CHstringToMeaning(m.keyword, back) && back == (m.meaning == 7 ? 3 : m.meaning)) << m.keyword;
    }
}

} // namespace

TEST_F(CHExpression, PoolSharesEqualTextsAndDropsATextWithItsLastHolder)
{
    const std::size_t base = CH_Expression::getPooledTextCount();
    auto a = std::make_unique<CH_Expression>("chx_count() + 0.125", CH_ORVISH, CH_Expression::Pooled);
    auto b = std::make_unique<CH_Expression>("chx_count() + 0.125", CH_ORVISH, CH_Expression::Pooled);
    auto c = std::make_unique<CH_Expression>(*b); // a copy of a pooled expression is pooled
    EXPECT_EQ(CH_Expression::getPooledTextCount(), base + 1);
    a->setExpressionFlag(0x1000000); // leaves the pool, which keeps the text for b and c
    EXPECT_FALSE(b->isHardwired());
    EXPECT_EQ(CH_Expression::getPooledTextCount(), base + 1);
    b.reset();
    EXPECT_EQ(CH_Expression::getPooledTextCount(), base + 1);
    c.reset();
    EXPECT_EQ(CH_Expression::getPooledTextCount(), base);
    // The text comes back compiled afresh, with a fresh flag word.
    CH_Expression again("chx_count() + 0.125", CH_ORVISH, CH_Expression::Pooled);
    EXPECT_TRUE(again.modified());
    EXPECT_FLOAT_EQ(again.evaluate(0), 1.125f);
    EXPECT_EQ(CH_Expression::getPooledTextCount(), base + 1);
    // Python texts and null texts are never pooled.
    CH_Expression py("x", CH_PYTHON, CH_Expression::Pooled), none(nullptr, CH_ORVISH, CH_Expression::Pooled);
    EXPECT_EQ(CH_Expression::getPooledTextCount(), base + 1);
}

TEST_F(CHExpression, PoolHoldsManyDistinctLiveTexts)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr int theTexts = 20000;
#else
    constexpr int theTexts = 200000; // quadratic rescans once made this take minutes
#endif
    const std::size_t base = CH_Expression::getPooledTextCount();
    std::vector<std::unique_ptr<CH_Expression>> live(theTexts);
    for (int i = 0; i < theTexts; ++i)
        live[i] = std::make_unique<CH_Expression>(std::to_string(i).c_str(), CH_ORVISH, CH_Expression::Pooled);
    EXPECT_EQ(CH_Expression::getPooledTextCount(), base + theTexts);
    EXPECT_FLOAT_EQ(live[theTexts - 1]->evaluate(0), float(theTexts - 1));
    for (int i = 0; i < theTexts / 2; ++i)
        live[i].reset();
    EXPECT_EQ(CH_Expression::getPooledTextCount(), base + theTexts - theTexts / 2);
    live.clear();
    EXPECT_EQ(CH_Expression::getPooledTextCount(), base);
}
