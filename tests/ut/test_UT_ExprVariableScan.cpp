#include <gtest/gtest.h>
#include <ut/UT_ExprVariableScan.h>
#include <ut/UT_WorkBuffer.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Env
{
    std::map<std::string, std::string> vars{
        {"A", "1"}, {"B", "2"}, {"F", "12"}, {"_x9", "u"}, {"a b", "sp"},
        {"SAME", "$SAME"}, {"NEST", "$A`B`"}, {"", "EMPTY"}};
    std::vector<std::string> seen; // every text handed to a callback
    int depth = 0;
};

bool lookup(const char *name, UT_WorkBuffer &value, void *data)
{
    auto *env = static_cast<Env *>(data);
    EXPECT_TRUE(value.isEmpty());
    env->seen.push_back(name);
    auto it = env->vars.find(name);
    if (it == env->vars.end())
        return false;
    value.append(it->second);
    return true;
}

// Expands its text again (as the channel manager does), then folds "N+M" or
// "N*M"; anything else evaluates to the expanded text. "fail" is refused.
bool evaluate(const char *text, UT_WorkBuffer &value, void *data)
{
    auto *env = static_cast<Env *>(data);
    EXPECT_TRUE(value.isEmpty());
    env->seen.push_back(text);
    if (std::strcmp(text, "fail") == 0 || env->depth >= 4)
        return false;
    UT_WorkBuffer expanded;
    ++env->depth;
    UTExprVariableScan(text, lookup, evaluate, data, expanded);
    --env->depth;
    char *rest = nullptr;
    long lhs = std::strtol(expanded.buffer(), &rest, 10);
    if (rest != expanded.buffer() && (*rest == '+' || *rest == '*')) {
        char op = *rest;
        char *end = nullptr;
        long rhs = std::strtol(rest + 1, &end, 10);
        if (end != rest + 1 && *end == '\0') {
            value.appendSprintf("%ld", op == '+' ? lhs + rhs : lhs * rhs);
            return true;
        }
    }
    value.append(expanded.buffer());
    return true;
}

struct Case
{
    const char *in;
    const char *out;
};

void expectScan(const std::vector<Case> &cases, UT_VarScanCallback var, UT_VarScanCallback expr)
{
    for (const Case &c : cases) {
        Env env;
        UT_WorkBuffer result("stale");
        bool changed = UTExprVariableScan(c.in, var, expr, &env, result);
        EXPECT_EQ(result.toStdString(), c.out) << "input: " << c.in;
        EXPECT_EQ(changed, std::strcmp(c.in, c.out) != 0) << "input: " << c.in;
    }
}

TEST(UTExprVariableScan, VariablesWithBothCallbacks)
{
    expectScan({
        {"", ""}, {"plain text.pic", "plain text.pic"},
        {"$A", "1"}, {"$A$B", "12"}, {"${A}B", "1B"}, {"x$A.y", "x1.y"},
        {"$AB", "$AB"}, {"${A}${B}", "12"}, {"$_x9-", "u-"}, {"${a b}", "sp"},
        {"$", "$"}, {"a$", "a$"}, {"$1", "$1"}, {"$-A", "$-A"}, {"$$A", "$1"},
        {"$UNKNOWN/$A", "$UNKNOWN/1"}, {"${UNKNOWN}", "${UNKNOWN}"},
        {"${}", "${}"}, {"${}$A", "${}1"}, {"${", "${"}, {"x${A", "x${A"},
        {"${A $B `1+1`", "${A $B `1+1`"}, {"${A}}", "1}"},
        {"$SAME", "$SAME"},       // replaced by itself: no visible change
        {"$NEST", "$A`B`"},       // values are not expanded again
        {"caf\xc3\xa9$A\xff", "caf\xc3\xa9" "1\xff"},
    }, lookup, evaluate);
}

