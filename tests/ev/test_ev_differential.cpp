// Random expressions run through the engine (folding on and off, as float
// and as string) and through a deliberately naive evaluator written here
// from the language rules alone; every answer must agree.
#include <ev/EV_Engine.h>
#include <ut/UT_String.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <iomanip>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Val { bool isString = false; double f = 0.0; std::string s; };
struct RefResult { int err; Val value; bool open; };

// A string's number is its leading [blanks][sign]digits[.digits][e[sign]digits],
// or 0 without digits.
double num(const Val &v)
{
    static const std::regex theNumber(R"(^[ \t\n\r]*([+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?))");
    std::smatch m;
    return !v.isString ? v.f : std::regex_search(v.s, m, theNumber) ? std::strtod(m[1].str().c_str(), nullptr) : 0.0;
}

bool truth(const Val &v) { return v.isString ? !v.s.empty() : v.f != 0.0; }
Val flt(double f) { return {false, f, {}}; }

std::string str(const Val &v)
{
    char buf[64];
    std::snprintf(buf, sizeof(buf), "%g", v.f);
    return v.isString ? v.s : buf;
}

// Parses and evaluates in one pass. `live` is false inside the operands that
// && || and ?: skip: they are parsed but their errors do not count.
class Ref
{
public:
    explicit Ref(const std::string &text)
    {
        static const std::regex theToken(
            R"(\s*((\d+\.?\d*|\.\d+)([eE][+-]?\d+)?|'(\\['\\]|[^'])*'|[a-z]+|[<>=!]=|&&|\|\||[-+*/%^!<>(),?:]))");
        auto at = text.cbegin();
        for (std::smatch m; std::regex_search(at, text.cend(), m, theToken, std::regex_constants::match_continuous);
             at = m[0].second)
            myToks.push_back(m[1]);
        myOk = std::all_of(at, text.cend(), [](char c) { return std::isspace(static_cast<unsigned char>(c)); });
        lex();
    }

    RefResult result()
    {
        const Val v = conditional(true);
        return myOk && myTok.empty() ? RefResult{myErr, v, myOpen} : RefResult{EV_ERRSYNTAX, {}, false};
    }

private:
    void lex() { myTok = myNext < myToks.size() ? myToks[myNext++] : ""; }
    bool take(const char *tok) { return myTok == tok ? (lex(), true) : false; }
    void expect(const char *tok) { myOk = take(tok) && myOk; }
    Val fail(int code, bool live) { myErr = live && !myErr ? code : myErr; return {}; }

    Val conditional(bool live)
    {
        const Val c = binary(0, live);
        if (!take("?"))
            return c;
        const bool t = truth(c);
        const Val a = conditional(live && t);
        expect(":");
        const Val b = conditional(live && !t);
        return t ? a : b;
    }

    // Binary levels, loosest first; each is left-associative.
    Val binary(std::size_t level, bool live)
    {
        static const std::vector<std::vector<std::string>> theLevels = {
            {"||"}, {"&&"}, {"==", "!="}, {"<", "<=", ">", ">="}, {"+", "-"}, {"*", "/", "%"}};
        if (level == theLevels.size())
            return unary(live);
        Val a = binary(level + 1, live);
        for (const auto &ops = theLevels[level]; myOk && std::count(ops.begin(), ops.end(), myTok);) {
            const std::string op = myTok;
            lex();
            // || and && skip their right side once the left decides.
            const bool logical = op == "||" || op == "&&", decided = logical && truth(a) == (op == "||");
            const Val b = binary(level + 1, live && !decided);
            a = logical ? flt(decided ? truth(a) : truth(b)) : apply(op, a, b, live);
        }
        return a;
    }

    // A sign before the base applies to the power; a signed exponent associates to the right.
    Val unary(bool live)
    {
        const std::string op = myTok;
        if (take("-") || take("+") || take("!")) {
            const Val v = unary(live);
            return flt(op == "!" ? !truth(v) : op == "-" ? -num(v) : num(v));
        }
        const Val base = primary(live);
        return take("^") ? apply("^", base, unary(live), live) : base;
    }

    Val primary(bool live)
    {
        const std::string tok = myTok;
        const unsigned char c = tok.empty() ? '\0' : static_cast<unsigned char>(tok[0]);
        if (take("(")) {
            const Val v = conditional(live);
            expect(")");
            return v;
        }
        lex();
        if (std::isdigit(c) || c == '.')
            return flt(std::strtod(tok.c_str(), nullptr));
        static const std::regex theEscape(R"(\\(['\\]))");
        if (c == '\'')
            return {true, 0.0, std::regex_replace(tok.substr(1, tok.size() - 2), theEscape, "$1")};
        myOk = myOk && std::isalpha(c) && take("(");
        std::vector<double> args;
        while (myOk && !take(")")) {
            args.push_back(num(conditional(live)));
            take(",");
        }
        return myOk ? call(tok, args, live) : Val{};
    }

