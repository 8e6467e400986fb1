#ifndef EV_TEST_UTIL_H
#define EV_TEST_UTIL_H

// Small helpers shared by the engine's tests.

#include <ev/EV_Engine.h>
#include <ut/UT_String.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

/// When not 0, the next allocation of at least this many bytes throws
/// std::bad_alloc (once), as a real out-of-memory would. The test program's
/// allocation functions read it.
extern std::atomic<std::size_t> evTestFailFrom;

struct evTestExprDeleter
{
    void operator()(EV_EXPRESSION *e) const { ev_FreeExpr(e); }
};
using evTestExpr = std::unique_ptr<EV_EXPRESSION, evTestExprDeleter>;

inline evTestExpr evTestCompile(const char *text, int thread = 0)
{
    evTestExpr e(ev_AllocExpr());
    ev_ChangeExpr(e.get(), text, thread);
    return e;
}

/// Result of evaluating a text: value, text form and error number (the
/// thread's error is cleared before and after).
struct evTestResult
{
    bool ok;
    float f;
    std::string s;
    int error;
};

inline evTestResult evTestEval(EV_EXPRESSION *e, int thread = 0)
{
    ev_SetErrNo(0, thread);
    evTestResult r{};
    r.ok = ev_EvaluateFloat(e, &r.f, thread) != 0;
    r.error = ev_GetErrNo(thread);
    ev_SetErrNo(0, thread);
    UT_String s;
    ev_EvaluateString(e, s, thread);
    r.s = s.toStdString();
    ev_SetErrNo(0, thread);
    return r;
}

inline evTestResult evTestEval(const char *text)
{
    evTestExpr e = evTestCompile(text);
    return evTestEval(e.get());
}

#endif
