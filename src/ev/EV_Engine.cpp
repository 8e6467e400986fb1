#include <ev/EV_Engine.h>

#include "evCompiler.h"
#include "evLibrary.h"
#include "evRegistry.h"

#include <ut/UT_String.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

const ev_ThreadErrNo EXPR_theErrNo{};

// ---- Records ---------------------------------------------------------------

EV_EXPRESSION::EV_EXPRESSION() = default;
EV_EXPRESSION::~EV_EXPRESSION() = default;

bool EV_EXPRESSION::isCompiled() const
{
    return myProgram && myProgram->compileError == 0;
}

int EV_EXPRESSION::getCompileError() const
{
    return myProgram ? myProgram->compileError : 0;
}

int EV_EXPRESSION::getCompileErrorOffset() const
{
    return myProgram ? myProgram->errorOffset : -1;
}

const char *EV_EXPRESSION::getCompileErrorToken() const
{
    return myProgram ? myProgram->errorToken.c_str() : "";
}

EV_FUNCTION::EV_FUNCTION(unsigned flags, const char *name, int nargs, int result_type,
                         const int *arg_types, EV_EVALUATE_FUNC evaluate, EV_DEPEND_FUNC depend,
                         EV_CHANGEREF_FUNC changeref, int deterministic, bool needs_lock)
    : myFlags(flags), myName(name ? name : ""), myNArgs(nargs > 0 ? nargs : 0), myResultType(result_type), myEvaluate(evaluate),
      myDepend(depend), myChangeRef(changeref), myDeterministic(deterministic), myNeedsLock(needs_lock), myAllFloat(true)
{
    myAllFloat = result_type == EV_TYPEFLOAT;
    for (int i = 0; i < myNArgs; ++i) {
        myArgTypes.push_back(arg_types ? arg_types[i] : EV_TYPEFLOAT);
        myAllFloat = myAllFloat && myArgTypes.back() == EV_TYPEFLOAT;
    }
}

// ---- Expressions -----------------------------------------------------------

EV_EXPRESSION *ev_AllocExpr()
{
    return new EV_EXPRESSION;
}

void ev_FreeExpr(EV_EXPRESSION *expr)
{
    delete expr;
}

int ev_ChangeExpr(EV_EXPRESSION *expr, const char *text, int thread)
{
    if (!expr)
        return 0;
    expr->setFlags(0);
    expr->myHasText = text != nullptr;
    expr->myText = text ? text : "";
    if (!text) {
        expr->myProgram.reset();
        return 1;
    }
    unsigned flags = 0;
    expr->myProgram = evCompile(text, flags, thread);
    expr->orFlags(flags);
    return expr->myProgram->compileError == 0;
}

unsigned EV_EXPRESSION::getCompiledUsage() const
{
    return myProgram ? myProgram->keyUsage : 0u;
}

// ev_EvaluateFloat and ev_EvaluateString live with the evaluators (evEvaluate.cpp).

void ev_UnresolveVars(EV_EXPRESSION *expr, int)
{
    if (!expr || !expr->myProgram)
        return;
    for (evBinding &b : expr->myProgram->bindings) {
        b.type = nullptr;
        b.binding = EV_VarBinding();
    }
    expr->myProgram->usesStrings = true;
    expr->myProgram->finish();
}

void *ev_GetSingleFunctionInstanceData(EV_EXPRESSION *, EV_FUNCTION *, int)
{
    return nullptr;
}

std::string ev_Disassemble(const EV_EXPRESSION *expr)
{
    return expr && expr->myProgram ? expr->myProgram->disassemble() : std::string();
}

// ---- Errors ----------------------------------------------------------------

__attribute__((noinline)) int evGetErrNoSlowly(int thread) noexcept
{
    try {
        return evGetThreadState(thread).error;
    } catch (...) {
        return 0; // no memory for the thread's engine state: nothing pending either
    }
}

int ev_GetErrNo(int thread)
{
    return evPendingError(thread);
}

bool ev_IsUnwinding(int thread)
{
    const evThreadState &state = evGetThreadState(thread);
    return state.unwinding() && state.depth != evThreadState::theUnwinding;
}

