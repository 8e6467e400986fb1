#ifndef EV_ENGINE_H
#define EV_ENGINE_H

// The Orvish expression engine's interface: expressions, registration of
// functions, types and variables, errors.

#include <ev/EV_Expression.h>
#include <ev/EV_Function.h>
#include <ev/EV_Symbol.h>
#include <ev/EV_TypeDef.h>

#include <atomic>
#include <string>

class UT_String;

/// Engine error numbers (texts from ev_GetErrorText).
enum
{
    EV_NOERROR = 0,
    EV_ERRSYNTAX = 1,
    EV_ERRUNKNOWNFUNC = 2,
    EV_ERRNARGS = 3,
    EV_ERRBADARG = 4,
    EV_ERRUNDEFINED = 5,
    EV_ERRDIVZERO = 6,
    EV_ERRVECTOR = 7,
    EV_ERRRECURSION = 8,
    EV_ERRCUSTOM = 9
};

/// Nested evaluations (expressions evaluating texts or other expressions)
/// deeper than this end with EV_ERRRECURSION.
constexpr int EV_MAX_EVAL_DEPTH = 64;

// ---- Expressions -----------------------------------------------------------

EV_EXPRESSION *ev_AllocExpr();
void ev_FreeExpr(EV_EXPRESSION *expr);
/// Sets and compiles the text (null: no text). Clears the flag word, then
/// sets EV_FLAG_MATCH when the text calls a function that carries it.
/// Returns 1 when the text compiled, 0 when it has an error (kept, and
/// reported at each evaluation).
int ev_ChangeExpr(EV_EXPRESSION *expr, const char *text, int thread);
/// Evaluates to a float. Returns 1 on success; on error 0, with *result 0
/// and the thread's error number set.
int ev_EvaluateFloat(EV_EXPRESSION *expr, float *result, int thread);
/// Evaluates to a string (empty on error); returns 1 on success.
int ev_EvaluateString(EV_EXPRESSION *expr, UT_String &result, int thread);
/// Returns every variable binding of the expression to unbound, so that its
/// variables are looked up by name at each evaluation.
void ev_UnresolveVars(EV_EXPRESSION *expr, int thread);
/// Per-expression data a function keeps for one call site. The engine keeps
/// none yet: always null.
void *ev_GetSingleFunctionInstanceData(EV_EXPRESSION *expr, EV_FUNCTION *func, int thread);
/// The compiled instructions as text, one per line (for tests and tools).
std::string ev_Disassemble(const EV_EXPRESSION *expr);

// ---- Errors ----------------------------------------------------------------

int ev_GetErrNo(int thread);
/// True while the thread is inside an evaluation that hit the nesting limit:
/// every evaluation it nests fails with EV_ERRRECURSION until the outermost
/// one returns, which then fails with it too.
bool ev_IsUnwinding(int thread);
/// Sets the thread's error number (0 clears it).
void ev_SetErrNo(int err, int thread);
/// Sets the error unless the thread already has one pending: the first
/// error of an evaluation is the one reported. For function callbacks.
void ev_RaiseError(int err, int thread);
/// Sets error EV_ERRCUSTOM with its text, for the thread.
void ev_SetCustomErrorMessage(const char *text, int thread);
/// For the error being reported on the thread, when it is the compile error
/// of a text (evaluated on this thread or any other, or nested in an
/// evaluation): the byte offset in that text of the token where it was
/// found, and the token as written ("" at the end of the text). -1 and ""
/// for any other error and when there is none.
int ev_GetErrorOffset(int thread = 0);
const char *ev_GetErrorToken(int thread = 0);
/// A thread's whole error (number, custom text, position), taken off the
/// thread by ev_SetErrorAside and put back by ev_TakeErrorBack.
class EV_ErrorAside
{
public:
    EV_ErrorAside() = default;
    int errNo() const { return myErrNo; }

private:
    friend EV_ErrorAside ev_SetErrorAside(int thread) noexcept;
    friend void ev_TakeErrorBack(EV_ErrorAside &&aside, int thread) noexcept;
    int myErrNo = 0;
    int myOffset = -1;
    std::string myToken;
    std::string myCustom;
};
/// Takes the thread's error off it, leaving it clear, so that an evaluation
/// sees only its own errors. The texts are moved, not copied: this cannot fail.
EV_ErrorAside ev_SetErrorAside(int thread) noexcept;
/// Makes the error set aside the thread's error again, whatever it has now.
void ev_TakeErrorBack(EV_ErrorAside &&aside, int thread) noexcept;
/// The text of an error number; EV_ERRCUSTOM gives the calling thread's
/// custom text (ev_GetErrorTextForThread for another thread).
const char *ev_GetErrorText(int err);
const char *ev_GetErrorTextForThread(int err, int thread);

