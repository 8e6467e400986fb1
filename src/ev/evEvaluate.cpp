#include "evEvaluate.h"
#include "evRegistry.h"

#include <ev/EV_Engine.h>

#include <cmath>
#include <cstdlib>
#include <forward_list>
#include <memory>
#include <new>

namespace {

// A stack value: a float, or a string when s is set. Strings point either
// into the program's constants or into the evaluation's string store.
struct evValue
{
    double f;
    const std::string *s;
};

// Strings made during one evaluation, kept in place while more are added.
// An empty forward_list allocates nothing, so float-only evaluations don't.
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
    const char *begin = text.c_str();
    char *end = nullptr;
    double f = std::strtod(begin, &end);
    bool decimal = end != begin && text.find_first_of("xXnN") == std::string::npos;
    if (decimal) {
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

    // Runs the program; false with myError set on failure.
    bool run(evValue *stack, evValue &out);
    int error() const { return myError; }
    evStrings &strings() { return myStrings; }

private:
    bool fail(int error)
    {
        myError = error;
        return false;
    }
    bool variable(const evBinding &b, evValue &out);
    bool unbound(const std::string &name, evValue &out);
    bool call(const evCallSite &site, evValue *args, evValue &out);
    bool compare(evOp op, const evValue &a, const evValue &b);

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

bool evMachine::variable(const evBinding &b, evValue &out)
{
    if (!b.type)
        return unbound(b.name, out);
    unsigned flags = b.binding.flags;
    if (flags & EV_VarBinding::TIME_DEP)
        myExpr.orFlags(EV_FLAG_TIMEDEP);
    if (flags & EV_VarBinding::USAGE_MASK)
        myExpr.orFlags(flags & EV_VarBinding::USAGE_MASK);
    if (flags & EV_VarBinding::STRING) {
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
        }))
        return variable(found, out);

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
    EV_FUNCTION *func = site.slot->record.load(std::memory_order_acquire);
    if (!func)
        return fail(EV_ERRUNKNOWNFUNC);
    const int argc = site.argc;
    if (func->getNArgs() != argc)
        return fail(EV_ERRNARGS); // replaced by a record of another arity

    // Symbols are built in raw storage: only the arguments used are set up.
    constexpr int theInline = 8;
    alignas(EV_SYMBOL) unsigned char raw[theInline * sizeof(EV_SYMBOL)];
    EV_SYMBOL *argvInline[theInline];
    std::unique_ptr<EV_SYMBOL[]> heapSyms;
    std::unique_ptr<EV_SYMBOL *[]> heapArgv;
    EV_SYMBOL *syms = reinterpret_cast<EV_SYMBOL *>(raw);
    EV_SYMBOL **argv = argvInline;
    if (argc > theInline) {
        heapSyms.reset(new EV_SYMBOL[static_cast<std::size_t>(argc)]);
        heapArgv.reset(new EV_SYMBOL *[static_cast<std::size_t>(argc)]);
        syms = heapSyms.get();
        argv = heapArgv.get();
    }
    for (int i = 0; i < argc; ++i) {
        EV_SYMBOL *sym = argc > theInline ? &syms[i] : new (&syms[i]) EV_SYMBOL;
        const evValue &v = args[i];
        if (func->getArgType(i) == EV_TYPESTRING) {
            sym->type = EV_TYPESTRING;
            sym->sval = v.s ? v.s->c_str() : myStrings.add(ev_FloatToString(v.f))->c_str();
        } else {
            sym->type = EV_TYPEFLOAT;
            sym->fval = evToFloat(v);
        }
        argv[i] = sym;
    }

    EV_SYMBOL result;
    result.type = func->getResultType();
    std::string *storage = nullptr;
    if (result.type == EV_TYPESTRING) {
        storage = myStrings.fresh();
        result.storage = storage;
    }
    const int before = myState.error;
    func->getEvaluate()(func, &result, argv, myThread);
    myExpr.orFlags(func->getUserFlags());
    if (myState.error && !before)
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

bool evMachine::run(evValue *stack, evValue &out)
{
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
        case evOp::ADD: {
            --sp;
            evValue &a = sp[-1];
            const evValue &b = sp[0];
            if (__builtin_expect(!a.s && !b.s, 1)) {
                a.f += b.f;
            } else {
                std::string joined = a.s ? *a.s : ev_FloatToString(a.f);
                joined += b.s ? *b.s : ev_FloatToString(b.f);
                a = {0.0, myStrings.add(std::move(joined))};
            }
            break;
        }
        case evOp::SUB: --sp; sp[-1] = {evToFloat(sp[-1]) - evToFloat(sp[0]), nullptr}; break;
        case evOp::MUL: --sp; sp[-1] = {evToFloat(sp[-1]) * evToFloat(sp[0]), nullptr}; break;
        case evOp::DIV:
        case evOp::MOD: {
            --sp;
            double a = evToFloat(sp[-1]), b = evToFloat(sp[0]);
            if (b == 0.0)
                return fail(EV_ERRDIVZERO);
            sp[-1] = {pc->op == evOp::DIV ? a / b : std::fmod(a, b), nullptr};
            break;
        }
        case evOp::POW: --sp; sp[-1] = {std::pow(evToFloat(sp[-1]), evToFloat(sp[0])), nullptr}; break;
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
            out = sp[-1];
            return true;
        }
    }
}

// Leaves the evaluation depth as found, whatever path returns.
struct evDepthGuard
{
    explicit evDepthGuard(evThreadState &s) : state(s) { ++state.depth; }
    ~evDepthGuard() { --state.depth; }
    evThreadState &state;
};

} // namespace

bool evEvaluate(EV_EXPRESSION &expr, evResult &result, bool want_string, int thread)
{
    result.f = 0.0;
    result.s.clear();
    result.isString = want_string;
    expr.orFlags(EV_FLAG_EVALUATED);

    evThreadState &state = evGetThreadState(thread);
    auto report = [&](int error) {
        if (!state.error)
            state.error = error;
        return false;
    };
    const evProgram *prog = expr.myProgram.get();
    if (!prog)
        return true; // no text: 0 or the empty string, without error
    if (prog->compileError)
        return report(prog->compileError);

    evDepthGuard depth(state);
    if (state.depth > EV_MAX_EVAL_DEPTH)
        return report(EV_ERRRECURSION);

    constexpr int theInlineStack = 32;
    evValue inlineStack[theInlineStack];
    std::unique_ptr<evValue[]> heapStack;
    evValue *stack = inlineStack;
    if (prog->maxStack > theInlineStack) {
        heapStack.reset(new (std::nothrow) evValue[static_cast<std::size_t>(prog->maxStack)]);
        if (!heapStack)
            return report(EV_ERRRECURSION);
        stack = heapStack.get();
    }

    evMachine machine(expr, *prog, thread, state);
    evValue out{0.0, nullptr};
    if (!machine.run(stack, out))
        return report(machine.error());
    if (want_string)
        result.s = out.s ? *out.s : ev_FloatToString(out.f);
    else
        result.f = evToFloat(out);
    return true;
}
