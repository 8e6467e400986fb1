// Where a text that does not compile went wrong: kept with the compiled
// expression, reported with its error on every thread that evaluates it.
#include "evTestUtil.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>

namespace {

class EvErrorPosition : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        ev_InitFloat();
        ev_InitString();
    }
    void SetUp() override { ev_SetErrNo(0, 0); }
};

struct Case
{
    const char *text;
    int error;
    int offset;
    const char *token; // as written in the text
};

// The offset is where the token starts; a text that ends too early points
// at its end with an empty token.
const Case theCases[] = {
    {"", 1, 0, ""},
    {"1 +", 1, 3, ""},
    {"(1 + 2", 1, 6, ""},
    {"1 + 2)", 1, 5, ")"},
    {"1 ? 2", 1, 5, ""},
    {"f(1,)", 1, 4, ")"},
    {"sin(,1)", 1, 4, ","},
    {"2 * #", 1, 4, "#"},
    {"1 = 2", 1, 2, "="},
    {"a & b", 1, 2, "&"},
    {"3 + 2x * 4", 1, 4, "2x"},
    {"1 + 1e", 1, 4, "1e"},
    {"'ok' + 'open", 1, 7, "'open"},
    {"1 + $", 1, 4, "$"},
    {"  ${F + 1", 1, 2, "${F"},
    {"1 2", 1, 2, "2"},
    {"sin(1) + nosuch(2)", 2, 9, "nosuch"},
    {"1 + sin(1, 2)", 3, 4, "sin"},
    {"if(1, 2) * 3", 3, 0, "if"},
    {"2 * NOT_DEFINED_HERE", 5, 4, "NOT_DEFINED_HERE"},
    {"nosuch(1) + (2", 1, 14, ""}, // a syntax error is found before any call is looked up
};

TEST_F(EvErrorPosition, MalformedTextsReportOffsetAndToken)
{
    for (int opt = 0; opt <= 1; ++opt) {
        ev_SetOptimization(opt);
        for (const Case &c : theCases) {
            evTestExpr e = evTestCompile(c.text);
            EXPECT_EQ(e->getCompileError(), c.error) << c.text;
            EXPECT_EQ(e->getCompileErrorOffset(), c.offset) << c.text;
            EXPECT_STREQ(e->getCompileErrorToken(), c.token) << c.text;
            // The token really is at that place in the text.
            EXPECT_EQ(std::string(c.text).compare(static_cast<std::size_t>(c.offset), std::strlen(c.token), c.token), 0)
                << c.text;

            float f = -1;
            ev_SetErrNo(0, 0);
            EXPECT_FALSE(ev_EvaluateFloat(e.get(), &f, 0));
            EXPECT_EQ(ev_GetErrNo(0), c.error) << c.text;
            EXPECT_EQ(ev_GetErrorOffset(0), c.offset) << c.text;
            EXPECT_STREQ(ev_GetErrorToken(0), c.token) << c.text;
            ev_SetErrNo(0, 0);
        }
    }
    ev_SetOptimization(1);
}

TEST_F(EvErrorPosition, CompiledOnOneThreadReportedOnEvery)
{
    evTestExpr e = evTestCompile("10 * (2 + @)");
    ASSERT_EQ(e->getCompileErrorOffset(), 10);
    for (int i = 0; i < 3; ++i) {
        int error = -1, offset = -2;
        std::string token = "unset";
        std::thread([&] {
            UT_String s;
            ev_EvaluateString(e.get(), s, 0);
            error = ev_GetErrNo(0);
            offset = ev_GetErrorOffset();
            token = ev_GetErrorToken();
            ev_SetErrNo(0, 0);
        }).join();
        EXPECT_EQ(error, EV_ERRSYNTAX);
        EXPECT_EQ(offset, 10);
        EXPECT_EQ(token, "@");
    }
    EXPECT_EQ(ev_GetErrorOffset(), -1); // nothing reported here
    EXPECT_STREQ(ev_GetErrorToken(), "");
}

EV_EXPRESSION *theInner = nullptr;
void nested(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int thread)
{
    float f = 0;
    ev_EvaluateFloat(theInner, &f, thread);
    result->setFloat(f);
}
EV_FUNCTION theNested(0, "nestedeval", 0, EV_TYPEFLOAT, nullptr, nested);

TEST_F(EvErrorPosition, ThePositionBelongsToTheErrorBeingReported)
{
    ev_AddFunction(&theNested);
    evTestExpr bad = evTestCompile("1 + + )");
    evTestExpr divide = evTestCompile("1 / 0");
    evTestExpr outer = evTestCompile("nestedeval() + 1");
    float f;

    // Other errors carry no position.
    ev_EvaluateFloat(divide.get(), &f, 0);
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRDIVZERO);
    EXPECT_EQ(ev_GetErrorOffset(0), -1);

    // The first error stays, and so does its position (none here).
    ev_EvaluateFloat(bad.get(), &f, 0);
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRDIVZERO);
    EXPECT_EQ(ev_GetErrorOffset(0), -1);
    ev_SetErrNo(0, 0);

    ev_EvaluateFloat(bad.get(), &f, 0);
    EXPECT_EQ(ev_GetErrorOffset(0), 6);
    // A pending compile error keeps its position through later evaluations,
    // also those that fail otherwise.
    theInner = divide.get();
    ev_EvaluateFloat(outer.get(), &f, 0);
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRSYNTAX);
    EXPECT_EQ(ev_GetErrorOffset(0), 6);
    EXPECT_STREQ(ev_GetErrorToken(0), ")");

    // Setting or clearing the error clears the position.
    ev_SetErrNo(EV_ERRSYNTAX, 0);
    EXPECT_EQ(ev_GetErrorOffset(0), -1);
    ev_EvaluateFloat(bad.get(), &f, 0);
    ev_SetCustomErrorMessage("mine", 0);
    EXPECT_EQ(ev_GetErrorOffset(0), -1);
    ev_SetErrNo(0, 0);

    // A nested text's compile error fails the outer evaluation with the
    // nested text's position; an outer error of its own has none.
    theInner = bad.get();
    EXPECT_FALSE(ev_EvaluateFloat(outer.get(), &f, 0));
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRSYNTAX);
    EXPECT_EQ(ev_GetErrorOffset(0), 6);
    ev_SetErrNo(0, 0);
    theInner = divide.get();
    EXPECT_FALSE(ev_EvaluateFloat(outer.get(), &f, 0));
    EXPECT_EQ(ev_GetErrNo(0), EV_ERRDIVZERO);
    EXPECT_EQ(ev_GetErrorOffset(0), -1);
    ev_SetErrNo(0, 0);

    evTestExpr good = evTestCompile("1 + 1");
    EXPECT_EQ(good->getCompileErrorOffset(), -1);
    EXPECT_STREQ(good->getCompileErrorToken(), "");
}

} // namespace
