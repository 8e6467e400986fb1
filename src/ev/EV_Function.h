#ifndef EV_FUNCTION_H
#define EV_FUNCTION_H

#include <atomic>
#include <string>
#include <vector>

class EV_FUNCTION;
struct EV_SYMBOL;

/// Evaluates a call: the record, its result, its arguments (converted to the
/// declared types) and the evaluating thread. May run on many threads at
/// once. Report failures through ev_SetErrNo / ev_SetCustomErrorMessage.
using EV_EVALUATE_FUNC = void (*)(EV_FUNCTION *func, EV_SYMBOL *result, EV_SYMBOL **argv, int thread);
/// Records what a call depends on (operator references); arguments as for
/// evaluation.
using EV_DEPEND_FUNC = void (*)(EV_FUNCTION *func, EV_SYMBOL **argv, void *ref_data, int thread);
/// The plain form of a one-argument float function that cannot fail.
using EV_DIRECT_FLOAT_FUNC = double (*)(double);
/// Rewrites the path arguments of a call when nodes are renamed; returns the
/// number of changes.
using EV_CHANGEREF_FUNC = int (*)(EV_FUNCTION *func, std::vector<std::string> &args, void *ref_data, int thread);

/// A function callable from expressions.
///
/// Records are owned by whoever registers them and must outlive their
/// registration (the library's are static). The usage flags are ORed into
/// the flag word of every expression that calls the function, after each
/// call, as they are at that moment: a callback may change its own record's
/// flags (the channel library's eval does), from any thread, so they are
/// atomic.
class EV_FUNCTION
{
public:
    /// 'arg_types' holds 'nargs' type codes (null: all float).
    /// 'deterministic': the result depends only on the arguments and the
    /// evaluation context (time, channel), never on hidden state, so a
    /// call may be shared between identical sites of one evaluation.
    /// 'needs_lock': the callback must not run on two threads at once
    /// (Python-implemented functions); the engine itself never locks, the
    /// flag is for the host's scheduler.
    EV_FUNCTION(unsigned flags, const char *name, int nargs, int result_type,
                const int *arg_types, EV_EVALUATE_FUNC evaluate,
                EV_DEPEND_FUNC depend = nullptr, EV_CHANGEREF_FUNC changeref = nullptr,
                int deterministic = 1, bool needs_lock = false);

    const char *getName() const { return myName.c_str(); }
    int getNArgs() const { return myNArgs; }
    int getArgType(int i) const { return myArgTypes[static_cast<std::size_t>(i)]; }
    int getResultType() const { return myResultType; }
    EV_EVALUATE_FUNC getEvaluate() const { return myEvaluate; }
    EV_DEPEND_FUNC getDepend() const { return myDepend; }
    EV_CHANGEREF_FUNC getChangeRef() const { return myChangeRef; }
    /// True when every argument and the result are floats.
    bool isAllFloat() const { return myAllFloat; }
    bool isDeterministic() const { return myDeterministic != 0; }
    bool needsLock() const { return myNeedsLock; }
    /// True when registered after ev_InitUserFunc: a host function.
    bool isUserFunction() const { return myUser.load(std::memory_order_relaxed); }

    unsigned getUserFlags() const { return myFlags.load(std::memory_order_relaxed); }
    void setUserFlags(unsigned flags) { myFlags.store(flags, std::memory_order_relaxed); }

    /// Optional: the same computation as the callback for one float argument,
    /// as a plain function the engine may call instead (no symbols to build).
    /// Only for functions that never report an error.
    void setDirectFloat(EV_DIRECT_FLOAT_FUNC direct) { myDirect = getNArgs() == 1 && myAllFloat ? direct : nullptr; }
    EV_DIRECT_FLOAT_FUNC getDirectFloat() const { return myDirect; }

    /// Called by the engine when registering.
    void setUserFunction(bool user) { myUser.store(user, std::memory_order_relaxed); }

private:
    std::atomic<unsigned> myFlags;
    std::string myName;
    std::vector<int> myArgTypes;
    int myNArgs;
    int myResultType;
    EV_EVALUATE_FUNC myEvaluate;
    EV_DEPEND_FUNC myDepend;
    EV_CHANGEREF_FUNC myChangeRef;
    int myDeterministic;
    bool myNeedsLock;
    bool myAllFloat;
    EV_DIRECT_FLOAT_FUNC myDirect = nullptr;
    std::atomic<bool> myUser{false};
};

#endif