    Val apply(const std::string &op, const Val &a, const Val &b, bool live)
    {
        if (op == "+" && (a.isString || b.isString))
            return {true, 0.0, str(a) + str(b)};
        const double x = num(a), y = num(b);
        auto cmp = [&op](const auto &l, const auto &r) {
            return op == "==" ? l == r : op == "!=" ? l != r : op == "<" ? l < r
                 : op == "<=" ? l <= r : op == ">" ? l > r : l >= r;
        };
        if (std::strchr("=!<>", op[0]))
            return flt(a.isString && b.isString ? cmp(a.s, b.s) : cmp(x, y));
        if ((op == "/" || op == "%") && y == 0.0)
            return fail(EV_ERRDIVZERO, live);
        return flt(op == "+" ? x + y : op == "-" ? x - y : op == "*" ? x * y
                 : op == "/" ? x / y : op == "%" ? std::fmod(x, y) : std::pow(x, y));
    }

    // min/max of NaN or of zeros of both signs leave the value open.
    Val call(const std::string &name, const std::vector<double> &a, bool live)
    {
        if (name == "abs" || name == "floor")
            return flt(name == "abs" ? std::fabs(a.at(0)) : std::floor(a.at(0)));
        if (name == "sqrt") // NaN is outside the domain too
            return a.at(0) >= 0.0 ? flt(std::sqrt(a[0])) : fail(EV_ERRBADARG, live);
        const double x = a.at(0), y = a.at(1);
        myOpen = myOpen || (live && (std::isnan(x) || std::isnan(y) || (x == y && std::signbit(x) != std::signbit(y))));
        return flt(name == "min" ? (y < x ? y : x) : (y > x ? y : x));
    }

    std::vector<std::string> myToks;
    std::size_t myNext = 0;
    std::string myTok;
    bool myOk = true, myOpen = false;
    int myErr = 0; // the first error of the evaluation
};

// Tokens are separated by blanks so the text lexes as intended; subexpressions
// are bracketed only sometimes, so precedence gets exercised.
struct Generator
{
    std::mt19937 rng;

    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); }
    std::string one(std::initializer_list<const char *> words) { return words.begin()[pick(int(words.size()))]; }

    std::string sub(int depth)
    {
        const std::string e = expr(depth);
        return pick(3) == 0 ? "( " + e + " )" : e;
    }

    std::string expr(int depth)
    {
        static const char *const theCalls[] = {"abs(", "floor(", "min(", "max(", "sqrt(abs("};
        if (depth <= 0 || pick(5) == 0) {
            const int kind = pick(20);
            if (kind < 12)
                return std::to_string(pick(10));
            if (kind < 17)
                return one({"0.5", "1.25", ".5", "3.", "0.1", "0.3", "1e-3", "2E+1", "100", "0"});
            return one({"''", "'a'", "'abc'", "'3'", "'2.5x'", "' -1.5'", "'b\\'c'", "'x\\\\y'", "'10'", "'1e2'",
                        "'inf'", "'0x10'", "'.5'"});
        }
        switch (pick(10)) {
        case 0: return one({"- ", "+ ", "! "}) + sub(depth - 1);
        case 1: return sub(depth - 1) + " ? " + sub(depth - 1) + " : " + sub(depth - 1);
        case 2:
            switch (const int f = pick(5)) {
            case 2:
            case 3: return theCalls[f] + expr(depth - 1) + ", " + expr(depth - 1) + ")";
            case 4: return theCalls[f] + expr(depth - 2) + "))";
            default: return theCalls[f] + expr(depth - 1) + ")";
            }
        default: // arithmetic twice as often, so that values are not mostly 0 and 1
            return sub(depth - 1) + one({" || ", " && ", " == ", " != ", " < ", " <= ", " > ", " >= ", " + ", " - ",
                                         " * ", " / ", " % ", " ^ ", " + ", " - ", " * ", " / ", " % ", " ^ "}) +
                   sub(depth - 1);
        }
    }
};

struct Engine { bool compiled; int okF, errF, okS, errS; float f; std::string s, shown; };

Engine engine(const std::string &text, int optimize)
{
    ev_SetOptimization(optimize);
    EV_EXPRESSION *expr = ev_AllocExpr();
    Engine r{ev_ChangeExpr(expr, text.c_str(), 0) == 1, 0, 0, 0, 0, 42.0f, {}, {}};
    ev_SetErrNo(0, 0);
    r.okF = ev_EvaluateFloat(expr, &r.f, 0);
    r.errF = ev_GetErrNo(0);
    UT_String s("stale");
    ev_SetErrNo(0, 0);
    r.okS = ev_EvaluateString(expr, s, 0);
    r.errS = ev_GetErrNo(0);
    r.s = s.c_str();
    ev_SetErrNo(0, 0);
    ev_FreeExpr(expr);
    // Every field, the float exactly; NaNs of either sign print alike.
    std::ostringstream out;
    out << "compiled " << r.compiled << ", float " << std::setprecision(9) << (std::isnan(r.f) ? std::fabs(r.f) : r.f)
        << " (ok " << r.okF << ", err " << r.errF << "), string \"" << r.s << "\" (ok " << r.okS << ", err " << r.errS
        << ")";
    r.shown = out.str();
    return r;
}

