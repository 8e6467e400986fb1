#include "evLibrary.h"
#include "evRegistry.h"

#include <ev/EV_Engine.h>
#include <ut/UT_String.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

// Two evaluators run the same instruction set. Programs that never touch a
// string (the usual animation expression) run on a stack of doubles; the
// general one carries a string pointer beside every value.

namespace {

// ---- Shared pieces -----------------------------------------------------------

bool evReport(evThreadState &state, int error)
{
    if (!state.error) {
        state.error = error;
        state.clearPosition();
    }
    return false;
}

// The position and custom text of a pending error, kept while a nested
// evaluation runs (off the common path: most evaluations start with no
// error pending). Without memory for the record they are dropped, and the
// number alone comes back.
__attribute__((noinline)) void evSetErrorAside(evThreadState &state) noexcept
{
    try {
        state.asides.push_back({state.depth, state.errorOffset, std::move(state.errorToken),
                                std::move(state.custom)});
    } catch (...) {
        state.custom.clear();
    }
    state.clearPosition();
    state.error = 0;
}

// After the depth is back to the level the error was set aside at.
void evTakeErrorBack(evThreadState &state, int pending) noexcept
{
    state.error = pending;
    if (!state.asides.empty() && state.asides.back().depth == (state.depth & ~evThreadState::theUnwinding)) {
        evThreadState::Aside &aside = state.asides.back();
        state.errorOffset = aside.offset;
        state.errorToken = std::move(aside.token);
        state.custom = std::move(aside.custom);
        state.asides.pop_back();
    } else {
        state.clearPosition();
    }
}

// Leaves an evaluation that did not end plainly; returns its error.
__attribute__((noinline)) int evLeaveSlowly(evThreadState &state, int pending, int error)
{
    // A callback may have cleared the nested failure of an evaluation that
    // hit the nesting limit; this one still ends with it, and the outermost
    // one stops unwinding so that the next starts clean.
    if (state.unwinding()) {
        if (!error)
            error = EV_ERRRECURSION;
        if (--state.depth == evThreadState::theUnwinding)
            state.depth = 0;
    } else {
        --state.depth;
    }
    if (pending) {
        evTakeErrorBack(state, pending);
    } else {
        // An error that reached the thread during the run (a nested text
        // that did not compile) keeps its position; one of the run's own has none.
        if (state.error != error)
            state.clearPosition();
        state.error = error;
    }
    return error;
}

// Callbacks must not throw; if one does, it fails the evaluation instead of
// unwinding through the host. Gives the evaluation's error.
__attribute__((noinline)) int evCallbackThrew(evThreadState &state) noexcept
{
    try {
        state.custom = "A function failed with an exception";
    } catch (...) {
        state.custom.clear(); // no memory for the text either
    }
    return EV_ERRCUSTOM;
}

// A text that did not compile reports its error, with where it was found,
// on whichever thread evaluates it (without memory for the token, without
// its position).
__attribute__((noinline)) bool evReportCompileError(evThreadState &state, const evProgram &prog) noexcept
{
    if (!state.error) {
        state.error = prog.compileError;
        try {
            state.errorToken = prog.errorToken;
            state.errorOffset = prog.errorOffset;
        } catch (...) {
            state.clearPosition();
        }
    }
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
// into the program's constants or into the evaluation's string store; in
// the store, the one value on the stack that holds the string owns it
// (own is its number there) until an instruction consumes the value.
struct evValue
{
    double f;
    const std::string *s;
    int own = -1;
};

// Strings made during one evaluation. A string is handed back as soon as
// the value holding it is consumed, so a long chain of joins keeps only
// what is still on the stack; strings stay in place while others are added.
class evStrings
{
public:
    int fresh()
    {
        if (!myFree.empty()) {
            int i = myFree.back();
            myFree.pop_back();
            return i;
        }
        mySlots.push_back(std::make_unique<std::string>());
        return static_cast<int>(mySlots.size()) - 1;
    }
    std::string &at(int i) { return *mySlots[static_cast<std::size_t>(i)]; }
    void release(int i)
    {
        std::string &s = at(i);
        if (s.capacity() > theKeep)
            std::string().swap(s); // big ones go back to the system now
        else
            s.clear();
        myFree.push_back(i);
    }

private:
    static constexpr std::size_t theKeep = 1024;
    std::vector<std::unique_ptr<std::string>> mySlots;
    std::vector<int> myFree;
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
    int i = strings.fresh();
    strings.at(i) = text;
    return {0.0, &strings.at(i), i};
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
    bool join(evValue &a, const evValue &b);
    static bool compare(evOp op, const evValue &a, const evValue &b);
    evValue temp(std::string text)
    {
        int i = myStrings.fresh();
        myStrings.at(i) = std::move(text);
        return {0.0, &myStrings.at(i), i};
    }
    /// Hands back the string a consumed value owned.
    void drop(const evValue &v)
    {
        if (v.own >= 0)
            myStrings.release(v.own);
    }
    /// Replaces a consumed value by a number (computed from it beforehand).
    void put(evValue &v, double x)
    {
        drop(v);
        v = {x, nullptr};
    }
    bool tooLong()
    {
        myState.custom = evStringTooLongText;
        return fail(EV_ERRCUSTOM);
    }

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

// a = a + b as text. Joins into a string one of the operands owns when it
// can, so that a chain of joins grows one string instead of copying it at
// every step.
bool evMachine::join(evValue &a, const evValue &b)
{
    std::string left, right;
    const std::string &x = a.s ? *a.s : (left = ev_FloatToString(a.f));
    const std::string &y = b.s ? *b.s : (right = ev_FloatToString(b.f));
    if (x.size() + y.size() > evMaxStringLength)
        return tooLong();
    if (a.own >= 0) {
        myStrings.at(a.own) += y;
        drop(b);
    } else if (b.own >= 0) {
        myStrings.at(b.own).insert(0, x);
        a = b;
    } else {
        a = temp(x + y);
    }
    return true;
}

// a = a op b; '+' joins texts when either side is a string.
bool evMachine::arithmetic(evOp op, evValue &a, const evValue &b)
{
    if (op == evOp::ADD && (a.s || b.s))
        return join(a, b);
    double x = evToFloat(a), y = evToFloat(b);
    drop(a);
    drop(b);
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
        int i = myStrings.fresh();
        if (b.type->getString)
            b.type->getString(b.binding, myStrings.at(i), myThread);
        out = {0.0, &myStrings.at(i), i};
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
        evValue &v = args[i];
        if (func->getArgType(i) == EV_TYPESTRING) {
            sym.type = EV_TYPESTRING;
            if (!v.s)
                v = temp(ev_FloatToString(v.f)); // the argument's slot owns the text
            sym.sval = v.s->c_str();
        } else {
            sym.fval = evToFloat(v);
        }
    }
    EV_SYMBOL result;
    result.type = func->getResultType();
    int storage = -1;
    if (result.type == EV_TYPESTRING) {
        storage = myStrings.fresh();
        result.storage = &myStrings.at(storage);
    }
    func->getEvaluate()(func, &result, syms.argv(), myThread);
    evReadFlags(myExpr, func);
    if (myState.error)
        return fail(myState.error); // the callback reported an error
    if (storage >= 0) {
        std::string &text = myStrings.at(storage);
        if (result.sval != text.c_str() && result.sval && *result.sval)
            text.assign(result.sval); // a callback that pointed at its own text
        if (text.size() > evMaxStringLength)
            return tooLong();
        // Read before the arguments go: the result may have pointed at one.
        for (int i = 0; i < argc; ++i)
            drop(args[i]);
        out = {0.0, &text, storage};
    } else {
        for (int i = 0; i < argc; ++i)
            drop(args[i]);
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
                *sp++ = temp(expanded);
                std::free(expanded);
            } else {
                *sp++ = {0.0, &text};
            }
            // An error of a back-quoted expression fails the evaluation
            // (the expander leaves it on the thread, as expandString does).
            if (myState.error)
                return fail(myState.error);
            if (sp[-1].s->size() > evMaxStringLength)
                return tooLong();
            break;
        }
        case evOp::VAR:
            if (!variable(myProg.bindings[static_cast<std::size_t>(pc->a)], *sp))
                return false;
            ++sp;
            break;
        case evOp::NEG: put(sp[-1], -evToFloat(sp[-1])); break;
        case evOp::POS: put(sp[-1], evToFloat(sp[-1])); break;
        case evOp::NOT: put(sp[-1], evTruth(sp[-1]) ? 0.0 : 1.0); break;
        case evOp::TRUTH: put(sp[-1], evTruth(sp[-1]) ? 1.0 : 0.0); break;
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
        {
            --sp;
            const bool yes = compare(pc->op, sp[-1], sp[0]);
            drop(sp[0]);
            put(sp[-1], yes ? 1.0 : 0.0);
            break;
        }
        case evOp::JMP:
            pc = code + pc->a - 1;
            break;
        case evOp::JZ:
            --sp;
            put(*sp, evTruth(*sp) ? 1.0 : 0.0);
            if (sp->f == 0.0)
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
        return evReportCompileError(state, *prog);
    // Unwinding puts depth past the limit too.
    static_assert(evThreadState::theUnwinding > EV_MAX_EVAL_DEPTH, "one test for both");
    if (__builtin_expect(state.depth >= EV_MAX_EVAL_DEPTH, 0)) {
        state.depth |= evThreadState::theUnwinding;
        return evReport(state, EV_ERRRECURSION);
    }
    // An error left pending by an earlier evaluation is set aside, so that
    // errors raised during this one are seen; the first error stays the one
    // reported.
    const int pending = state.error;
    if (__builtin_expect(pending != 0, 0))
        evSetErrorAside(state);
    ++state.depth;
    int error;
    try {
        error = run(*prog, state);
    } catch (...) {
        error = evCallbackThrew(state);
    }
    // Leaving: in the common case (nothing pending, no error reached the
    // thread from elsewhere, not unwinding) the thread's error already is
    // the run's and only the depth changes; the rest is out of line.
    if (__builtin_expect((pending | (state.error ^ error) | (state.depth & evThreadState::theUnwinding)) != 0, 0))
        error = evLeaveSlowly(state, pending, error);
    else
        --state.depth;
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
