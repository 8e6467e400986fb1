#include "evTestUtil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <ev/EV_ExprFlags.h>

namespace {

class EvEngine : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        ev_InitFloat();
        ev_InitString();
    }
    void SetUp() override
    {
        ev_SetOptimization(1);
        ev_SetErrNo(0, 0);
    }
};

// ---- Language --------------------------------------------------------------

struct TextCase
{
    const char *text;
    const char *expect; // the string form of the result
    double value;       // the float result (a string result read as a number)
};

TEST_F(EvEngine, PrecedenceAndAssociativityWithAndWithoutFolding)
{
    const TextCase cases[] = {
        {"1 + 2 * 3", "7", 7},        {"(1 + 2) * 3", "9", 9},      {"10 - 4 - 3", "3", 3},
        {"2 * 3 % 4", "2", 2},        {"7 % 4 * 2", "6", 6},        {"-2 ^ 2", "-4", -4},
        {"2 ^ 3 ^ 2", "512", 512},    {"2 ^ -1", "0.5", 0.5},       {"-(2) ^ 2", "-4", -4},
        {"(-2) ^ 2", "4", 4},         {"!0 + 1", "2", 2},           {"- - 3", "3", 3},
        {"1 < 2 == 1", "1", 1},       {"1 + 1 == 2", "1", 1},       {"3 > 2 > 1", "0", 0},
        {"1 || 0 && 0", "1", 1},      {"0 && 1 || 1", "1", 1},      {"2 && 3", "1", 1},
        {"0 || 0.5", "1", 1},         {"1 ? 2 : 3 ? 4 : 5", "2", 2}, {"0 ? 2 : 0 ? 4 : 5", "5", 5},
        {"1 ? 0 ? 6 : 7 : 8", "7", 7}, {"5 - 10 % 4 ^ 2 / 2", "0", 0}, {".5 + 2.", "2.5", 2.5},
        {"1e-3 * 3.2E+4", "32", 32},  {"-7 % 3", "-1", -1},         {"1 != 1", "0", 0},
        {"2 <= 2", "1", 1},           {"2 >= 3", "0", 0},           {"1000000 * 1", "1e+06", 1e6},
    };
    for (int opt = 0; opt <= 1; ++opt) {
        ev_SetOptimization(opt);
        for (const TextCase &c : cases) {
            evTestResult r = evTestEval(c.text);
            EXPECT_TRUE(r.ok) << c.text;
            EXPECT_EQ(r.s, c.expect) << c.text << " (optimisation " << opt << ")";
            EXPECT_EQ(r.f, static_cast<float>(c.value)) << c.text << " (optimisation " << opt << ")";
        }
    }
}

TEST_F(EvEngine, StringsConvertAndCompare)
{
    // As floats, string results read as their leading number.
    const TextCase cases[] = {
        {"\"a\" + 1", "a1", 0},          {"1 + 'b'", "1b", 1},             {"'12abc' * 2", "24", 24},
        {"'abc' * 2", "0", 0},           {"' 3.5e2x' + 0", " 3.5e2x0", 350}, {"-' 3.5e2x'", "-350", -350},
        {"+'0x10'", "0", 0},             {"+'inf'", "0", 0},               {"'b' < 'a'", "0", 0},
        {"'abc' == 'abc'", "1", 1},      {"'10' < '9'", "1", 1},           {"'10' < 9", "0", 0},
        {"!''", "1", 1},                 {"!'0'", "0", 0},                 {"'' ? 1 : 2", "2", 2},
        {"'it\\'s'", "it's", 0},         {"\"q\\\"\\\\\"", "q\"\\", 0},   {"\"a\\tb\"", "a\tb", 0},
        {"'a\\nb'", "a\\nb", 0},         {"0.1 + 0.2 + ''", "0.3", 0.3},   {"'7' + 1", "71", 71},
    };
    for (const TextCase &c : cases) {
        evTestResult r = evTestEval(c.text);
        EXPECT_TRUE(r.ok) << c.text;
        EXPECT_EQ(r.s, c.expect) << c.text;
        EXPECT_EQ(r.f, static_cast<float>(c.value)) << c.text;
    }
    EXPECT_EQ(evTestEval("'2.5kg' * 1 == 2.5").s, "1");
    EXPECT_EQ(evTestEval("'2.5kg' + 0 == '2.5kg'").s, "0"); // concatenation binds first
}

