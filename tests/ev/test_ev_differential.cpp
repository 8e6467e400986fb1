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
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

// ---- Reference evaluator ---------------------------------------------------

struct RefValue
{
    bool isString = false;
    double f = 0.0;
    std::string s;
};

struct RefNode
{
    enum Kind { NUM, STR, UNARY, BINARY, COND, CALL } kind = NUM;
    std::string op; // operator or function name
    RefValue value;
    std::vector<RefNode> kids;
};

// An evaluation error, carrying the engine's error number.
struct RefError
{
    int code;
};

std::string refFormat(double f)
{
    char buf[64];
    std::snprintf(buf, sizeof(buf), "%g", f);
    return buf;
}

// Leading [blanks][sign]digits[.digits][e[sign]digits]; 0 without digits.
double refLeadingNumber(const std::string &text)
{
    std::size_t i = text.find_first_not_of(" \t\n\r");
    if (i == std::string::npos)
        return 0.0;
    const std::size_t start = i;
    auto digits = [&] {
        std::size_t from = i;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])))
            ++i;
        return i > from;
    };
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        ++i;
    bool any = digits();
    if (i < text.size() && text[i] == '.') {
        ++i;
        any = digits() || any;
    }
    if (!any)
        return 0.0;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        std::size_t mark = i++;
        if (i < text.size() && (text[i] == '+' || text[i] == '-'))
            ++i;
        if (!digits())
            i = mark;
    }
    return std::strtod(text.substr(start, i - start).c_str(), nullptr);
}

double refNumber(const RefValue &v) { return v.isString ? refLeadingNumber(v.s) : v.f; }
bool refTruth(const RefValue &v) { return v.isString ? !v.s.empty() : v.f != 0.0; }
std::string refText(const RefValue &v) { return v.isString ? v.s : refFormat(v.f); }
RefValue refFloat(double f) { return {false, f, {}}; }

class RefParser
{
public:
    explicit RefParser(const std::string &text) : myText(text) {}

    bool parse(RefNode &root)
    {
        lex();
        root = conditional();
        return myOk && myTok == "end";
    }

private:
    void lex()
    {
        while (myPos < myText.size() && std::isspace(static_cast<unsigned char>(myText[myPos])))
            ++myPos;
        if (myPos >= myText.size()) {
            myTok = "end";
            return;
        }
        const char c = myText[myPos];
        if (std::isdigit(static_cast<unsigned char>(c)) || c == '.') {
            const char *begin = myText.c_str() + myPos;
            char *end = nullptr;
            myNumber = std::strtod(begin, &end);
            myPos += static_cast<std::size_t>(end - begin);
            myTok = "num";
        } else if (c == '\'') {
            myString.clear();
            for (++myPos; myPos < myText.size() && myText[myPos] != '\''; ++myPos) {
                if (myText[myPos] == '\\' && myPos + 1 < myText.size() &&
                    (myText[myPos + 1] == '\'' || myText[myPos + 1] == '\\'))
                    ++myPos;
                myString += myText[myPos];
            }
            myOk = myOk && myPos < myText.size();
            ++myPos;
            myTok = "str";
        } else if (std::isalpha(static_cast<unsigned char>(c))) {
            std::size_t start = myPos;
            while (myPos < myText.size() && std::isalnum(static_cast<unsigned char>(myText[myPos])))
                ++myPos;
            myString = myText.substr(start, myPos - start);
            myTok = "id";
        } else {
            static const char *const theOps[] = {"<=", ">=", "==", "!=", "&&", "||", "+", "-", "*", "/",
                                                 "%", "^", "!", "<", ">", "(", ")", ",", "?", ":"};
            for (const char *op : theOps)
                if (myText.compare(myPos, std::strlen(op), op) == 0) {
                    myTok = op;
                    myPos += myTok.size();
                    return;
                }
            myOk = false;
            myTok = "end";
        }
    }

    void expect(const char *tok)
    {
        myOk = myOk && myTok == tok;
        lex();
    }

    static RefNode node(RefNode::Kind kind, std::string op, std::vector<RefNode> kids)
    {
        RefNode n;
        n.kind = kind;
        n.op = std::move(op);
        n.kids = std::move(kids);
        return n;
    }

    RefNode conditional()
    {
        RefNode c = logical(0);
        if (myTok != "?")
            return c;
        lex();
        RefNode a = conditional();
        expect(":");
        RefNode b = conditional();
        return node(RefNode::COND, "?", {c, a, b});
    }