void ev_SetErrNo(int err, int thread)
{
    evThreadState &state = evGetThreadState(thread);
    state.error = err;
    state.clearPosition();
}

void ev_RaiseError(int err, int thread)
{
    evThreadState &state = evGetThreadState(thread);
    if (!state.error) {
        state.error = err;
        state.clearPosition();
    }
}

void ev_SetCustomErrorMessage(const char *text, int thread)
{
    evThreadState &state = evGetThreadState(thread);
    state.custom = text ? text : "";
    state.error = EV_ERRCUSTOM;
    state.clearPosition();
}

// Both come after the thread's error was read, so its state exists and
// finding it allocates nothing; should it have to and fail, there is no
// error to move.
EV_ErrorAside ev_SetErrorAside(int thread) noexcept
{
    EV_ErrorAside aside;
    evThreadState *found = nullptr;
    try {
        found = &evGetThreadState(thread);
    } catch (...) {
        return aside;
    }
    evThreadState &state = *found;
    aside.myErrNo = state.error;
    aside.myOffset = state.errorOffset;
    aside.myToken = std::move(state.errorToken);
    aside.myCustom = std::move(state.custom);
    state.error = 0;
    state.clearPosition();
    state.custom.clear();
    return aside;
}

void ev_TakeErrorBack(EV_ErrorAside &&aside, int thread) noexcept
{
    evThreadState *found = nullptr;
    try {
        found = &evGetThreadState(thread);
    } catch (...) {
        return;
    }
    evThreadState &state = *found;
    state.error = aside.myErrNo;
    state.errorOffset = aside.myOffset;
    state.errorToken = std::move(aside.myToken);
    state.custom = std::move(aside.myCustom);
}

int ev_GetErrorOffset(int thread)
{
    const evThreadState &state = evGetThreadState(thread);
    return state.error ? state.errorOffset : -1;
}

const char *ev_GetErrorToken(int thread)
{
    const evThreadState &state = evGetThreadState(thread);
    return state.error ? state.errorToken.c_str() : "";
}

const char *ev_GetErrorTextForThread(int err, int thread)
{
    static const char *const theTexts[] = {
        "No error",
        "Syntax error",
        "Unknown function",
        "Wrong number of arguments",
        "Bad argument type",
        "Undefined variable",
        "Division by zero",
        "Invalid vector or matrix operation",
        "Expression recursion too deep",
    };
    if (err == EV_ERRCUSTOM)
        return evGetThreadState(thread).custom.c_str();
    if (err >= 0 && err < static_cast<int>(sizeof(theTexts) / sizeof(theTexts[0])))
        return theTexts[err];
    return "Unknown error";
}

const char *ev_GetErrorText(int err)
{
    return ev_GetErrorTextForThread(err, 0);
}

// ---- Registration ----------------------------------------------------------

void ev_AddFunction(EV_FUNCTION *func)
{
    evRegistry::get().addFunction(func);
}

EV_FUNCTION *ev_FindFunction(const char *name)
{
    evFuncSlot *slot = evRegistry::get().findSlot(name ? name : "");
    return slot ? slot->record.load(std::memory_order_acquire) : nullptr;
}

const std::atomic<EV_FUNCTION *> *ev_FindFunctionSlot(const char *name)
{
    evFuncSlot *slot = evRegistry::get().findSlot(name ? name : "");
    return slot ? &slot->record : nullptr;
}

void ev_AddType(EV_TYPEDEF *type)
{
    evRegistry::get().addDefineType(type);
}

void ev_AddVariableType(EV_TYPEDEF *type, int)
{
    evRegistry::get().addVariableType(type);
}

void ev_SetExpander(EV_EXPANDER expander)
{
    evRegistry::get().expander.store(expander, std::memory_order_release);
}

void ev_SetVariableCallback(EV_VARIABLE_CALLBACK callback)
{
    evRegistry::get().variableCallback.store(callback, std::memory_order_release);
}

void ev_SetOptimization(int level)
{
    evRegistry::get().optimization.store(level, std::memory_order_relaxed);
}

int ev_GetOptimization()
{
    return evRegistry::get().optimization.load(std::memory_order_relaxed);
}