struct ErrorCase
{
    const char *text;
    int error;
};

TEST_F(EvEngine, BadInputGivesErrorNumberAndZero)
{
    const ErrorCase cases[] = {
        {"(1 + 2", 1},      {"1 + 2)", 1},       {"1 +", 1},          {"", 1},
        {"'open", 1},       {"\"open", 1},       {"$", 1},            {"${F", 1},
        {"${1}", 1},        {"2x", 1},           {"1 = 2", 1},        {"a & b", 1},
        {"1 ? 2", 1},       {"f(1,)", 1},        {"sin(,1)", 1},      {"#", 1},
        {"nosuch(1)", 2},   {"sin()", 3},        {"sin(1, 2)", 3},    {"if(1, 2)", 3},
        {"NOT_DEFINED", 5}, {"$NOT_A_VARIABLE_ANYWHERE", 5},
        {"1 / 0", 6},       {"1 % 0", 6},        {"1 / (1 - 1)", 6},
    };
    for (int opt = 0; opt <= 1; ++opt) {
        ev_SetOptimization(opt);
        for (const ErrorCase &c : cases) {
            evTestExpr e = evTestCompile(c.text);
            evTestResult r = evTestEval(e.get());
            EXPECT_FALSE(r.ok) << c.text;
            EXPECT_EQ(r.error, c.error) << c.text;
            EXPECT_EQ(r.f, 0.0f) << c.text;
            EXPECT_EQ(r.s, "") << c.text;
            EXPECT_STREQ(e->getText(), c.text); // the text is kept
        }
    }
}

TEST_F(EvEngine, HostileSizesNeitherCrashNorOverflow)
{
    std::string nested = std::string(100000, '(') + "1" + std::string(100000, ')');
    EXPECT_EQ(evTestEval(nested.c_str()).error, 1);
    std::string negations(100000, '-');
    EXPECT_EQ(evTestEval((negations + "1").c_str()).error, 1);
    std::string powers;
    for (int i = 0; i < 50000; ++i)
        powers += "2^";
    EXPECT_EQ(evTestEval((powers + "1").c_str()).error, 1);

    // Long flat sums are ordinary expressions; past the height cap they fail cleanly.
    std::string sum = "1";
    for (int i = 0; i < 999; ++i)
        sum += " + 1";
    ev_SetOptimization(0);
    EXPECT_EQ(evTestEval(sum.c_str()).s, "1000");
    for (int i = 0; i < 100000; ++i)
        sum += " + 1";
    EXPECT_EQ(evTestEval(sum.c_str()).error, 1);

    std::string args = "max(1";
    for (int i = 0; i < 100; ++i)
        args += ", 1";
    EXPECT_EQ(evTestEval((args + ")").c_str()).error, 3);
}

// ---- Calls and flags ---------------------------------------------------------

std::atomic<int> theCalls{0};
void countCall(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int)
{
    result->setFloat(++theCalls);
}
EV_FUNCTION theCount(0, "count", 0, EV_TYPEFLOAT, nullptr, countCall);

TEST_F(EvEngine, ShortCircuitSkipsTheBranchNotTaken)
{
    ev_AddFunction(&theCount);
    const TextCase cases[] = {
        {"0 && count()", "0", 0},    {"1 || count()", "1", 1},       {"1 ? 7 : count()", "7", 7},
        {"0 ? count() : 8", "8", 8}, {"if(0, count(), 9)", "9", 9}, {"if(1, 4, count() + 1 / 0)", "4", 4},
    };
    for (const TextCase &c : cases) {
        theCalls = 0;
        evTestExpr e = evTestCompile(c.text);
        float f = -1;
        ASSERT_TRUE(ev_EvaluateFloat(e.get(), &f, 0)) << c.text;
        EXPECT_EQ(ev_GetErrNo(0), 0);
        EXPECT_EQ(ev_FloatToString(f), c.expect) << c.text;
        EXPECT_EQ(f, static_cast<float>(c.value)) << c.text;
        EXPECT_EQ(theCalls.load(), 0) << c.text;
    }
    theCalls = 0;
    EXPECT_EQ(evTestEval("1 && count()").s, "1"); // taken branches do run
    EXPECT_EQ(theCalls.load(), 2);                // once as float, once as string
}

