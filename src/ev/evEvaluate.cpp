#include "evRegistry.h"

#include <ev/EV_Engine.h>
#include <ut/UT_String.h>

#include <cmath>
#include <cstdlib>
#include <forward_list>
#include <new>
#include <vector>

// Two evaluators run the same instruction set. Programs that never touch a
// string (the usual animation expression) run on a stack of doubles; the
// general one carries a string pointer beside every value.

namespace {

// ---- Shared pieces -----------------------------------------------------------

bool evReport(evThreadState &state, int error)
{
    if (!state.error)
        state.error = error;
    return false;
}

inline void evReadFlags(EV_EXPRESSION &expr, const EV_FUNCTION *func)
{
    expr.orFlags(func->getUserFlags());
}

// Arguments are built in raw storage so that only those used are set up.
class evArgs
{
public:
    explicit evArgs(int argc)
    {
        if (argc > evProgram::theInlineArgs) {
            myHeap.resize(static_cast<std::size_t>(argc));
            myHeapArgv.resize(static_cast<std::size_t>(argc));
        }
        myArgv = argc > evProgram::theInlineArgs ? myHeapArgv.data() : myInlineArgv;
        mySyms = argc > evProgram::theInlineArgs ? myHeap.data() : reinterpret_cast<EV_SYMBOL *>(myRaw);
    }
    EV_SYMBOL &init(int i)
    {
        EV_SYMBOL *sym = new (&mySyms[i]) EV_SYMBOL;
        myArgv[i] = sym;
        return *sym;
    }
    EV_SYMBOL **argv() { return myArgv; }

private:
    alignas(EV_SYMBOL) unsigned char myRaw[evProgram::theInlineArgs * sizeof(EV_SYMBOL)];
    EV_SYMBOL *myInlineArgv[evProgram::theInlineArgs];
    std::vector<EV_SYMBOL> myHeap;
    std::vector<EV_SYMBOL *> myHeapArgv;
    EV_SYMBOL *mySyms;
    EV_SYMBOL **myArgv;
};

// The record a call site reaches now, checked against the compiled arity.
inline EV_FUNCTION *evCallee(const evCallSite &site, int &error)
{
    EV_FUNCTION *func = site.slot->record.load(std::memory_order_acquire);
    if (__builtin_expect(!func, 0))
        error = EV_ERRUNKNOWNFUNC;
    else if (__builtin_expect(func->getNArgs() != site.argc, 0))
        error = EV_ERRNARGS; // replaced by a record of another arity
    else
        return func;
    return nullptr;
}

// ---- The float-only evaluator --------------------------------------------------

// A record with string arguments or result reached from float-only code
// (it replaced the record the text was compiled against).
__attribute__((noinline)) double evCallMixed(EV_FUNCTION *func, const double *args, int argc, int thread)
{
    std::vector<std::string> texts(static_cast<std::size_t>(argc) + 1);
    evArgs syms(argc);
    for (int i = 0; i < argc; ++i) {
        EV_SYMBOL &s = syms.init(i);
        s.type = func->getArgType(i);
        s.fval = args[i];
        if (s.type == EV_TYPESTRING) {
            texts[static_cast<std::size_t>(i)] = ev_FloatToString(args[i]);
            s.sval = texts[static_cast<std::size_t>(i)].c_str();
        }
    }
    EV_SYMBOL result;
    result.type = func->getResultType();
    result.storage = &texts.back();
    func->getEvaluate()(func, &result, syms.argv(), thread);
    return result.type == EV_TYPESTRING ? ev_StringToFloat(result.getString()) : result.fval;
}

class evFloatMachine
{
public:
    evFloatMachine(EV_EXPRESSION &expr, const evProgram &prog, int thread, evThreadState &state)
        : myExpr(expr), myProg(prog), myThread(thread), myState(state) {}

    /// Runs the program; the flags it gathered reach the expression
    /// whether or not it succeeds.
    bool run(double &out)
    {
        bool ok = runCode(out);
        if (myFlags)
            myExpr.orFlags(myFlags);
        return ok;
    }
    int error() const { return myError; }

private:
    bool fail(int error)
    {
        myError = error;
        return false;
    }
    bool runCode(double &out);
    bool call(const evCallSite &site, double *args, double &out);