namespace {

// Runs an initialiser once per process; a concurrent caller waits until it
// has finished, so nobody compiles against a half-registered library.
template <typename F>
void evOnce(std::once_flag &done, F &&f)
{
    std::call_once(done, f);
}

std::once_flag theFloatInit, theStringInit, theVectorInit;

} // namespace

void ev_InitFloat()
{
    evOnce(theFloatInit, evRegisterFloatLibrary);
}

void ev_InitString()
{
    evOnce(theStringInit, evRegisterStringLibrary);
}

void ev_InitVector()
{
    // Vector and matrix values come later; nothing to register yet.
    evOnce(theVectorInit, [] {});
}

void ev_InitVariable()
{
    evRegistry::get().environmentFallback.store(true, std::memory_order_relaxed);
}

void ev_InitUserFunc()
{
    evRegistry::get().userFunctions.store(true, std::memory_order_relaxed);
}

// ---- Conversions -----------------------------------------------------------

namespace {

// from_chars reports a number out of range without saying in which
// direction (and leaves the value alone): a number that is at least 1 must
// have overflowed, one below 1 underflowed. 'digits' is the mantissa
// (digits, point, digits), 'end' the end of the exponent if any.
bool evOverflows(const char *digits, const char *end)
{
    long long lead = 0; // decimal exponent of the first non-zero digit
    bool found = false, point = false;
    long long whole = 0, frac = 0;
    const char *p = digits;
    for (; p < end && *p != 'e' && *p != 'E'; ++p) {
        if (*p == '.') {
            point = true;
            continue;
        }
        if (point)
            ++frac;
        else
            ++whole;
        if (!found && *p != '0') {
            found = true;
            lead = point ? -frac : whole; // fixed up below for integer digits
        }
    }
    if (!found)
        return false; // all zeros never get here
    if (lead > 0)
        lead = whole - lead; // the leading digit's place counted from the point
    long long exponent = 0;
    bool negative = false;
    if (p < end) {
        ++p;
        if (*p == '+' || *p == '-')
            negative = *p++ == '-';
        for (; p < end; ++p)
            exponent = std::min(exponent * 10 + (*p - '0'), 1000000000LL); // saturates
    }
    return lead + (negative ? -exponent : exponent) >= 0;
}

} // namespace


const char *ev_ScanDecimal(const char *text, double &value)
{
    value = 0.0;
    if (!text)
        return text;
    // [blanks][sign]digits[.digits][e[sign]digits], so hex, inf and nan never
    // count; converted with from_chars, which ignores the C locale (a host
    // that sets a locale with a decimal comma must not change results).
    const char *p = text;
    while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r')
        ++p;
    const char *start = p;
    if (*p == '+' || *p == '-')
        ++p;
    const char *digits = p;
    while (*p >= '0' && *p <= '9')
        ++p;
    bool any = p != digits;
    if (*p == '.') {
        ++p;
        const char *frac = p;
        while (*p >= '0' && *p <= '9')
            ++p;
        any = any || p != frac;
    }
    if (!any)
        return text;
    if (*p == 'e' || *p == 'E') {
        const char *e = p + 1;
        if (*e == '+' || *e == '-')
            ++e;
        if (*e >= '0' && *e <= '9') {
            while (*e >= '0' && *e <= '9')
                ++e;
            p = e;
        }
    }
    const char *from = *start == '+' ? start + 1 : start; // from_chars takes no '+'
    std::from_chars_result r = std::from_chars(from, p, value);
    if (r.ec == std::errc::result_out_of_range) {
        const double sign = *start == '-' ? -1.0 : 1.0;
        value = evOverflows(digits, p) ? sign * std::numeric_limits<double>::infinity() : sign * 0.0;
    }
    return p;
}

double ev_StringToFloat(const char *text)
{
    double value;
    ev_ScanDecimal(text, value);
    return value;
}

std::string ev_FloatToString(double value)
{
    char buf[64];
    std::to_chars_result r = std::to_chars(buf, buf + sizeof(buf), value, std::chars_format::general, 6);
    return std::string(buf, r.ptr);
}