void selfFlagging(EV_FUNCTION *func, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    // A callback that decides its usage flags while it runs.
    func->setUserFlags(static_cast<unsigned>(argv[0]->getFloat()));
    result->setFloat(1);
}
const int theOneFloat[] = {EV_TYPEFLOAT};
EV_FUNCTION theSelfFlagging(0, "selfflag", 1, EV_TYPEFLOAT, theOneFloat, selfFlagging);
void constantCall(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int) { result->setFloat(3); }
EV_FUNCTION theMatchLike(EV_FLAG_MATCH | EV_FLAG_INVALUE, "matchlike", 0, EV_TYPEFLOAT, nullptr, constantCall);

TEST_F(EvEngine, FlagsGatheredAtCompileAndAtEvaluation)
{
    ev_AddFunction(&theMatchLike);
    ev_AddFunction(&theSelfFlagging);

    evTestExpr e = evTestCompile("0 && matchlike()");
    // Compiling knows the match bit of every function called, even one never run.
    EXPECT_EQ(e->getFlags(), EV_FLAG_MATCH);
    float f;
    ev_EvaluateFloat(e.get(), &f, 0);
    EXPECT_EQ(e->getFlags(), EV_FLAG_MATCH | EV_FLAG_EVALUATED);

    ev_ChangeExpr(e.get(), "matchlike() + selfflag(524288)", 0);
    EXPECT_EQ(e->getFlags(), EV_FLAG_MATCH);
    ev_EvaluateFloat(e.get(), &f, 0);
    EXPECT_EQ(f, 4.0f);
    EXPECT_EQ(e->getFlags(), EV_FLAG_MATCH | EV_FLAG_INVALUE | EV_FLAG_SLOPES | EV_FLAG_EVALUATED);

    e->setFlags(0); // hosts may overwrite the word
    ev_ChangeExpr(e.get(), nullptr, 0);
    EXPECT_FALSE(e->hasText());
    EXPECT_TRUE(ev_EvaluateFloat(e.get(), &f, 0)); // no text: 0 without error
    EXPECT_EQ(f, 0.0f);
}

void firstRecord(EV_FUNCTION *, EV_SYMBOL *r, EV_SYMBOL **, int) { r->setFloat(1); }
void secondRecord(EV_FUNCTION *, EV_SYMBOL *r, EV_SYMBOL **, int) { r->setFloat(2); }
EV_FUNCTION theFirst(0, "swapped", 0, EV_TYPEFLOAT, nullptr, firstRecord);
EV_FUNCTION theSecond(0, "swapped", 0, EV_TYPEFLOAT, nullptr, secondRecord);
EV_FUNCTION theUnary(0, "swapped", 1, EV_TYPEFLOAT, theOneFloat, secondRecord);

TEST_F(EvEngine, ReplacingARecordUnderCompiledCode)
{
    ev_AddFunction(&theFirst);
    evTestExpr e = evTestCompile("swapped() * 10");
    EXPECT_EQ(evTestEval(e.get()).s, "10");
    ev_AddFunction(&theSecond);
    EXPECT_EQ(ev_FindFunction("swapped"), &theSecond);
    EXPECT_EQ(evTestEval(e.get()).s, "20");
    ev_AddFunction(&theUnary); // another arity under the same compiled call
    EXPECT_EQ(evTestEval(e.get()).error, EV_ERRNARGS);
    ev_AddFunction(&theFirst);
}

