// Compiles and evaluates arbitrary text with constant folding on and off,
// and checks what must hold whatever the text: a failed compile fails every
// evaluation with its own error, and folding never changes a result.
#include <ev/EV_Engine.h>
#include <ut/UT_String.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

struct Outcome
{
    bool compiled = false;
    int okFloat = 0, errFloat = 0, okString = 0, errString = 0;
    float f = 0.0f;
    std::string s;
};

[[noreturn]] void fail(const char *what, const std::string &text)
{
    std::fprintf(stderr, "invariant broken: %s\ntext: %s\n", what, text.c_str());
    std::abort();
}

Outcome run(const std::string &text, int optimize)
{
    ev_SetOptimization(optimize);
    EV_EXPRESSION *expr = ev_AllocExpr();
    Outcome o;
    o.compiled = ev_ChangeExpr(expr, text.c_str(), 0) == 1;
    const int compileError = expr->getCompileError();
    if (o.compiled != (compileError == 0))
        fail("compile result and compile error disagree", text);
    (void)ev_Disassemble(expr);

    o.f = 42.0f;
    ev_SetErrNo(0, 0);
    o.okFloat = ev_EvaluateFloat(expr, &o.f, 0);
    o.errFloat = ev_GetErrNo(0);
    UT_String s("stale");
    ev_SetErrNo(0, 0);
    o.okString = ev_EvaluateString(expr, s, 0);
    o.errString = ev_GetErrNo(0);
    o.s = s.c_str();
    ev_SetErrNo(0, 0);
    ev_FreeExpr(expr);

    if (!o.compiled && (o.okFloat || o.errFloat != compileError || o.okString || o.errString != compileError))
        fail("a text that failed to compile evaluated without its compile error", text);
    // Float and string evaluation run the same code; only the last
    // conversion differs.
    if (o.okFloat != o.okString || o.errFloat != o.errString)
        fail("float and string evaluation disagree on failure", text);
    if (o.okFloat ? o.errFloat != 0 : (o.errFloat == 0 || o.f != 0.0f || !o.s.empty()))
        fail("success flag, error number and result disagree", text);
    return o;
}

bool sameBits(float a, float b)
{
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    ev_InitFloat();
    ev_InitString();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // Embedded NULs simply end the text early, as they would for a caller.
    const std::string text(reinterpret_cast<const char *>(data), size < 4096 ? size : 4096);
    const Outcome on = run(text, 1);
    const Outcome off = run(text, 0);
    if (on.compiled && off.compiled &&
        (on.okFloat != off.okFloat || on.errFloat != off.errFloat || !sameBits(on.f, off.f) || on.s != off.s))
        fail("folding changed the result", text);
    return 0;
}