TEST(UTExprVariableScan, ExpressionsWithBothCallbacks)
{
    expectScan({
        {"frame`$F*2`.pic", "frame24.pic"}, {"`1+1``2*3`", "26"},
        {"`strcat(\"a\", \"\\`1+1\\`\")`", "strcat(\"a\", \"2\")"},
        {"`a\\b`", "a\\b"}, {"`fail`", "`fail`"}, {"`fa\\`il`", "fa`il"},
        {"``", ""}, {"`", "`"}, {"x`1+1", "x`1+1"}, {"`1+1\\`", "`1+1\\`"},
        {"`$A`$A", "11"},
    }, lookup, evaluate);
}

TEST(UTExprVariableScan, Escapes)
{
    expectScan({
        {"\\$A", "$A"}, {"\\`1+1`", "`1+1`"}, {"\\x", "\\x"}, {"a\\", "a\\"},
        {"\\\\$A", "\\$A"}, {"\\${A}", "${A}"},
    }, lookup, evaluate);
    // Without a variable callback neither '$' nor "\$" is interpreted.
    expectScan({
        {"$A", "$A"}, {"\\$A", "\\$A"}, {"${", "${"}, {"\\`x`", "`x`"},
        {"`2*3`$A", "6$A"}, {"${A}`1+1`", "${A}2"},
    }, nullptr, evaluate);
    // Without an expression callback back quotes are plain text.
    expectScan({
        {"`1+1`", "`1+1`"}, {"\\`", "\\`"}, {"\\$A", "$A"}, {"`$A`", "`1`"},
        {"`", "`"},
    }, lookup, nullptr);
    expectScan({{"\\$A`x` ${", "\\$A`x` ${"}}, nullptr, nullptr);
}

TEST(UTExprVariableScan, CallbacksSeeExactText)
{
    Env env;
    UT_WorkBuffer result;
    UTExprVariableScan("$Q ${a b} `x\\`$A\\y` ${", lookup, nullptr, &env, result);
    EXPECT_EQ(env.seen, (std::vector<std::string>{"Q", "a b", "A"}));

    env.seen.clear();
    UTExprVariableScan("`x\\`$Q\\y\\`` ${ `", nullptr, evaluate, &env, result);
    ASSERT_FALSE(env.seen.empty());
    EXPECT_EQ(env.seen.front(), "x`$Q\\y`");
    EXPECT_EQ(result.toStdString(), "x$Q\\y ${ `");
}

bool throwing(const char *, UT_WorkBuffer &value, void *)
{
    value.append("partial");
    throw std::runtime_error("callback failed");
}

TEST(UTExprVariableScan, EdgeUses)
{
    UT_WorkBuffer result("stale");
    EXPECT_FALSE(UTExprVariableScan(nullptr, lookup, evaluate, nullptr, result));
    EXPECT_TRUE(result.isEmpty());

    // The text may live in the result buffer itself.
    Env env;
    result.strcpy("x$A`1+1`y");
    EXPECT_TRUE(UTExprVariableScan(result.buffer(), lookup, evaluate, &env, result));
    EXPECT_EQ(result.toStdString(), "x12y");

    // A throwing callback behaves as a refusal; the rest still expands.
    EXPECT_TRUE(UTExprVariableScan("a$A`b`$B", lookup, throwing, &env, result));
    EXPECT_EQ(result.toStdString(), "a1`b`2");

    // Unclosed openers repeated many times: rescanning after each one would
    // be quadratic, and nothing after the first may be expanded.
    std::string opens = "`", braces;
    for (int i = 0; i < 100000; ++i) {
        opens += "\\`";
        braces += "${";
    }
    EXPECT_FALSE(UTExprVariableScan(opens.c_str(), lookup, evaluate, &env, result));
    EXPECT_EQ(result.toStdString(), opens);
    EXPECT_FALSE(UTExprVariableScan(braces.c_str(), lookup, evaluate, &env, result));
    EXPECT_EQ(result.toStdString(), braces);
}

} // namespace