    // Binary levels, loosest first; each is left-associative.
    RefNode logical(int level)
    {
        static const std::vector<std::vector<std::string>> theLevels = {
            {"||"}, {"&&"}, {"==", "!="}, {"<", "<=", ">", ">="}, {"+", "-"}, {"*", "/", "%"}};
        if (level == static_cast<int>(theLevels.size()))
            return unary();
        RefNode left = logical(level + 1);
        const auto &ops = theLevels[static_cast<std::size_t>(level)];
        while (myOk && std::find(ops.begin(), ops.end(), myTok) != ops.end()) {
            std::string op = myTok;
            lex();
            left = node(RefNode::BINARY, op, {left, logical(level + 1)});
        }
        return left;
    }

    RefNode unary()
    {
        if (myTok == "-" || myTok == "+" || myTok == "!") {
            std::string op = myTok;
            lex();
            return node(RefNode::UNARY, op, {unary()});
        }
        RefNode base = primary();
        if (myTok != "^")
            return base;
        lex();
        return node(RefNode::BINARY, "^", {base, unary()});
    }

    RefNode primary()
    {
        RefNode n;
        if (myTok == "num") {
            n.value = refFloat(myNumber);
            lex();
        } else if (myTok == "str") {
            n.kind = RefNode::STR;
            n.value = {true, 0.0, myString};
            lex();
        } else if (myTok == "id") {
            n.kind = RefNode::CALL;
            n.op = myString;
            lex();
            expect("(");
            while (myOk && myTok != ")") {
                n.kids.push_back(conditional());
                if (myTok == ",")
                    lex();
            }
            expect(")");
        } else if (myTok == "(") {
            lex();
            n = conditional();
            expect(")");
        } else {
            myOk = false;
        }
        return n;
    }

    std::string myText;
    std::size_t myPos = 0;
    std::string myTok;
    std::string myString;
    double myNumber = 0.0;
    bool myOk = true;
};

class RefEvaluator
{
public:
    // Set when the language leaves the value open (min/max of NaN or of
    // zeros of both signs): then only the error is compared.
    bool open = false;

    RefValue eval(const RefNode &n)
    {
        switch (n.kind) {
        case RefNode::NUM:
        case RefNode::STR:
            return n.value;
        case RefNode::UNARY: {
            RefValue v = eval(n.kids[0]);
            if (n.op == "!")
                return refFloat(refTruth(v) ? 0.0 : 1.0);
            return refFloat(n.op == "-" ? -refNumber(v) : refNumber(v));
        }
        case RefNode::COND:
            return refTruth(eval(n.kids[0])) ? eval(n.kids[1]) : eval(n.kids[2]);
        case RefNode::CALL:
            return call(n);
        case RefNode::BINARY:
            break;
        }
        if (n.op == "&&")
            return refFloat(refTruth(eval(n.kids[0])) && refTruth(eval(n.kids[1])) ? 1.0 : 0.0);
        if (n.op == "||")
            return refFloat(refTruth(eval(n.kids[0])) || refTruth(eval(n.kids[1])) ? 1.0 : 0.0);
        RefValue a = eval(n.kids[0]);
        RefValue b = eval(n.kids[1]);
        if (n.op == "+" && (a.isString || b.isString))
            return {true, 0.0, refText(a) + refText(b)};
        if (n.op == "==" || n.op == "!=" || n.op[0] == '<' || n.op[0] == '>') {
            bool text = a.isString && b.isString;
            double x = refNumber(a), y = refNumber(b);
            bool r = n.op == "==" ? (text ? a.s == b.s : x == y)
                   : n.op == "!=" ? (text ? a.s != b.s : x != y)
                   : n.op == "<"  ? (text ? a.s < b.s : x < y)
                   : n.op == "<=" ? (text ? a.s <= b.s : x <= y)
                   : n.op == ">"  ? (text ? a.s > b.s : x > y)
                                  : (text ? a.s >= b.s : x >= y);
            return refFloat(r ? 1.0 : 0.0);
        }
        double x = refNumber(a), y = refNumber(b);
        if ((n.op == "/" || n.op == "%") && y == 0.0)
            throw RefError{EV_ERRDIVZERO};
        switch (n.op[0]) {
        case '+': return refFloat(x + y);
        case '-': return refFloat(x - y);
        case '*': return refFloat(x * y);
        case '/': return refFloat(x / y);
        case '%': return refFloat(std::fmod(x, y));
        default: return refFloat(std::pow(x, y));
        }
    }

private:
    RefValue call(const RefNode &n)
    {
        std::vector<double> args;
        for (const RefNode &k : n.kids)
            args.push_back(refNumber(eval(k)));
        if (n.op == "abs")
            return refFloat(std::fabs(args.at(0)));
        if (n.op == "floor")
            return refFloat(std::floor(args.at(0)));
        if (n.op == "sqrt") {
            if (!(args.at(0) >= 0.0)) // NaN is outside the domain too
                throw RefError{EV_ERRBADARG};
            return refFloat(std::sqrt(args[0]));
        }
        double a = args.at(0), b = args.at(1);
        open = open || std::isnan(a) || std::isnan(b) || (a == b && std::signbit(a) != std::signbit(b));
        return refFloat(n.op == "min" ? (b < a ? b : a) : (b > a ? b : a));
    }
};