/// The per-thread error number, as a value:
///   EXPR_theErrNo = 0;  if (EXPR_theErrNo) ...   (calling thread)
///   EXPR_theErrNo(thread) = 8;                  (a thread by number)
struct ev_ThreadErrNo
{
    struct Ref
    {
        int thread;
        operator int() const { return ev_GetErrNo(thread); }
        Ref &operator=(int err) { ev_SetErrNo(err, thread); return *this; }
    };
    Ref operator()(int thread) const { return Ref{thread}; }
    operator int() const { return ev_GetErrNo(0); }
    const ev_ThreadErrNo &operator=(int err) const { ev_SetErrNo(err, 0); return *this; }
};
extern const ev_ThreadErrNo EXPR_theErrNo;

// ---- Registration ----------------------------------------------------------

/// Registers a function; a record of the same name replaces the earlier
/// one, also under expressions already compiled.
void ev_AddFunction(EV_FUNCTION *func);
/// The record registered under a name, or null.
EV_FUNCTION *ev_FindFunction(const char *name);
/// Where the record of a name is kept, or null for a name never
/// registered: the place lives as long as the process and always holds the
/// record registered last, so a caller that calls one name very often can
/// read it instead of looking the name up.
const std::atomic<EV_FUNCTION *> *ev_FindFunctionSlot(const char *name);
/// Adds a value type; its resolveDefine answers defines.
void ev_AddType(EV_TYPEDEF *type);
/// Adds a variable type (flags: 0, none defined yet).
void ev_AddVariableType(EV_TYPEDEF *type, int flags);

/// Expands a double-quoted string at evaluation. Returns a text allocated
/// with malloc (the engine frees it), or null to keep the text as it is.
using EV_EXPANDER = char *(*)(const char *text, int thread);
void ev_SetExpander(EV_EXPANDER expander);

/// Answers variables no type claims, at evaluation: the value as text, and
/// whether it depends on time. A value that is a whole decimal number is
/// taken as a float, anything else as a string.
using EV_VARIABLE_CALLBACK = bool (*)(const char *name, std::string &value, bool &time_dependent, int thread);
void ev_SetVariableCallback(EV_VARIABLE_CALLBACK callback);

/// Constant folding of arithmetic on literals: on (1, the default) or off.
void ev_SetOptimization(int level);
int ev_GetOptimization();

/// The standard library: float functions, string functions, vector
/// functions (none until vector values exist), the environment fallback of
/// variable lookup, and the start of host functions (records added after
/// ev_InitUserFunc are user functions). Each runs once; calling again does
/// nothing.
void ev_InitFloat();
void ev_InitString();
void ev_InitVector();
void ev_InitVariable();
void ev_InitUserFunc();

// ---- Conversions (shared by the engine and its library) --------------------

/// The longest leading decimal number of a text (as strtod, decimal only:
/// no hex, inf or nan; a number out of range gives 0 when too small and
/// infinity when too large, with its sign), else 0.
double ev_StringToFloat(const char *text);
/// The same scan, returning where the number ends (the text itself when
/// there is none). Independent of the C locale, as is ev_FloatToString.
const char *ev_ScanDecimal(const char *text, double &value);
/// The shortest "%g" form of a float.
std::string ev_FloatToString(double value);

#endif