TEST_F(EvEngine, CompiledFormIsFlatCode)
{
    ev_SetOptimization(0);
    evTestExpr e = evTestCompile("$X && 2 ^ 3");
    EXPECT_EQ(ev_Disassemble(e.get()),
              "VAR $X (unbound)\nJZ 7\nPUSHNUM 2\nPUSHNUM 3\nPOW\nTRUTH\nJMP 8\nPUSHNUM 0\nEND\n");
    ev_SetOptimization(1);
    ev_ChangeExpr(e.get(), "2 ^ 3 + 1 / 0 + sin(0) - -'a'", 0);
    // Only literal arithmetic that cannot fail is folded.
    EXPECT_EQ(ev_Disassemble(e.get()),
              "PUSHNUM 8\nPUSHNUM 1\nPUSHNUM 0\nDIV\nADD\nPUSHNUM 0\nCALL sin/1\nADD\n"
              "PUSHSTR \"a\"\nNEG\nSUB\nEND\n");
}

// ---- Variables ---------------------------------------------------------------

// A variable type that claims "A" (float, time dependent, uses the in value)
// and "S" (string), counting how often it is asked.
std::atomic<int> theResolves{0};
bool testResolve(const char *name, EV_VarBinding &b, int)
{
    ++theResolves;
    if (!std::strcmp(name, "A")) {
        b.id = 1;
        b.flags = EV_VarBinding::TIME_DEP | EV_FLAG_INVALUE;
        return true;
    }
    if (!std::strcmp(name, "S")) {
        b.id = 2;
        b.flags = EV_VarBinding::STRING;
        return true;
    }
    return false;
}
double testFloat(const EV_VarBinding &b, int thread) { return b.id * 100.0 + thread; }
void testString(const EV_VarBinding &, std::string &value, int) { value = "str"; }
EV_TYPEDEF theVarType{10, "testVar", nullptr, testResolve, testFloat, testString};

bool hostVariable(const char *name, std::string &value, bool &time_dep, int)
{
    if (!std::strcmp(name, "HOSTNUM")) {
        value = "42";
        time_dep = true;
        return true;
    }
    if (!std::strcmp(name, "HOSTSTR")) {
        value = "12 monkeys";
        return true;
    }
    return false;
}

bool testDefine(const char *name, double &value)
{
    if (std::strcmp(name, "PI_ISH"))
        return false;
    value = 3.25;
    return true;
}
EV_TYPEDEF theDefineType{12, "testDefine", testDefine, nullptr, nullptr, nullptr};

TEST_F(EvEngine, VariablesBindOnceAndResolveInOrder)
{
    ev_AddVariableType(&theVarType, 0);
    ev_AddType(&theDefineType);
    ev_SetVariableCallback(hostVariable);

    theResolves = 0;
    evTestExpr e = evTestCompile("$A + ${A} + PI_ISH");
    EXPECT_EQ(theResolves.load(), 1); // one binding for both mentions
    EXPECT_EQ(ev_Disassemble(e.get()), "VAR $A\nVAR $A\nADD\nPUSHNUM 3.25\nADD\nEND\n");
    float f;
    ev_EvaluateFloat(e.get(), &f, 3);
    EXPECT_EQ(f, 209.25f);            // read on the evaluating thread: 2 * 103 + 3.25
    EXPECT_EQ(theResolves.load(), 1); // no lookup by name when bound
    EXPECT_EQ(e->getFlags() & (EV_FLAG_TIMEDEP | EV_FLAG_INVALUE), EV_FLAG_TIMEDEP | EV_FLAG_INVALUE);

    ev_UnresolveVars(e.get(), 0);
    EXPECT_EQ(ev_Disassemble(e.get()).substr(0, 16), "VAR $A (unbound)");
    ev_EvaluateFloat(e.get(), &f, 3);
    EXPECT_EQ(f, 209.25f);
    EXPECT_EQ(theResolves.load(), 3); // looked up again at each read

    EXPECT_EQ(evTestEval("$S + 1").s, "str1");
    evTestExpr host = evTestCompile("$HOSTNUM + 1");
    EXPECT_EQ(host->getFlags(), 0u);
    EXPECT_EQ(evTestEval(host.get()).s, "43"); // whole numbers from the host are floats
    EXPECT_NE(host->getFlags() & EV_FLAG_TIMEDEP, 0u);
    EXPECT_EQ(evTestEval("$HOSTSTR + 1").s, "12 monkeys1");

    setenv("EV_TEST_ENV_ONLY", "env", 1);
    EXPECT_EQ(evTestEval("$EV_TEST_ENV_ONLY").error, EV_ERRUNDEFINED); // no fallback yet
    ev_InitVariable();
    EXPECT_EQ(evTestEval("$EV_TEST_ENV_ONLY + '!'").s, "env!");
    EXPECT_EQ(evTestEval("$EV_TEST_UNSET_ANYWHERE").error, EV_ERRUNDEFINED);
    ev_SetVariableCallback(nullptr);
}

