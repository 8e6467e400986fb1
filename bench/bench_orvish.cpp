// The Orvish engine's hot paths: a lone call (the usual segment expression),
// arithmetic on time variables, and compiling a text.
#include "chbench.h"

#include <ev/EV_Engine.h>

#include <muParser.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

namespace {

// ---- Shared state ------------------------------------------------------------

// The frame and time the variables read; every iteration moves them, so no
// result can be reused from the previous one.
double theFrame = 1.0;
double theTime = 1.0 / 24.0;

void advance()
{
    theFrame += 1.0;
    theTime = theFrame / 24.0;
}

// The registered function's state: each call returns a new value.
double theCounter = 0.0;

void counterCallback(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int)
{
    theCounter += 1.0;
    result->setFloat(theCounter);
}

// Hidden state: not deterministic.
EV_FUNCTION theCounterFunc(0, "f", 0, EV_TYPEFLOAT, nullptr, counterCallback, nullptr, nullptr, 0);

// Claims $F and $T; reading them makes an expression time dependent.
bool resolveTimeVar(const char *name, EV_VarBinding &binding, int)
{
    if (name[0] && !name[1] && (name[0] == 'F' || name[0] == 'T')) {
        binding.id = name[0] == 'F' ? 0 : 1;
        binding.flags = EV_VarBinding::TIME_DEP;
        return true;
    }
    return false;
}

double timeVarValue(const EV_VarBinding &binding, int)
{
    return binding.id == 0 ? theFrame : theTime;
}

EV_TYPEDEF makeTimeVarType()
{
    EV_TYPEDEF type;
    type.type = 20; // clear of the engine's codes and the channel library's
    type.name = "benchTime";
    type.resolveVariable = resolveTimeVar;
    type.getFloat = timeVarValue;
    return type;
}
EV_TYPEDEF theTimeVarType = makeTimeVarType();

void setUp()
{
    static bool done = [] {
        ev_InitFloat();
        ev_InitString();
        ev_AddFunction(&theCounterFunc);
        ev_AddVariableType(&theTimeVarType, 0);
        return true;
    }();
    (void)done;
}

// A compiled expression, freed when the benchmark ends.
struct Expr
{
    explicit Expr(const char *text)
    {
        setUp();
        expr = ev_AllocExpr();
        ok = ev_ChangeExpr(expr, text, 0) != 0;
    }
    ~Expr() { ev_FreeExpr(expr); }
    Expr(const Expr &) = delete;
    Expr &operator=(const Expr &) = delete;

    float eval()
    {
        float f = 0.0f;
        ev_EvaluateFloat(expr, &f, 0);
        return f;
    }