bool sameFloat(float got, float want)
{
    return std::isnan(want) ? std::isnan(got)
                            : got == want || (std::isfinite(want) && std::isfinite(got) &&
                                              std::fabs(got - want) <= 1e-6f * std::fabs(want));
}

// Empty when the engine agrees with the reference, and folding on and off
// give identical answers.
std::string compare(const std::string &text, const RefResult &ref)
{
    const Engine on = engine(text, 1), off = engine(text, 0);
    const float want = static_cast<float>(num(ref.value));
    const bool good = ref.err ? !on.okF && on.errF == ref.err && on.f == 0.0f && !on.okS && on.errS == ref.err &&
                                    on.s.empty()
                              : on.okF && !on.errF && on.okS && !on.errS &&
                                    (ref.open || (sameFloat(on.f, want) && on.s == str(ref.value)));
    if (on.compiled && good && on.shown == off.shown)
        return {};
    std::ostringstream msg;
    msg << "text: " << text << "\n  reference: error " << ref.err << ", float " << want << ", string \""
        << str(ref.value) << "\"" << (ref.open ? " (value left open)" : "") << "\n  folding on:  " << on.shown
        << "\n  folding off: " << off.shown;
    return msg.str();
}

class EvDifferential : public ::testing::Test
{
protected:
    void SetUp() override { ev_InitFloat(); ev_InitString(); }
    void TearDown() override { ev_SetOptimization(mySaved); }
    const int mySaved = ev_GetOptimization();
};

// Pins the reference itself to hand-worked answers, so that it cannot share
// a misreading with the engine unnoticed; the engine must agree too.
TEST_F(EvDifferential, ReferenceAnchors)
{
    struct Row { const char *text; int err; const char *str; } rows[] = {
        {"- 2 ^ 2", 0, "-4"},          {"2 ^ 3 ^ 2", 0, "512"},           {"2 ^ - 1", 0, "0.5"},
        {"7 - 2 - 1", 0, "4"},         {"1 ? 2 : 0 ? 3 : 4", 0, "2"},     {"0 || 'a' && 3", 0, "1"},
        {"1 + 'a' + 2 * 3", 0, "1a6"}, {"'a' + 0.1 + 0.2", 0, "a0.10.2"}, {"'10' < '9'", 0, "1"},
        {"'10' < 9", 0, "0"},          {"' -1.5e1x' * 2", 0, "-30"},      {"'inf' * 1 == 0", 0, "1"},
        {"- 7 % 3", 0, "-1"},          {"! '' + ! 'b'", 0, "1"},          {"1 < 2 == 1", 0, "1"},
        {"( - 1 ) ^ .5 <= 1", 0, "0"}, {"( - 1 ) ^ .5 != ( - 1 ) ^ .5", 0, "1"},
        {"5 % ( 2 - 2 )", EV_ERRDIVZERO, ""},  {"0 && 1 / 0", 0, "0"},    {"sqrt(0 - 4)", EV_ERRBADARG, ""},
        {"min(3, max('2', 1)) + floor(- 0.5) + abs(- 1)", 0, "2"},
    };
    for (const Row &row : rows) {
        const RefResult ref = Ref(row.text).result();
        EXPECT_EQ(ref.err, row.err) << row.text;
        EXPECT_EQ(ref.err ? "" : str(ref.value), row.str) << row.text;
        EXPECT_EQ(compare(row.text, ref), "");
    }
}

TEST_F(EvDifferential, RandomExpressionsAgree)
{
    constexpr int theCount = 4000;
    Generator gen{std::mt19937(20240611u)};
    int failures = 0, errors = 0, strings = 0, open = 0;
    for (int i = 0; i < theCount; ++i) {
        // Shallow texts first, so the first failures reported are short.
        const std::string text = gen.expr(1 + i * 6 / theCount);
        const RefResult ref = Ref(text).result();
        ASSERT_NE(ref.err, EV_ERRSYNTAX) << "generator produced bad text: " << text;
        errors += ref.err != 0;
        strings += !ref.err && ref.value.isString;
        open += ref.open;
        const std::string d = compare(text, ref);
        if (!d.empty() && ++failures <= 10)
            ADD_FAILURE() << d;
    }
    EXPECT_EQ(failures, 0) << "of " << theCount << " expressions";
    // Guards against a generator that drifted into testing nothing.
    EXPECT_GT(errors, theCount / 100);
    EXPECT_GT(strings, theCount / 100);
    EXPECT_LT(open, theCount / 10);
}

} // namespace