char *testExpander(const char *text, int)
{
    std::string out = std::string("<") + text + ">";
    return strdup(out.c_str());
}

TEST_F(EvEngine, DoubleQuotedStringsGoThroughTheExpander)
{
    EXPECT_EQ(evTestEval("\"f$F\"").s, "f$F"); // no expander: as written
    ev_SetExpander(testExpander);
    EXPECT_EQ(evTestEval("\"f$F\" + 'x$F'").s, "<f$F>x$F");
    EXPECT_EQ(evTestEval("\"a\\$b\"").s, "<a\\$b>"); // escapes kept for the expander
    EXPECT_EQ(evTestEval("\"plain\"").s, "plain");    // nothing to expand
    ev_SetExpander(nullptr);
}

// ---- Errors and nesting ------------------------------------------------------

TEST_F(EvEngine, ErrorsArePerThreadAndSticky)
{
    evTestExpr bad = evTestCompile("1 / 0");
    float f;
    ev_EvaluateFloat(bad.get(), &f, 0);
    int seenElsewhere = -1;
    std::thread([&] {
        seenElsewhere = EXPR_theErrNo;
        ev_SetCustomErrorMessage("other thread", 0);
    }).join();
    EXPECT_EQ(seenElsewhere, 0);
    EXPECT_EQ(EXPR_theErrNo, EV_ERRDIVZERO);
    evTestExpr bad2 = evTestCompile("nosuch()");
    ev_EvaluateFloat(bad2.get(), &f, 0);
    EXPECT_EQ(EXPR_theErrNo, EV_ERRDIVZERO); // the first error stays
    // ...and a pending error does not hide the errors functions raise.
    evTestExpr domain = evTestCompile("sqrt(-1) + 10");
    EXPECT_FALSE(ev_EvaluateFloat(domain.get(), &f, 0));
    EXPECT_EQ(f, 0.0f);
    EXPECT_EQ(EXPR_theErrNo, EV_ERRDIVZERO);
    EXPR_theErrNo = 0;

    ev_SetCustomErrorMessage("mine", 0);
    EXPECT_EQ(EXPR_theErrNo, EV_ERRCUSTOM);
    EXPECT_STREQ(ev_GetErrorText(EV_ERRCUSTOM), "mine");
    EXPR_theErrNo(5) = EV_ERRVECTOR;
    EXPECT_EQ(ev_GetErrNo(5), EV_ERRVECTOR);
    EXPR_theErrNo(5) = 0;
    EXPR_theErrNo = 0;
    EXPECT_STREQ(ev_GetErrorText(EV_ERRRECURSION), "Expression recursion too deep");
    EXPECT_STREQ(ev_GetErrorText(42), "Unknown error");
}

EV_EXPRESSION *theRecursive = nullptr;
void recurse(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int thread)
{
    float f = 0;
    ev_EvaluateFloat(theRecursive, &f, thread);
    result->setFloat(f + 1);
}
EV_FUNCTION theRecurse(0, "recurse", 0, EV_TYPEFLOAT, nullptr, recurse);

TEST_F(EvEngine, RunawayNestedEvaluationEndsWithRecursionError)
{
    ev_AddFunction(&theRecurse);
    evTestExpr e = evTestCompile("recurse()");
    theRecursive = e.get();
    float f = 0;
    EXPECT_FALSE(ev_EvaluateFloat(e.get(), &f, 0));
    EXPECT_EQ(EXPR_theErrNo, EV_ERRRECURSION);
    EXPR_theErrNo = 0;
    evTestExpr fine = evTestCompile("1 + 1");
    EXPECT_TRUE(ev_EvaluateFloat(fine.get(), &f, 0)); // the depth was unwound
}

} // namespace