    EV_EXPRESSION *expr = nullptr;
    bool ok = false;
};

constexpr const char *theArithText = "sin($F * 10) * 2 + $T";

double sinDegrees(double deg)
{
    return std::sin(deg * M_PI / 180.0);
}

float handArith()
{
    return static_cast<float>(sinDegrees(theFrame * 10.0) * 2.0 + theTime);
}

// The engine reduces angles in degrees before the sine, the others convert
// straight to radians: the results agree to float precision, not bit for bit.
bool closeEnough(float a, float b)
{
    return std::fabs(a - b) <= 1e-5f * std::max(1.0f, std::fabs(b));
}

// ---- A lone call -------------------------------------------------------------

void BM_OrvishCall(benchmark::State &state)
{
    Expr e("f()");
    if (!e.ok) {
        state.SkipWithError("f() does not compile");
        return;
    }
    theCounter = 0.0;
    if (e.eval() != 1.0f || e.eval() != 2.0f) {
        state.SkipWithError("f() does not return the callback's value");
        return;
    }
    for (auto _ : state) {
        float f = e.eval();
        benchmark::DoNotOptimize(f);
    }
}
BENCHMARK(BM_OrvishCall)->Apply(chbenchSamples);

// Held where the compiler cannot see its value, so the call stays indirect
// and is not inlined.
EV_EVALUATE_FUNC volatile theDirectCallback = counterCallback;

float directCall()
{
    EV_SYMBOL result;
    result.type = theCounterFunc.getResultType();
    EV_EVALUATE_FUNC cb = theDirectCallback;
    cb(&theCounterFunc, &result, nullptr, 0);
    return static_cast<float>(result.getFloat());
}

void BM_DirectCall(benchmark::State &state)
{
    theCounter = 0.0;
    if (directCall() != 1.0f || directCall() != 2.0f) {
        state.SkipWithError("the direct call does not return the callback's value");
        return;
    }
    for (auto _ : state) {
        float f = directCall();
        benchmark::DoNotOptimize(f);
    }
}
BENCHMARK(BM_DirectCall)->Apply(chbenchSamples);

// ---- Arithmetic on time variables --------------------------------------------

void BM_OrvishArith(benchmark::State &state)
{
    Expr e(theArithText);
    if (!e.ok) {
        state.SkipWithError("the expression does not compile");
        return;
    }
    for (int i = 0; i < 100; ++i, advance())
        if (!closeEnough(e.eval(), handArith())) {
            state.SkipWithError("the engine and the hand-written code disagree");
            return;
        }
    for (auto _ : state) {
        advance();
        float f = e.eval();
        benchmark::DoNotOptimize(f);
    }
}
BENCHMARK(BM_OrvishArith)->Apply(chbenchSamples);

void BM_HandArith(benchmark::State &state)
{
    for (auto _ : state) {
        advance();
        float f = handArith();
        benchmark::DoNotOptimize(f);
    }
}
BENCHMARK(BM_HandArith)->Apply(chbenchSamples);

void BM_MuparserArith(benchmark::State &state)
{
    float first = 0.0f;
    mu::Parser p;
    try {
        p.DefineVar("F", &theFrame);
        p.DefineVar("T", &theTime);
        // A degree sine like the engine's, so both do the same operations.
        p.DefineFun("sind", sinDegrees);
        p.SetExpr("sind(F * 10) * 2 + T");
        first = static_cast<float>(p.Eval());
    } catch (const mu::Parser::exception_type &err) {
        state.SkipWithError(err.GetMsg().c_str());
        return;
    }
    Expr e(theArithText);
    if (!closeEnough(first, e.eval())) {
        state.SkipWithError("muparser and the engine disagree");
        return;
    }
    for (int i = 0; i < 100; ++i, advance())
        if (!closeEnough(static_cast<float>(p.Eval()), e.eval())) {
            state.SkipWithError("muparser and the engine disagree");
            return;
        }
    for (auto _ : state) {
        advance();
        float f = static_cast<float>(p.Eval());
        benchmark::DoNotOptimize(f);
    }
}
BENCHMARK(BM_MuparserArith)->Apply(chbenchSamples);

// ---- Compiling ---------------------------------------------------------------

// Each iteration compiles a segment's usual call and an arithmetic text in
// turn; the figure is the fastest run's mean time per compile.
void BM_OrvishCompile(benchmark::State &state)
{
    static double best = std::numeric_limits<double>::infinity();
    static const char *const texts[] = {"f()", theArithText};
    Expr e("f()");
    int n = 0;
    auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        if (!ev_ChangeExpr(e.expr, texts[n & 1], 0)) {
            state.SkipWithError("a text does not compile");
            return;
        }
        ++n;
        benchmark::DoNotOptimize(e.expr);
    }
    auto ns = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
    if (n > 0 && ns / n < best) {
        best = ns / n;
        chbenchFigure("orvish_compile_ns", best);
    }
}
BENCHMARK(BM_OrvishCompile)->Apply(chbenchSamples);

} // namespace

CHBENCH_RATIO("orvish_call", BM_OrvishCall, BM_DirectCall);
CHBENCH_RATIO("orvish_arith", BM_OrvishArith, BM_HandArith);
CHBENCH_RATIO("orvish_vs_muparser", BM_OrvishArith, BM_MuparserArith);
