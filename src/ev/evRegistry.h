#ifndef EV_REGISTRY_H
#define EV_REGISTRY_H

#include <ev/EV_Engine.h>
#include "evProgram.h"

#include <ut/UT_Thread.h>
#include <ut/UT_ThreadSlots.h>

#include <atomic>
#include <memory>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

/// The engine's process-wide tables: function slots by name, the added
/// types, the expander, the host variable callback and the settings.
///
/// Registration happens before evaluation starts, but compiling (which
/// evaluation does for eval-like functions) reads the tables from any thread:
/// function slots sit behind a reader-writer lock taken only when compiling;
/// type lists are append-only arrays read without a lock.
class evRegistry
{
public:
    static constexpr int theMaxTypes = 64;

    static evRegistry &get();

    void addFunction(EV_FUNCTION *func);
    /// The slot of a name, or null when nothing was ever registered under it.
    evFuncSlot *findSlot(const std::string &name) const;

    void addDefineType(EV_TYPEDEF *type) { append(myDefineTypes, myDefineCount, type); }
    void addVariableType(EV_TYPEDEF *type) { append(myVarTypes, myVarCount, type); }

    /// Calls f(type) for each added type in order until f returns true.
    template <typename F>
    bool anyDefineType(F &&f) const { return any(myDefineTypes, myDefineCount, f); }
    template <typename F>
    bool anyVariableType(F &&f) const { return any(myVarTypes, myVarCount, f); }

    std::atomic<EV_EXPANDER> expander{nullptr};
    std::atomic<EV_VARIABLE_CALLBACK> variableCallback{nullptr};
    std::atomic<bool> environmentFallback{false};
    std::atomic<int> optimization{1};
    std::atomic<bool> userFunctions{false};

private:
    using TypeArray = std::atomic<EV_TYPEDEF *>[theMaxTypes];

    void append(TypeArray &array, std::atomic<int> &count, EV_TYPEDEF *type);
    template <typename F>
    static bool any(const TypeArray &array, const std::atomic<int> &count, F &f)
    {
        int n = count.load(std::memory_order_acquire);
        for (int i = 0; i < n; ++i)
            if (f(array[i].load(std::memory_order_relaxed)))
                return true;
        return false;
    }

    mutable std::shared_mutex myLock;
    std::unordered_map<std::string, std::unique_ptr<evFuncSlot>> mySlots;
    TypeArray myDefineTypes = {};
    TypeArray myVarTypes = {};
    std::atomic<int> myDefineCount{0};
    std::atomic<int> myVarCount{0};
};

/// Per-thread state of the engine: error number and custom text, and the
/// depth of nested evaluations.
struct evThreadState
{
    int error = 0;
    /// Nesting depth of evaluations on the thread, and theUnwinding: set
    /// when an evaluation hits the depth limit, so that every evaluation
    /// nested in the same outermost one then fails at once (callbacks that
    /// read several times per level cannot multiply the work on the way
    /// out). One word, so entering an evaluation tests both at once.
    int depth = 0;
    static constexpr int theUnwinding = 1 << 20;

    bool unwinding() const { return (depth & theUnwinding) != 0; }
    std::string custom;
    /// For an error a text got when compiled: where in the text, and the
    /// token there; -1 and "" for any other error. Set and cleared with
    /// the error it belongs to.
    int errorOffset = -1;
    std::string errorToken;
    /// What an error pending around a nested evaluation keeps beside its
    /// number: its position and custom text, and the depth it was set
    /// aside at (an entry that could not be stored is missing from here).
    struct Aside
    {
        int depth;
        int offset;
        std::string token;
        std::string custom;
    };
    std::vector<Aside> asides;

    void clearPosition()
    {
        errorOffset = -1;
        errorToken.clear();
    }
};

using evThreadStates = UT_ThreadSlots<evThreadState, 64>;
/// Null until the first use. A constant-initialised pointer rather than a
/// function-local static: reading it needs no guard test and no registers
/// saved for the guard's slow path (every evaluation reads it).
/// Hidden: the engine reads it from inside the library only.
extern __attribute__((visibility("hidden"))) std::atomic<evThreadStates *> evTheThreadStates;
/// The first use: builds the states (also from static constructors),
/// publishes them and gives the thread's; out of line.
evThreadState &evGetFirstThreadState(int thread);

inline evThreadState &evGetThreadState(int thread)
{
    evThreadStates *states = evTheThreadStates.load(std::memory_order_acquire);
    if (__builtin_expect(states == nullptr, 0))
        return evGetFirstThreadState(thread);
    // Most hosts pass 0: the calling thread's number is one thread-local
    // read here, where the slots would resolve it out of line.
    if (thread <= 0)
        thread = UT_Thread::getMySequentialThreadIndex();
    return states->get(thread);
}

/// The error pending on a thread (a number already accepted, 1 or more),
/// inline in the common case of an inline slot; out of line, and 0 when the
/// thread's state cannot be made, otherwise. For the library's own entry
/// points, which all ask before they start.
int evGetErrNoSlowly(int thread) noexcept;
inline int evPendingError(int thread) noexcept
{
    evThreadStates *states = evTheThreadStates.load(std::memory_order_acquire);
    if (__builtin_expect(states != nullptr && static_cast<unsigned>(thread) - 1u <
                                                  static_cast<unsigned>(evThreadStates::theInlineSlots),
                         1))
        return states->at(thread).error;
    return evGetErrNoSlowly(thread);
}

/// The flag-word bits that reading a bound variable sets.
inline unsigned evBindingMask(const EV_VarBinding &b)
{
    return ((b.flags & EV_VarBinding::TIME_DEP) ? EV_FLAG_TIMEDEP : 0u) |
           (b.flags & EV_VarBinding::USAGE_MASK);
}

#endif