    EV_EXPRESSION &myExpr;
    const evProgram &myProg;
    int myThread;
    evThreadState &myState;
    int myError = 0;
    /// What variables and calls set in the flag word, written once at the
    /// end of the run rather than at each instruction.
    unsigned myFlags = 0;
};

inline bool evFloatMachine::call(const evCallSite &site, double *args, double &out)
{
    int error = 0;
    EV_FUNCTION *func = evCallee(site, error);
    if (!func)
        return fail(error);
    if (EV_DIRECT_FLOAT_FUNC direct = func->getDirectFloat()) {
        out = direct(args[0]); // cannot fail: no error to check
        myFlags |= func->getUserFlags();
        return true;
    }
    if (__builtin_expect(func->isAllFloat(), 1)) {
        // Float-only programs never have more than theInlineArgs arguments.
        alignas(EV_SYMBOL) unsigned char raw[evProgram::theInlineArgs * sizeof(EV_SYMBOL)];
        EV_SYMBOL *argv[evProgram::theInlineArgs];
        for (int i = 0; i < site.argc; ++i) {
            argv[i] = new (raw + i * sizeof(EV_SYMBOL)) EV_SYMBOL;
            argv[i]->fval = args[i];
        }
        EV_SYMBOL result;
        func->getEvaluate()(func, &result, argv, myThread);
        out = result.fval;
    } else {
        out = evCallMixed(func, args, site.argc, myThread);
    }
    myFlags |= func->getUserFlags();
    if (__builtin_expect(myState.error != 0, 0))
        return fail(myState.error); // the callback reported an error
    return true;
}

bool evFloatMachine::runCode(double &out)
{
    double stack[evProgram::theFloatStack];
    double *sp = stack; // next free slot
    const evInstr *code = myProg.codePtr;
    const double *numbers = myProg.numberPtr;
    for (const evInstr *pc = code;; ++pc) {
        switch (pc->op) {
        case evOp::PUSHNUM: *sp++ = numbers[pc->a]; break;
        case evOp::VAR: {
            const evBinding &b = myProg.bindingPtr[pc->a];
            myFlags |= b.orMask;
            *sp++ = b.type->getFloat ? b.type->getFloat(b.binding, myThread) : 0.0;
            break;
        }
        case evOp::NEG: sp[-1] = -sp[-1]; break;
        case evOp::POS: break;
        case evOp::NOT: sp[-1] = sp[-1] != 0.0 ? 0.0 : 1.0; break;
        case evOp::TRUTH: sp[-1] = sp[-1] != 0.0 ? 1.0 : 0.0; break;
        case evOp::ADD: --sp; sp[-1] += sp[0]; break;
        case evOp::SUB: --sp; sp[-1] -= sp[0]; break;
        case evOp::MUL: --sp; sp[-1] *= sp[0]; break;
        case evOp::DIV:
            --sp;
            if (sp[0] == 0.0)
                return fail(EV_ERRDIVZERO);
            sp[-1] /= sp[0];
            break;
        case evOp::MOD:
            --sp;
            if (sp[0] == 0.0)
                return fail(EV_ERRDIVZERO);
            sp[-1] = std::fmod(sp[-1], sp[0]);
            break;
        case evOp::POW: --sp; sp[-1] = std::pow(sp[-1], sp[0]); break;
        case evOp::ADDK: sp[-1] += numbers[pc->a]; break;
        case evOp::SUBK: sp[-1] -= numbers[pc->a]; break;
        case evOp::MULK: sp[-1] *= numbers[pc->a]; break;
        case evOp::DIVK: sp[-1] /= numbers[pc->a]; break;
        case evOp::EQ: --sp; sp[-1] = sp[-1] == sp[0]; break;
        case evOp::NE: --sp; sp[-1] = sp[-1] != sp[0]; break;
        case evOp::LT: --sp; sp[-1] = sp[-1] < sp[0]; break;
        case evOp::LE: --sp; sp[-1] = sp[-1] <= sp[0]; break;
        case evOp::GT: --sp; sp[-1] = sp[-1] > sp[0]; break;
        case evOp::GE: --sp; sp[-1] = sp[-1] >= sp[0]; break;
        case evOp::JMP: pc = code + pc->a - 1; break;
        case evOp::JZ:
            --sp;
            if (*sp == 0.0)
                pc = code + pc->a - 1;
            break;
        case evOp::CALL: {
            const evCallSite &site = myProg.callPtr[pc->a];
            sp -= site.argc;
            if (!call(site, sp, *sp))
                return false;
            ++sp;
            break;
        }
        case evOp::END: out = sp[-1]; return true;
        case evOp::PUSHSTR:
        case evOp::PUSHXSTR:
            return fail(EV_ERRSYNTAX); // never compiled into float-only code
        default:
            __builtin_unreachable(); // every opcode is handled: no range check
        }
    }
}

// ---- The general evaluator -------------------------------------------------------

// A stack value: a float, or a string when s is set. Strings point either
// into the program's constants or into the evaluation's string store.
struct evValue
{
    double f;
    const std::string *s;
};

// Strings made during one evaluation, kept in place while more are added.
class evStrings
{
public:
    const std::string *add(std::string text)
    {
        myStore.push_front(std::move(text));
        return &myStore.front();
    }
    std::string *fresh()
    {
        myStore.emplace_front();
        return &myStore.front();
    }

private:
    std::forward_list<std::string> myStore;
};

inline double evToFloat(const evValue &v)
{
    return v.s ? ev_StringToFloat(v.s->c_str()) : v.f;
}

inline bool evTruth(const evValue &v)
{
    return v.s ? !v.s->empty() : v.f != 0.0;
}

// A value taken from the host or the environment: a whole decimal number is
// a float, anything else a string.
evValue evClassify(const std::string &text, evStrings &strings)
{
    double f;
    const char *end = ev_ScanDecimal(text.c_str(), f);
    if (end != text.c_str()) {
        while (*end == ' ' || *end == '\t')
            ++end;
        if (!*end)
            return {f, nullptr};
    }
    return {0.0, strings.add(text)};
}

class evMachine
{
public:
    evMachine(EV_EXPRESSION &expr, const evProgram &prog, int thread, evThreadState &state)
        : myExpr(expr), myProg(prog), myThread(thread), myState(state) {}