struct RefResult
{
    int err = 0;
    RefValue value;
    bool open = false;
};

RefResult refEvaluate(const std::string &text)
{
    RefNode root;
    RefParser parser(text);
    if (!parser.parse(root))
        return {EV_ERRSYNTAX, {}, false};
    RefEvaluator ev;
    try {
        RefValue v = ev.eval(root);
        return {0, v, ev.open};
    } catch (const RefError &e) {
        return {e.code, {}, ev.open};
    }
}

// ---- Generator -------------------------------------------------------------

// Every token is separated by a blank so that the text lexes as intended;
// subexpressions are bracketed only sometimes, so precedence gets exercised.
class Generator
{
public:
    explicit Generator(unsigned seed) : myRng(seed) {}

    std::string expr(int depth)
    {
        if (depth <= 0 || pick(5) == 0)
            return leaf();
        // Arithmetic twice as often, so that values are not mostly 0 and 1.
        static const char *const theBinary[] = {"||", "&&", "==", "!=", "<", "<=", ">", ">=", "+", "-",
                                                "*",  "/",  "%",  "^",  "+", "-",  "*", "/",  "%", "^"};
        switch (pick(10)) {
        case 0: {
            static const char *const theUnary[] = {"- ", "+ ", "! "};
            return theUnary[pick(3)] + sub(depth - 1);
        }
        case 1: return sub(depth - 1) + " ? " + sub(depth - 1) + " : " + sub(depth - 1);
        case 2: {
            static const char *const theCalls[] = {"abs(", "floor(", "min(", "max(", "sqrt(abs("};
            switch (int f = pick(5)) {
            case 2:
            case 3: return theCalls[f] + expr(depth - 1) + ", " + expr(depth - 1) + ")";
            case 4: return std::string(theCalls[f]) + expr(depth - 2) + "))";
            default: return theCalls[f] + expr(depth - 1) + ")";
            }
        }
        default: return sub(depth - 1) + " " + theBinary[pick(20)] + " " + sub(depth - 1);
        }
    }

private:
    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(myRng); }

    std::string sub(int depth)
    {
        std::string e = expr(depth);
        return pick(3) == 0 ? "( " + e + " )" : e;
    }

    std::string leaf()
    {
        static const char *const theDecimals[] = {"0.5", "1.25", ".5", "3.", "0.1", "0.3", "1e-3", "2E+1", "100", "0"};
        static const char *const theStrings[] = {"''", "'a'", "'abc'", "'3'", "'2.5x'", "' -1.5'", "'b\\'c'",
                                                 "'x\\\\y'", "'10'", "'1e2'", "'inf'", "'0x10'", "'.5'"};
        int kind = pick(20);
        if (kind < 12)
            return std::to_string(pick(10));
        if (kind < 17)
            return theDecimals[pick(10)];
        return theStrings[pick(13)];
    }

    std::mt19937 myRng;
};

// ---- Comparison ------------------------------------------------------------

struct EngineResult
{
    bool compiled = false;
    int okFloat = 0, errFloat = 0, okString = 0, errString = 0;
    float f = 0.0f;
    std::string s;
};

EngineResult engineEvaluate(const std::string &text, int optimize)
{
    ev_SetOptimization(optimize);
    EngineResult r;
    EV_EXPRESSION *expr = ev_AllocExpr();
    r.compiled = ev_ChangeExpr(expr, text.c_str(), 0) == 1;
    r.f = 42.0f;
    ev_SetErrNo(0, 0);
    r.okFloat = ev_EvaluateFloat(expr, &r.f, 0);
    r.errFloat = ev_GetErrNo(0);
    UT_String s("stale");
    ev_SetErrNo(0, 0);
    r.okString = ev_EvaluateString(expr, s, 0);
    r.errString = ev_GetErrNo(0);
    r.s = s.c_str();
    ev_SetErrNo(0, 0);
    ev_FreeExpr(expr);
    return r;
}

bool sameFloat(float got, float want)
{
    if (std::isnan(want) || std::isnan(got))
        return std::isnan(want) && std::isnan(got);
    if (got == want)
        return true;
    return std::isfinite(want) && std::isfinite(got) && std::fabs(got - want) <= 1e-6f * std::fabs(want);
}

std::string describe(const EngineResult &r)
{
    std::ostringstream out;
    out << "compiled " << r.compiled << ", float " << r.f << " (ok " << r.okFloat << ", err " << r.errFloat
        << "), string \"" << r.s << "\" (ok " << r.okString << ", err " << r.errString << ")";
    return out.str();
}

// Empty when the engine agrees with the reference in both folding modes.
std::string compare(const std::string &text, const RefResult &ref)
{
    EngineResult on = engineEvaluate(text, 1);
    EngineResult off = engineEvaluate(text, 0);
    std::ostringstream why;
    for (const EngineResult *r : {&on, &off}) {
        const char *mode = r == &on ? "folding on" : "folding off";
        bool good = r->compiled;
        if (ref.err)
            good = good && !r->okFloat && r->errFloat == ref.err && r->f == 0.0f && !r->okString &&
                   r->errString == ref.err && r->s.empty();
        else
            good = good && r->okFloat && !r->errFloat && r->okString && !r->errString &&
                   (ref.open || (sameFloat(r->f, static_cast<float>(refNumber(ref.value))) &&
                                 r->s == refText(ref.value)));
        if (!good)
            why << "\n  " << mode << ": " << describe(*r);
    }
    bool same = on.okFloat == off.okFloat && on.errFloat == off.errFloat && on.s == off.s &&
                (std::memcmp(&on.f, &off.f, sizeof(float)) == 0 || (std::isnan(on.f) && std::isnan(off.f)));
    if (!same && why.str().empty())
        why << "\n  folding on: " << describe(on) << "\n  folding off: " << describe(off);
    if (why.str().empty())
        return {};
    std::ostringstream msg;
    msg << "text: " << text << "\n  reference: ";
    if (ref.err)
        msg << "error " << ref.err;
    else
        msg << "float " << static_cast<float>(refNumber(ref.value)) << ", string \"" << refText(ref.value) << "\""
            << (ref.open ? " (value left open)" : "");
    return msg.str() + why.str();
}

class EvDifferential : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ev_InitFloat();
        ev_InitString();
        mySavedOptimization = ev_GetOptimization();
    }
    void TearDown() override { ev_SetOptimization(mySavedOptimization); }

    int mySavedOptimization = 1;
};

// Pins the reference itself to hand-worked answers, so that it cannot share
// a misreading with the engine unnoticed; the engine must agree too.
TEST_F(EvDifferential, ReferenceAnchors)
{
    struct Row
    {
        const char *text;
        int err;
        const char *str;
    };
    const Row rows[] = {
        {"- 2 ^ 2", 0, "-4"},
        {"2 ^ 3 ^ 2", 0, "512"},
        {"2 ^ - 1", 0, "0.5"},
        {"7 - 2 - 1", 0, "4"},
        {"1 ? 2 : 0 ? 3 : 4", 0, "2"},
        {"0 || 'a' && 3", 0, "1"},
        {"1 + 'a' + 2 * 3", 0, "1a6"},
        {"'a' + 0.1 + 0.2", 0, "a0.10.2"},
        {"'10' < '9'", 0, "1"},
        {"'10' < 9", 0, "0"},
        {"' -1.5e1x' * 2", 0, "-30"},
        {"'inf' * 1 == 0", 0, "1"},
        {"- 7 % 3", 0, "-1"},
        {"! '' + ! 'b'", 0, "1"},
        {"1 < 2 == 1", 0, "1"},
        {"( - 1 ) ^ .5 <= 1", 0, "0"},
        {"( - 1 ) ^ .5 != ( - 1 ) ^ .5", 0, "1"},
        {"5 % ( 2 - 2 )", EV_ERRDIVZERO, ""},
        {"0 && 1 / 0", 0, "0"},
        {"sqrt(0 - 4)", EV_ERRBADARG, ""},
        {"min(3, max('2', 1)) + floor(- 0.5) + abs(- 1)", 0, "2"},
    };
    for (const Row &row : rows) {
        RefResult ref = refEvaluate(row.text);
        EXPECT_EQ(ref.err, row.err) << row.text;
        if (!row.err) {
            EXPECT_EQ(refText(ref.value), row.str) << row.text;
        }
        std::string d = compare(row.text, ref);
        EXPECT_TRUE(d.empty()) << d;
    }
}

TEST_F(EvDifferential, RandomExpressionsAgree)
{
    constexpr int theCount = 4000;
    Generator gen(20240611u);
    int failures = 0, errors = 0, strings = 0, open = 0;
    for (int i = 0; i < theCount; ++i) {
        // Shallow texts first, so the first failures reported are short.
        const std::string text = gen.expr(1 + i * 6 / theCount);
        RefResult ref = refEvaluate(text);
        ASSERT_NE(ref.err, EV_ERRSYNTAX) << "generator produced bad text: " << text;
        errors += ref.err != 0;
        strings += !ref.err && ref.value.isString;
        open += ref.open;
        std::string d = compare(text, ref);
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