    bool run(evValue &out);
    int error() const { return myError; }

private:
    bool fail(int error)
    {
        myError = error;
        return false;
    }
    bool variable(const evBinding &b, evValue &out);
    bool unbound(const std::string &name, evValue &out);
    bool call(const evCallSite &site, evValue *args, evValue &out);
    bool arithmetic(evOp op, evValue &a, const evValue &b);
    static bool compare(evOp op, const evValue &a, const evValue &b);

    EV_EXPRESSION &myExpr;
    const evProgram &myProg;
    int myThread;
    evThreadState &myState;
    evStrings myStrings;
    int myError = 0;
};

bool evMachine::compare(evOp op, const evValue &a, const evValue &b)
{
    int c;
    if (a.s && b.s) {
        int t = a.s->compare(*b.s);
        c = t < 0 ? -1 : (t > 0 ? 1 : 0);
    } else {
        double x = evToFloat(a), y = evToFloat(b);
        c = x < y ? -1 : (x > y ? 1 : (x == y ? 0 : 2)); // 2: unordered (NaN)
    }
    switch (op) {
    case evOp::EQ: return c == 0;
    case evOp::NE: return c != 0;
    case evOp::LT: return c == -1;
    case evOp::LE: return c == -1 || c == 0;
    case evOp::GT: return c == 1;
    default: return c == 1 || c == 0;
    }
}

// a = a op b; '+' joins texts when either side is a string.
bool evMachine::arithmetic(evOp op, evValue &a, const evValue &b)
{
    if (op == evOp::ADD && (a.s || b.s)) {
        std::string joined = a.s ? *a.s : ev_FloatToString(a.f);
        joined += b.s ? *b.s : ev_FloatToString(b.f);
        a = {0.0, myStrings.add(std::move(joined))};
        return true;
    }
    double x = evToFloat(a), y = evToFloat(b);
    switch (op) {
    case evOp::ADD: x += y; break;
    case evOp::SUB: x -= y; break;
    case evOp::MUL: x *= y; break;
    case evOp::DIV:
        if (y == 0.0)
            return fail(EV_ERRDIVZERO);
        x /= y;
        break;
    case evOp::MOD:
        if (y == 0.0)
            return fail(EV_ERRDIVZERO);
        x = std::fmod(x, y);
        break;
    default: x = std::pow(x, y); break;
    }
    a = {x, nullptr};
    return true;
}

bool evMachine::variable(const evBinding &b, evValue &out)
{
    if (!b.type)
        return unbound(b.name, out);
    if (b.orMask)
        myExpr.orFlags(b.orMask);
    if (b.binding.flags & EV_VarBinding::STRING) {
        std::string *s = myStrings.fresh();
        if (b.type->getString)
            b.type->getString(b.binding, *s, myThread);
        out = {0.0, s};
    } else {
        out = {b.type->getFloat ? b.type->getFloat(b.binding, myThread) : 0.0, nullptr};
    }
    return true;
}

// Names no type claimed when compiled: the variable types again, the host's
// callback, then the process environment.
bool evMachine::unbound(const std::string &name, evValue &out)
{
    evRegistry &reg = evRegistry::get();
    evBinding found;
    if (reg.anyVariableType([&](EV_TYPEDEF *type) {
            if (type->resolveVariable && type->resolveVariable(name.c_str(), found.binding, myThread)) {
                found.type = type;
                return true;
            }
            return false;
        })) {
        found.orMask = evBindingMask(found.binding);
        return variable(found, out);
    }

    std::string text;
    if (EV_VARIABLE_CALLBACK cb = reg.variableCallback.load(std::memory_order_acquire)) {
        bool time_dep = false;
        if (cb(name.c_str(), text, time_dep, myThread)) {
            if (time_dep)
                myExpr.orFlags(EV_FLAG_TIMEDEP);
            out = evClassify(text, myStrings);
            return true;
        }
    }
    if (reg.environmentFallback.load(std::memory_order_relaxed)) {
        if (const char *env = std::getenv(name.c_str())) {
            out = evClassify(env, myStrings);
            return true;
        }
    }
    return fail(EV_ERRUNDEFINED);
}

bool evMachine::call(const evCallSite &site, evValue *args, evValue &out)
{
    int error = 0;
    EV_FUNCTION *func = evCallee(site, error);
    if (!func)
        return fail(error);
    const int argc = site.argc;
    evArgs syms(argc);
    for (int i = 0; i < argc; ++i) {
        EV_SYMBOL &sym = syms.init(i);
        const evValue &v = args[i];
        if (func->getArgType(i) == EV_TYPESTRING) {
            sym.type = EV_TYPESTRING;
            sym.sval = v.s ? v.s->c_str() : myStrings.add(ev_FloatToString(v.f))->c_str();
        } else {
            sym.fval = evToFloat(v);
        }
    }
    EV_SYMBOL result;
    result.type = func->getResultType();
    std::string *storage = nullptr;
    if (result.type == EV_TYPESTRING) {
        storage = myStrings.fresh();
        result.storage = storage;
    }
    func->getEvaluate()(func, &result, syms.argv(), myThread);
    evReadFlags(myExpr, func);
    if (myState.error)
        return fail(myState.error); // the callback reported an error
    if (storage) {
        if (result.sval != storage->c_str() && result.sval && *result.sval)
            storage->assign(result.sval); // a callback that pointed at its own text
        out = {0.0, storage};
    } else {
        out = {result.fval, nullptr};
    }
    return true;
}

bool evMachine::run(evValue &out)
{
    const int depth = myProg.maxStack > 0 ? myProg.maxStack : 1;
    evValue inlineStack[evProgram::theFloatStack];
    std::vector<evValue> heapStack;
    evValue *stack = inlineStack;
    if (depth > evProgram::theFloatStack) {
        heapStack.resize(static_cast<std::size_t>(depth));
        stack = heapStack.data();
    }
    const evInstr *code = myProg.code.data();
    const double *numbers = myProg.numbers.data();
    evValue *sp = stack; // next free slot
    for (const evInstr *pc = code;; ++pc) {
        switch (pc->op) {
        case evOp::PUSHNUM:
            *sp++ = {numbers[pc->a], nullptr};
            break;
        case evOp::PUSHSTR:
            *sp++ = {0.0, &myProg.strings[static_cast<std::size_t>(pc->a)]};
            break;
        case evOp::PUSHXSTR: {
            const std::string &text = myProg.strings[static_cast<std::size_t>(pc->a)];
            EV_EXPANDER expander = evRegistry::get().expander.load(std::memory_order_acquire);
            char *expanded = expander ? expander(text.c_str(), myThread) : nullptr;
            if (expanded) {
                *sp++ = {0.0, myStrings.add(expanded)};
                std::free(expanded);
            } else {
                *sp++ = {0.0, &text};
            }
            break;
        }
        case evOp::VAR:
            if (!variable(myProg.bindings[static_cast<std::size_t>(pc->a)], *sp))
                return false;
            ++sp;
            break;
        case evOp::NEG: sp[-1] = {-evToFloat(sp[-1]), nullptr}; break;
        case evOp::POS: sp[-1] = {evToFloat(sp[-1]), nullptr}; break;
        case evOp::NOT: sp[-1] = {evTruth(sp[-1]) ? 0.0 : 1.0, nullptr}; break;
        case evOp::TRUTH: sp[-1] = {evTruth(sp[-1]) ? 1.0 : 0.0, nullptr}; break;
        case evOp::ADD: case evOp::SUB: case evOp::MUL:
        case evOp::DIV: case evOp::MOD: case evOp::POW:
            --sp;
            if (!arithmetic(pc->op, sp[-1], sp[0]))
                return false;
            break;
        case evOp::ADDK: case evOp::SUBK: case evOp::MULK: case evOp::DIVK: {
            static const evOp theBase[] = {evOp::ADD, evOp::SUB, evOp::MUL, evOp::DIV};
            evOp base = theBase[static_cast<int>(pc->op) - static_cast<int>(evOp::ADDK)];
            if (!arithmetic(base, sp[-1], evValue{numbers[pc->a], nullptr}))
                return false;
            break;
        }
        case evOp::EQ: case evOp::NE: case evOp::LT:
        case evOp::LE: case evOp::GT: case evOp::GE:
            --sp;
            sp[-1] = {compare(pc->op, sp[-1], sp[0]) ? 1.0 : 0.0, nullptr};
            break;
        case evOp::JMP:
            pc = code + pc->a - 1;
            break;
        case evOp::JZ:
            --sp;
            if (!evTruth(*sp))
                pc = code + pc->a - 1;
            break;
        case evOp::CALL: {
            const evCallSite &site = myProg.calls[static_cast<std::size_t>(pc->a)];
            sp -= site.argc;
            if (!call(site, sp, *sp))
                return false;
            ++sp;
            break;
        }
        case evOp::END:
            out = sp[-1]; // may point into this machine's store: read it before the machine goes
            return true;
        }
    }
}

// ---- Entry ---------------------------------------------------------------------

// Checks and depth accounting common to both results; 'run' does the work
// and returns the error number (0 on success).
template <typename Run>
bool evEvaluateWith(EV_EXPRESSION &expr, int thread, Run run)
{
    expr.orFlags(EV_FLAG_EVALUATED);
    const evProgram *prog = expr.myProgram.get();
    if (!prog)
        return true; // no text: 0 or the empty string, without error
    evThreadState &state = evGetThreadState(thread);
    if (__builtin_expect(prog->compileError != 0, 0))
        return evReport(state, prog->compileError);
    if (state.depth == 0)
        state.unwinding = false; // a new outermost evaluation
    if (__builtin_expect(state.depth >= EV_MAX_EVAL_DEPTH || state.unwinding, 0)) {
        state.unwinding = true;
        return evReport(state, EV_ERRRECURSION);
    }
    // An error left pending by an earlier evaluation is set aside, so that
    // errors raised during this one are seen; the first error stays the one
    // reported.
    const int pending = state.error;
    state.error = 0;
    ++state.depth;
    int error;
    try {
        error = run(*prog, state);
    } catch (...) {
        // Callbacks must not throw; if one does, it fails the evaluation
        // instead of unwinding through the host.
        state.custom = "A function failed with an exception";
        error = EV_ERRCUSTOM;
    }
    --state.depth;
    // A callback may have cleared the nested failure; the evaluation still
    // ends with it, and the outermost one stops unwinding.
    if (state.unwinding && !error)
        error = EV_ERRRECURSION;
    if (state.depth == 0)
        state.unwinding = false;
    state.error = pending ? pending : error;
    return error == 0;
}

} // namespace

int ev_EvaluateFloat(EV_EXPRESSION *expr, float *result, int thread)
{
    if (result)
        *result = 0.0f;
    if (!expr)
        return 0;
    return evEvaluateWith(*expr, thread, [&](const evProgram &prog, evThreadState &state) {
        double value = 0.0;
        if (prog.floatOnly) {
            evFloatMachine m(*expr, prog, thread, state);
            if (!m.run(value))
                return m.error();
        } else {
            evMachine m(*expr, prog, thread, state);
            evValue out{0.0, nullptr};
            if (!m.run(out))
                return m.error();
            value = evToFloat(out);
        }
        if (result)
            *result = static_cast<float>(value);
        return 0;
    });
}

int ev_EvaluateString(EV_EXPRESSION *expr, UT_String &result, int thread)
{
    result.clear();
    if (!expr)
        return 0;
    return evEvaluateWith(*expr, thread, [&](const evProgram &prog, evThreadState &state) {
        evMachine m(*expr, prog, thread, state);
        evValue out{0.0, nullptr};
        if (!m.run(out))
            return m.error();
        result = out.s ? *out.s : ev_FloatToString(out.f);
        return 0;
    });
}
